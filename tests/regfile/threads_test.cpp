// One hive used by several threads. Meant for ThreadSanitizer, which must find nothing.

#include <cstdlib>
#include <deque>
#include <random>
#include <thread>

#include "regfile/util.h"
#include "regfile/valueedit.h"
#include "tests/hive/openedhive.h"
#include "tests/support/regtext.h"

using namespace HiveTest;

namespace {

/// More data than the cache holds, read by iteration and by name, with and without hbins.
TEST(HiveThreads, ReadOneHiveThroughTheSameKeysAndOthers) {
    KeyPlan plan;
    for (u32 i = 0; i < 80; ++i)
        plan.keys.push_back({.name = std::u16string(numbered(i)->view()),
                             .values = {{u"big", 3, patternBytes(20000, i)}, {u"n", 4, numberBytes(i)}}});
    HiveBuilder builder;
    builder.setHbinSize(73 * 4096);
    builder.allocate(20000);
    builder.build(plan);
    const std::string whole = exportText(OpenedHive(builder).root);
    for (const u32 mode : {u32{HiveFile::modeReadWrite}, u32{HiveFile::modeReadOnly},
                           HiveFile::modeReadOnly | HiveFile::modeUnsafe}) {
        const OpenedHive opened(builder, mode);
        std::vector<std::thread> threads;
        for (u32 thread = 0; thread < 4; ++thread)
            threads.emplace_back([&, thread] {
                for (u32 again = 0; again < 2; ++again) {
                    for (u32 i = 0; i < 80; ++i) {
                        const KeyPlan& expected = plan.keys[(i + 40 * thread) % 80];
                        const auto key = opened.root->key(text(expected.name));
                        ASSERT_TRUE(key && key->value(text(u"N"))->number() == (i + 40 * thread) % 80);
                        ASSERT_FALSE(key->key(text(u"missing")) || key->value(text(u"missing")));
                    }
                    EXPECT_TRUE(exportText(opened.root) == whole) << mode;
                }
            });
        for (std::thread& thread : threads) thread.join();
    }
}

constexpr u32 THREADS = 8;
constexpr u32 FIXED = 6;   // keys of each thread's branch that stay, behind all that come and go
constexpr u32 SHARED = 8;  // keys of the shared branch that everybody makes and removes

u64 stressSeconds() {
    const char* const seconds = std::getenv("HIVE_STRESS_SECONDS");
    return seconds ? std::strtoull(seconds, nullptr, 10) : 1;
}

/// Bytes that tell by themselves whether they are whole: their pattern's number in front.
std::vector<u8> wholeBytes(u32 size, u32 seed) {
    std::vector<u8> data = patternBytes(size, seed);
    for (u32 i = 0; i < 4 && i < size; ++i) data[i] = static_cast<u8>(seed >> 8 * i);
    return data;
}

/// What all threads change together, and what must come of it whoever comes first.
struct SharedModel {
    std::atomic<u32> additions{0};
    std::atomic<int> made[SHARED] = {};  // how often each key was made, less how often it was removed
    std::atomic<u64> operations{0};
};

/// One thread: changes a branch of its own, of which it keeps an exact model, and with the others the shared
/// one; reads everybody's. It holds no key longer than one operation, so that objects come and go all the
/// time, the root's among them.
class Worker {
 public:
    Worker(Ref<HiveFile> hive, u32 number, SharedModel& shared)
        : _hive(std::move(hive)), _number(number), _shared(shared), _random(number) {
        const Ref<Key> own = _hive->root()->createKey(text(branchName(number)));
        for (u32 i = 0; i < FIXED; ++i) {
            const std::u16string name{u'x', u'a', static_cast<char16_t>(u'0' + i)};
            EXPECT_TRUE(own->createKey(text(name)));
            _keys[name];
        }
    }

    void run(std::chrono::steady_clock::time_point end) {
        while (std::chrono::steady_clock::now() < end && !testing::Test::HasFailure()) {
            operate();
            ++_shared.operations;
        }
        _hive.reset();
    }

    /// The branch, wholly as it should be.
    void compare(const Ref<HiveFile>& hive) {
        const Ref<Key> own = branch(hive, _number);
        const auto iterator = own->keyIterator();
        ASSERT_EQ(iterator->count(), _keys.size());
        for (const auto& [name, values] : _keys) {
            const Ref<Key> key = iterator->next();
            ASSERT_TRUE(key && key->name()->equal(name)) << utf8(text(name));
            ASSERT_EQ(key->valueIterator()->count(), values.size()) << utf8(text(name));
            for (const auto& [valueName, data] : values) {
                const Ref<Value> value = key->value(text(valueName));
                ASSERT_TRUE(value && dataOf(*value) == data) << utf8(text(valueName));
            }
        }
    }

 private:
    using Values = std::map<std::u16string, std::vector<u8>>;

