#include "tests/support/hivecheck.h"

#include <cstdio>
#include <map>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "platform/system/string.h"
#include "tests/support/hivebuilder.h"

namespace HiveTest {

namespace {

constexpr u32 NONE = HiveImage::NONE;
constexpr u32 FRAGMENT = 16344;

class Checker {
 public:
    explicit Checker(const std::vector<u8>& file) : _file(file) {}

    std::vector<std::string> run() {
        try {
            checkHeader();
            scanHbins();
            if (!_faults.empty()) return _faults;
            checkKey(header32(36), NONE);
            checkSecurity();
        } catch (const std::out_of_range&) {
            fault(0, "something leads out of the file");
        }
        for (const auto& [offset, cell] : _cells)
            if (cell.used && !cell.taken) fault(offset, "used cell is not reached");
        return _faults;
    }

 private:
    struct Cell {
        u32 length;
        bool used;
        bool taken = false;
    };
    struct Entry {
        u32 record;
        char kind;  // second letter of the list's signature
        u32 hint;
    };

    void fault(u32 offset, const std::string& text) {
        char place[16];
        std::snprintf(place, sizeof place, "%x: ", offset);
        _faults.push_back(place + text);
    }
    bool expect(bool good, u32 offset, const char* text) {
        if (!good) fault(offset, text);
        return good;
    }

    u8 byteAt(u64 offset) const { return _file.at(offset + 4096); }
    u16 get16(u64 offset) const { return static_cast<u16>(byteAt(offset) | byteAt(offset + 1) << 8); }
    u32 get32(u64 offset) const { return get16(offset) | u32{get16(offset + 2)} << 16; }
    u32 header32(u32 offset) const { return get32(u64{offset} - 4096); }
    std::string letters(u64 offset, u32 count) const {
        std::string text;
        for (u32 i = 0; i < count; ++i) text += static_cast<char>(byteAt(offset + i));
        return text;
    }
    std::u16string nameAt(u32 offset, u32 length, bool compressed) const {
        std::u16string name;
        for (u32 i = 0; i < length; i += compressed ? 1 : 2)
            name += compressed ? char16_t{byteAt(offset + i)} : char16_t{get16(offset + i)};
        return name;
    }

    void checkHeader() {
        u32 sum = 0;
        for (u32 at = 0; at < 508; at += 4) sum ^= header32(at);
        expect(sum == header32(508), 0, "checksum");
        expect(_file.size() == u64{header32(40)} + 4096, 0, "file size");
    }

    void scanHbins() {
        u32 size = 0;
        for (u32 hbin = 0; hbin < header32(40); hbin += size) {
            size = get32(hbin + 8);
            const bool good =
                letters(hbin, 4) == "hbin" && get32(hbin + 4) == hbin && size && size % 4096 == 0;
            if (!expect(good, hbin, "hbin head")) return;
            const bool last = u64{hbin} + size == header32(40);
            expect(get32(hbin + 28) == (last ? 0 : size), hbin, "distance to the next hbin");
            for (u32 at = hbin + 32, length = 0; at < hbin + size; at += length) {
                const u32 field = get32(at);
                length = field >> 31 ? 0 - field : field;
                if (!expect(length && length % 8 == 0 && length <= hbin + size - at, at, "cell size")) return;
                _cells[at] = {length, field >> 31 != 0};
            }
        }
    }

    /// Claims a used cell of at least `bytes` bytes.
    bool take(u32 offset, u64 bytes, const char* what, bool shared = false) {
        const auto found = _cells.find(offset);
        if (found == _cells.end() || !found->second.used || found->second.length < bytes ||
            (found->second.taken && !shared)) {
            fault(offset, std::string("no used cell of its own long enough for: ") + what);
            return false;
        }
        found->second.taken = true;
        return true;
    }

