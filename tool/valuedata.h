#pragma once

#include <string>
#include <vector>

#include "tool/base.h"

namespace HiveCtl {

/// A value's type and data, as given on the command line.
struct ValueData {
    Value::ValueType type;
    Array<u8> bytes;
};

/// Reads TYPE and DATA: sz, expand-sz and multi-sz take texts, dword, dword-be and qword a number (decimal or
/// 0x), binary and types given by number hexadecimal digits; the one argument "-" stands for the data's bytes
/// on standard input. Throws Failure (wrong usage).
ValueData parseValueData(const std::string& type, const std::vector<std::string>& data);

}  // namespace HiveCtl
