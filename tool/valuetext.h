#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <variant>

#include "regfile/walkbudget.h"
#include "tool/base.h"

namespace HiveCtl {

using Libraries::Files::Hive::WalkBudget;
using Json = nlohmann::ordered_json;

/// The short name of a registry type code; its number where it has none.
std::string typeName(u32 type);

/// What a value holds, in the form its type asks for.
using Content = std::variant<Ref<String>, Ref<TVector<Ref<String>>>, u64, Array<u8>>;

/// Reads a value by its type. Nothing when the data cannot be read or is not what the type promises; the
/// reason is in `Error::get()`.
std::optional<Content> readContent(const Ref<Value>& value, WalkBudget& budget);
/// The data as it is stored. As above.
std::optional<Array<u8>> readData(const Ref<Value>& value, WalkBudget& budget);

/// The UTF-16 units that bytes hold; an odd byte at the end is left out.
std::u16string unitsOf(const Array<u8>& bytes);

/// For people, lines ended by "\n": texts one a line, numbers decimal and hex, bytes in one line of hex.
std::string contentText(const Content& content);
/// For programs: texts, numbers; bytes as lower-case hex.
Json contentJson(const Content& content);

/// One short line that shows the beginning of the data. Looks at a few hundred bytes at most. As above.
std::optional<std::string> preview(const Ref<Value>& value, WalkBudget& budget);

}  // namespace HiveCtl
