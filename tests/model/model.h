#pragma once

#include <algorithm>

#include "regfile/util.h"
#include "tests/hive/openedhive.h"

namespace HiveTest {

constexpr u32 MOST_LEVELS = 9;
constexpr u32 CROWDED = 3;  // subkeys of the root that most new keys go to, so that their lists fill up

struct ModelValue {
    std::u16string name;
    u32 type;
    std::vector<u8> data;
    u32 record;
};

/// What a key should be. Children by upper-cased name, which is the order of the list.
struct Node {
    std::u16string name;
    Node* parent = nullptr;
    std::map<std::u16string, std::unique_ptr<Node>> keys = {};
    std::vector<ModelValue> values = {};
    /// What the list record holds: the values' records, but for the trace that removing the last but one
    /// leaves until the record is written whole again.
    std::vector<u32> listed = {};
    Ref<Key> held = {};  // some keys are held by somebody, all those whose list in memory is another one
    bool hints = true;   // while the list of a version 1.3 hive is an lf record

    u32 level() const { return parent ? parent->level() + 1 : 0; }
    u32 height() const {
        u32 most = 0;
        for (const auto& [upper, node] : keys) most = std::max(most, node->height() + 1);
        return most;
    }
    bool isBelow(const Node* other) const { return this == other || (parent && parent->isBelow(other)); }
    std::vector<u32> records() const {
        std::vector<u32> result;
        for (const ModelValue& value : values) result.push_back(value.record);
        return result;
    }
};

/// An iterator over a key's subkeys or values, and where it should stand.
template <typename Iterator>
struct Walk {
    const Node* node = nullptr;
    Ref<Iterator> iterator = {};
    u32 at = 0;

    void insertedAt(const Node& where, u64 index) { at += &where == node && index <= at; }
    void removedAt(const Node& where, u64 index) { at -= &where == node && index < at; }
};

/// Drives a hive and a tree of plain maps through the same operations on keys and values. Where they differ a
/// test fails.
class Model {
 public:
    /// Chooses each operation and what it works on: gives a number below its argument.
    using Choose = std::function<u32(u32)>;

    /// Starts with a root key and, unless 0, a key of that many subkeys.
    Model(u32 minor, u32 mode, Choose choose, u32 crowd = 0)
        : _start(startWith(minor, crowd)), _hive(_start, mode), _choose(std::move(choose)) {}

    void run(u32 operations) {
        while (operations-- && !testing::Test::HasFailure()) operate();
    }
    /// Removes the last but one value of some key, so that there is a trace to see.
    void leaveTrace() {
        while (_root.values.size() < 3) createValue(_root);
        removeValue(_root, _root.values.size() - 2);
    }
    /// Closes the hive and checks the file: every list record holds what it should, and once the traces are
    /// repaired the file has no fault. Returns the file as it was closed, and how many entries were repaired.
    std::vector<u8> close(u32& repaired) {
        std::vector<std::pair<Node*, u32>> lists;
        collectLists(_root, lists);
        const std::vector<u8> closed = _hive.file();
        stopWalks(_root);
        release(_root);
        _users.clear();
        std::vector<u8> sound = closed;
        for (const auto& [node, key] : lists) {
            const u32 count = wordAt(closed, key + 40), list = wordAt(closed, key + 44);
            std::vector<u32> listed;
            for (u32 at = list + 4; listed.size() < count; at += 4) listed.push_back(wordAt(closed, at));
            EXPECT_EQ(listed, node->listed);
            node->listed = node->records();
            for (u32 i = 0; i < count; ++i) {
                repaired += listed[i] != node->listed[i];
                const auto word = numberBytes(node->listed[i]);
                std::copy(word.begin(), word.end(), &sound.at(4096 + list + 4 + 4 * i));
            }
        }
        EXPECT_EQ(hiveFaults(sound), std::vector<std::string>());
        _hive.root.reset();
        _hive.hive.reset();
        EXPECT_TRUE(_hive.store->bytes() == closed) << "there was something left to write";
        _hive.store->bytes() = sound;
        return closed;
    }
    /// Opens the hive and compares all of it, through names and in order.
    void open() {
        _hive.reopen();
        compare(_root, Ref<Key>(_hive.root));
    }
    u64 most() const { return _most; }

 private:
    HiveBuilder startWith(u32 minor, u32 crowd) {
        // A long class name keeps the cells away from the start, where they count as shorter than they are.
        KeyPlan plan{.className = std::u16string(32000, u'c')};
        if (crowd) {
            plan.keys.push_back({.name = u"crowd"});
            Node& node = *(_root.keys[u"CROWD"] = std::make_unique<Node>(Node{u"crowd", &_root}));
            for (u32 i = 0; i < crowd; ++i) {
                const std::u16string name(numbered(i)->view());
                plan.keys[0].keys.push_back({.name = name});
                node.keys[upper(name)] = std::make_unique<Node>(Node{name, &node});
            }
        }
        HiveBuilder builder(minor);
        builder.setHbinSize(69632);
        builder.build(plan);
        return builder;
    }

