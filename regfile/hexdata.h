#pragma once

#include <string_view>

#include "platform/system/heap.h"

namespace Libraries::Files::Hive {

/// What "hex:00,01" or "hex(7):00,01" says.
struct HexData {
    Platform::u32 type = 3;
    Platform::Array<Platform::u8> bytes;
};

/// Reads the binary form of a value. Each byte is two digits, bytes are separated by commas; surplus commas
/// carry no meaning. False when it is not of that form or has 4 GiB or more.
bool parseHexData(std::u16string_view text, HexData& data);

}  // namespace Libraries::Files::Hive
