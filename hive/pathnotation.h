#pragma once

#include "hive/base.h"

/// The two notations of key paths. In library notation names are separated by '/', and a '/' in a name is
/// written "\/"; in export notation they are separated by '\', without any escape.
namespace Libraries::Files::Hive {

/// Goes over the names on a path in library notation; surplus separators vanish. Null counts as empty.
class PathNames {
 public:
    explicit PathNames(const Ref<String>& path) : _path(path), _rest(path ? path->view() : u"") {}
    /// The next name, valid up to the next call; false when there is none.
    bool next(std::u16string_view& name);

 private:
    const Ref<String> _path;
    std::u16string_view _rest;
    Utf16Buffer _unescaped;
};
/// Library notation to export notation; surplus separators vanish. Null counts as empty; the result is never
/// null.
Ref<String> pathToWindowsStyle(const Ref<String>& path);
/// Export notation to library notation; surplus separators vanish. Null counts as empty; the result is never
/// null.
Ref<String> pathFromWindowsStyle(const Ref<String>& path);

}  // namespace Libraries::Files::Hive
