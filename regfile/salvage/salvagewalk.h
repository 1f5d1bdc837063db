#pragma once

#include <unordered_map>

#include "regfile/regfiletext.h"
#include "regfile/salvage/salvage.h"
#include "regfile/salvage/salvagerecords.h"

namespace Libraries::Files::Hive {

/// Goes through the keys of a damaged hive from one on down, writes what it finds and tells what it does not.
class SalvageWalk {
 public:
    SalvageWalk(SalvageFile& file, SalvageRecords& records, const Salvage::Sink& sink, SalvageCounts& counts);

    /// Leads from the key at `key`, whose path is "/", down to the one that `names` say; false when it cannot
    /// be found, with what stood in the way told.
    bool descend(SalvagedKey& key, const Array<Ref<String>>& names);
    /// Writes `start` and all below it. `sectionPath` stands before its name.
    void run(SalvagedKey start, std::u16string sectionPath, RegFileText& text);
    /// Tells flaws as findings about the key being written.
    void tell(const SalvageFlaws& flaws) { tell(flaws, nullptr); }

 private:
    /// A key on the way down, and the subkeys still to be looked at.
    struct Level {
        u32 record;
        std::size_t sectionLength;  // of the paths up to and with the key's name
        std::size_t pathLength;
        Array<u32> subkeys;
        std::size_t next = 0;
    };

    void enter(const SalvagedKey& key, RegFileText& text);
    void visit(u32 record, RegFileText& text);
    void writeValues(const SalvagedKey& key, RegFileText& text);
    void writeValue(const SalvagedValue& value, RegFileText& text);
    bool writeAsText(const SalvagedValue& value, const Array<u8>& bytes, RegFileText& text) const;
    void tell(const SalvageFlaws& flaws, const std::u16string* valueName);
    void tellLost(u32 record, std::string reason);
    std::u16string pathOf(u32 record);
    bool takeUnits(u64 count);

    SalvageRecords& _records;
    const Salvage::Sink& _sink;
    SalvageCounts& _counts;
    Array<Level> _levels;
    std::unordered_map<u32, u32> _parents;  // of each key written, by record
    std::u16string _startPath;              // of the key above the first one written
    std::u16string _path;                   // library notation, for findings; ...
    std::u16string _section;                // ... and as the text has it
    u64 _unitsLeft;  // of paths yet to be written or told: a deep path may be told with every entry of a list
};

}  // namespace Libraries::Files::Hive
