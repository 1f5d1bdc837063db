#pragma once

#include <string>

#include "tool/base.h"

namespace HiveCtl {

/// An error code of the library or the platform in words, with its number: "no such key (0x1003)". Code 0
/// stands for a failure that left no code, which is how data that is not all there shows.
std::string errorText(u32 code);
/// The same for an errno value.
std::string systemErrorText(int errnoValue);

}  // namespace HiveCtl
