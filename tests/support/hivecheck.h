#pragma once

#include <string>
#include <vector>

#include "platform/system/types.h"

namespace HiveTest {

/// Checks the structure of a whole hive file: base block, hbins and cells without gaps; every key, subkey
/// list, value, data cell and security record sound; every used cell used exactly once, security records as
/// often as they say; subkeys in order. One line for each fault; a sound file gives none.
///
/// It knows the layout by itself and shares no code with the library, so that the two can disagree. Names are
/// read as ISO 8859-1.
std::vector<std::string> hiveFaults(const std::vector<Platform::u8>& file);

}  // namespace HiveTest
