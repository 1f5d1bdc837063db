#include <functional>

#include "tests/hive/openedhive.h"
#include "tests/support/hivecheck.h"

namespace {

using namespace HiveTest;  // NOLINT
using Interfaces::ShPtr;
using Platform::Error;
using Platform::makeRef;

constexpr u32 LATIN1 = HiveFile::hiveCodepageLatin1;
const std::vector<std::string> SOUND;

/// A hive of a root key without values. A long class name keeps all other cells away from the start, where
/// cells count as shorter than they are.
std::vector<u8> emptyHive(u32 minor) {
    HiveBuilder builder(minor);
    builder.setHbinSize(69632);
    builder.build({.className = std::u16string(32000, u'c')});
    return builder.finish();
}

struct Hive {
    explicit Hive(std::vector<u8> bytes, u32 mode = 0) : store(makeRef<MemoryStripe>(std::move(bytes))) {
        open(mode);
    }
    void open(u32 mode = 0) {
        hive.reset();
        hive = makeRef<RegistryHiveObj>(store, mode, HiveFile::HiveCodepage(LATIN1), nullptr);
    }
    Ref<ValueObj> create(std::u16string_view name, Value::ValueType type = Value::valueBinary) {
        return Platform::refCast<ValueObj>(hive->rootObj()->createValue(text(name), type));
    }
    Ref<ValueObj> value(std::u16string_view name) {
        return Platform::refCast<ValueObj>(hive->rootObj()->value(text(name)));
    }
    HiveUsage usage() {
        HiveUsage usage;
        EXPECT_TRUE(hive->usage(usage));
        return usage;
    }
    u32 at(u32 offset) const {
        u32 number;
        std::memcpy(&number, store->bytes().data() + 4096 + offset, 4);
        return Platform::L32ToHost(number);
    }

