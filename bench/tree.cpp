#include "bench/tree.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <unordered_set>

#include "platform/system/string.h"

namespace HiveBench {

namespace {

constexpr std::u16string_view WORDS[] = {
    u"Service",  u"Control",  u"Software", u"Microphone", u"Display", u"Printer", u"Network",  u"Profile",
    u"Session",  u"Handler",  u"Class",    u"Interface",  u"Policy",  u"Device",  u"Channel",  u"Component",
    u"Language", u"Provider", u"Instance", u"Parameter",  u"Shell",   u"Window",  u"Security", u"Setup",
};
constexpr std::u16string_view FAR_WORDS[] = {u"Größe", u"Zugehörigkeit", u"Настройки", u"Ελλάδα"};

constexpr std::u16string_view VALUE_NAMES[] = {
    u"",           u"Active",      u"AppId",       u"Argument",
    u"Author",     u"Base",        u"BuildNumber", u"Category",
    u"ClassGuid",  u"Color",       u"Count",       u"Date",
    u"Depend",     u"Description", u"DeviceDesc",  u"DisplayName",
    u"Driver",     u"ErrorMode",   u"File",        u"Flags",
    u"Font",       u"Group",       u"Height",      u"HelpLink",
    u"Icon",       u"ImagePath",   u"Index",       u"InstallDate",
    u"Key",        u"Language",    u"LastChanged", u"Level",
    u"Link",       u"LocalPath",   u"MaxSize",     u"Mode",
    u"ObjectName", u"Order",       u"Owner",       u"ParentFolder",
    u"Percentage", u"Publisher",   u"Start",       u"Tag",
    u"Type",       u"Version",     u"Width",       u"Übersicht",
};
constexpr u32 NAMES_PER_ORDINAL = static_cast<u32>(std::size(VALUE_NAMES)) / VALUES_PER_KEY;

u64 mix(u64 number) {
    number += 0x9E3779B97F4A7C15;
    number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9;
    number = (number ^ (number >> 27)) * 0x94D049BB133111EB;
    return number ^ (number >> 31);
}

std::u16string digits(u64 number, u32 base = 10, u32 least = 1) {
    std::u16string text;
    for (; number || text.size() < least; number /= base) text += u"0123456789ABCDEF"[number % base];
    std::reverse(text.begin(), text.end());
    return text;
}

/// A name unlike that of any sibling, whatever its case: it ends in its number among them, or is made of it.
std::u16string keyName(u64 hash, u64 number) {
    const u64 kind = hash % 100;
    const u64 other = hash / 100;
    const std::u16string word(WORDS[other % std::size(WORDS)]);
    const std::u16string second(WORDS[other / 100 % std::size(WORDS)]);
    if (kind < 55) return word + digits(number);
    if (kind < 70) return word + second + digits(number);
    if (kind < 85)
        return u"{" + digits(number, 16, 8) + u"-" + digits(other & 0xFFFF, 16, 4) + u"-" +
               digits(other >> 16 & 0xFFFF, 16, 4) + u"-8000-" + digits(mix(hash) >> 16, 16, 12) + u"}";
    if (kind < 96) return word + u" " + second + u" " + digits(number);
    return std::u16string(FAR_WORDS[other % std::size(FAR_WORDS)]) + digits(number);
}

/// Words, blanks between them; values of text are pieces of it.
const std::u16string& prose() {
    static const std::u16string text = [] {
        std::u16string made;
        for (u64 i = 0; made.size() < 65536; ++i) {
            const u64 hash = mix(i);
            made +=
                hash % 50 ? WORDS[hash / 50 % std::size(WORDS)] : FAR_WORDS[hash / 50 % std::size(FAR_WORDS)];
            made += hash % 7 ? u' ' : u'.';
        }
        return made;
    }();
    return text;
}

}  // namespace

std::span<const std::u16string_view> valueNames() {
    return VALUE_NAMES;
}

std::span<const std::string> valueNames8() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> made;
        for (const auto name : VALUE_NAMES) made.push_back(toUtf8(name));
        return made;
    }();
    return names;
}

std::string toUtf8(std::u16string_view units) {
    return Platform::String::create(units)->toUtf8();
}

u64 hashBytes(const void* bytes, u64 count, u64 seed) {
    constexpr u64 prime = 0x9FB21C651E98DF25;
    u64 hash = (seed + 1) * prime ^ count;
    const auto* byte = static_cast<const u8*>(bytes);
    const auto take = [&hash](u64 word) {
        hash = (hash ^ word) * prime;
        hash ^= hash >> 29;
    };
    for (; count >= 8; byte += 8, count -= 8) {
        u64 word;
        std::memcpy(&word, byte, 8);
        take(word);
    }
    u64 tail = 0;
    if (count) std::memcpy(&tail, byte, count);
    take(tail);
    return hash;
}