    static std::u16string branchName(u32 number) { return {u'b', static_cast<char16_t>(u'0' + number)}; }
    u32 below(u64 bound) { return static_cast<u32>(_random() % bound); }
    std::u16string name(char16_t kind, u32 count) {
        const u32 number = below(count);
        return {kind, static_cast<char16_t>(u'a' + number / 10), static_cast<char16_t>(u'0' + number % 10)};
    }
    static Ref<Key> branch(const Ref<HiveFile>& hive, u32 number) {
        return hive->path(text(branchName(number)));
    }
    void operate() {
        const u32 kind = below(100);
        if (kind < 30)
            setValue();
        else if (kind < 38)
            removeValue();
        else if (kind < 44)
            moveValue();
        else if (kind < 50)
            renameKey();
        else if (kind < 54)
            removeKey();
        else if (kind < 74)
            changeShared();
        else if (kind < 98)
            readOthers(below(THREADS));
        else
            EXPECT_TRUE(_hive->flush());
    }

    Ref<Key> open(const std::u16string& key) {
        const Ref<Key> own = branch(_hive, _number);
        const Ref<Key> found = own->key(text(key));
        if (found || _keys.count(key)) {
            EXPECT_TRUE(found && _keys.count(key)) << utf8(text(key));
            return found;
        }
        _keys[key];
        return own->createKey(text(key));
    }
    std::u16string anyKey() { return below(3) ? name(u'x', FIXED) : name(u't', 12); }

    void setValue() {
        const std::u16string keyName = anyKey(), valueName = name(u'v', 8);
        const Ref<Key> key = open(keyName);
        Values& values = _keys[keyName];
        const u32 size = below(4) ? below(600) : below(40000);
        const std::vector<u8> data = wholeBytes(size, static_cast<u32>(_random()));
        Ref<Value> value = key->value(text(valueName));
        ASSERT_EQ(bool(value), values.count(valueName) == 1);
        // Made and filled while nobody looks, since readers want whole data.
        const MonGuard guard(_hive->mon());
        if (!value) value = key->createValue(text(valueName), Value::valueBinary);
        ASSERT_EQ(ValueEdit::setData(key, value, data.data(), size), ValueEdit::done);
        values[valueName] = data;
    }

    void removeValue() {
        const std::u16string keyName = anyKey(), valueName = name(u'v', 8);
        const Ref<Key> key = open(keyName);
        const bool there = _keys[keyName].erase(valueName) == 1;
        const Ref<Value> value = key->value(text(valueName));
        ASSERT_EQ(bool(value), there);
        ASSERT_TRUE(!there || (key->deleteValue(value) && ValueEdit::settleList(key)));
    }

    void moveValue() {
        const std::u16string from = anyKey(), to = anyKey(), oldName = name(u'v', 8), newName = name(u'v', 8);
        const Ref<Key> oldKey = open(from), newKey = open(to);
        const Ref<Value> value = oldKey->value(text(oldName));
        if (!value) return;
        const bool free = !_keys[to].count(newName);
        ASSERT_EQ(newKey->move(value, text(newName)), free);
        if (!free) return;
        ASSERT_TRUE(ValueEdit::settleList(oldKey));
        auto moved = _keys[from].extract(oldName);
        _keys[to][newName] = std::move(moved.mapped());
    }

    void renameKey() {
        const std::u16string oldName = name(u't', 12), newName = name(u't', 12) + name(u'n', 40);
        const Ref<Key> key = open(oldName);
        const bool free = !_keys.count(newName);
        ASSERT_EQ(branch(_hive, _number)->move(key, text(newName)), free);
        if (!free) return;
        auto moved = _keys.extract(oldName);
        moved.key() = newName;
        _keys.insert(std::move(moved));
    }

    void removeKey() {
        const auto found =
            _keys.lower_bound(u"t" + std::u16string(1, static_cast<char16_t>(u'a' + below(3))));
        if (found == _keys.end() || found->first[0] != u't') return;
        const Ref<Key> own = branch(_hive, _number);
        ASSERT_TRUE(Util::recursiveKeyDelete(own, own->key(text(found->first))));
        _keys.erase(found);
    }

    void changeShared() {
        const Ref<Key> shared = _hive->path(text(u"shared"));
        const u32 slot = below(SHARED);
        const Ref<String> slotName = text(std::u16string{u's', static_cast<char16_t>(u'0' + slot)});
        const Ref<Key> key = shared->key(slotName);
        if (key ? shared->deleteKey(key) : bool(shared->createKey(slotName)))
            _shared.made[slot] += key ? -1 : 1;
        const Ref<Value> sum = shared->value(text(u"sum"));
        {
            const MonGuard guard(_hive->mon());
            EXPECT_TRUE(sum->setNumber(sum->number() + 1));
            ++_shared.additions;
        }
        // Each text is one letter, as often as the letter says.
        const Ref<Value> letters = shared->value(text(u"letters"));
        const std::u16string seen(letters->string(4000)->view());
        EXPECT_TRUE(seen.empty() || seen == std::u16string((seen[0] - u'a') * 100u, seen[0]))
            << "a torn text";
        const auto letter = static_cast<char16_t>(u'b' + below(25));
        EXPECT_TRUE(
            ValueEdit::setString(shared, letters, text(std::u16string((letter - u'a') * 100u, letter))));
    }

