#pragma once

#include <map>
#include <string>

#include "tests/support/hiveimage.h"

namespace HiveTest {

/// How a name is stored. `automatic` is compressed when every unit is below 256. Forced compression stores
/// the low byte of each unit, so that a test can spell the bytes of any code page.
enum class NameForm { automatic, compressed, utf16 };

/// The records of a subkey list. `automatic` is none for no subkeys, lf (1.3) or lh (1.5) for few, and ri+li
/// or ri+lh for more than 400 or 1200. Any kind may be forced in any version, also for no subkeys.
enum class ListKind { automatic, lf, lh, li, riLf, riLh, riLi };

/// Where a value's data lies. `automatic` is resident up to 4 bytes, a db list above 16344 bytes in a version
/// 1.5 hive, and one cell otherwise. Forced residence stores the whole length but only 4 bytes.
enum class Storage { automatic, resident, single, db };

struct ValuePlan {
    std::u16string name = {};
    u32 type = 3;
    std::vector<u8> data = {};
    Storage storage = Storage::automatic;
    NameForm nameForm = NameForm::automatic;
};

struct KeyPlan {
    std::u16string name = {};
    std::vector<ValuePlan> values = {};
    std::vector<KeyPlan> keys = {};
    ListKind list = ListKind::automatic;
    /// Entries of each sublist under an ri record; what is left over fills one more. Empty: 500 each.
    std::vector<u32> sublists = {};
    NameForm nameForm = NameForm::automatic;
    /// Stored in a cell of its own as UTF-16LE; none when empty.
    std::u16string className = {};
    /// Which descriptor of the builder the key uses.
    u32 security = 0;
};

/// The offsets of a value's cells; NONE where there is no such cell.
struct LaidValue {
    u32 record = HiveImage::NONE;
    u32 data = HiveImage::NONE;  ///< the data cell or the db cell
    u32 fragmentList = HiveImage::NONE;
    std::vector<u32> fragments = {};
};

/// The offsets of a key's cells; NONE where there is no such cell.
struct LaidKey {
    u32 record = HiveImage::NONE;
    u32 list = HiveImage::NONE;  ///< the top record of the subkey list
    std::vector<u32> sublists = {};
    std::vector<u32> keys = {};  ///< the subkeys' records in list order
    u32 valueList = HiveImage::NONE;
    u32 className = HiveImage::NONE;
    std::map<std::u16string, LaidValue> values = {};
};

/// Lays out a tree of keys and values and tells where each cell went. The same tree always gives the same
/// bytes: the sk records, then key by key the nk cell, the class name, the values, the subkeys and the list.
/// Cells laid before `build` stay in front of all this (value data in particular may be wanted far from the
/// start of the hive).
class HiveBuilder : public HiveImage {
 public:
    using HiveImage::HiveImage;

    /// The descriptors of the sk records, which are linked to a ring in this order; one short one by default.
    void setDescriptors(std::vector<std::vector<u8>> descriptors) { _descriptors = std::move(descriptors); }
    /// Lays out the tree and makes it the hive's; returns the root's record. To be called once.
    u32 build(const KeyPlan& root);

    /// Cells by path: names as in the description, separated by '/'; the root is "". Throws for an unknown
    /// path or name.
    const LaidKey& key(const std::u16string& path = {}) const { return _keys.at(path); }
    const LaidValue& value(const std::u16string& path, const std::u16string& name) const {
        return key(path).values.at(name);
    }
    /// The sk records, in the order of the descriptors.
    const std::vector<u32>& security() const { return _security; }

 private:
    void laySecurity();
    u32 layKey(const KeyPlan& plan, u32 parent, const std::u16string& path);
    LaidValue layValue(const ValuePlan& plan);
    u32 layData(const ValuePlan& plan, LaidValue& laid);
    void layValues(const KeyPlan& plan, LaidKey& laid);
    void laySubkeys(const KeyPlan& plan, LaidKey& laid, const std::u16string& path);
    u32 layList(ListKind kind, std::span<const KeyPlan* const> plans, std::span<const u32> records);

    std::vector<std::vector<u8>> _descriptors = {{1, 0, 4, 0x80}};
    std::vector<u32> _security;
    std::map<std::u16string, LaidKey> _keys;
};

/// A number in decimal.
std::u16string digits(u32 number);
/// Little-endian bytes of a number's low `bytes` bytes.
std::vector<u8> numberBytes(u64 number, u32 bytes = 4);
/// UTF-16LE bytes, without a terminator.
std::vector<u8> utf16Bytes(std::u16string_view units);
/// Bytes without a short period; another seed gives others.
std::vector<u8> patternBytes(u64 count, u32 seed = 1);

/// The lh hash and the lf hint of a name.
u32 nameHash(std::u16string_view name);
u32 nameHint(std::u16string_view name);

}  // namespace HiveTest
