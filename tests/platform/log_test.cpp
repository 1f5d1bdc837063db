#include "platform/syslog/log.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/syslog/syslogstream.h"
#include "platform/system/error.h"
#include "tests/platform/faultystripe.h"

using namespace Platform;

namespace {

class Log : public testing::Test {
 protected:
    Log() { redirectTo(stripe); }
    ~Log() override {
        SysLogStream::redirect(nullptr);
        SysLogFilter::setLevel(SysLogFilter::levelSilent);
    }
    static void redirectTo(const Ref<FaultyStripe>& to) {
        SysLogStream::redirect(CharPrinter::create(CharWriter::create(to, 0, CharWriter::LineEnd::lf)));
    }
    /// What was printed since the last call.
    std::string printed() {
        stripe->seek(0);
        return std::exchange(stripe->bytes, {});
    }

    Ref<FaultyStripe> stripe = FaultyStripe::create();
    const LogChannel channel = SysLogFilter::reg("LogTest");
};

TEST_F(Log, LinesNameLevelAndChannelAndShowNumbersTwice) {
    SysLogFilter::setLevel(1);
    log(4, SysLogFilter::defaultChannel, ~u64{0}, " ", s32{-2}, " ", s64{-1}, " ", u8{0xAB}, " ",
        std::numeric_limits<s64>::min());
    EXPECT_EQ(printed(),
              "4 Default: ffffffffffffffffh (18446744073709551615) fffffffeh (-2) ffffffffffffffffh (-1) "
              "abh (171) 8000000000000000h (-9223372036854775808)\n");
    log(1, channel, String::create(u"\u20AC\xD800"), Ref<String>(), std::string_view("\xE4\0", 1),
        Decimal{7});
    EXPECT_EQ(printed(),
              "1 LogTest: \xE2\x82\xAC\xEF\xBF\xBD\xC3\xA4"
              "7\n");
    EXPECT_FALSE(assertCondition(false, "min <= max", "A::b", 12));
    EXPECT_EQ(printed(), "4 Default: ASSERT CONDITION min <= max FAILED IN LINE 12, FUNCTION A::b\n");
}

TEST_F(Log, FilterLetsThroughLevelsFromItsOwnUpOnChannelsThatAreOn) {
    SysLogFilter::setState(channel, false);
    SysLogFilter::setLevel(3);
    for (u32 level = 1; level <= 4; ++level) {
        log(level, channel, "off");
        log(level, SysLogFilter::defaultChannel, "on");
    }
    EXPECT_EQ(printed(), "3 Default: on\n4 Default: on\n");
    SysLogFilter::setState(channel, true);
}

TEST_F(Log, LinesOfSeveralThreadsDoNotMix) {
    SysLogFilter::setLevel(1);
    std::vector<std::thread> threads;
    for (u32 i = 0; i < 4; ++i)
        threads.emplace_back([this, i] {
            for (u32 line = 0; line < 200; ++line) log(1, channel, "a", i, "b", i, "c");
        });
    for (auto& thread : threads) thread.join();
    std::set<std::string> lines;
    std::istringstream text(printed());
    for (std::string line; std::getline(text, line);) lines.insert(line);
    EXPECT_EQ(lines.size(), 4u);
    EXPECT_EQ(*lines.begin(), "1 LogTest: a0h (0)b0h (0)c");
}

TEST_F(Log, FailingPrinterDoesNotHideTheErrorThatIsReported) {
    SysLogFilter::setLevel(1);
    redirectTo(FaultyStripe::create("", 1, 0));
    Error::set(0x2001);
    log(4, channel, "lost");
    EXPECT_EQ(Error::get(), 0x2001u);
}

}  // namespace
