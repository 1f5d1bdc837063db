#pragma once

#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/system/types.h"

namespace HiveBench {

using Platform::u32;
using Platform::u64;
using Platform::u8;

/// Writes registry export text for stores that have none of their own: UTF-16LE with a byte-order mark, byte
/// for byte what the hive library writes.
class RegTextWriter {
 public:
    explicit RegTextWriter(const std::string& file);
    ~RegTextWriter();
    RegTextWriter(const RegTextWriter&) = delete;
    RegTextWriter& operator=(const RegTextWriter&) = delete;

    void section(std::u16string_view path);
    void value(std::string_view name, u32 type, std::span<const u8> data);
    void endSection();
    /// Hands all to the system; throws when anything could not be written.
    void finish();

 private:
    void makeRoom(u64 units);
    void add(std::u16string_view units);
    void addHex(std::span<const u8> data);

    std::vector<char16_t> _buffer;
    u64 _used = 0;
    int _file;
    std::u16string _name;
};

/// A section of export text, or the reading of a line of data.
class RegTextReader {
 public:
    explicit RegTextReader(const std::string& file);
    ~RegTextReader();
    RegTextReader(const RegTextReader&) = delete;
    RegTextReader& operator=(const RegTextReader&) = delete;

    enum Line { end, section, value, other };
    /// The next line that is not blank, with its continuations.
    Line next();

    std::u16string_view path() const { return _path; }
    std::u16string_view name() const { return _name; }
    u32 type() const { return _type; }
    std::span<const u8> data() const { return _data; }

 private:
    bool nextLine(std::u16string_view& line);
    bool fill();
    void readValue(std::u16string_view line);
    void readHex(std::u16string_view digits);

    std::vector<char16_t> _buffer;
    u64 _begin = 0;
    u64 _end = 0;
    int _file;
    std::u16string_view _path;
    std::u16string _name;
    u32 _type = 0;
    std::vector<u8> _data;
};

/// Hands the text's sections and values to `target.section(path)` and `target.value(name, type, data)`.
template <typename Target>
void readRegText(const std::string& file, Target& target) {
    RegTextReader reader(file);
    for (;;) {
        const auto line = reader.next();
        if (line == RegTextReader::end) return;
        if (line == RegTextReader::section) target.section(reader.path());
        if (line == RegTextReader::value) target.value(reader.name(), reader.type(), reader.data());
    }
}

}  // namespace HiveBench
