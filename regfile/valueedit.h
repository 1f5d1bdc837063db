#pragma once

#include "hive/base.h"

namespace Libraries::Files::Hive {

/// Changes of values that come out right whatever place the hive gives their data. Two rules of the format
/// layer can leave less than was asked for: data in a cell near the start of the hive is covered only as far
/// as the cell's own offset, and a value list keeps a stale entry when the last but one value goes. Works on
/// any `Key`.
///
/// Each operation holds the hive's monitor for its whole run, so that other threads never see the steps
/// between.
class HIVE_API ValueEdit {
 public:
    enum Result {
        done,
        resizeFailed,  ///< the data keeps its old length
        writeFailed,   ///< the data has the new length and partly the new contents
    };

    /// Makes the data of `value`, a value of `key`, these bytes.
    static Result setData(const Ref<Key>& key, const Ref<Value>& value, const void* data, u32 size);
    /// The same for a string value (types 1 and 2) and a string list (type 7). False on failure, with the
    /// codes of `Value::setString` and `Value::setStrings`.
    static bool setString(const Ref<Key>& key, const Ref<Value>& value, const Ref<String>& text) {
        return text ? setString(key, value, text->view()) : value->setString(text);
    }
    static bool setString(const Ref<Key>& key, const Ref<Value>& value, std::u16string_view text);
    static bool setStrings(const Ref<Key>& key, const Ref<Value>& value,
                           const Ref<TVector<Ref<String>>>& texts);

    /// Has the key's value list written anew, by adding a value and removing it. Wanted after values of the
    /// key were deleted or renamed; hold the key object until then, since a new one would read the old list.
    static bool settleList(const Ref<Key>& key);
};

}  // namespace Libraries::Files::Hive
