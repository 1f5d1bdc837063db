#pragma once

#include "regfile/salvage/salvagerecords.h"

namespace Libraries::Files::Hive {

/// What is wrong with the base block, as notes.
void checkBaseBlock(const SalvageFile& file, SalvageFlaws& flaws);

/// The root key of a damaged hive: the one the base block names; the one above it when that is a subkey that
/// damage put there; or where there is none, the first key that is marked as a root.
std::optional<SalvagedKey> findRoot(SalvageFile& file, SalvageRecords& records, SalvageFlaws& flaws);

}  // namespace Libraries::Files::Hive
