#include <gtest/gtest.h>

#include "platform/iochar/charwriter.h"
#include "tests/platform/faultystripe.h"

using namespace Platform;

namespace {

TEST(CharWriter, PairsAreJoinedWhereverTheyAreCut) {
    const std::u16string text = u"a\U0001F600\xDC00\xD83Dz\xD83D\U0001F600 and so on \xD800";
    const std::string utf8 = String::create(text)->toUtf8();
    for (u32 buffer = 1; buffer < 9; ++buffer)
        for (u64 cut = 0; cut <= text.size(); ++cut) {
            const auto stripe = FaultyStripe::create();
            {
                const auto writer = CharWriter::create(stripe, buffer);
                writer->write(std::u16string_view(text).substr(0, cut));
                EXPECT_TRUE(writer->flush());
                writer->write(std::u16string_view(text).substr(cut));
            }
            ASSERT_EQ(stripe->bytes, utf8) << buffer << " " << cut;
        }
}

}  // namespace
