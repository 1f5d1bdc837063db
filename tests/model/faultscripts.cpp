#include "tests/model/faultscripts.h"

#include "regfile/util.h"
#include "tests/support/regtext.h"

namespace HiveTest {

namespace {

using Interfaces::ShPtr;
using Platform::makeRef;
using Name = std::u16string;

std::vector<KeyPlan> numberedKeys(u32 count) {
    std::vector<KeyPlan> keys;
    for (u32 i = 0; i < count; ++i) keys.push_back({.name = digits(10000 + i)});
    return keys;
}

std::vector<ValuePlan> valuesOfEveryForm() {
    std::vector<ValuePlan> values;
    const u32 sizes[] = {0, 3, 100, 5000, 16344, 32688, 49032};
    for (u32 i = 0; i < std::size(sizes); ++i)
        values.push_back(
            {.name = {u'v', static_cast<char16_t>(u'0' + i)}, .data = patternBytes(sizes[i], i + 10)});
    return values;
}

KeyPlan keptPlan() {
    KeyPlan kept{.name = u"kept", .values = valuesOfEveryForm()};
    for (u32 i = 0; i < 6; ++i)
        kept.values.push_back(
            {.name = {u'l', static_cast<char16_t>(u'0' + i)}, .data = patternBytes(190000, i)});
    kept.keys = {{.name = u"a", .values = {{.name = u"n", .data = {1}}}, .keys = numberedKeys(20)},
                 {.name = u"b"}};
    return kept;
}

/// The class name keeps all cells away from the start, where they count as shorter than they are.
KeyPlan plan(u32 minor) {
    KeyPlan full{.name = u"full", .keys = numberedKeys(minor == 3 ? 400 : 1200)};
    KeyPlan split{.name = u"split",
                  .keys = numberedKeys(minor == 3 ? 901 : 1201),
                  .list = minor == 3 ? ListKind::riLi : ListKind::riLh,
                  .sublists = {minor == 3 ? 900u : 1200u}};
    KeyPlan big{
        .name = u"big", .values = valuesOfEveryForm(), .keys = {{.name = u"x", .keys = numberedKeys(5)}}};
    KeyPlan trees{
        .name = u"trees",
        .keys = {big, {.name = u"leaf"}, {.name = u"one", .keys = numberedKeys(3)}, {.name = u"two"}}};
    return {.keys = {{.name = u"changed", .values = valuesOfEveryForm()},
                     {.name = u"few"},
                     full,
                     keptPlan(),
                     split,
                     trees},
            .className = Name(32000, u'c')};
}

bool holdsData(const Ref<Key>& key, const Name& name, const std::vector<u8>& wanted) {
    const auto value = key ? key->value(text(name)) : nullptr;
    return value && dataOf(*value) == wanted;
}

bool holdsTree(const Ref<Key>& key, const KeyPlan& plan) {
    if (!key) return false;
    const auto keys = key->keyIterator();
    const auto values = key->valueIterator();
    if (keys->count() != plan.keys.size() || values->count() != plan.values.size()) return false;
    for (const KeyPlan& subkey : plan.keys)
        if (!holdsTree(key->key(text(subkey.name)), subkey)) return false;
    return std::ranges::all_of(
        plan.values, [&](const ValuePlan& value) { return holdsData(key, value.name, value.data); });
}

void changeValues(FaultSession& session) {
    session.held = session.key(u"changed");
    const auto holds = [&session](const Name& name, const std::vector<u8>& data) {
        return [&session, name, data] { return holdsData(session.held, name, data); };
    };
    for (const ValuePlan& value : valuesOfEveryForm())
        session.expect(value.name, u"", holds(value.name, value.data));
    if (!session.held) session.held = session.key(u"changed");
    const auto put = [&](bool created, const Name& name, u32 size) {
        const auto data = patternBytes(size, size);
        session.apply(
            {name}, u"", false,
            [&] {
                return HiveTest::put(created ? session.held->createValue(text(name), Value::valueQword)
                                             : session.held->value(text(name)),
                                     data);
            },
            holds(name, data));
    };
    const auto create = [&](const Name& name) { put(true, name, 8); };
    const auto resize = [&](const Name& name, u32 size) { put(false, name, size); };
    create(u"new");
    resize(u"v0", 100);
    session.churn(u"0123");
    resize(u"v1", 20000);
    resize(u"v2", 2);
    resize(u"v3", 16345);
    session.churn(u"45");
    resize(u"v5", 300);
    resize(u"v6", 60000);
    session.hive->flush();
    session.apply(
        {u"v4"}, u"", false, [&] { return session.held->deleteValue(session.held->value(text(u"v4"))); },
        [&] { return !session.held->value(text(u"v4")); });
    session.churn(u"0123");
    session.apply(
        {u"v1", u"long name"}, u"", false,
        [&] { return session.held->move(session.held->value(text(u"v1")), text(u"long name")); },
        [&session] {
            return !session.held->value(text(u"v1")) &&
                   holdsData(session.held, u"long name", patternBytes(20000, 20000));
        });
    create(u"another");
    session.hive->flush();
}

void changeKeys(FaultSession& session) {
    const auto has = [&session](const Name& path) {
        return [&session, path] { return bool(session.key(path)); };
    };
    const auto hasNot = [&session](const Name& parent, const Name& name) {
        return [&session, parent, name] { return session.key(parent) && !session.key(parent + u"/" + name); };
    };
    const auto create = [&](const Name& parent, const Name& name) {
        session.apply(
            {parent}, name, true,
            [&] {
                const auto key = session.key(parent);
                return key && key->createKey(text(name));
            },
            has(parent + u"/" + name));
    };
    const auto move = [&](const Name& parent, const Name& name, const Name& newParent, const Name& newName) {
        session.apply(
            {newParent, parent}, newName, true,
            [&] {
                const auto key = session.key(parent + u"/" + name), target = session.key(newParent);
                return key && target && target->move(key, text(newName));
            },
            has(newParent + u"/" + newName));
    };
    const auto remove = [&](const Name& parent, const Name& name, bool recursive) {
        session.apply(
            {parent}, name, true,
            [&] {
                const auto above = session.key(parent), key = session.key(parent + u"/" + name);
                return above && key &&
                       (recursive ? Util::recursiveKeyDelete(above, key) : above->deleteKey(key));
            },
            hasNot(parent, name));
    };
    create(u"few", u"first");
    create(u"full", u"105x");
    session.churn(u"0123");
    create(u"split", u"105x");
    move(u"trees", u"one", u"few", u"a much longer name than it had");
    session.churn(u"45012");
    session.hive->flush();
    remove(u"trees", u"leaf", false);
    move(u"trees", u"two", u"trees", u"zwei");
    remove(u"trees", u"big", true);
    session.churn(u"0123");
    remove(u"split", u"10000", false);
    create(u"few", u"wideΩ");
    session.hive->flush();
}

bool imports(FaultSession& session, const std::string& body) {
    const std::string text = "\xEF\xBB\xBFWindows Registry Editor Version 5.00\n\n" + body;
    const auto source = makeRef<MemoryStripe>(std::vector<u8>(text.begin(), text.end()));
    return RegFileUtil::importRegFile(session.hive, Ref<Interfaces::Stripe>(source), HiveTest::text(u""),
                                      nullptr, false);
}

std::vector<u8> textData(std::u16string_view units) {
    auto data = utf16Bytes(units);
    data.resize(data.size() + 2);
    return data;
}

void importChanges(FaultSession& session) {
    std::string bytes = "5a";
    for (u32 i = 1; i < 3000; ++i) bytes += i % 20 ? ",5a" : ",\\\n  5a";
    session.apply(
        {u"trees"}, u"", true,
        [&] { return imports(session, "[-trees\\big]\n[-few\\none]\n[-trees\\leaf]\n"); },
        [&session] {
            const auto trees = session.key(u"trees");
            return trees && trees->keyIterator()->count() == 2 && !session.key(u"trees/leaf");
        });
    session.apply(
        {u"few", u"changed"}, u"", false,
        [&] {
            return imports(session,
                           "[few\\new\\deep]\n@=\"text\"\n\"n\"=dword:17\n[changed]\n\"v1\"=hex:" + bytes +
                               "\n\"v3\"=-\n\"v5\"=\"now a string\"\n[few\\105x]\n\"b\"=hex(7):01,02\n");
        },
        [&session] {
            const auto deep = session.key(u"few/new/deep"), changed = session.key(u"changed");
            const auto number = deep ? deep->value(text(u"n")) : nullptr;
            return number && changed && number->number() == 0x17 && holdsData(deep, u"", textData(u"text")) &&
                   holdsData(changed, u"v1", std::vector<u8>(3000, 0x5A)) && !changed->value(text(u"v3")) &&
                   holdsData(changed, u"v5", textData(u"now a string")) &&
                   holdsData(session.key(u"few/105x"), u"b", {1, 2});
        });
    session.apply(
        {u"full"}, u"", true, [&] { return imports(session, "[full\\105x]\n"); },
        [&session] { return bool(session.key(u"full/105x")); });
    session.hive->flush();
}

/// An export either fails or is whole.
void exportKeys(FaultSession& session) {
    static std::string whole;
    session.apply(
        {u"export"}, u"", true,
        [&] {
            bool done = false;
            const auto kept = session.key(u"trees");
            const auto bytes = kept ? exportText(kept, RegFileUtil::exportBinaryOnly, &done) : "";
            if (done && whole.empty()) whole = bytes;
            return done && bytes == whole;
        },
        [] { return true; });
}

void openInEveryMode(FaultSession& session) {
    session.close();
    for (const u32 mode : {u32{HiveFile::modeReadWrite}, u32{HiveFile::modeReadOnly},
                           HiveFile::modeReadOnly | HiveFile::modeUnsafe, u32{HiveFile::modeWriteThrough},
                           HiveFile::modeReadOnly | HiveFile::modeLinearFallback})
        session.apply(
            {Name{u'm', static_cast<char16_t>(mode + u'0')}}, u"", true,
            [&] {
                const auto hive = HiveFile::open(Ref<Interfaces::Stripe>(session.failing), mode,
                                                 HiveFile::hiveCodepageLatin1);
                return hive && hive->path(text(u"kept/a/10007"));
            },
            [] { return true; });
    session.open();
}

}  // namespace

const FaultScript faultScripts[5] = {{"Values", changeValues, false},
                                     {"Keys", changeKeys, true},
                                     {"Import", importChanges, true},
                                     {"Export", exportKeys, true},
                                     {"Open", openInEveryMode, true}};

std::vector<u8> faultStart(u32 minor) {
    HiveBuilder builder(minor);
    builder.setHbinSize(200704);
    builder.build(plan(minor));
    return builder.finish();
}

FaultSession::FaultSession(const std::vector<u8>& file, u32 openMode)
    : mode(openMode), store(makeRef<SharedStripe>(file)), failing(makeRef<FailingStripe>(store)) {
    open();
}

void FaultSession::open() {
    for (u32 tries = 0; tries < 2 && !root; ++tries) {
        hive = makeRef<RegistryHiveObj>(failing, mode, HiveFile::hiveCodepageLatin1, nullptr);
        root = hive->root();
    }
}

void FaultSession::apply(Subjects subjects, const Name& item, bool sure, const Check& operation,
                         const Check& holds) {
    for (const Name& subject : subjects)
        if (_spoilt.count(subject)) return;
    const u64 before = faults();
    Platform::Error::set(0);
    const bool done = operation();
    const u32 code = Platform::Error::get();
    const std::string what = utf8(text(*subjects.begin())) + ", " + utf8(text(item));
    EXPECT_TRUE(done || faults() > before) << what << ": " << std::hex << code;
    EXPECT_TRUE(done || code) << what << ": no error code";
    if (done && (sure || faults() == before)) return expect(*subjects.begin(), item, holds);
    for (const Name& subject : subjects) {
        _spoilt.insert(subject);
        _expected.erase(subject);
    }
}

void FaultSession::churn(std::u16string_view values) {
    for (const char16_t which : values) {
        const auto kept = key(u"kept");
        const auto value = kept ? kept->value(text(Name{u'l', which})) : nullptr;
        std::vector<u8> data(190000);
        if (value) value->read(ShPtr(data.data()), 0, 190000);
    }
}

void FaultSession::checkExpected(const char* when) {
    for (const auto& [subject, items] : _expected)
        for (const auto& [item, holds] : items)
            EXPECT_TRUE(holds()) << when << ": " << utf8(text(subject)) << ", " << utf8(text(item));
}

void FaultSession::checkKept(const char* when) {
    static const KeyPlan kept = keptPlan();
    EXPECT_TRUE(holdsTree(key(u"kept"), kept)) << when;
}

}  // namespace HiveTest
