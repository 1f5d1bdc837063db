#include "regfile/salvage/salvagewalk.h"

#include <cstring>

namespace Libraries::Files::Hive {

namespace {

/// Deeper than keys can be made. A bound, since a path as deep as the file is long takes its square to write.
constexpr u64 MAX_DEPTH = 2048;
/// UTF-16 units of section names and of paths in findings, for each byte of the hive. Ordinary hives need
/// less than one.
constexpr u64 UNITS_PER_BYTE = 64;
constexpr u64 LEAST_UNITS = 16777216;
const std::u16string NO_PATH = u"...";

void appendName(std::u16string& path, std::u16string_view name) {
    if (path != u"/") path += u'/';
    for (const char16_t unit : name) {
        if (unit == u'/') path += u'\\';
        path += unit;
    }
}

SalvageFinding::Kind kindOf(SalvageFlaw::Weight weight) {
    if (weight == SalvageFlaw::lost) return SalvageFinding::lost;
    return weight == SalvageFlaw::doubtful ? SalvageFinding::doubtful : SalvageFinding::note;
}

}  // namespace

SalvageWalk::SalvageWalk(SalvageFile& file, SalvageRecords& records, const Salvage::Sink& sink,
                         SalvageCounts& counts)
    : _records(records),
      _sink(sink),
      _counts(counts),
      _path(u"/"),
      _unitsLeft(file.areaSize() * UNITS_PER_BYTE + LEAST_UNITS) {}

bool SalvageWalk::takeUnits(u64 count) {
    if (count > _unitsLeft) return false;
    _unitsLeft -= count;
    return true;
}

void SalvageWalk::tell(const SalvageFlaws& flaws, const std::u16string* valueName) {
    for (const SalvageFlaw& flaw : flaws) {
        if (flaw.weight == SalvageFlaw::lost) ++_counts.lost;
        if (flaw.weight == SalvageFlaw::doubtful) ++_counts.doubtful;
        const bool hasRoom = takeUnits(_path.size());
        _sink({kindOf(flaw.weight), hasRoom ? _path : NO_PATH, valueName != nullptr,
               valueName ? *valueName : std::u16string(), flaw.record, flaw.reason});
    }
}

void SalvageWalk::tellLost(u32 record, std::string reason) {
    SalvageFlaws flaws;
    flaws.push_back({SalvageFlaw::lost, record, std::move(reason)});
    tell(flaws);
}

bool SalvageWalk::descend(SalvagedKey& key, const Array<Ref<String>>& names) {
    for (const Ref<String>& name : names) {
        SalvageFlaws flaws;  // of no interest where the key is found in spite of them
        std::optional<SalvagedKey> found;
        for (const u32 record : _records.subkeys(key, flaws)) {
            std::optional<SalvagedKey> subkey = _records.key(record, key.record, flaws);
            if (!subkey || !String::create(subkey->name)->equalUpper(name)) continue;
            found = std::move(subkey);
            break;
        }
        if (!found) {
            tell(flaws);
            return false;
        }
        key = std::move(*found);
        _startPath = _path;
        appendName(_path, key.name);
    }
    return true;
}

void SalvageWalk::run(SalvagedKey start, std::u16string sectionPath, RegFileText& text) {
    _section = std::move(sectionPath) + start.name;
    _parents.emplace(start.record, INVALID_RECORD);
    enter(start, text);
    while (!_levels.empty() && text.good()) {
        Level& level = _levels.back();
        _section.resize(level.sectionLength);
        _path.resize(level.pathLength);
        if (level.next < level.subkeys.size())
            visit(level.subkeys[level.next++], text);
        else
            _levels.pop_back();
    }
}

/// Looks at a subkey of the innermost level's key.
void SalvageWalk::visit(u32 record, RegFileText& text) {
    const u32 parent = _levels.back().record;
    if (_parents.contains(record)) {
        const std::u16string path = _unitsLeft ? pathOf(record) : NO_PATH;
        return tellLost(record, "subkey is written already, as " +
                                    String::create(takeUnits(path.size()) ? path : NO_PATH)->toUtf8());
    }
    SalvageFlaws flaws;
    const std::optional<SalvagedKey> key = _records.key(record, parent, flaws);
    if (!key) return tell(flaws);
    if (_levels.size() >= MAX_DEPTH) return tellLost(record, "keys below are deeper than keys can be");
    if (!takeUnits(_section.size() + 1 + key->name.size()))
        return tellLost(record, "key names are longer than a hive of this length has room for");
    _parents.emplace(record, parent);
    appendName(_path, key->name);
    _section += u'\\';
    _section += key->name;
    tell(flaws);
    enter(*key, text);
}

/// Writes a key whose paths are set, and makes it the innermost level.
void SalvageWalk::enter(const SalvagedKey& key, RegFileText& text) {
    text.beginSection(_section);
    ++_counts.keys;
    writeValues(key, text);
    text.endSection();
    SalvageFlaws flaws;
    _levels.push_back({key.record, _section.size(), _path.size(), _records.subkeys(key, flaws)});
    tell(flaws);
}

void SalvageWalk::writeValues(const SalvagedKey& key, RegFileText& text) {
    SalvageFlaws flaws;
    const Array<u32> records = _records.values(key, flaws);
    tell(flaws);
    for (const u32 record : records) {
        flaws.clear();
        if (const std::optional<SalvagedValue> value = _records.value(record, flaws)) {
            tell(flaws, &value->name);
            writeValue(*value, text);
        } else {
            tell(flaws);
        }
    }
}

void SalvageWalk::writeValue(const SalvagedValue& value, RegFileText& text) {
    SalvageFlaws flaws;
    Array<u8> bytes;
    const bool isWhole = _records.data(value, bytes, flaws);
    tell(flaws, &value.name);
    if (!isWhole && bytes.empty()) return;
    ++_counts.values;
    // Part of a text must not pass for the text.
    if (isWhole && !text.binaryOnly() && writeAsText(value, bytes, text)) return;
    text.beginBinary(value.name, value.type);
    text.endBinary(bytes);
}

/// The same choice of form as in the export of intact hives.
bool SalvageWalk::writeAsText(const SalvagedValue& value, const Array<u8>& bytes, RegFileText& text) const {
    if (value.type == Value::valueDword && bytes.size() == sizeof(u32)) {
        u32 number = 0;
        std::memcpy(&number, bytes.data(), sizeof(number));
        text.dword(value.name, L32ToHost(number));
        return true;
    }
    if (value.type != Value::valueString || bytes.size() == 1 || bytes.size() / 2 > MAX_TEXT_LENGTH)
        return false;
    std::u16string units(bytes.size() / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i)
        units[i] = static_cast<char16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    units.resize(units.find_last_not_of(u'\0') + 1);
    text.string(value.name, units);
    return true;
}

/// Where a key was written.
std::u16string SalvageWalk::pathOf(u32 record) {
    Array<u32> way;
    for (; record != INVALID_RECORD; record = _parents.at(record)) way.push_back(record);
    std::u16string path = _startPath.empty() ? u"/" : _startPath;
    SalvageFlaws ignored;
    for (std::size_t i = way.size(); i-- > 0;) {
        if (i + 1 == way.size() && _startPath.empty()) continue;  // the root key
        if (const auto key = _records.key(way[i], _parents.at(way[i]), ignored)) appendName(path, key->name);
    }
    return path;
}

}  // namespace Libraries::Files::Hive
