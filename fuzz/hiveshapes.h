#pragma once

#include <string>
#include <vector>

#include "platform/system/types.h"

namespace HiveFuzz {

/// A small hive that holds some of the format's forms.
struct HiveShape {
    std::string name;
    std::vector<Platform::u8> file;
};

/// Hives of both versions that have, taken together, every kind of subkey list, every storage form of values,
/// both forms of names, class names, several security records, free cells and hbins of several sizes. Always
/// the same bytes.
std::vector<HiveShape> hiveShapes();

}  // namespace HiveFuzz
