// Random sequences of key operations against a tree of plain maps.

#include <algorithm>
#include <cstdlib>
#include <random>

#include "regfile/util.h"
#include "tests/hive/keyops/freshhive.h"
#include "tests/support/tempdir.h"

using namespace HiveTest;

namespace {

constexpr u32 OPERATIONS = 50000;
constexpr u32 MOST_LEVELS = 9;
constexpr u32 CROWDED = 3;  // subkeys of the root that most new keys go to, so that their lists fill up

/// What a key should be. Children by upper-cased name, which is the order of the list.
struct Node {
    std::u16string name;
    Node* parent = nullptr;
    std::map<std::u16string, std::unique_ptr<Node>> keys = {};
    std::map<std::u16string, std::vector<u8>> values = {};
    Ref<Key> held = {};  // some keys are held by somebody
    bool hints = true;   // while the list of a version 1.3 hive is an lf record

    u32 level() const { return parent ? parent->level() + 1 : 0; }
    u32 height() const {
        u32 most = 0;
        for (const auto& [upper, node] : keys) most = std::max(most, node->height() + 1);
        return most;
    }
    bool isBelow(const Node* other) const { return this == other || (parent && parent->isBelow(other)); }
};

class KeysModel {
 public:
    explicit KeysModel(u32 minor) : _hive(minor), _random(minor) {}

    void run() {
        u32 untilReopened = 1;
        for (u32 i = 0; i < OPERATIONS && !testing::Test::HasFailure(); ++i) {
            operate();
            if (--untilReopened) continue;
            untilReopened = 300 + below(700);
            release(_root);
            _hive.reopen();
            check();
        }
        check();
        EXPECT_GT(_most, 1300u) << "no list grew beyond one record";
    }
    void save(const std::string& path) { writeFile(path, _hive.file()); }

 private:
    u32 below(u64 bound) { return static_cast<u32>(_random() % bound); }
    static std::u16string upper(const std::u16string& name) {
        return std::u16string(text(name)->upper()->view());
    }

    void operate() {
        const u32 kind = below(100);
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
            setValue();
        else
            hold();
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
            u"\u00E4\u00F6\u00FC\u00DF\u00C4\u00D6\u00DC\u00E9\u00C9\u00B5",
            u"\u03B1\u03B2\u03C3\u03C2\u0391\u0392\u03A3\u03C9",
            u"\u0436\u0416\u044F\u042F\u0434\u0414",
            u"\u65E5\u672C\u8A9E\u30AD\u30FC",
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
    u32 errorOf(Node& parent, const std::u16string& name, u32 taken) {
        if (parent.keys.count(upper(name))) return taken;
        if (parent.keys.empty()) parent.hints = _hive.hive->versionMinor() == 3;
        if (parent.keys.size() == KeyObj::MAX_KEYS_LF_LIST) parent.hints = false;
        // Each character of a hint must have a byte.
        const bool fits =
            std::all_of(name.begin(), name.begin() + static_cast<long>(std::min(name.size(), size_t{4})),
                        [](char16_t unit) { return unit < 256; });
        return fits || !parent.hints ? 0 : 0x200A;
    }

    void create() {
        Node& parent = pick(below(3) != 0);
        if (parent.level() + 1 >= MOST_LEVELS) return;
        const std::u16string name = randomName(parent);
        const u32 error = errorOf(parent, name, 0x1005);
        ASSERT_EQ(bool(open(parent)->createKey(text(name))), !error) << utf8(text(name));
        ASSERT_TRUE(!error || Platform::Error::get() == error) << Platform::Error::get();
        if (error) return;
        parent.keys[upper(name)] = std::make_unique<Node>(Node{name, &parent});
        _most = std::max(_most, parent.keys.size());
    }

    void remove() {
        Node& node = pick();
        if (!node.parent || (node.parent == &_root && node.keys.size() > 20)) return;
        const Ref<Key> key = open(node), parent = open(*node.parent);
        const bool empty = node.keys.empty() && node.values.empty();
        ASSERT_EQ(parent->deleteKey(key), empty);
        if (!empty && below(8) != 0) return;
        ASSERT_TRUE(empty || Util::recursiveKeyDelete(parent, key));
        Node* owner = node.parent;
        owner->keys.erase(upper(node.name));
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
        const u32 error = target.isBelow(&node) ? 0x100E : errorOf(target, name, 0x100C);
        const Ref<Key> to = open(target), key = open(node);
        ASSERT_EQ(to->move(key, text(name)), !error) << utf8(text(name));
        ASSERT_TRUE(!error || Platform::Error::get() == error) << Platform::Error::get();
        if (error) return;
        auto moved = std::move(node.parent->keys.extract(upper(node.name)).mapped());
        moved->parent = &target;
        moved->name = name;
        target.keys[upper(name)] = std::move(moved);
    }

    void setValue() {
        Node& node = pick();
        const std::u16string name{static_cast<char16_t>(u'A' + below(4))};
        const Ref<Key> key = open(node);
        if (node.values.size() >
            2) {  // from the last to the first: a removed last but one stays in the record
            const auto own = Platform::refCast<KeyObj>(key);
            while (own->values()) ASSERT_TRUE(key->deleteValue(Ref<Value>(own->value(own->values() - 1))));
            node.values.clear();
            return;
        }
        const std::vector<u8> data = patternBytes(below(60), below(1000));
        auto value = key->value(text(name));
        if (!value) value = key->createValue(text(name), Value::valueBinary);
        ASSERT_TRUE(value && value->size(static_cast<u32>(data.size())) == data.size());
        ASSERT_EQ(value->write(ShPtr::fromConst(data.data()), 0, value->size()), data.size());
        node.values[name] = data;
    }

    void hold() {
        Node& node = pick();
        if (node.parent) node.held = node.held ? Ref<Key>() : open(node);
    }
    void release(Node& node) {
        node.held.reset();
        for (auto& [up, child] : node.keys) release(*child);
    }

    void check() {
        _hive.expectSound();
        compare(_root, Ref<Key>(_hive.root));
    }
    void compare(const Node& node, const Ref<Key>& key) {
        ASSERT_EQ(utf8(key->name()), utf8(text(node.name)));
        const auto keys = key->keyIterator();
        ASSERT_EQ(keys->count(), node.keys.size());
        for (const auto& [up, child] : node.keys) compare(*child, keys->next());
        ASSERT_EQ(key->valueIterator()->count(), node.values.size());
        for (const auto& [name, data] : node.values) {
            const auto value = key->value(text(name));
            ASSERT_TRUE(value && value->size() == data.size());
            std::vector<u8> stored(data.size() + 1);
            value->read(ShPtr(stored.data()), 0, value->size());
            stored.pop_back();
            ASSERT_EQ(stored, data);
        }
    }

    FreshHive _hive;
    std::mt19937 _random;
    Node _root;
    u64 _most = 0;  // subkeys that one key had
};

/// HIVE_MODEL_FILES may name a directory to leave the files in, for another checker.
TEST(KeysModel, RandomOperationsMatchInBothVersions) {
    for (const u32 minor : {3u, 5u}) {
        SCOPED_TRACE(minor);
        KeysModel model(minor);
        model.run();
        if (const char* directory = std::getenv("HIVE_MODEL_FILES"))
            model.save(std::string(directory) + "/keys-1." + std::to_string(minor) + "-sound.hive");
    }
}

}  // namespace
