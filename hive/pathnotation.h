#pragma once

#include "hive/base.h"

/// The two notations of key paths. In library notation names are separated by '/', and a '/' in a name is
/// written
/// "\/"; in export notation they are separated by '\', without any escape.
namespace Libraries::Files::Hive {

/// The names on a path in library notation; surplus separators vanish. Null counts as empty.
Array<Ref<String>> namesOnPath(const Ref<String>& path);
/// Library notation to export notation; surplus separators vanish. Null counts as empty; the result is never
/// null.
Ref<String> pathToWindowsStyle(const Ref<String>& path);
/// Export notation to library notation; surplus separators vanish. Null counts as empty; the result is never
/// null.
Ref<String> pathFromWindowsStyle(const Ref<String>& path);

}  // namespace Libraries::Files::Hive
