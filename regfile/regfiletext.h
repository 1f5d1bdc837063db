#pragma once

#include <span>

#include "hive/base.h"
#include "platform/iochar/charprinter.h"
#include "platform/system/heap.h"

namespace Libraries::Files::Hive {

/// UTF-16 units of a string value above which it is written in binary form.
constexpr u32 MAX_TEXT_LENGTH = 16777216;

/// Makes a byte store the target of export text: emptied, with byte-order mark and header, or with `append`
/// from its end on without them. Null, with a report, on failure.
Ref<CharPrinter> openRegFileText(const Ref<Interfaces::Stripe>& target, bool append,
                                 const Ref<CharPrinter>& errorPrinter);
/// Writes out what the printer holds; false, with a report, on failure.
bool finishRegFileText(const Ref<CharPrinter>& out, const Ref<CharPrinter>& errorPrinter);

/// The forms of registry export text. Names and texts are printed as they stand, quotes and backslashes
/// included: the text is read back by the same rule. Whether the printing went well is for the printer to
/// tell.
class RegFileText {
 public:
    RegFileText(Ref<CharPrinter> out, bool binaryOnly) : _out(std::move(out)), _binaryOnly(binaryOnly) {}

    /// A key: its section line, and behind its values the empty line.
    void beginSection(std::u16string_view path);
    void endSection() { _out->endLine(); }

    void string(std::u16string_view name, std::u16string_view text);
    /// The same of stored text: without the NULs at its end, or the byte that is half a unit.
    void string(std::u16string_view name, std::span<const u8> stored);
    void dword(std::u16string_view name, u64 number);
    /// A value in binary form: first name and type, then all its bytes.
    void beginBinary(std::u16string_view name, u32 type);
    void endBinary(std::span<const u8> bytes);

    bool binaryOnly() const { return _binaryOnly; }
    bool good() const { return _out->good(); }

 private:
    void label(std::u16string_view name);
    void printNumber(u64 number, std::size_t atLeast);

    const Ref<CharPrinter> _out;
    const bool _binaryOnly;
};

}  // namespace Libraries::Files::Hive
