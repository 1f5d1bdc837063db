#include "tests/support/hivemodel.h"

#include "tests/support/hivecheck.h"

namespace HiveTest {

using Interfaces::ShPtr;
using Platform::makeRef;
using Platform::refCast;

namespace {

u32 get32(const std::vector<u8>& file, u32 offset) {
    u32 number;
    std::memcpy(&number, &file.at(u64{offset} + 4096), sizeof(number));
    return Platform::L32ToHost(number);
}

void put32(std::vector<u8>& file, u32 offset, u32 number) {
    const auto field = numberBytes(number);
    std::copy(field.begin(), field.end(), &file.at(u64{offset} + 4096));
}

std::vector<u32> recordsOf(const ModelKey& key) {
    std::vector<u32> records;
    for (const ModelValue& value : key.values) records.push_back(value.record);
    return records;
}

std::u16string keyName(u32 index) {
    return {u'k', static_cast<char16_t>(u'0' + index)};
}

/// A long class name keeps the cells away from the start, where cells count as shorter than they are.
HiveBuilder start(u32 minor) {
    HiveBuilder builder(minor);
    builder.setHbinSize(69632);
    KeyPlan root{.className = std::u16string(32000, u'c')};
    for (u32 i = 0; i < HiveModel::KEYS; ++i) root.keys.push_back({.name = keyName(i)});
    builder.build(root);
    return builder;
}

}  // namespace

HiveModel::HiveModel(u32 minor, u32 mode, u32 seed, bool avoidTrace)
    : _random(seed), _mode(mode), _avoidTrace(avoidTrace), _store(makeRef<MemoryStripe>()) {
    HiveBuilder builder = start(minor);
    for (u32 i = 0; i < KEYS; ++i) _keys[i].record = builder.key().keys.at(i);
    _store->bytes() = builder.finish();
    open();
}

HiveModel::~HiveModel() = default;

void HiveModel::open() {
    _hive = makeRef<RegistryHiveObj>(_store, _mode, HiveFile::hiveCodepageLatin1, nullptr);
    for (u32 i = 0; i < KEYS; ++i) {
        _held.push_back(key(i));
        const auto& wanted = _keys[i].values;
        ASSERT_EQ(_held[i]->values(), wanted.size());
        const auto iterator = _held[i]->valueIterator();
        for (const ModelValue& model : wanted) {
            const auto found = refCast<ValueObj>(iterator->next());
            ASSERT_TRUE(found && found->valid());
            ASSERT_EQ(utf8(found->name()), utf8(text(model.name)));
            ASSERT_TRUE(refCast<ValueObj>(_held[i]->value(text(model.name))) == found);
            ASSERT_EQ(found->type(), model.type);
            ASSERT_EQ(found->size(), model.data.size());
            std::vector<u8> data(model.data.size());
            ASSERT_EQ(found->read(ShPtr(data.data()), 0, found->size()), data.size());
            ASSERT_TRUE(data == model.data) << utf8(found->name());
        }
    }
    if (_avoidTrace) _held.clear();
}

std::vector<u8> HiveModel::close(u32& repaired) {
    _users.clear();
    _held.clear();
    const bool flushed = _random() % 2 == 0 || _hive->flush();
    EXPECT_TRUE(flushed);
    _hive.reset();
    std::vector<u8> closed = _store->bytes();
    for (ModelKey& key : _keys) {
        const u32 count = get32(closed, key.record + 40), list = get32(closed, key.record + 44);
        std::vector<u32> listed;
        for (u32 i = 0; i < count; ++i) listed.push_back(get32(closed, list + 4 + 4 * i));
        EXPECT_EQ(listed, key.listed);
        key.listed = recordsOf(key);
        for (u32 i = 0; i < count; ++i) {
            repaired += listed[i] != key.listed[i];
            put32(_store->bytes(), list + 4 + 4 * i, key.listed[i]);
        }
    }
    EXPECT_EQ(hiveFaults(_store->bytes()), std::vector<std::string>());
    return closed;
}

void HiveModel::run(u32 operations) {
    while (operations-- && !testing::Test::HasFatalFailure()) step();
}

void HiveModel::step() {
    const u32 index = _random() % KEYS, other = _random() % KEYS;
    const u64 count = _keys[index].values.size();
    const u32 choice = _random() % 100;
    if (count == 0 || (choice < 22 && count < 40)) return create(index);
    const u64 which = _random() % count;
    if (choice < 40) return change(index, which);
    if (choice < 68) return resize(index, which);
    if (choice < 78) return move(index, which, choice < 73 ? index : other);
    remove(index, which);
}

Ref<KeyObj> HiveModel::key(u32 index) {
    return refCast<KeyObj>(_hive->root()->key(text(keyName(index))));
}

Ref<ValueObj> HiveModel::value(u32 keyIndex, u64 index) {
    const ModelValue& model = _keys[keyIndex].values[index];
    const auto found = refCast<ValueObj>(key(keyIndex)->value(text(model.name)));
    EXPECT_TRUE(found) << utf8(text(model.name));
    if (_users.size() > 20) _users.clear();
    _users.push_back(found);
    return found;
}

void HiveModel::link(u32 keyIndex, ModelValue value) {
    _keys[keyIndex].listed.push_back(value.record);
    _keys[keyIndex].values.push_back(std::move(value));
}

void HiveModel::unlink(u32 keyIndex, u64 index) {
    ModelKey& model = _keys[keyIndex];
    const u64 before = model.values.size();
    model.values.erase(model.values.begin() + static_cast<std::ptrdiff_t>(index));
    if (leavesTrace(index, before))
        model.listed.pop_back();
    else
        model.listed = recordsOf(model);
}

void HiveModel::create(u32 keyIndex) {
    const std::u16string name = freshName();
    const u32 types[] = {0, 1, 3, 4, 5, 7, 11, 0x1234};
    const u32 type = types[_random() % 8];
    const auto created = refCast<ValueObj>(key(keyIndex)->createValue(text(name), Value::ValueType{type}));
    ASSERT_TRUE(created);
    EXPECT_FALSE(key(keyIndex)->createValue(text(name), Value::valueNone));
    link(keyIndex, {name, type, std::vector<u8>(ValueObj::datasizeFormType(Value::ValueType{type})),
                    created->recordOfs()});
    // The bytes of a new cell are whatever lay there.
    if (type == 11) change(keyIndex, _keys[keyIndex].values.size() - 1);
}

void HiveModel::change(u32 keyIndex, u64 index) {
    ModelValue& model = _keys[keyIndex].values[index];
    const auto target = value(keyIndex, index);
    ASSERT_TRUE(target);
    if (_random() % 8 == 0) {
        model.type = _random() % 16;
        ASSERT_TRUE(target->setType(Value::ValueType{model.type}));
    }
    model.data = bytes(model.data.size());
    const u32 size = static_cast<u32>(model.data.size());
    ASSERT_EQ(target->write(ShPtr(model.data.data()), 0, size + _random() % 2), size);
}

void HiveModel::resize(u32 keyIndex, u64 index) {
    ModelValue& model = _keys[keyIndex].values[index];
    const auto target = value(keyIndex, index);
    ASSERT_TRUE(target);
    const u32 size = someSize();
    ASSERT_EQ(target->size(size), size);
    const u64 kept = std::min<u64>(size, model.data.size());
    std::vector<u8> now(size);
    ASSERT_EQ(target->read(ShPtr(now.data()), 0, size), size);
    ASSERT_TRUE(std::equal(now.begin(), now.begin() + static_cast<std::ptrdiff_t>(kept), model.data.begin()));
    model.data = now;
    if (size > kept) change(keyIndex, index);
}

void HiveModel::move(u32 from, u64 index, u32 to) {
    // Within a key the list first has one entry more.
    const u64 entries = _keys[from].values.size() + (from == to);
    if (_avoidTrace && leavesTrace(index, entries)) return;
    const auto target = value(from, index);
    const std::u16string name = freshName();
    ASSERT_TRUE(key(to)->move(target, text(name)));
    ModelValue moved = _keys[from].values[index];
    moved.name = name;
    moved.record = target->recordOfs();
    link(to, std::move(moved));
    unlink(from, index);
}

void HiveModel::remove(u32 keyIndex, u64 index) {
    if (_avoidTrace && leavesTrace(index, _keys[keyIndex].values.size())) return;
    const auto target = value(keyIndex, index);
    ASSERT_TRUE(key(keyIndex)->deleteValue(target));
    EXPECT_FALSE(target->valid());
    unlink(keyIndex, index);
}

void HiveModel::leaveTrace() {
    while (_keys[0].values.size() < 3) create(0);
    remove(0, _keys[0].values.size() - 2);
}

std::u16string HiveModel::freshName() {
    std::u16string name = _random() % 4 ? u"v" : u"\u0436";
    for (const char digit : std::to_string(++_names)) name += static_cast<char16_t>(digit);
    return name + std::u16string(_random() % 8 ? _random() % 6 : _random() % 300, u'n');
}

u32 HiveModel::someSize() {
    const u32 edges[] = {0, 1, 4, 5, 12, 13, 300, 16344, 16345, 32688, 32689, 49033};
    const u32 edge = edges[_random() % std::size(edges)];
    return _random() % 2 ? edge : _random() % (edge + 20);
}

}  // namespace HiveTest