    u32 below(u64 bound) { return _choose(static_cast<u32>(bound)); }
    static std::u16string upper(const std::u16string& name) {
        return std::u16string(text(name)->upper()->view());
    }

    void operate() {
        const u32 kind = below(140);
        // Branches that move or go take many keys with them, so most operations create.
        if (kind < 60 || _root.keys.size() < CROWDED)
            create();
        else if (kind < 78)
            remove();
        else if (kind < 83)
            rename();
        else if (kind < 91)
            move();
        else if (kind < 97)
            hold();
        else if (kind < 107)
            iterate();
        else
            changeValues();
    }

    /// A key at random, the root among them, reached by a random walk downwards.
    Node& pick(bool crowded = false) {
        Node* node = &_root;
        if (crowded && _root.keys.size() >= CROWDED)
            return *std::next(_root.keys.begin(), below(CROWDED))->second;
        while (!node->keys.empty() && below(5) != 0)
            node = std::next(node->keys.begin(), below(node->keys.size()))->second.get();
        return *node;
    }

    std::u16string randomName(const Node& parent) {
        static constexpr std::u16string_view scripts[] = {
            u"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 _-.{}/\\",
            u"abAB",
            u"\u00E4\u00F6\u00FC\u00DF\u00C4\u00D6\u00DC\u00E9\u00C9\u00B5\u00FF",
            u"\u03B1\u03B2\u03C3\u03C2\u0391\u0392\u03A3\u03C9",
            u"\u0436\u0416\u044F\u042F\u65E5\u672C\u8A9E\u30AD\u30FC",
            u"\U0001F511\u0131\u017F\u01C5"};
        if (!parent.keys.empty() && below(12) == 0) {  // one that is there, in another case
            const auto& [up, node] = *std::next(parent.keys.begin(), below(parent.keys.size()));
            return below(2) ? up : node->name;
        }
        const auto script = scripts[below(10) < 6 ? 0 : below(std::size(scripts))];
        std::u16string name(1 + (below(20) == 0 ? below(255) : below(14)), u' ');
        for (char16_t& unit : name)
            unit = (below(8) ? script : scripts[0])[below(below(8) ? script.size() : 8) % script.size()];
        return name;
    }

    Ref<Key> open(const Node& node) {
        if (!node.parent) return Ref<Key>(_hive.root);
        const Ref<Key> found = open(*node.parent)->key(text(node.name));
        EXPECT_TRUE(found) << utf8(text(node.name));
        EXPECT_TRUE(!node.held || found == node.held) << "a key that is held has one object";
        return found;
    }

    /// The error of giving a key of `parent` this name; `taken` is the one for a name that is there.
    u32 errorOfName(Node& parent, const std::u16string& name, u32 taken) {
        if (parent.keys.count(upper(name))) return taken;
        if (parent.keys.empty()) parent.hints = _hive.hive->versionMinor() == 3;
        if (parent.keys.size() == KeyObj::MAX_KEYS_LF_LIST) parent.hints = false;
        // Each character of a hint, and of the upper-case form that an 8-bit name's hash is made of, must
        // have a byte.
        const auto has8Bits = [](const std::u16string& units) {
            return std::all_of(units.begin(), units.end(), [](char16_t unit) { return unit < 256; });
        };
        const bool fits = _hive.hive->versionMinor() == 3 ? !parent.hints || has8Bits(name.substr(0, 4))
                                                          : !has8Bits(name) || has8Bits(upper(name));
        return fits ? 0 : 0x200A;
    }

    void create() {
        Node& parent = pick(below(3) != 0);
        if (parent.level() + 1 < MOST_LEVELS) create(parent, randomName(parent));
    }
    void create(Node& parent, const std::u16string& name) {
        const u32 error = errorOfName(parent, name, 0x1005);
        const Ref<Key> key = open(parent);
        ASSERT_EQ(errorOf([&] { return bool(key->createKey(text(name))); }), error) << utf8(text(name));
        if (error) return;
        link(parent, std::make_unique<Node>(Node{name, &parent}));
        _most = std::max<u64>(_most, parent.keys.size());
    }