    std::u16string checkKey(u32 at, u32 parent) {
        if (!take(at, 80, "key") || !expect(letters(at + 4, 2) == "nk", at, "no nk")) return {};
        if (parent != NONE) expect(get32(at + 20) == parent, at, "parent");
        expect(_cells[at].length >= 80u + get16(at + 76), at, "key name length");
        if (get16(at + 78)) take(get32(at + 52), 4u + get16(at + 78), "class name");
        ++_users[get32(at + 48)];
        checkValues(at);
        std::vector<Entry> entries;
        // A key that has lost its last subkey names list 0.
        if (get32(at + 32) != NONE && get32(at + 32) != 0) collect(get32(at + 32), true, entries);
        expect(entries.size() == get32(at + 24), at, "number of subkeys");
        std::u16string before;
        for (const Entry& entry : entries) {
            const std::u16string name = checkKey(entry.record, at);
            std::u16string upper = name;
            for (char16_t& unit : upper) unit = Platform::String::upperUnit(unit);
            expect(before < upper || &entry == &entries.front(), entry.record, "order of subkeys");
            expect(entry.kind != 'h' || entry.hint == nameHash(name), entry.record, "lh hash");
            expect(entry.kind != 'f' || entry.hint == nameHint(name), entry.record, "lf hint");
            before = upper;
        }
        return nameAt(at + 80, get16(at + 76), get16(at + 6) & 0x20);
    }

    void collect(u32 list, bool top, std::vector<Entry>& entries) {
        if (!take(list, 8, "subkey list")) return;
        const std::string kind = letters(list + 4, 2);
        const u32 step = kind == "lf" || kind == "lh" ? 8 : 4;
        const u32 count = get16(list + 6);
        const bool old = header32(24) == 3;
        const bool known =
            (top && kind == "ri") || kind == (old ? "li" : "lh") || (top && old && kind == "lf");
        if (!expect(known && _cells[list].length >= 8 + step * count, list, "subkey list")) return;
        expect(top || count, list, "empty sublist");
        for (u32 at = list + 8; at < list + 8 + step * count; at += step) {
            if (kind == "ri")
                collect(get32(at), false, entries);
            else
                entries.push_back({get32(at), kind[1], step == 8 ? get32(at + 4) : 0});
        }
    }

    void checkValues(u32 key) {
        const u32 count = get32(key + 40), list = get32(key + 44);
        if (count == 0) expect(list == NONE, key, "value list of no values");
        if (count == 0 || !take(list, 4 + 4 * u64{count}, "value list")) return;
        std::set<std::u16string> names;
        for (u32 i = 0; i < count; ++i) {
            const u32 at = get32(list + 4 + 4 * i);
            if (!take(at, 24, "value") || !expect(letters(at + 4, 2) == "vk", at, "no vk")) continue;
            expect(_cells[at].length >= 24u + get16(at + 6), at, "value name length");
            const bool compressed = get16(at + 20) & 1;
            expect(names.insert(nameAt(at + 24, get16(at + 6), compressed)).second, at, "value name twice");
            checkData(at, get32(at + 8), get32(at + 12));
        }
    }

    void checkData(u32 value, u32 size, u32 cell) {
        if (size >> 31) {
            expect((size & 0x7FFFFFFF) <= 4, value, "resident length");
        } else if (header32(24) == 3 || size <= FRAGMENT) {
            if (size) take(cell, u64{size} + 4, "data");
        } else if (take(cell, 12, "db") && expect(letters(cell + 4, 2) == "db", cell, "no db")) {
            const u32 count = get16(cell + 6), list = get32(cell + 8);
            expect(count == (size - 1) / FRAGMENT + 1, cell, "number of fragments");
            if (!take(list, 4 + 4 * u64{count}, "fragment list")) return;
            for (u32 i = 0; i < count; ++i) {
                const u32 part = get32(list + 4 + 4 * i), rest = size - FRAGMENT * i;
                if (!take(part, 4 + std::min(rest, FRAGMENT), "fragment")) continue;
                expect(i + 1 == count || _cells[part].length == FRAGMENT + 8, part, "fragment length");
            }
        }
    }

    void checkSecurity() {
        if (_users.empty()) return;
        const u32 first = _users.begin()->first;
        u32 at = first;
        do {
            if (!take(at, 24, "security") || !expect(letters(at + 4, 2) == "sk", at, "no sk")) return;
            expect(get32(at + 16) == _users[at], at, "reference count");
            expect(get32(get32(at + 8) + 12) == at, at, "back link");
            at = get32(at + 8);
        } while (at != first);
        for (const auto& [record, count] : _users) expect(_cells[record].taken, record, "sk off the ring");
    }

    const std::vector<u8>& _file;
    std::unordered_map<u32, Cell> _cells;
    std::map<u32, u32> _users;  // keys by security record
    std::vector<std::string> _faults;
};

}  // namespace

std::vector<std::string> hiveFaults(const std::vector<u8>& file) {
    return Checker(file).run();
}

}  // namespace HiveTest