Tree::Tree(u32 keys, u32 extraBytes) : _extraBytes(extraBytes) {
    u64 fan = 1;
    while ((fan + 1) * (1 + (fan + 1) * (1 + (fan + 1) * (2 + fan))) <= keys) ++fan;
    _counts = {1, fan, fan * fan, fan * fan * fan, 0};
    if (keys < fan + fan * fan + fan * fan * fan + 1)
        throw std::runtime_error("too few keys for four levels");
    _counts[LEVELS] = keys - fan - fan * fan - fan * fan * fan;
    _keys.reserve(keys);
    _values.reserve(u64{keys} * VALUES_PER_KEY);
    for (u64 i = 0; i < fan; ++i) addKey(1, i, NO_KEY);
}

/// Adds a key, its values and all below it.
void Tree::addKey(u32 level, u64 number, u32 parent) {
    const auto index = static_cast<u32>(_keys.size());
    const u64 hash = mix(u64{level} << 40 | number);
    const std::u16string name = keyName(hash, number);
    const std::string name8 = toUtf8(name);
    _keys.push_back({parent, level, 0, _names.size(), static_cast<u32>(name.size()), _names8.size(),
                     static_cast<u32>(name8.size())});
    _names += name;
    _names8 += name8;
    for (u32 i = 0; i < VALUES_PER_KEY; ++i) addValue(mix(hash + i + 1), i);
    if (level < LEVELS) {
        const u64 own = _counts[level];
        const u64 below = _counts[level + 1];
        const u64 end = ((number + 1) * below + own - 1) / own;
        for (u64 i = (number * below + own - 1) / own; i < end; ++i) addKey(level + 1, i, index);
    }
    _keys[index].end = static_cast<u32>(_keys.size());
}

void Tree::addValue(u64 hash, u32 ordinal) {
    constexpr struct {
        u32 below;  // of 100
        u32 type;
    } kinds[] = {{40, 1}, {60, 4}, {78, 3}, {86, 2}, {92, 7}, {97, 11}, {99, 5}, {100, 0}};
    u32 kind = 0;
    while (hash % 100 >= kinds[kind].below) ++kind;
    const u64 other = mix(hash);
    PlannedValue value{ordinal * NAMES_PER_ORDINAL + static_cast<u32>(other % NAMES_PER_ORDINAL),
                       kinds[kind].type, _data.size(), 0};
    if (value.type == 1 || value.type == 2) {
        addText(other);
    } else if (value.type == 7) {
        for (u64 i = 0; i <= other % 4; ++i) addText(mix(other + i));
        addUnit(0);
    } else if (value.type == 3) {
        addBinary(other);
    } else if (value.type != 0) {
        for (u32 i = 0; i < (value.type == 11 ? 8 : 4); ++i)
            _data.push_back(static_cast<u8>(other >> (8 * i)));
    }
    value.size = static_cast<u32>(_data.size() - value.data);
    _values.push_back(value);
}

/// A text of 4 to 76 units, short ones more often, and its NUL.
void Tree::addText(u64 hash) {
    const u64 length = 4 + hash % 37 * (hash / 37 % 37) / 18;
    for (const char16_t unit : view(prose(), hash / 2048 % (prose().size() - 80), length)) addUnit(unit);
    addUnit(0);
}

void Tree::addUnit(char16_t unit) {
    _data.push_back(static_cast<u8>(unit));
    _data.push_back(static_cast<u8>(unit >> 8));
}

void Tree::addBinary(u64 hash) {
    const u64 kind = hash % 1000;
    const u64 other = hash / 1000;
    u64 size = 8 + other % 24;
    if (kind >= 700) size = 32 + other % 96;
    if (kind >= 950) size = 128 + other % 896;
    if (kind >= 997) size = 8192 + other % 16384;
    size += _extraBytes;
    u64 state = hash;
    while (size) {
        state = mix(state);
        for (u32 i = 0; i < 8 && size; ++i, --size) _data.push_back(static_cast<u8>(state >> (8 * i)));
    }
}

std::u16string Tree::path(u32 key) const {
    std::u16string path;
    for (; key != NO_KEY; key = _keys[key].parent)
        path =
            path.empty() ? std::u16string(name(_keys[key])) : std::u16string(name(_keys[key])) + u'/' + path;
    return path;
}

