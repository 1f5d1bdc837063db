#include <functional>
#include <map>

#include "tests/hive/openedhive.h"
#include "tests/support/failingstripe.h"
#include "tests/support/hivecheck.h"
#include "tests/support/logcapture.h"

namespace {

using namespace HiveTest;  // NOLINT
using Interfaces::ShPtr;
using Platform::makeRef;
using Platform::refCast;

using Content = std::map<std::u16string, std::vector<u8>>;  // values of a key

/// More value data than the cache holds, so that it is emptied again and again, in every storage form; the
/// class name keeps all cells away from the start, where they count as shorter than they are.
KeyPlan plan() {
    KeyPlan changed{.name = u"changed"}, kept{.name = u"kept"};
    const u32 sizes[] = {0, 3, 100, 5000, 16344, 32688, 49032};
    for (KeyPlan* key : {&changed, &kept})
        for (u32 i = 0; i < std::size(sizes); ++i)
            key->values.push_back(
                {.name = {u'v', static_cast<char16_t>(u'0' + i)}, .data = patternBytes(sizes[i], i + 10)});
    for (u32 i = 0; i < 6; ++i)
        kept.values.push_back(
            {.name = {u'l', static_cast<char16_t>(u'0' + i)}, .data = patternBytes(190000, i)});
    return {.keys = {changed, kept}, .className = std::u16string(32000, u'c')};
}

std::vector<u8> startFile(u32 minor) {
    HiveBuilder builder(minor);
    builder.setHbinSize(200704);
    builder.build(plan());
    return builder.finish();
}

Content contentOf(const KeyPlan& key) {
    Content content;
    for (const ValuePlan& value : key.values) content[value.name] = value.data;
    return content;
}

/// One hive under change, and what its two keys must hold. A value whose operation failed may hold anything.
struct Session {
    Session(const std::vector<u8>& file, u32 openMode)
        : mode(openMode), store(makeRef<MemoryStripe>(file)), failing(makeRef<FailingStripe>(store)) {
        open();
    }
    void open() { hive = makeRef<RegistryHiveObj>(failing, mode, HiveFile::hiveCodepageLatin1, nullptr); }
    Ref<Key> key(std::u16string_view name) { return hive->path(text(name)); }

    /// Runs an operation on a value of the key "changed"; what is expected follows its report.
    void apply(const std::u16string& name, std::vector<u8> data, const std::function<bool(Key&)>& operation,
               bool stays = true) {
        const u64 before = failing->failures();
        if (spoilt.count(name)) return;
        const bool done = held && operation(*held);
        // Without a failure underneath no operation may fail.
        EXPECT_TRUE(done || failing->failures() > before) << utf8(text(name));
        failures += !done;
        if (done && failing->failures() == before) {
            changed.erase(name);
            if (stays) changed[name] = std::move(data);
            return;
        }
        spoilt.insert({name, {}});
        changed.erase(name);
    }

