#include "tool/valuetext.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "hive/errorcodes.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

namespace {

constexpr const char* typeNames[] = {"none",
                                     "sz",
                                     "expand-sz",
                                     "binary",
                                     "dword",
                                     "dword-be",
                                     "link",
                                     "multi-sz",
                                     "resource-list",
                                     "full-resource",
                                     "resource-requirements",
                                     "qword"};

constexpr u64 PREVIEW_CHARACTERS = 60;
constexpr u64 PREVIEW_BYTES = 16;
constexpr u64 HEAD_BYTES = 4 * PREVIEW_CHARACTERS;  // twice the text, so that a cut shows

template <typename... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <typename... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

std::string numberText(u64 number) {
    return std::to_string(number) + " (" + hexNumber(number) + ")";
}

/// Quotes the text's beginning, and marks a cut, which never splits a surrogate pair.
std::string cutText(std::u16string_view text) {
    if (text.size() <= PREVIEW_CHARACTERS) return inQuotes(text);
    const bool inPair = (text[PREVIEW_CHARACTERS - 1] & 0xFC00) == 0xD800;
    return inQuotes(text.substr(0, PREVIEW_CHARACTERS - (inPair ? 1 : 0))) + "...";
}

std::string stringsPreview(std::u16string_view units, bool whole) {
    std::string line;
    u64 shown = 0;
    while (!units.empty() && units[0] && shown <= PREVIEW_CHARACTERS) {
        const auto text = units.substr(0, units.find(u'\0'));
        units.remove_prefix(std::min(units.size(), text.size() + 1));
        line += (line.empty() ? "" : ", ") + cutText(text);
        shown += text.size();
    }
    const bool cut = !whole || (!units.empty() && units[0]);
    return line + (cut && !line.ends_with("...") ? ", ..." : "");
}

/// The number in `bytes`, when they are as many as one of this type has.
std::optional<u64> numberOf(u32 type, const Array<u8>& bytes) {
    const std::size_t length = type == Value::valueQword ? 8 : 4;
    const bool isNumber =
        type == Value::valueDword || type == Value::valueDwordBigEndian || type == Value::valueQword;
    if (!isNumber || bytes.size() != length) return std::nullopt;
    u64 number = 0;
    for (std::size_t i = 0; i < length; ++i)
        number = number << 8 | bytes[type == Value::valueDwordBigEndian ? i : length - 1 - i];
    return number;
}

/// The data's first `count` bytes.
std::optional<Array<u8>> readHead(const Ref<Value>& value, u32 count) {
    Array<u8> bytes(count);
    Error::set(ErrorCode::none);
    if (value->read(ShPtr(bytes.data()), 0, count) != count) return std::nullopt;
    return bytes;
}

/// Whether the file has room for the data a value claims to have.
bool affordable(const Ref<Value>& value, WalkBudget& budget) {
    if (budget.takeData(value->size())) return true;
    Error::set(ErrorCode::inconsistentData);
    return false;
}

}  // namespace

std::string typeName(u32 type) {
    return type < std::size(typeNames) ? typeNames[type] : hexNumber(type);
}

std::optional<Content> readContent(const Ref<Value>& value, WalkBudget& budget) {
    Error::set(ErrorCode::none);
    switch (value->type()) {
        case Value::valueString:
        case Value::valueExpandString: {
            if (!affordable(value, budget)) return std::nullopt;
            Ref<String> text = value->string(~u32{0});
            return text ? std::optional<Content>(std::move(text)) : std::nullopt;
        }
        case Value::valueStrings: {
            if (!affordable(value, budget)) return std::nullopt;
            auto texts = value->strings(~u32{0});
            return texts ? std::optional<Content>(std::move(texts)) : std::nullopt;
        }
        case Value::valueDword:
        case Value::valueDwordBigEndian:
        case Value::valueQword: {
            const u64 number = value->number();
            if (number == ~u64{0} && Error::get() != ErrorCode::none) return std::nullopt;
            return number;
        }
        default: {
            auto bytes = readData(value, budget);
            return bytes ? std::optional<Content>(std::move(*bytes)) : std::nullopt;
        }
    }
}

std::optional<Array<u8>> readData(const Ref<Value>& value, WalkBudget& budget) {
    if (!affordable(value, budget)) return std::nullopt;
    return readHead(value, value->size());
}

std::u16string unitsOf(const Array<u8>& bytes) {
    std::u16string units(bytes.size() / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i)
        units[i] = static_cast<char16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    return units;
}

std::string contentText(const Content& content) {
    return std::visit(Overloaded{
                          [](const Ref<String>& text) { return visible(text) + "\n"; },
                          [](const Ref<TVector<Ref<String>>>& texts) {
                              std::string lines;
                              for (const Ref<String>& text : *texts) lines += visible(text) + "\n";
                              return lines;
                          },
                          [](u64 number) { return numberText(number) + "\n"; },
                          [](const Array<u8>& bytes) { return hexBytes(bytes) + "\n"; },
                      },
                      content);
}

Json contentJson(const Content& content) {
    return std::visit(Overloaded{
                          [](const Ref<String>& text) { return Json(text->toUtf8()); },
                          [](const Ref<TVector<Ref<String>>>& texts) {
                              auto list = Json::array();
                              for (const Ref<String>& text : *texts) list.push_back(text->toUtf8());
                              return list;
                          },
                          [](u64 number) { return Json(number); },
                          [](const Array<u8>& bytes) { return Json(hexBytes(bytes)); },
                      },
                      content);
}

std::optional<std::string> preview(const Ref<Value>& value, WalkBudget& budget) {
    if (!affordable(value, budget)) return std::nullopt;
    const u32 size = value->size();
    const auto head = readHead(value, static_cast<u32>(std::min<u64>(size, HEAD_BYTES)));
    if (!head) return std::nullopt;
    const bool whole = head->size() == size;
    const u32 type = value->type();
    if ((type == Value::valueString || type == Value::valueExpandString) && size != 1) {
        std::u16string text = unitsOf(*head);
        if (whole) text.resize(text.find_last_not_of(u'\0') + 1);
        return cutText(text);
    }
    if (size == 0) return "(empty)";
    if (type == Value::valueStrings) return stringsPreview(unitsOf(*head), whole);
    if (const auto number = numberOf(type, *head)) return numberText(*number);
    const std::size_t shown = std::min<std::size_t>(head->size(), PREVIEW_BYTES);
    return hexBytes(std::span(*head).first(shown)) + (size > shown ? "..." : "");
}

}  // namespace HiveCtl
