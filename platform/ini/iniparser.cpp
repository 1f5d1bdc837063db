#include "platform/ini/iniparser.h"

#include <cstring>
#include <optional>

#include "platform/system/error.h"

namespace Platform {

namespace {

constexpr std::u16string_view blanks = u" \t";
constexpr auto npos = std::u16string_view::npos;

bool isBlank(std::u16string_view text) {
    return text.find_first_not_of(blanks) == npos;
}

bool beginsData(std::u16string_view text) {
    return text.starts_with(u'"') || text.starts_with(u"dword:") || text.starts_with(u"hex:") ||
           text.starts_with(u"hex(") || text == u"-";
}

/// Where the '=' between name and data stands; nothing when the line has none.
std::optional<std::size_t> findEquals(std::u16string_view line) {
    if (!line.starts_with(u'"')) {
        const std::size_t at = line.find(u'=');
        return at == npos ? std::nullopt : std::optional(at);
    }
    std::optional<std::size_t> first;
    for (std::size_t at = line.find(u"\"=", 1); at != npos; at = line.find(u"\"=", at + 1)) {
        if (beginsData(line.substr(at + 2))) return at + 1;
        if (!first) first = at + 1;
    }
    return first;
}

/// Where the first CR or LF stands; the text's length when there is none.
std::size_t findLineEnd(std::u16string_view text) {
    constexpr std::size_t many = 16, few = 4;
    constexpr u64 ones = 0x0001000100010001;
    // What is above CR is no line end, and the other control characters hardly ever come.
    const auto mayEnd = [text](std::size_t at) {
        u16 any = 0;
        for (std::size_t i = 0; i < many; ++i) any = static_cast<u16>(any | (text[at + i] <= u'\r'));
        return any != 0;
    };
    const auto mayEndSoon = [text](std::size_t at) {
        u64 units;
        std::memcpy(&units, text.data() + at, sizeof(units));
        return ((units - ones * 14) & ~units & ones << 15) != 0;
    };
    const auto ends = [text](std::size_t at) { return text[at] == u'\n' || text[at] == u'\r'; };
    std::size_t at = 0;
    while (text.size() - at >= many && !mayEnd(at)) at += many;
    for (; text.size() - at >= few; at += few) {
        if (!mayEndSoon(at)) continue;
        for (std::size_t i = at; i < at + few; ++i)
            if (ends(i)) return i;
    }
    while (at < text.size() && !ends(at)) ++at;
    return at;
}

/// One parse under way.
class RegistryText {
 public:
    RegistryText(CharReader& reader, Interfaces::IniParserInterface& handler)
        : _reader(reader), _handler(handler) {}

    u32 parse() {
        while (readLine(_line, _store)) {
            _reader.setLine(_lines);  // the line an error is about, also when its data goes on behind it
            if (isBlank(_line) || _line.starts_with(u';')) continue;
            const u32 result = parseLine();
            if (result != IniParser::parsed) return result;
        }
        return _reader.failed() ? IniParser::unreadable : IniParser::parsed;
    }

 private:
    u32 parseLine() {
        if (_line.starts_with(u'[')) return parseSection();
        if (!_inSection) return told(_handler.line(String::create(_line)));
        const auto equals = findEquals(_line);
        if (!equals) return IniParser::malformed;
        const std::size_t dataAt = *equals + 1;
        if (_line.substr(dataAt).starts_with(u"hex") && _line.ends_with(u'\\') && !readContinuations())
            return _reader.failed() ? IniParser::unreadable : IniParser::malformed;
        return told(_handler.valueUnits(_line.substr(0, *equals), _line.substr(dataAt)));
    }

    u32 parseSection() {
        const std::u16string_view line = _line.substr(0, _line.find_last_not_of(blanks) + 1);
        if (line.size() < 2 || !line.ends_with(u']')) return IniParser::malformed;
        _inSection = true;
        return told(_handler.sectionUnits(line.substr(1, line.size() - 2)));
    }

    static u32 told(bool goOn) { return goOn ? IniParser::parsed : IniParser::refused; }

    /// Appends the lines that data ending in '\' goes on in; false when the text ends before the data does.
    bool readContinuations() {
        if (_line.data() != _store.data()) _store = _line;
        Utf16Buffer nextStore;
        std::u16string_view next;
        while (_store.ends_with(u'\\')) {
            _store.pop_back();
            if (!readLine(next, nextStore)) return false;
            const std::size_t start = next.find_first_not_of(blanks);
            if (start != npos) _store.append(next.substr(start));
        }
        _line = _store;
        return true;
    }

    /// Reads up to a line end, which is taken and dropped; false at the end of the text. The line is seen in
    /// the reader's buffer, until the next call, or put together in `store`.
    bool readLine(std::u16string_view& line, Utf16Buffer& store) {
        const std::u16string_view ahead = _reader.ahead();
        const std::size_t length = findLineEnd(ahead);
        if (length + 1 >= ahead.size()) {
            const bool read = readInPieces(store);
            line = store;
            return read;
        }
        line = ahead.substr(0, length);
        _reader.take(length + (ahead[length] == u'\r' && ahead[length + 1] == u'\n' ? 2 : 1));
        ++_lines;
        return !_reader.failed();
    }

    bool readInPieces(Utf16Buffer& line) {
        line.clear();
        bool any = false;
        for (auto ahead = _reader.ahead(); !ahead.empty(); ahead = _reader.ahead()) {
            any = true;
            const std::size_t length = findLineEnd(ahead);
            line.append(ahead.substr(0, length));
            const bool ended = length < ahead.size();
            const bool carriageReturn = ended && ahead[length] == u'\r';
            _reader.take(ended ? length + 1 : length);
            if (!ended) continue;
            char16_t unit = 0;
            if (carriageReturn && _reader.peek(unit) && unit == u'\n') _reader.next(unit);
            break;
        }
        _lines += any;
        return any && !_reader.failed();
    }

    CharReader& _reader;
    Interfaces::IniParserInterface& _handler;
    std::u16string_view _line;
    Utf16Buffer _store;  // of a line that does not lie in one piece
    u64 _lines = 0;
    bool _inSection = false;
};

}  // namespace

u32 IniParser::parse(const Ref<CharReader>& reader, const Ref<Interfaces::IniParserInterface>& handler,
                     u32 rules) {
    if (!reader || !handler || rules != registryText) {
        Error::set(reader && handler ? Error::wrongArgument : Error::nullArgument);
        return unreadable;
    }
    if (!handler->begin(reader)) return refused;
    const u32 result = RegistryText(*reader, *handler).parse();
    if (result != parsed) return result;
    return handler->end() ? parsed : refused;
}

}  // namespace Platform