    const u32 mode;
    Ref<MemoryStripe> store;
    Ref<FailingStripe> failing;
    Ref<RegistryHiveObj> hive;
    Ref<Key> held;  // "changed"; its list in memory stays right where the one on disk does not
    Content changed = contentOf(plan().keys[0]), kept = contentOf(plan().keys[1]), spoilt;
    u32 failures = 0;
};

bool put(Key& key, std::u16string_view name, const std::vector<u8>& data) {
    const auto value = key.value(text(name));
    const u32 size = static_cast<u32>(data.size());
    return value && value->size(size) == size && value->write(ShPtr::fromConst(data.data()), 0, size) == size;
}

/// Every kind of change, with the cache emptied in between.
void script(Session& session) {
    session.held = session.key(u"changed");
    if (!session.held) {  // a hive without a root is of no more use
        session.open();
        session.held = session.key(u"changed");
    }
    const auto resize = [&](std::u16string_view name, u32 size) {
        const auto data = patternBytes(size, size);
        session.apply(std::u16string(name), data, [&](Key& key) { return put(key, name, data); });
    };
    const auto churn = [&](char16_t which) {
        const auto value =
            session.key(u"kept") ? session.key(u"kept")->value(text(std::u16string{u'l', which})) : nullptr;
        std::vector<u8> data(190000);
        if (value) value->read(ShPtr(data.data()), 0, 190000);
    };
    const auto create = [&](const std::u16string& name) {
        session.apply(name, patternBytes(8), [&](Key& key) {
            return key.createValue(text(name), Value::valueQword) && put(key, name, patternBytes(8));
        });
    };
    create(u"new");
    resize(u"v0", 100);
    for (const char16_t which : u"0123") churn(which);
    resize(u"v1", 20000);
    resize(u"v2", 2);
    resize(u"v3", 16345);
    for (const char16_t which : u"45") churn(which);
    resize(u"v5", 300);
    resize(u"v6", 60000);
    session.hive->flush();
    session.apply(
        u"v4", {}, [](Key& key) { return key.deleteValue(key.value(text(u"v4"))); }, false);
    for (const char16_t which : u"0123") churn(which);
    const auto moved = session.changed.count(u"v1") ? session.changed[u"v1"] : std::vector<u8>();
    const bool sound = !session.spoilt.count(u"v1");
    session.apply(
        u"v1", {}, [&](Key& key) { return sound && key.move(key.value(text(u"v1")), text(u"long name")); },
        false);
    if (sound && !session.spoilt.count(u"v1")) session.changed[u"long name"] = moved;
    create(u"another");
    session.hive->flush();
}

void expectContent(const Ref<Key>& key, const Content& content, const std::string& when) {
    ASSERT_TRUE(key) << when;
    for (const auto& [name, wanted] : content) {
        const auto value = key->value(text(name));
        ASSERT_TRUE(value) << when << ": " << utf8(text(name));
        std::vector<u8> data(value->size());
        data.resize(value->read(ShPtr(data.data()), 0, value->size()));
        EXPECT_TRUE(data == wanted) << when << ": " << utf8(text(name)) << " of " << data.size();
    }
}

struct Case {
    u32 minor, mode, kind;
};

class FaultSweep : public testing::TestWithParam<Case> {};

TEST_P(FaultSweep, EverySingleFailureLeavesTheRestIntact) {
    const auto [minor, mode, kind] = GetParam();
    const std::vector<u8> file = startFile(minor);
    ASSERT_EQ(hiveFaults(file), std::vector<std::string>());
    Session clean(file, mode);
    clean.failing->count(kind);
    script(clean);
    const u64 operations = clean.failing->operations();
    ASSERT_EQ(clean.failures, 0u);
    clean.held.reset();
    clean.hive.reset();
    EXPECT_EQ(hiveFaults(clean.store->bytes()), std::vector<std::string>());

    for (u64 index = 0; index < operations && !HasFailure(); ++index) {
        SCOPED_TRACE(testing::Message() << "call " << index << " of " << operations);
        LogCapture log;
        Session session(file, mode);
        session.failing->failAt(index, kind);
        script(session);
        EXPECT_EQ(session.failing->failures(), 1u);
        expectContent(session.held, session.changed, "now");
        expectContent(session.key(u"kept"), session.kept, "now");
        EXPECT_TRUE(session.held->createValue(text(u"later"), Value::valueQword));
        EXPECT_TRUE(session.hive->flush());
        session.held.reset();
        session.open();
        expectContent(session.key(u"kept"), session.kept, "reopened");
        if (HasFailure()) std::cerr << log.text();
    }
}

std::vector<Case> cases() {
    std::vector<Case> all;
    for (const u32 minor : {3u, 5u})
        for (const u32 mode : {0u, u32{HiveFile::modeWriteThrough}})
            for (u32 kind = FailingStripe::seeks; kind <= FailingStripe::resizes; kind *= 2)
                all.push_back({minor, mode, kind});
    return all;
}

INSTANTIATE_TEST_SUITE_P(All, FaultSweep, testing::ValuesIn(cases()), [](const auto& test) {
    const Case& c = test.param;
    return "V1" + std::to_string(c.minor) + (c.mode ? "ThroughKind" : "BufferedKind") +
           std::to_string(c.kind);
});

TEST(FullStore, RefusesToGrowAndKeepsWhatThereIs) {
    for (const u32 minor : {3u, 5u})
        for (const u32 mode : {0u, u32{HiveFile::modeWriteThrough}}) {
            Session session(startFile(minor), mode);
            session.store->setMaxElementCount(session.store->bytes().size());
            Ref<Key> key = session.key(u"changed");
            for (const u32 size : {1000000u, 900000u}) {
                Platform::Error::set(0);
                EXPECT_FALSE(put(*key, u"v3", patternBytes(size)));
                EXPECT_EQ(Platform::Error::get(), ErrorCode::allocationFailed);
                EXPECT_EQ(key->value(text(u"v3"))->size(), 5000u);
            }
            u32 number = 0;  // until the last cell is taken
            while (key->createValue(
                text(std::u16string(200, u'n') + static_cast<char16_t>(0x4E00 + ++number)), Value::valueNone))
                ASSERT_LT(number, 5000u);
            EXPECT_EQ(Platform::Error::get(), ErrorCode::allocationFailed);
            key.reset();
            EXPECT_TRUE(session.hive->flush());
            session.open();
            expectContent(session.key(u"changed"), session.changed, "reopened");
            expectContent(session.key(u"kept"), session.kept, "reopened");
        }
}

}  // namespace