    void remove() {
        Node& node = pick();
        if (!node.parent || (node.parent == &_root && node.keys.size() > 20)) return;
        const Ref<Key> key = open(node), parent = open(*node.parent);
        const bool empty = node.keys.empty() && node.values.empty();
        ASSERT_EQ(parent->deleteKey(key), empty);
        if (!empty && below(8) != 0) return;
        ASSERT_TRUE(empty || Util::recursiveKeyDelete(parent, key));
        stopWalks(node);
        unlink(node);
    }
    void link(Node& parent, std::unique_ptr<Node> node) {
        const auto at = parent.keys.emplace(upper(node->name), std::move(node)).first;
        _keyWalk.insertedAt(parent, static_cast<u64>(std::distance(parent.keys.begin(), at)));
    }
    std::unique_ptr<Node> unlink(Node& node) {
        auto& keys = node.parent->keys;
        const auto at = keys.find(upper(node.name));
        _keyWalk.removedAt(*node.parent, static_cast<u64>(std::distance(keys.begin(), at)));
        return std::move(keys.extract(at).mapped());
    }

    void rename() {
        Node& node = pick();
        if (node.parent) moveTo(node, *node.parent);
    }
    void move() {
        Node &node = pick(), &target = pick(below(4) == 0);
        if (node.parent && target.level() + node.height() + 1 < MOST_LEVELS) moveTo(node, target);
    }
    void moveTo(Node& node, Node& target) {
        const std::u16string name = randomName(target);
        const u32 error = target.isBelow(&node) ? 0x100E : errorOfName(target, name, 0x100C);
        const Ref<Key> to = open(target), key = open(node);
        ASSERT_EQ(errorOf([&] { return to->move(key, text(name)); }), error) << utf8(text(name));
        if (error) return;
        // In the order the list changes, and iterators move: the new entry comes before the old one goes.
        link(target, std::make_unique<Node>(Node{name, &target}));
        auto moved = unlink(node);
        moved->parent = &target;
        moved->name = name;
        target.keys[upper(name)] = std::move(moved);
    }

    /// Mostly values of the same few keys, so that their lists grow.
    void changeValues() {
        Node& node = below(4) ? pick(true) : pick();
        const u64 count = node.values.size();
        const u32 choice = below(100);
        if (count == 0 || (choice < 22 && count < 40)) return createValue(node);
        const u64 which = below(count);
        if (choice < 40)
            change(node, which);
        else if (choice < 68)
            resize(node, which);
        else if (choice < 78)
            moveValue(node, which, choice < 73 ? node : pick(true));
        else
            removeValue(node, which);
    }
    Ref<ValueObj> value(Node& node, u64 index) {
        const auto found = refCast<ValueObj>(open(node)->value(text(node.values[index].name)));
        EXPECT_TRUE(found) << utf8(text(node.values[index].name));
        if (_users.size() > 20) _users.clear();
        _users.push_back(found);
        return found;
    }
    void createValue(Node& node) {
        const std::u16string name = freshName();
        const u32 types[] = {0, 1, 3, 4, 5, 7, 11, 0x1234};
        const u32 type = types[below(8)];
        const Ref<Key> key = open(node);
        const auto created = refCast<ValueObj>(key->createValue(text(name), Value::ValueType{type}));
        ASSERT_TRUE(created);
        EXPECT_FALSE(key->createValue(text(name), Value::valueNone));
        link(node, {name, type, std::vector<u8>(ValueObj::datasizeFormType(Value::ValueType{type})),
                    created->recordOfs()});
        // The bytes of a new cell are whatever lay there.
        if (type == 11) change(node, node.values.size() - 1);
    }
    void change(Node& node, u64 index) {
        ModelValue& model = node.values[index];
        const auto target = value(node, index);
        ASSERT_TRUE(target);
        if (below(8) == 0) {
            model.type = below(16);
            ASSERT_TRUE(target->setType(Value::ValueType{model.type}));
        }
        const u32 size = static_cast<u32>(model.data.size());
        model.data = patternBytes(size, below(1000));
        ASSERT_EQ(target->write(ShPtr(model.data.data()), 0, size + below(2)), size);
    }
    void resize(Node& node, u64 index) {
        ModelValue& model = node.values[index];
        const auto target = value(node, index);
        ASSERT_TRUE(target);
        const u32 edges[] = {0, 1, 4, 5, 12, 13, 300, 16344, 16345, 32688, 32689, 49033};
        const u32 edge = edges[below(node.level() == 1 ? 12 : 7)];
        const u32 size = below(2) ? edge : below(edge + 20);
        ASSERT_EQ(target->size(size), size);
        std::vector<u8> now = dataOf(*target);
        ASSERT_EQ(now.size(), size);
        const u64 kept = std::min<u64>(size, model.data.size());
        ASSERT_TRUE(std::equal(now.begin(), now.begin() + static_cast<long>(kept), model.data.begin()));
        model.data = std::move(now);
        if (size > kept) change(node, index);
    }
    void moveValue(Node& from, u64 index, Node& to) {
        const auto target = value(from, index);
        const Ref<Key> source = open(from);
        const std::u16string name = freshName();
        ASSERT_TRUE(open(to)->move(Ref<Value>(target), text(name)));
        ModelValue moved = from.values[index];
        moved.name = name;
        moved.record = target->recordOfs();
        link(to, std::move(moved));
        unlink(from, index, source);
    }
    void removeValue(Node& node, u64 index) {
        const auto target = value(node, index);
        const Ref<Key> key = open(node);
        ASSERT_TRUE(key->deleteValue(Ref<Value>(target)));
        EXPECT_FALSE(target->valid());
        unlink(node, index, key);
    }
    void link(Node& node, ModelValue value) {
        _valueWalk.insertedAt(node, node.values.size());
        node.listed.push_back(value.record);
        node.values.push_back(std::move(value));
    }
    void unlink(Node& node, u64 index, const Ref<Key>& key) {
        _valueWalk.removedAt(node, index);
        const bool trace = node.values.size() > 1 && index == node.values.size() - 2;
        node.values.erase(node.values.begin() + static_cast<long>(index));
        node.listed.pop_back();
        if (trace)
            node.held = key;
        else
            node.listed = node.records();
    }
    std::u16string freshName() {
        std::u16string name = below(4) ? u"v" : u"\u0436";
        for (const char digit : std::to_string(++_names)) name += static_cast<char16_t>(digit);
        return name + std::u16string(below(8) ? below(6) : below(300), u'n');
    }

