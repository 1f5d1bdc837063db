#pragma once

#include "tests/support/hivebuilder.h"

namespace HiveTest {

/// A small intact hive.
struct HiveShape {
    std::string name;
    std::vector<u8> file;
};

/// Hives of both versions that have, taken together, every kind of subkey list, every storage form of values,
/// both forms of names, class names, several security records, free cells and hbins of several sizes. Always
/// the same bytes.
std::vector<HiveShape> hiveShapes();

}  // namespace HiveTest
