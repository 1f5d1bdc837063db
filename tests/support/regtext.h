#pragma once

#include "regfile/regfileutil.h"
#include "tests/support/memorystripe.h"

namespace HiveTest {

/// The bytes of a branch's export text, as far as it goes; whether it is whole, in `done`.
inline std::string exportText(const Ref<Libraries::Files::Hive::Key>& key, u32 options = 0,
                              bool* done = nullptr) {
    using Libraries::Files::Hive::RegFileUtil;
    const auto target = Platform::makeRef<MemoryStripe>();
    const bool whole =
        RegFileUtil::exportRegFile(key, Ref<Interfaces::Stripe>(target), Platform::String::create(),
                                   RegFileUtil::ExportOptions(options), nullptr, false);
    if (done) *done = whole;
    return target->text();
}

/// What UTF-16LE bytes say.
inline std::string utf16ToUtf8(const std::string& bytes) {
    std::u16string units;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        units += static_cast<char16_t>(static_cast<u8>(bytes[i]) | static_cast<u8>(bytes[i + 1]) << 8);
    return Platform::String::create(units)->toUtf8();
}

}  // namespace HiveTest
