#pragma once

#include <initializer_list>

#include "platform/system/string.h"
#include "platform/system/vector.h"

namespace Platform {

class PLATFORM_API StringUtil {
 public:
    /// The pieces of `text` between separators, in order; empty pieces are left out. Any number of pieces.
    static Ref<TVector<Ref<String>>> split(const Ref<String>& text, char16_t separator);
    static Ref<String> joined(std::initializer_list<std::u16string_view> parts);
    static bool startsWith(const Ref<String>& text, const Ref<String>& head);
};

class PLATFORM_API StrConv {
 public:
    /// The digits of `number` in `base` (2 to 36), lower-case, without prefix or padding.
    static Ref<String> str(u64 number, u32 base);
    /// The number that `text` spells in `base` (2 to 36), digits in either case. Refuses an empty text, a
    /// sign, any other character and a number above 64 bits; `number` is set only on success.
    static bool num(std::u16string_view text, u64& number, u32 base);
    static bool num(const Ref<String>& text, u64& number, u32 base) {
        return num(text->view(), number, base);
    }
};

}  // namespace Platform
