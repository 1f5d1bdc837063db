#include "bench/folding.h"

#include <algorithm>

#include "platform/system/string.h"

namespace HiveBench {

using Platform::String;

namespace {

template <typename Text>
bool isAscii(Text text) {
    return std::all_of(text.begin(), text.end(), [](auto unit) { return unit >= 0 && unit < 0x80; });
}

}  // namespace

void appendFolded(std::string& folded, std::string_view name) {
    if (!isAscii(name)) {
        folded += String::fromUtf8(name)->upper()->toUtf8();
        return;
    }
    const auto from = folded.size();
    folded += name;
    for (auto i = from; i < folded.size(); ++i)
        if (folded[i] >= 'a' && folded[i] <= 'z') folded[i] = static_cast<char>(folded[i] - 0x20);
}

std::string folded(std::string_view name) {
    std::string text;
    appendFolded(text, name);
    return text;
}

void appendUtf8(std::string& text, std::u16string_view units) {
    if (isAscii(units))
        for (const char16_t unit : units) text += static_cast<char>(unit);
    else
        text += String::create(units)->toUtf8();
}

void appendUtf16(std::u16string& units, std::string_view text) {
    if (isAscii(text))
        units.append(text.begin(), text.end());
    else
        units += String::fromUtf8(text)->view();
}

}  // namespace HiveBench
