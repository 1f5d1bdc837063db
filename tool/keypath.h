#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tool/base.h"

namespace HiveCtl {

/// The names on a key path given as an argument. Names are separated by '/', and "\/" is a slash in a name;
/// an argument that holds '\' but no '/' is in the notation of registry export files instead. In the first
/// form "\xNN" and "\uNNNN" stand for a character, so that every path we print can be pasted back.
std::vector<Ref<String>> parseKeyPath(const std::string& argument);

/// A key's name as it stands in a path.
std::u16string pathName(std::u16string_view name);

/// The path of a subkey: `parent` (begins with '/'; the root's is "/") with the subkey's name. Exact: what is
/// printed for people goes through `visible`.
std::u16string childPath(std::u16string_view parent, std::u16string_view name);

}  // namespace HiveCtl
