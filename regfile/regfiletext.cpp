#include "regfile/regfiletext.h"

#include "hive/hivelog.h"
#include "platform/iochar/stringutil.h"
#include "platform/text/writer.h"
#include "regfile/report.h"

namespace Libraries::Files::Hive {

using Libraries::Files::Text::Encoding;
using Libraries::Files::Text::Writer;

namespace {

const Ref<String> HEADER = String::create(u"Windows Registry Editor Version 5.00\r\n\r\n");
constexpr u64 BYTES_PER_LINE = 25;
constexpr char16_t DIGITS[] = u"0123456789abcdef";

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
    const Ref<CharWriter> charWriter = CharWriter::create(writer, 0);
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

void RegFileText::dword(std::u16string_view name, u64 number) {
    const Ref<String> digits = StrConv::str(number, 16);
    label(name);
    _out->print(u"dword:");
    _out->print(std::u16string(digits->length() < 8 ? 8 - digits->length() : 0, u'0'));
    _out->print(digits);
    _out->endLine();
}

void RegFileText::beginBinary(std::u16string_view name, u32 type) {
    label(name);
    if (type == Value::valueBinary && !_binaryOnly) return _out->print(u"hex:");
    _out->print(u"hex(");
    _out->print(StrConv::str(type, 16));
    _out->print(u"):");
}

void RegFileText::endBinary(const Array<u8>& bytes) {
    std::u16string line;
    for (u64 i = 0; i < bytes.size(); ++i) {
        if (i && i % BYTES_PER_LINE == 0) {
            line += u"\\\r\n  ";
            _out->print(line);
            line.clear();
        }
        line += DIGITS[bytes[i] >> 4];
        line += DIGITS[bytes[i] & 15];
        if (i + 1 < bytes.size()) line += u',';
    }
    _out->print(line);
    _out->endLine();
}

}  // namespace Libraries::Files::Hive
