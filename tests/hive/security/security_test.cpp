#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

/// Three records; the root uses the second one. The cell at 32 is too short for one.
struct SecurityHive : HiveBuilder {
    SecurityHive() {
        poke(allocate(16) + 4, "sk");
        setDescriptors({patternBytes(4, 1), patternBytes(20, 2), patternBytes(37, 3)});
        build({.keys = {{.name = u"A"}, {.name = u"B", .security = 1}}, .security = 1});
    }
};

/// The records a walk yields, by index; no more than twenty.
std::string walk(const SecurityHive& builder, SecurityDescriptorIterator& iterator) {
    std::string order;
    for (auto next = iterator.next(); next && order.size() < 20; next = iterator.next())
        for (u32 i = 0; i < 3; ++i)
            if (next->recordOfs() == builder.security()[i]) order += static_cast<char>('0' + i);
    return order;
}

std::vector<u8> bytesOf(SecurityDescriptor& descriptor) {
    const auto bytes = descriptor.get();
    return bytes ? std::vector<u8>(bytes->begin(), bytes->end()) : std::vector<u8>();
}

TEST(Security, RingIsWalkedOnceFromTheRootsRecord) {
    SecurityHive builder;
    const auto iterator = OpenedHive(builder).hive->securityDescriptorIterator();
    EXPECT_EQ(walk(builder, *iterator), "120");
    EXPECT_TRUE(iterator->rewind());
    EXPECT_EQ(bytesOf(*iterator->next()), patternBytes(20, 2));
    iterator->rewind();
    EXPECT_EQ(walk(builder, *iterator), "120") << "from the middle of a walk";
}

TEST(Security, BrokenRingsEnd) {
    constexpr auto invalid = "3 HIVE SD Iterator: Invalid offset in sk at ";
    constexpr auto endless = "3 HIVE SD Iterator: Ring of sk records does not return to its start, record: ";
    SecurityHive whole;
    const auto links = [&](u32 to) { return numberBytes(whole.security()[to]); };
    const struct {
        u32 record;
        u32 at;
        std::vector<u8> damage;
        const char* visited;  // the head of it, for an endless ring
        const char* logged;
    } cases[] = {
        {1, 8, links(1), "1", ""},
        {1, 8, numberBytes(0xFFFFFFFF), "1", invalid},
        {2, 8, numberBytes(whole.key().record), "12", ""},
        {2, 0, numberBytes(64), "1", ""},  // free
        {1, 8, numberBytes(32), "1", ""},
        {1, 4, {'k', 's'}, "", ""},
        {0, 8, links(2), "120", endless},
        {2, 8, links(2), "12", endless},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << test.record << " " << test.at << " " << test.logged);
        SecurityHive builder;
        builder.poke(builder.security()[test.record] + test.at, test.damage);
        const auto iterator = OpenedHive(builder).hive->securityDescriptorIterator();
        LogCapture logged;
        const std::string visited = walk(builder, *iterator);
        EXPECT_EQ(visited.substr(0, test.logged == endless ? strlen(test.visited) : 20), test.visited);
        EXPECT_LT(visited.size(), 10u);
        EXPECT_FALSE(iterator->next());
        EXPECT_EQ(logged.count("HIVE SD Iterator"), *test.logged ? 1u : 0u);
        EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
    }
}

/// A record that breaks while its object lives. Log filters know the line numbers; those of `set` are 18 up.
TEST(Security, DescriptorOfABrokenRecordIsRefused) {
    const struct {
        u32 newSize;  // of the cell; 0 frees it
        u32 at;
        std::vector<u8> damage;
        std::string condition;
        u32 line;
    } cases[] = {
        {0, 0, {}, "rec != nullptr", 76},
        {44, 4, {'k', 's'}, "B16ToHost(rec->common.type) == hive_record_sk::SIGNATURE", 77},
        {16,
         4,
         {'s', 'k'},
         "(-static_cast<s32>(L32ToHost(rec->common.size)) >= ((uword) &(((hive_record_sk*)0)->descriptor)))",
         78},
        {44, 20, numberBytes(25), "", 0},  // room for 24
        {44, 20, numberBytes(0xFFFFFFF0), "", 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.condition);
        SecurityHive builder;
        const u32 record = builder.security()[1];
        const OpenedHive opened(builder, HiveFile::modeReadWrite);
        const auto descriptor = opened.hive->securityDescriptorIterator()->next();
        EXPECT_EQ(opened.hive->resizeRecord(record, test.newSize, true, nullptr, false),
                  test.newSize ? record : 0);
        if (test.newSize)
            opened.hive->writeRecord(record, test.damage.data(), test.at, u32(test.damage.size()));
        const u32 length = test.line ? 20 : test.damage[0] == 25 ? 25 : 0xFFFFFFF0;
        for (const bool isGet : {true, false}) {
            LogCapture logged(4);
            EXPECT_FALSE(isGet ? bool(descriptor->get()) : descriptor->set(patternBytes(64).data(), length));
            const std::string line = "4 HIVE SD: ASSERT CONDITION " + test.condition + " FAILED IN LINE " +
                                     std::to_string(test.line + (isGet ? 0 : 18)) +
                                     ", FUNCTION Libraries::Files::Hive::SecurityDescriptorObj::";
            EXPECT_EQ(logged.text(), test.line ? line + (isGet ? "get\n" : "set\n") : "");
        }
    }
}

TEST(Security, DescriptorIsReplacedByOneOfItsLengthOnly) {
    SecurityHive builder;
    const auto fresh = patternBytes(64, 9);
    for (const u32 length : {0u, 19u, 20u, 21u}) {
        const OpenedHive opened(builder, HiveFile::modeReadWrite), readOnly(builder);
        const auto descriptor = opened.hive->securityDescriptorIterator()->next();
        EXPECT_EQ(descriptor->set(fresh.data(), length), length == 20);
        EXPECT_EQ(bytesOf(*descriptor), patternBytes(20, length == 20 ? 9 : 2));
        EXPECT_FALSE(readOnly.hive->securityDescriptorIterator()->next()->set(fresh.data(), length));
    }
    builder.poke32(builder.security()[1] + 20, 0);
    EXPECT_FALSE(OpenedHive(builder).hive->securityDescriptorIterator()->next()->get()) << "an empty one";
}

}  // namespace