    /// Names and data are whole, the keys that stay come once each and in order, and a held key is one
    /// object.
    void readOthers(u32 number) {
        const Ref<Key> other = branch(_hive, number);
        EXPECT_EQ(branch(_hive, number), other);
        EXPECT_EQ(_hive->root(), _hive->root());
        const auto iterator = other->keyIterator();
        if (below(2)) {
            iterator->next();
            iterator->seek(0);
        }
        u32 fixed = 0;
        while (const Ref<Key> key = iterator->next()) {
            const Ref<String> keyName = key->name();
            if (!keyName) continue;  // removed meanwhile
            if (keyName->charAt(0) == u'x') {
                EXPECT_EQ(keyName->charAt(2), u'0' + fixed);
                ++fixed;
            }
            if (below(4) == 0) readValues(key);
        }
        EXPECT_EQ(fixed, FIXED);
    }

    void readValues(const Ref<Key>& key) {
        const auto values = key->valueIterator();
        while (const Ref<Value> value = values ? values->next() : nullptr) {
            const MonGuard guard(_hive->mon());
            const std::vector<u8> data = dataOf(*value);
            if (data.size() < 4) continue;
            const u32 seed = data[0] | u32{data[1]} << 8 | u32{data[2]} << 16 | u32{data[3]} << 24;
            EXPECT_TRUE(data == wholeBytes(static_cast<u32>(data.size()), seed)) << data.size();
        }
    }

    Ref<HiveFile> _hive;
    const u32 _number;
    SharedModel& _shared;
    std::mt19937 _random;
    std::map<std::u16string, Values> _keys;  // in the order of the list, names being of one case
};

void stress(u32 minor, std::chrono::milliseconds time) {
    OpenedHive hive(minor);
    SharedModel shared;
    Ref<Key> both = hive.root->createKey(text(u"shared"));
    ASSERT_TRUE(both->createValue(text(u"sum"), Value::valueDword)->setNumber(0));
    ASSERT_TRUE(both->createValue(text(u"letters"), Value::valueString));
    std::deque<Worker> workers;
    for (u32 i = 0; i < THREADS; ++i) workers.emplace_back(hive.hive, i, shared);
    both.reset();
    hive.root.reset();
    const auto end = std::chrono::steady_clock::now() + time;
    std::vector<std::thread> threads;
    for (Worker& worker : workers) threads.emplace_back([&worker, end] { worker.run(end); });
    for (std::thread& thread : threads) thread.join();
    hive.reopen();
    for (Worker& worker : workers) worker.compare(hive.hive);
    const Ref<KeyObj> branch = hive.key(u"shared");
    EXPECT_EQ(branch->value(text(u"sum"))->number(), shared.additions);
    for (u32 i = 0; i < SHARED; ++i)
        EXPECT_EQ(bool(branch->key(text(std::u16string{u's', static_cast<char16_t>(u'0' + i)}))),
                  shared.made[i])
            << i;
    hive.expectSound();
    std::printf("1.%u: %u threads, %llu operations, %zu bytes\n", minor, THREADS,
                static_cast<unsigned long long>(shared.operations), hive.file().size());
}

/// HIVE_STRESS_SECONDS in the environment: how long, for both versions together.
TEST(HiveThreads, EightThreadsChangeOneHiveAndItIsAsTheirModelsSay) {
    for (const u32 minor : {3u, 5u}) stress(minor, std::chrono::milliseconds(stressSeconds() * 500));
}

/// The hive is closed by whichever thread gives up the last key, and what all of them changed is written.
TEST(HiveThreads, TheLastKeyReleasedWritesTheHive) {
    for (u32 round = 0; round < 40; ++round) {
        OpenedHive hive(u32{5});
        std::vector<std::thread> threads;
        for (u32 i = 0; i < THREADS; ++i)
            threads.emplace_back([i, key = hive.root->createKey(numbered(i))]() mutable {
                const Ref<Value> value = key->createValue(text(u"v"), Value::valueDword);
                key.reset();
                EXPECT_TRUE(value->setNumber(i));
            });
        hive.root.reset();
        hive.hive.reset();
        for (std::thread& thread : threads) thread.join();
        threads.clear();
        hive.reopen();
        for (u32 i = 0; i < THREADS; ++i)
            ASSERT_EQ(hive.root->key(numbered(i))->value(text(u"v"))->number(), i);
    }
}

/// A value of another hive is refused while that hive's threads give it another key.
TEST(HiveThreads, ValuesOfAnotherHiveAreRefusedWhileTheyMove) {
    OpenedHive own(u32{5}), other(u32{5});
    const Ref<Key> keys[] = {other.root->createKey(text(u"a")), other.root->createKey(text(u"b"))};
    const Ref<Value> value = keys[0]->createValue(text(u"v"), Value::valueDword);
    std::thread mover([&] {
        for (u32 i = 1; i < 500; ++i) EXPECT_TRUE(keys[i % 2]->move(value, text(u"v")));
    });
    for (u32 i = 0; i < 500; ++i) {
        EXPECT_FALSE(own.root->move(value, text(u"w")));
        EXPECT_EQ(Error::get(), 0x8446u);
    }
    mover.join();
}

}  // namespace