    void hold() {
        Node& node = pick();
        if (node.parent && node.listed == node.records()) node.held = node.held ? Ref<Key>() : open(node);
    }
    /// Goes on with both iterators, or starts new ones.
    void iterate() {
        if (!_keyWalk.node || below(8) == 0) {
            const Node& node = pick(below(2));
            const Ref<Key> key = open(node);
            _keyWalk = {&node, key->keyIterator()};
            _valueWalk = {&node, key->valueIterator()};
            _keyWalk.at = _keyWalk.iterator->seek(below(256));
            ASSERT_LE(_keyWalk.at, node.keys.size());
        }
        const Node& node = *_keyWalk.node;
        const Ref<Key> key = _keyWalk.iterator->next();
        ASSERT_EQ(bool(key), _keyWalk.at < node.keys.size());
        if (key) {
            const Node& expected = *std::next(node.keys.begin(), _keyWalk.at++)->second;
            EXPECT_EQ(utf8(key->name()), utf8(text(expected.name)));
        }
        const auto value = _valueWalk.iterator->next();
        ASSERT_EQ(bool(value), _valueWalk.at < node.values.size());
        if (value) {
            EXPECT_EQ(utf8(value->name()), utf8(text(node.values[_valueWalk.at++].name)));
        }
    }
    /// Those over keys in a branch that goes.
    void stopWalks(const Node& branch) {
        if (!_keyWalk.node || !_keyWalk.node->isBelow(&branch)) return;
        _keyWalk = {};
        _valueWalk = {};
    }
    void release(Node& node) {
        node.held.reset();
        for (auto& [up, child] : node.keys) release(*child);
    }
    void collectLists(Node& node, std::vector<std::pair<Node*, u32>>& lists) {
        if (!node.values.empty()) lists.emplace_back(&node, refCast<KeyObj>(open(node))->recordOfs());
        for (auto& [up, child] : node.keys) collectLists(*child, lists);
    }

    void compare(const Node& node, const Ref<Key>& key) {
        ASSERT_EQ(utf8(key->name()), utf8(text(node.name)));
        const auto keys = key->keyIterator();
        ASSERT_EQ(keys->count(), node.keys.size());
        for (const auto& [up, child] : node.keys) compare(*child, keys->next());
        const auto values = key->valueIterator();
        ASSERT_EQ(values->count(), node.values.size());
        for (const ModelValue& model : node.values) {
            const auto value = values->next();
            ASSERT_TRUE(value && key->value(text(model.name)) == value) << utf8(text(model.name));
            ASSERT_EQ(value->type(), model.type);
            ASSERT_TRUE(value->size() == model.data.size() && dataOf(*value) == model.data);
        }
    }

    Node _root;
    HiveBuilder _start;
    OpenedHive _hive;
    Choose _choose;
    Walk<KeyIterator> _keyWalk;
    Walk<ValueIterator> _valueWalk;
    std::vector<Ref<ValueObj>> _users;  // some values, as a caller would hold them
    u32 _names = 0;
    u64 _most = 0;  // subkeys that one key had
};

}  // namespace HiveTest
