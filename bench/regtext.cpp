#include "bench/regtext.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

#include "bench/folding.h"
#include "bench/store.h"

namespace HiveBench {

namespace {

constexpr u64 BUFFER_UNITS = 131072;
constexpr u64 BYTES_PER_LINE = 25;
constexpr char16_t HEADER[] = u"\uFEFFWindows Registry Editor Version 5.00\r\n\r\n";
constexpr char16_t DIGITS[] = u"0123456789abcdef";

/// The digit's number, 16 for anything else.
constexpr std::array<u8, 128> DIGIT_VALUES = [] {
    std::array<u8, 128> values{};
    values.fill(16);
    for (u8 i = 0; i < 16; ++i) {
        values[static_cast<u8>(DIGITS[i])] = i;
        if (i > 9) values[static_cast<u8>(DIGITS[i] - 0x20)] = i;
    }
    return values;
}();

u8 digitValue(char16_t unit) {
    return unit < DIGIT_VALUES.size() ? DIGIT_VALUES[unit] : u8{16};
}

u32 number(std::u16string_view digits) {
    u32 value = 0;
    for (const char16_t digit : digits) {
        need(digitValue(digit) < 16, "read a number");
        value = value * 16 + digitValue(digit);
    }
    return value;
}

}  // namespace

RegTextWriter::RegTextWriter(const std::string& file)
    : _buffer(BUFFER_UNITS), _file(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
    need(_file >= 0, "create the text");
    add(HEADER);
}

RegTextWriter::~RegTextWriter() {
    if (_file >= 0) close(_file);
}

void RegTextWriter::makeRoom(u64 units) {
    if (_buffer.size() - _used >= units) return;
    const auto* bytes = reinterpret_cast<const char*>(_buffer.data());
    for (u64 left = _used * sizeof(char16_t); left;) {
        const auto written = ::write(_file, bytes, left);
        need(written > 0, "write the text");
        bytes += written;
        left -= static_cast<u64>(written);
    }
    _used = 0;
}

void RegTextWriter::add(std::u16string_view units) {
    while (!units.empty()) {
        makeRoom(std::min(units.size(), _buffer.size()));
        const auto piece = units.substr(0, _buffer.size() - _used);
        std::memcpy(_buffer.data() + _used, piece.data(), piece.size() * sizeof(char16_t));
        _used += piece.size();
        units.remove_prefix(piece.size());
    }
}

void RegTextWriter::section(std::u16string_view path) {
    add(u"[");
    add(path);
    add(u"]\r\n");
}

void RegTextWriter::endSection() {
    add(u"\r\n");
}

void RegTextWriter::value(std::string_view name, u32 type, std::span<const u8> data) {
    _name.clear();
    appendUtf16(_name, name);
    if (_name.empty()) {
        add(u"@=");
    } else {
        add(u"\"");
        add(_name);
        add(u"\"=");
    }
    if (type == 1) {
        _name.resize(data.size() / sizeof(char16_t));
        std::memcpy(_name.data(), data.data(), _name.size() * sizeof(char16_t));
        while (!_name.empty() && _name.back() == 0) _name.pop_back();
        add(u"\"");
        add(_name);
        add(u"\"");
    } else if (type == 4) {
        add(u"dword:");
        for (u32 i = 4; i-- > 0;) {
            add({&DIGITS[data[i] >> 4], 1});
            add({&DIGITS[data[i] & 15], 1});
        }
    } else if (type == 3) {
        add(u"hex:");
        addHex(data);
    } else {
        add(u"hex(");
        if (type > 15) throw std::runtime_error("a type of two digits");
        add({&DIGITS[type], 1});
        add(u"):");
        addHex(data);
    }
    add(u"\r\n");
}

void RegTextWriter::addHex(std::span<const u8> data) {
    for (u64 i = 0; i < data.size();) {
        if (i) add(u"\\\r\n  ");
        makeRoom(BYTES_PER_LINE * 3);
        char16_t* to = _buffer.data() + _used;
        const u64 lineEnd = std::min<u64>(data.size(), i + BYTES_PER_LINE);
        for (; i < lineEnd; ++i) {
            *to++ = DIGITS[data[i] >> 4];
            *to++ = DIGITS[data[i] & 15];
            *to++ = u',';
        }
        if (i == data.size()) --to;
        _used = static_cast<u64>(to - _buffer.data());
    }
}

void RegTextWriter::finish() {
    makeRoom(_buffer.size());
}

RegTextReader::RegTextReader(const std::string& file)
    : _buffer(BUFFER_UNITS), _file(open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
    need(_file >= 0 && fill() && _buffer[0] == 0xFEFF, "open the text");
    _begin = 1;
}

RegTextReader::~RegTextReader() {
    if (_file >= 0) close(_file);
}

/// Moves what is left to the buffer's front and reads more behind it; false at the end.
bool RegTextReader::fill() {
    std::copy(_buffer.begin() + static_cast<std::ptrdiff_t>(_begin),
              _buffer.begin() + static_cast<std::ptrdiff_t>(_end), _buffer.begin());
    _end -= _begin;
    _begin = 0;
    if (_end == _buffer.size()) _buffer.resize(_buffer.size() * 2);
    const auto got = ::read(_file, _buffer.data() + _end, (_buffer.size() - _end) * sizeof(char16_t));
    need(got >= 0 && got % 2 == 0, "read the text");
    _end += static_cast<u64>(got) / sizeof(char16_t);
    return got > 0;
}

/// A line without its end; valid until the next call.
bool RegTextReader::nextLine(std::u16string_view& line) {
    u64 searched = 0;
    for (;;) {
        const std::u16string_view text(_buffer.data() + _begin, _end - _begin);
        const u64 lineEnd = text.find(u'\n', searched);
        if (lineEnd != std::u16string_view::npos) {
            line = text.substr(0, lineEnd);
            _begin += lineEnd + 1;
            if (line.ends_with(u'\r')) line.remove_suffix(1);
            return true;
        }
        searched = text.size();
        if (fill()) continue;
        line = std::u16string_view(_buffer.data() + _begin, _end - _begin);
        _begin = _end;
        return !line.empty();
    }
}

RegTextReader::Line RegTextReader::next() {
    std::u16string_view line;
    do {
        if (!nextLine(line)) return end;
    } while (line.empty());
    if (line[0] == u'[') {
        _path = line.substr(1, line.size() - 2);
        return section;
    }
    if (line[0] != u'"' && line[0] != u'@') return other;
    readValue(line);
    return value;
}

void RegTextReader::readValue(std::u16string_view line) {
    const u64 equals = line[0] == u'@' ? 1 : line.find(u"\"=") + 1;
    need(equals < line.size() && line[equals] == u'=', "read a value line");
    _name = equals < 2 ? std::u16string_view() : line.substr(1, equals - 2);
    std::u16string_view data = line.substr(equals + 1);
    _data.clear();
    if (data.starts_with(u'"')) {
        data = data.substr(1, data.size() - 2);
        _type = 1;
        _data.resize((data.size() + 1) * sizeof(char16_t));
        std::memcpy(_data.data(), data.data(), data.size() * sizeof(char16_t));
    } else if (data.starts_with(u"dword:")) {
        _type = 4;
        const u32 stored = number(data.substr(6));
        for (u32 i = 0; i < 4; ++i) _data.push_back(static_cast<u8>(stored >> (8 * i)));
    } else {
        need(data.starts_with(u"hex"), "read a value's data");
        const u64 colon = data.find(u':');
        _type = colon == 3 ? 3 : number(data.substr(4, colon - 5));
        readHex(data.substr(colon + 1));
    }
}

void RegTextReader::readHex(std::u16string_view digits) {
    for (;;) {
        const bool goesOn = digits.ends_with(u'\\');
        while (!digits.empty() && digits[0] == u' ') digits.remove_prefix(1);
        for (u64 i = 0; i + 1 < digits.size() && digits[i] != u'\\'; i += 3) {
            const u8 high = digitValue(digits[i]);
            const u8 low = digitValue(digits[i + 1]);
            need(high < 16 && low < 16, "read a byte");
            _data.push_back(static_cast<u8>(high << 4 | low));
        }
        if (!goesOn) return;
        need(nextLine(digits), "read on");
    }
}

}  // namespace HiveBench
