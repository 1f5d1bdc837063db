#pragma once

#include "platform/system/types.h"

namespace Libraries::Files::Text {

/// How a text file stores its characters.
enum class Encoding : Platform::u32 {
    ansi = 0,  ///< one byte a character, ISO 8859-1
    utf8 = 1,
    utf16Le = 2,  ///< UTF-16 little-endian
    utf16Be = 3,
};

}  // namespace Libraries::Files::Text