    Ref<MemoryStripe> store;
    Ref<RegistryHiveObj> hive;
};

bool put(const Ref<ValueObj>& value, const std::vector<u8>& data) {
    const u32 size = static_cast<u32>(data.size());
    return value->size(size) == size && value->write(ShPtr::fromConst(data.data()), 0, size) == size;
}

std::vector<u8> dataOf(const Ref<ValueObj>& value) {
    std::vector<u8> data(value->size());
    data.resize(value->read(ShPtr(data.data()), 0, value->size()));
    return data;
}

/// The cells of the data as the file has them, each by its length; the form is the one the length asks for.
std::vector<u32> formOnDisk(const Hive& hive, u32 vk, u32 minor, u32 size) {
    EXPECT_EQ(hive.at(vk + 8), size <= 4 ? 0x80000000 | size : size);
    if (size <= 4) return {};
    const u32 cell = hive.at(vk + 12);
    if (minor == 3 || size <= 16344) return {0 - hive.at(cell)};
    const u32 list = hive.at(cell + 8), count = hive.at(cell + 4) >> 16;
    EXPECT_EQ(hive.at(cell + 4) & 0xFFFF, u32{'d'} | u32{'b'} << 8);
    std::vector<u32> lengths{0 - hive.at(cell), 0 - hive.at(list)};
    for (u32 i = 0; i < count; ++i) lengths.push_back(0 - hive.at(hive.at(list + 4 + 4 * i)));
    return lengths;
}

TEST(Resize, EveryFormToEveryOther) {
    struct {
        u32 size;
        std::vector<u32> cells13, cells15;  // lengths; of a db list: db, list, fragments
    } const forms[] = {
        {0, {}, {}},
        {4, {}, {}},
        {5, {16}, {16}},
        {13, {24}, {24}},
        {16344, {16352}, {16352}},
        {16345, {16352}, {16, 16, 16352, 16352}},
        {32689, {32696}, {16, 16, 16352, 16352, 16352}},
        {65377, {65384}, {16, 24, 16352, 16352, 16352, 16352, 16352}},
    };
    for (const u32 minor : {3u, 5u})
        for (const auto& from : forms)
            for (const auto& to : forms) {
                SCOPED_TRACE(testing::Message() << "1." << minor << " " << from.size << " to " << to.size);
                Hive hive(emptyHive(minor));
                const Ref<ValueObj> value = hive.create(u"v");
                const HiveUsage before = hive.usage();
                const auto data = patternBytes(from.size, 5);
                ASSERT_TRUE(put(value, data));
                ASSERT_EQ(value->size(to.size), to.size);
                const std::vector<u8> kept(data.begin(), data.begin() + std::min(from.size, to.size));
                auto now = dataOf(value);
                ASSERT_EQ(now.size(), to.size);
                now.resize(kept.size());
                EXPECT_TRUE(now == kept);
                EXPECT_TRUE(hive.hive->flush());
                EXPECT_EQ(hiveFaults(hive.store->bytes()), SOUND);
                // A cell that shrinks by less than a cell keeps nothing: lengths are exact every time.
                EXPECT_EQ(formOnDisk(hive, value->recordOfs(), minor, to.size),
                          minor == 3 ? to.cells13 : to.cells15);
                EXPECT_EQ(value->size(0), 0u);
                const HiveUsage after = hive.usage();
                EXPECT_EQ(after.usedCells, before.usedCells);
                EXPECT_EQ(after.usedBytes, before.usedBytes);
            }
}

TEST(Resize, RefusesLengthsThatCannotBeStored) {
    for (const u32 minor : {3u, 5u})
        for (const u32 size : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, minor == 3 ? 0x7FFFFFF5u : 1071104041u})
            for (const u32 start : {3u, 40000u}) {
                Hive hive(emptyHive(minor));
                const auto value = hive.create(u"v");
                ASSERT_TRUE(put(value, patternBytes(start)));
                ASSERT_TRUE(hive.hive->flush());
                const auto before = hive.store->bytes();
                Error::set(0);
                EXPECT_EQ(value->size(size), start);
                EXPECT_EQ(Error::get(), ErrorCode::allocationFailed);
                EXPECT_TRUE(hive.hive->flush());
                EXPECT_TRUE(hive.store->bytes() == before) << size << " from " << start;
                EXPECT_TRUE(dataOf(value) == patternBytes(start));
            }
}

Ref<TVector<Ref<String>>> list(std::initializer_list<std::u16string_view> texts) {
    auto result = makeRef<TVector<Ref<String>>>();
    for (const auto& one : texts) result->append(text(one));
    return result;
}

TEST(Write, TypedWriters) {
    using namespace std::literals;
    const u64 wide = 0x1122334455667788;
    using Op = std::function<bool(ValueObj&)>;
    const Op setCut = [](ValueObj& v) { return v.setString(text(u"ab\0c"sv)); };
    const Op setTwo = [](ValueObj& v) { return v.setStrings(list({u"a", u"\xD83D\xDE00"})); };
    const Op setNothing = [](ValueObj& v) { return v.setStrings(list({})); };
    const Op setSmall = [](ValueObj& v) { return v.setNumber(0x01020304); };
    const Op setWide = [](ValueObj& v) { return v.setNumber(wide); };
    struct {
        u32 type;
        Op set;
        u32 error;
        std::vector<u8> data;  // afterwards
    } const cases[] = {
        {1, setCut, 0, utf16Bytes(u"ab\0"sv)},
        {7, setNothing, 0, {0, 0}},
        {7, setTwo, 0, utf16Bytes(u"a\0\xD83D\xDE00\0\0"sv)},
        {4, setSmall, 0, {4, 3, 2, 1}},
        {5, setSmall, 0, {1, 2, 3, 4}},
        {11, setSmall, 0, {4, 3, 2, 1, 0, 0, 0, 0}},
        {11, setWide, 0, numberBytes(wide, 8)},
        {4, setWide, ErrorCode::numberTooLarge, {0, 0, 0, 0}},
        {7, setCut, ErrorCode::wrongType, {}},
        {1, setTwo, ErrorCode::wrongType, {}},
        {3, setSmall, ErrorCode::wrongType, {}},
        {1, [](ValueObj& v) { return v.setString(nullptr); }, ErrorCode::nullArgument, {}},
        {7, [](ValueObj& v) { return v.setStrings(nullptr); }, ErrorCode::nullArgument, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << " case " << &c - cases);
        Hive hive(emptyHive(5));
        const Ref<ValueObj> value = hive.create(u"v", static_cast<Value::ValueType>(c.type));
        Error::set(0);
        EXPECT_EQ(c.set(*value), c.error == 0);
        EXPECT_EQ(Error::get(), c.error);
        EXPECT_EQ(dataOf(value), c.data);
        if (c.error) continue;
        if (c.set(*value) && (c.type == 4 || c.type == 11)) {
            EXPECT_TRUE(value->size(5) == 5 && !c.set(*value));
            EXPECT_EQ(Error::get(), ErrorCode::wrongNumberLength);
        }
        ASSERT_TRUE(hive.hive->rootObj()->deleteValue(value));
        EXPECT_FALSE(c.set(*value));
        EXPECT_EQ(Error::get(), ErrorCode::invalidObject);
        EXPECT_FALSE(value->setType(Value::valueBinary));
    }
}

