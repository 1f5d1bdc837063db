#include "tool/valuedata.h"

#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/iochar/stringutil.h"
#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/valuetext.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

[[noreturn]] void usage(const std::string& text) {
    throw Failure(text, exitUsage);
}

/// A number, decimal or with 0x hexadecimal.
bool parseNumber(const std::string& text, u64& number) {
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    return StrConv::num(String::from8(isHex ? text.substr(2) : text), number, isHex ? 16 : 10);
}

Value::ValueType parseType(const std::string& name) {
    constexpr u32 namedTypes = 12;
    for (u32 type = 0; type < namedTypes; ++type)
        if (name == typeName(type)) return static_cast<Value::ValueType>(type);
    u64 number = 0;
    if (!parseNumber(name, number) || number > UINT32_MAX)
        usage("no such type: " + inQuotes(name) +
              "; known are sz, expand-sz, multi-sz, dword, dword-be, qword, binary, and numbers");
    return static_cast<Value::ValueType>(number);
}

Array<u8> readStandardInput() {
    Array<u8> bytes;
    std::array<u8, 65536> buffer;
    for (;;) {
        const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw Failure("cannot read standard input: " + systemErrorText(errno));
        if (count == 0) return bytes;
        bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + count);
        if (bytes.size() > UINT32_MAX) throw Failure("standard input is longer than any value");
    }
}

void addText(Array<u8>& bytes, const std::string& text) {
    const Ref<String> units = String::fromUtf8(text);
    if (units->toUtf8() != text) usage("not UTF-8: " + inQuotes(text));
    for (const char16_t unit : units->view()) {
        bytes.push_back(static_cast<u8>(unit));
        bytes.push_back(static_cast<u8>(unit >> 8));
    }
    bytes.insert(bytes.end(), 2, 0);
}

Array<u8> numberData(Value::ValueType type, const std::string& text) {
    const u32 size = type == Value::valueQword ? 8 : 4;
    u64 number = 0;
    if (!parseNumber(text, number))
        usage("not a number: " + inQuotes(text) + "; give digits, or 0x and hex digits");
    if (size == 4 && number > UINT32_MAX) usage("too large for 32 bits: " + visible(text));
    Array<u8> bytes(size);
    for (u32 i = 0; i < size; ++i)
        bytes[type == Value::valueDwordBigEndian ? size - 1 - i : i] = static_cast<u8>(number >> 8 * i);
    return bytes;
}

/// Pairs of hexadecimal digits; blanks and commas between them carry no meaning.
Array<u8> hexData(const std::vector<std::string>& data) {
    std::string digits;
    for (const std::string& part : data)
        for (const char c : part)
            if (c != ' ' && c != ',' && c != ':') digits += c;
    Array<u8> bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        u64 byte = 0;
        if (i + 1 == digits.size() || !StrConv::num(String::from8(digits.substr(i, 2)), byte, 16))
            usage("not bytes in hexadecimal: " + inQuotes(digits.substr(i, 2)) + "; give two digits a byte");
        bytes.push_back(static_cast<u8>(byte));
    }
    return bytes;
}

}  // namespace

ValueData parseValueData(const std::string& typeArgument, const std::vector<std::string>& data) {
    const Value::ValueType type = parseType(typeArgument);
    if (data.size() == 1 && data.front() == "-") return {type, readStandardInput()};
    const auto one = [&]() -> const std::string& {
        if (data.size() != 1) usage("a value of type " + visible(typeArgument) + " takes one DATA argument");
        return data.front();
    };
    ValueData result{type, {}};
    switch (type) {
        case Value::valueString:
        case Value::valueExpandString:
            addText(result.bytes, one());
            break;
        case Value::valueStrings:
            for (const std::string& text : data) {
                if (text.empty()) usage("a string list holds no empty string: it would end the list");
                addText(result.bytes, text);
            }
            result.bytes.insert(result.bytes.end(), 2, 0);
            break;
        case Value::valueDword:
        case Value::valueDwordBigEndian:
        case Value::valueQword:
            result.bytes = numberData(type, one());
            break;
        default:
            result.bytes = hexData(data);
    }
    return result;
}

}  // namespace HiveCtl
