#pragma once

#include "tool/base.h"

namespace HiveCtl {

/// Names that a key has no value, or no subkey, of: for renames in two steps.
Ref<String> unusedValueName(const Ref<Key>& key);
Ref<String> unusedKeyName(const Ref<Key>& key);

}  // namespace HiveCtl