void Tree::replaceData(u32 value, u32 size) {
    u64 state = mix(u64{value} << 32 | size);
    _values[value].data = _data.size();
    _values[value].size = size;
    for (u32 i = 0; i < size; ++i) {
        if (i % 8 == 0) state = mix(state);
        _data.push_back(static_cast<u8>(state >> (8 * (i % 8))));
    }
}

Totals Tree::totals(bool utf8Names) const {
    Adder adder;
    for (u64 i = 0; i < _keys.size(); ++i) {
        if (utf8Names)
            adder.key(name8(_keys[i]).data(), _keys[i].length8);
        else
            adder.key(name(_keys[i]).data(), _keys[i].length * sizeof(char16_t));
        for (u64 j = i * VALUES_PER_KEY; j < (i + 1) * VALUES_PER_KEY; ++j) {
            const PlannedValue& value = _values[j];
            const std::u16string_view own = VALUE_NAMES[value.name];
            const std::string& own8 = valueNames8()[value.name];
            adder.value(adder.lastKey(), utf8Names ? static_cast<const void*>(own8.data()) : own.data(),
                        utf8Names ? own8.size() : own.size() * sizeof(char16_t), value.type,
                        data(value).data(), value.size);
        }
    }
    return adder.totals();
}

namespace {

Query makeQuery(const Tree& tree, u32 key, u32 value, bool otherCase) {
    Query query{tree.path(key), {}, key, value, tree.values()[value].name};
    if (otherCase)
        for (char16_t& unit : query.path)
            if ((unit | 0x20) >= u'a' && (unit | 0x20) <= u'z') unit ^= 0x20;
    query.path8 = toUtf8(query.path);
    return query;
}

/// `count` different numbers below `bound`, in no order.
std::vector<u32> sample(u32 count, u32 bound, u64 seed) {
    std::vector<u32> numbers;
    std::unordered_set<u32> seen;
    for (u64 i = 0; numbers.size() < std::min(count, bound); ++i) {
        const auto number = static_cast<u32>(mix(seed + i) % bound);
        if (seen.insert(number).second) numbers.push_back(number);
    }
    return numbers;
}

}  // namespace

std::vector<Query> makeQueries(const Tree& tree, u32 count, u64 seed) {
    std::vector<Query> queries;
    for (u32 i = 0; i < count; ++i) {
        const u64 hash = mix(seed << 32 | i);
        const auto key = static_cast<u32>(hash % tree.keys().size());
        const auto value = static_cast<u32>(key * VALUES_PER_KEY + (hash >> 40) % VALUES_PER_KEY);
        queries.push_back(makeQuery(tree, key, value, (hash >> 50) % 2 != 0));
    }
    return queries;
}

Changes makeChanges(Tree& tree, u32 writes, u32 recreated, u32 subtrees) {
    Changes changes{tree, {}, {}, {}};
    const auto valueCount = static_cast<u32>(tree.values().size());
    // One sample for both: a value that is written to is not deleted, so each has one wanted content.
    const std::vector<u32> values = sample(writes + recreated, valueCount, 7 << 20);
    for (u32 i = 0; i < values.size(); ++i) {
        const u32 value = values[i];
        const PlannedValue& old = tree.values()[value];
        const bool isNumber = old.type == 4 || old.type == 5 || old.type == 11;
        const bool write = i < writes;
        tree.replaceData(value, write || isNumber ? old.size : 2 + (old.size * 7 + value) % 96 / 2 * 2);
        (write ? changes.writes : changes.recreated)
            .push_back(makeQuery(tree, value / VALUES_PER_KEY, value, false));
    }
    // A tenth of them with all the keys of the lowest level below.
    std::vector<u32> middle;
    std::vector<u32> lowest;
    for (u32 i = 0; i < tree.keys().size(); ++i) {
        if (tree.keys()[i].level == LEVELS - 1) middle.push_back(i);
        if (tree.keys()[i].level == LEVELS) lowest.push_back(i);
    }
    for (const u32 i : sample(subtrees / 10, static_cast<u32>(middle.size()), 8 << 20))
        changes.subtrees.push_back(makeQuery(tree, middle[i], 0, false));
    for (const u32 i : sample(subtrees - subtrees / 10, static_cast<u32>(lowest.size()), 9 << 20))
        changes.subtrees.push_back(makeQuery(tree, lowest[i], 0, false));
    return changes;
}

u64 Changes::operations() const {
    u64 count = writes.size() + 2 * recreated.size();
    for (const Query& query : subtrees)
        count += 2 * (1 + VALUES_PER_KEY) * (tree.keys()[query.key].end - query.key);
    return count;
}

}  // namespace HiveBench
