#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/system/types.h"

/// What the benchmark keeps in each store: the same tree, the same questions, the same changes.
namespace HiveBench {

using Platform::u32;
using Platform::u64;
using Platform::u8;

constexpr u32 LEVELS = 4;
constexpr u32 VALUES_PER_KEY = 3;

/// The names values have, in the order of their upper-case forms, "" (the default value) first.
std::span<const std::u16string_view> valueNames();
std::span<const std::string> valueNames8();

std::string toUtf8(std::u16string_view units);
/// Sum over bytes; another seed gives another sum.
u64 hashBytes(const void* bytes, u64 count, u64 seed = 0);

/// What a walk over a whole store adds up to.
struct Totals {
    u64 keys = 0;
    u64 values = 0;
    u64 bytes = 0;  // of data
    u64 sum = 0;

    bool operator==(const Totals&) const = default;
};

/// Adds up a walk; the order of keys, and of the values of a key, makes no difference. Names are hashed as
/// the store keeps them, which is UTF-16 or UTF-8.
class Adder {
 public:
    void key(const void* name, u64 nameBytes) {
        _key = hashBytes(name, nameBytes, 1) | 1;
        ++_totals.keys;
        _totals.sum += _key;
    }
    /// A value of a key whose `lastKey()` was asked for when it was added.
    void value(u64 key, const void* name, u64 nameBytes, u32 type, const void* data, u64 bytes) {
        ++_totals.values;
        _totals.bytes += bytes;
        _totals.sum += (hashBytes(name, nameBytes, 2) + hashBytes(data, bytes, type)) * key;
    }
    u64 lastKey() const { return _key; }
    const Totals& totals() const { return _totals; }

 private:
    Totals _totals;
    u64 _key = 1;
};

struct PlannedKey {
    u32 parent;  // index, NO_KEY below the root
    u32 level;   // 1 to LEVELS
    u32 end;     // index behind the last key below this one
    u64 name;    // offset into the names
    u32 length;  // in units
    u64 name8;
    u32 length8;
};

struct PlannedValue {
    u32 name;  // index into valueNames()
    u32 type;
    u64 data;  // offset into the data
    u32 size;
};

/// A tree of keys at up to four levels, each with three values of mixed types and sizes, parents before
/// children, siblings in no order. The same number of keys always gives the same tree.
class Tree {
 public:
    static constexpr u32 NO_KEY = 0xFFFFFFFF;

    /// `extraBytes` more bytes of data in each binary value, to make a large file of few keys.
    explicit Tree(u32 keys, u32 extraBytes = 0);

    const std::vector<PlannedKey>& keys() const { return _keys; }
    /// The values of key i are those from i * VALUES_PER_KEY on.
    const std::vector<PlannedValue>& values() const { return _values; }

    std::u16string_view name(const PlannedKey& key) const { return view(_names, key.name, key.length); }
    std::string_view name8(const PlannedKey& key) const {
        return std::string_view(_names8).substr(key.name8, key.length8);
    }
    std::span<const u8> data(const PlannedValue& value) const {
        return std::span(_data).subspan(value.data, value.size);
    }
    /// The path of a key, names separated by '/'.
    std::u16string path(u32 key) const;

    /// Gives a value other data, `size` bytes long.
    void replaceData(u32 value, u32 size);

    Totals totals(bool utf8Names) const;

 private:
    static std::u16string_view view(const std::u16string& text, u64 from, u64 count) {
        return std::u16string_view(text).substr(from, count);
    }
    void addKey(u32 level, u64 number, u32 parent);
    void addValue(u64 hash, u32 ordinal);
    void addText(u64 hash);
    void addUnit(char16_t unit);
    void addBinary(u64 hash);

    u32 _extraBytes;
    std::array<u64, LEVELS + 1> _counts{1};  // keys of each level
    std::vector<PlannedKey> _keys;
    std::vector<PlannedValue> _values;
    std::u16string _names;
    std::string _names8;
    std::vector<u8> _data;
};

/// One value to be found by its path; half of them are spelled in the other case.
struct Query {
    std::u16string path;  // names separated by '/'
    std::string path8;
    u32 key;
    u32 value;      // index into the tree's values
    u32 valueName;  // index into valueNames()
};

/// `count` queries for random keys of the tree.
std::vector<Query> makeQueries(const Tree& tree, u32 count, u64 seed);

/// What is changed in a store that holds the tree. The tree is the wanted end state.
struct Changes {
    const Tree& tree;
    std::vector<Query> writes;     // values whose data is overwritten, the size staying
    std::vector<Query> recreated;  // values deleted and made again, with data of another size
    std::vector<Query> subtrees;   // keys deleted with all below them, and made again

    /// Records written, deleted and made.
    u64 operations() const;
};

/// Works out changes and applies them to `tree`.
Changes makeChanges(Tree& tree, u32 writes, u32 recreated, u32 subtrees);

}  // namespace HiveBench
