#include "check/checkcontext.h"

#include "hive/nameencoding.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u32 MAX_PATH_LEVELS = 128;
constexpr u32 MAX_PATH_UNITS = 4096;
constexpr u32 MAX_NAME_UNITS = 255;

}  // namespace

std::string hexText(u64 number) {
    char text[20];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

std::string countText(u64 count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

TakenCell CheckContext::take(u32 offset, CellUse use, u32 owner) {
    const auto refuse = [&](const std::string& why) {
        fault(owner, std::string("its ") + useName(use) + " at " + hexText(offset) + " is " + why);
        return TakenCell();
    };
    const u32 index = cells.find(offset);
    if (index == CellTable::NONE) return refuse("no cell");
    if (!cells.isUsed(index)) return refuse("a free cell");
    if (cells.use(index) != CellUse::none) {
        const u32 first = cells.owner(index);
        return refuse(std::string("in use already, as ") + useName(cells.use(index)) + " of " +
                      (first == CellTable::NONE ? "the base block" : hexText(first)));
    }
    cells.take(index, use, owner);
    return {offset, cells.length(index)};
}

TakenCell CheckContext::cellAt(u32 offset) const {
    const u32 index = cells.find(offset);
    return index == CellTable::NONE ? TakenCell() : TakenCell{offset, cells.length(index)};
}

bool CheckContext::readName(const TakenCell& cell, u32 from, u16 length, bool compressed,
                            std::u16string& name) {
    const RecordView text = piece(cell, from, length);
    name.resize(compressed ? length : length / 2U);
    for (u32 i = 0; i < name.size(); ++i) {
        u32 codePoint = 0;
        if (!compressed) {
            codePoint = text.u16At(2 * u64{i});
        } else {
            u8 byte = 0;
            text.copy(&byte, i, 1);
            if (!byteToChar(byte, _codepage, codePoint)) return false;
        }
        name[i] = static_cast<char16_t>(codePoint);  // the code pages lie in the Basic Multilingual Plane
    }
    return true;
}

bool CheckContext::readKeyName(const TakenCell& cell, std::u16string& name) {
    const auto nk = record(cell, sizeof(hive_record_nk)).as<hive_record_nk>();
    return readName(cell, sizeof(nk), L16ToHost(nk.nameLength),
                    (L16ToHost(nk.flags) & hive_record_nk::FLAG_COMPRESSED_NAME) != 0, name);
}

bool CheckContext::readValueName(const TakenCell& cell, std::u16string& name) {
    const auto vk = record(cell, sizeof(hive_record_vk)).as<hive_record_vk>();
    return readName(cell, sizeof(vk), L16ToHost(vk.nameLength),
                    (L16ToHost(vk.flags) & hive_record_vk::FLAG_COMPRESSED_NAME) != 0, name);
}

void CheckContext::report(HiveFinding::Severity severity, u32 offset, std::string text) {
    ++(severity == HiveFinding::fault ? counts.faults : counts.notes);
    HiveFinding finding{severity, offset, nullptr, nullptr, std::move(text)};
    locate(finding);
    _sink(finding);
}

/// Which key, and which of its values, the owners of a record lead up to.
void CheckContext::locate(HiveFinding& finding) {
    u32 offset = finding.offset;
    for (u32 index = cells.find(offset); index != CellTable::NONE && cells.use(index) != CellUse::none;
         index = cells.find(offset)) {
        if (cells.use(index) == CellUse::value) finding.value = String::create(shownName(offset, false));
        if (cells.use(index) == CellUse::key) {
            finding.path = String::create(pathOf(offset));
            return;
        }
        offset = cells.owner(index);
    }
}

std::u16string CheckContext::pathOf(u32 key) {
    Array<u32> levels;  // from the key upwards, the root left out
    u32 parent = CellTable::NONE;
    for (u32 at = key; levels.size() < MAX_PATH_LEVELS; at = parent) {
        // A key's cell belongs to a list record, that one to the key above or to a list of lists.
        parent = cells.owner(cells.find(at));
        while (parent != CellTable::NONE && cells.use(cells.find(parent)) != CellUse::key)
            parent = cells.owner(cells.find(parent));
        if (parent == CellTable::NONE) break;
        levels.push_back(at);
        if (parent == _lastKey && levels.size() == 1) return _lastPath + shownName(key, true);
    }
    std::u16string path;
    bool cut = levels.size() == MAX_PATH_LEVELS;
    for (const u32 level : levels) {
        if (path.size() > MAX_PATH_UNITS) {
            cut = true;
            break;
        }
        path.insert(0, shownName(level, true));
        path.insert(0, u"/");
    }
    if (cut) path.insert(0, u"...");
    if (levels.empty()) path = u"/";
    _lastKey = key;
    _lastPath = levels.empty() ? path : path + u'/';
    return path;
}

/// A name as it stands in a path, or as it is.
std::u16string CheckContext::shownName(u32 offset, bool isKey) {
    const TakenCell cell = cellAt(offset);
    const u64 fixed = isKey ? sizeof(hive_record_nk) : sizeof(hive_record_vk);
    const u64 lengthField =
        isKey ? offsetof(hive_record_nk, nameLength) : offsetof(hive_record_vk, nameLength);
    std::u16string name;
    if (fixed + record(cell, fixed).u16At(lengthField) > cell.length ||
        !(isKey ? readKeyName(cell, name) : readValueName(cell, name)))
        return u"...";
    if (name.size() > MAX_NAME_UNITS) name.replace(MAX_NAME_UNITS, name.size(), u"...");
    if (!isKey) return name;
    std::u16string escaped;
    for (const char16_t unit : name) {
        if (unit == u'/') escaped += u'\\';
        escaped += unit;
    }
    return escaped;
}

}  // namespace Libraries::Files::Hive