TEST(Write, NamesAndTypesOnDisk) {
    struct {
        std::u16string name;
        u32 bytes, compressed;
    } const cases[] = {
        {u"", 0, 1},
        {u"Gr\u00F6\u00DFe", 5, 1},
        {std::u16string(16383, u'\u0416'), 32766, 0},
    };
    for (const auto& c : cases)
        for (const bool rename : {false, true}) {
            Hive hive(emptyHive(5));
            const auto value = hive.create(rename ? u"old" : std::u16string_view(c.name));
            // Not the last of the list: renaming that one leaves a trace in the list.
            const auto last = rename ? hive.create(u"last") : nullptr;
            ASSERT_TRUE(!rename || hive.hive->rootObj()->move(value, text(c.name)));
            EXPECT_TRUE(value->setType(static_cast<Value::ValueType>(0x12345)));
            EXPECT_TRUE(hive.hive->flush());
            const u32 vk = value->recordOfs();
            EXPECT_EQ(hive.at(vk + 4), u32{'v'} | u32{'k'} << 8 | c.bytes << 16);
            EXPECT_EQ(hive.at(vk + 16), 0x12345u);
            EXPECT_EQ(hive.at(vk + 20), c.compressed);
            // A renamed record asks for two bytes more.
            EXPECT_EQ(0 - hive.at(vk), (24 + c.bytes + 2 * rename + 7) / 8 * 8);
            EXPECT_EQ(hiveFaults(hive.store->bytes()), SOUND);
        }
    Hive hive(emptyHive(5));
    EXPECT_FALSE(hive.create(std::u16string(16384, u'n')));
    EXPECT_EQ(Error::get(), ErrorCode::valueNameTooLong);
}

TEST(Write, StripesResizeBinaryValuesOnly) {
    struct {
        Value::ValueType type;
        u32 mode;
        u64 asked, result;
        u32 error;
    } const cases[] = {
        {Value::valueBinary, 0, 50, 50, 0},
        {Value::valueString, 0, 50, 10, 0},
        {Value::valueString, HiveFile::modeResizeAll, 50, 50, 0},
        {Value::valueBinary, 0, 0x100000000, 0, ErrorCode::wrongArgument},
    };
    for (const auto& c : cases) {
        Hive hive(emptyHive(5), c.mode);
        const auto value = hive.create(u"v", c.type);
        ASSERT_TRUE(put(value, patternBytes(10)));
        Error::set(0);
        EXPECT_EQ(value->binary()->setElementCount(c.asked), c.result) << c.asked;
        EXPECT_EQ(Error::get(), c.error);
    }
}

}  // namespace
