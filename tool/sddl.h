#pragma once

#include <span>
#include <string>

#include "tool/base.h"

namespace HiveCtl {

/// A self-relative security descriptor as an SDDL string, "O:BAG:SYD:(A;CI;KA;;;SY)"; empty when its bytes
/// are no such descriptor.
std::string sddlText(std::span<const u8> descriptor);

}  // namespace HiveCtl
