#pragma once

#include <string>

#include "hive/base.h"
#include "hive/readonlycache.h"

namespace Libraries::Files::Hive {

/// Something wrong about a place, before it is known whose loss it is.
struct SalvageFlaw {
    enum Weight { lost, doubtful, note };  ///< as the kinds of a finding
    Weight weight;
    u32 record;
    std::string reason;
};
using SalvageFlaws = Array<SalvageFlaw>;

/// A number from the file as it stands in reasons: "0x1a".
std::string salvageHex(u64 number);

/// A cell of a damaged hive.
struct SalvageCell {
    enum State {
        used,
        brokenSize,  ///< a cell begins here, but its size cannot be right: it reaches as far as it may
        free,
        noCell,   ///< the cells around leave no cell here
        outside,  ///< no place where a cell could be
    };
    u32 offset;
    u64 length;  ///< bytes that may belong to it, its size field included; 0 when outside
    u64 limit;   ///< bytes up to where no cell from here can reach
    State state;

    /// For records without a signature: whether what stands there may be taken for the cell meant.
    bool holdsData() const { return state == used || state == brokenSize; }
    /// What is wrong with it, in words.
    const char* trouble() const;
};

/// The bytes of a damaged hive file, and where its cells are. The hbins area is taken to reach up to the
/// file's end whatever the base block says; behind a broken hbin it goes on with the next intact one. Cells
/// are where the cells before them lead to; where their row is broken or its hbin's head gone, a used cell
/// that stays within bounds is believed.
class SalvageFile {
 public:
    explicit SalvageFile(const Ref<Interfaces::Stripe>& stripe);

    /// The base block, zeros for what the file does not have.
    const hive_header& header() const { return _header; }
    /// Length of the hbins area that is there.
    u64 areaSize() const { return _areaSize; }

    /// The cell at a record offset. The first time the hbin around it is looked at its damage is told.
    SalvageCell cell(u32 offset, SalvageFlaws& flaws);
    /// Copies bytes of the hbins area; false when they are not all there.
    bool read(u64 offset, void* destination, u64 count);

    /// The first cell at or behind `offset` that its row leads to; false when there is none. For going
    /// through all of them.
    bool nextCell(u64 offset, u32& cell);

 private:
    /// An hbin, or what lies between two of them.
    struct Stretch {
        u64 begin;
        u64 end;
        u64 limit;  // how far its cells may reach: over a gap behind it
        bool isHbin;
        bool walked = false;
        bool intact = true;       // its cells tile it
        Array<u64> cells = {};    // a bit for every 8 bytes: a cell begins here
        std::string damage = {};  // not yet told
    };

    bool readAt(u64 position, void* destination, u64 count);
    u32 u32At(u64 offset);
    bool isHbinHead(u64 offset);
    u64 findHbinHead(u64 from, u64 to);
    void findStretches();
    Stretch& walked(u64 offset);
    void walkCells(Stretch& stretch);
    static bool isMarked(const Stretch& stretch, u64 offset);

    const Ref<Interfaces::Stripe> _stripe;
    const Ref<ReadOnlyCache> _cache;
    hive_header _header{};
    u64 _areaSize = 0;
    Array<Stretch> _stretches;
};

}  // namespace Libraries::Files::Hive
