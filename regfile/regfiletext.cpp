#include "regfile/regfiletext.h"

#include <array>

#include "hive/hivelog.h"
#include "platform/system/byteorder.h"
#include "platform/system/mem.h"
#include "platform/text/writer.h"
#include "regfile/report.h"

namespace Libraries::Files::Hive {

using Libraries::Files::Text::Encoding;
using Libraries::Files::Text::Writer;

namespace {

const Ref<String> HEADER = String::create(u"Windows Registry Editor Version 5.00\r\n\r\n");
constexpr u32 BUFFER_UNITS = 262144;  // the fewer and larger the writes, the less a file's cost
constexpr std::size_t BYTES_PER_LINE = 25;
constexpr std::u16string_view CONTINUED = u"\\\r\n  ";
constexpr std::size_t STRING_UNITS = 7;  // of the line of a string besides name and text
constexpr std::size_t DWORD_DIGITS = 8;
constexpr char16_t DIGITS[] = u"0123456789abcdef";

/// A byte in binary form: two digits and a comma, and one unit more that makes it quick to copy.
using ByteText = std::array<char16_t, 4>;
constexpr auto BYTE_TEXTS = [] {
    std::array<ByteText, 256> texts{};
    for (u32 byte = 0; byte < texts.size(); ++byte)
        texts[byte] = {DIGITS[byte >> 4], DIGITS[byte & 15], u',', u'\0'};
    return texts;
}();

/// Empties the target, or goes to its end.
bool prepareTarget(const Ref<Interfaces::Stripe>& target, bool append) {
    if (append) return target->seek(target->elementCount()) == target->elementCount();
    return target->setElementCount(0) == 0 && target->seek(0) == 0;
}

Ref<CharPrinter> failed(const Ref<CharPrinter>& errorPrinter, const char* reason) {
    report(errorPrinter, Channel::regUtil, reason);
    return nullptr;
}

}  // namespace

Ref<CharPrinter> openRegFileText(const Ref<Interfaces::Stripe>& target, bool append,
                                 const Ref<CharPrinter>& errorPrinter) {
    if (!prepareTarget(target, append)) return failed(errorPrinter, "Failed to prepare the target");
    const Ref<Writer> writer = Writer::create(target, Encoding::utf16Le, !append, nullptr);
    if (!writer) return failed(errorPrinter, "Failed to create writer");
    const Ref<CharWriter> charWriter = CharWriter::create(writer, BUFFER_UNITS);
    if (!charWriter) return failed(errorPrinter, "Failed to create CharWriter");
    Ref<CharPrinter> out = CharPrinter::create(charWriter);
    if (!out) return failed(errorPrinter, "Failed to create CharPrinter");
    if (!append) out->print(HEADER);
    return out;
}

bool finishRegFileText(const Ref<CharPrinter>& out, const Ref<CharPrinter>& errorPrinter) {
    return out->flush() || report(errorPrinter, Channel::regUtil, "Failed to write the exported text");
}

void RegFileText::beginSection(std::u16string_view path) {
    _out->print(u"[");
    _out->print(path);
    _out->print(u"]");
    _out->endLine();
}

void RegFileText::label(std::u16string_view name) {
    if (name.empty()) return _out->print(u"@=");
    _out->print(u"\"");
    _out->print(name);
    _out->print(u"\"=");
}

void RegFileText::string(std::u16string_view name, std::u16string_view text) {
    label(name);
    _out->print(u"\"");
    _out->print(text);
    _out->print(u"\"");
    _out->endLine();
}

void RegFileText::string(std::u16string_view name, std::span<const u8> stored) {
    std::size_t length = stored.size() / 2;
    while (length && !(stored[2 * length - 1] | stored[2 * length - 2])) --length;
    char16_t* const room = _out->roomFor(name.size() + length + STRING_UNITS);
    if (!room || !hostIsLittleEndian) {
        Utf16Buffer text(length, u'\0');
        for (std::size_t i = 0; i < length; ++i)
            text[i] = static_cast<char16_t>(stored[2 * i] | stored[2 * i + 1] << 8);
        return string(name, text);
    }
    label(name);
    _out->print(u"\"");
    Mem::copy(_out->roomFor(length), stored.data(), length * sizeof(char16_t));
    _out->wrote(length);
    _out->print(u"\"");
    _out->endLine();
}

/// In hexadecimal digits, at least so many.
void RegFileText::printNumber(u64 number, std::size_t atLeast) {
    std::array<char16_t, 16> digits;
    std::size_t first = digits.size();
    for (; number || first > digits.size() - atLeast; number >>= 4) digits[--first] = DIGITS[number & 15];
    _out->print(std::u16string_view(digits.data() + first, digits.size() - first));
}

void RegFileText::dword(std::u16string_view name, u64 number) {
    label(name);
    _out->print(u"dword:");
    printNumber(number, DWORD_DIGITS);
    _out->endLine();
}

void RegFileText::beginBinary(std::u16string_view name, u32 type) {
    label(name);
    if (type == Value::valueBinary && !_binaryOnly) return _out->print(u"hex:");
    _out->print(u"hex(");
    printNumber(type, 1);
    _out->print(u"):");
}

void RegFileText::endBinary(std::span<const u8> bytes) {
    constexpr std::size_t bytesText = 3 * BYTES_PER_LINE;
    constexpr std::size_t longest = bytesText + CONTINUED.size() + 1;
    std::array<char16_t, longest> apart;
    for (std::size_t start = 0; start < bytes.size(); start += BYTES_PER_LINE) {
        const std::size_t count = std::min(BYTES_PER_LINE, bytes.size() - start);
        char16_t* const room = _out->roomFor(longest);
        char16_t* const line = room ? room : apart.data();
        for (std::size_t i = 0; i < count; ++i)
            Mem::copy(line + 3 * i, BYTE_TEXTS[bytes[start + i]].data(), sizeof(ByteText));
        std::size_t length = 3 * count - 1;  // no comma behind the last byte
        if (start + count < bytes.size()) {
            CONTINUED.copy(line + bytesText, CONTINUED.size());
            length = bytesText + CONTINUED.size();
        }
        if (room)
            _out->wrote(length);
        else
            _out->print(std::u16string_view(line, length));
    }
    _out->endLine();
}

}  // namespace Libraries::Files::Hive
