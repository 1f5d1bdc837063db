#include "platform/ini/iniparser.h"

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

/// One parse under way.
class RegistryText {
 public:
    RegistryText(CharReader& reader, Interfaces::IniParserInterface& handler)
        : _reader(reader), _handler(handler) {}

    u32 parse() {
        while (readLine(_line)) {
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
        if (std::u16string_view(_line).substr(dataAt).starts_with(u"hex") && !readContinuations())
            return _reader.failed() ? IniParser::unreadable : IniParser::malformed;
        const std::u16string_view line = _line;
        return told(
            _handler.value(String::create(line.substr(0, *equals)), String::create(line.substr(dataAt))));
    }

    u32 parseSection() {
        const std::u16string_view line =
            std::u16string_view(_line).substr(0, _line.find_last_not_of(blanks) + 1);
        if (line.size() < 2 || !line.ends_with(u']')) return IniParser::malformed;
        _inSection = true;
        return told(_handler.section(String::create(line.substr(1, line.size() - 2))));
    }

    static u32 told(bool goOn) { return goOn ? IniParser::parsed : IniParser::refused; }

    /// Appends the lines that data ending in '\' goes on in; false when the text ends before the data does.
    bool readContinuations() {
        Utf16Buffer next;
        while (_line.ends_with(u'\\')) {
            _line.pop_back();
            if (!readLine(next)) return false;
            const std::size_t start = next.find_first_not_of(blanks);
            if (start != npos) _line.append(next, start);
        }
        return true;
    }

    /// Reads up to a line end, which is taken and dropped; false at the end of the text.
    bool readLine(Utf16Buffer& line) {
        line.clear();
        bool any = false;
        for (auto ahead = _reader.ahead(); !ahead.empty(); ahead = _reader.ahead()) {
            any = true;
            std::size_t length = 0;
            while (length < ahead.size() && ahead[length] != u'\n' && ahead[length] != u'\r') ++length;
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
    Utf16Buffer _line;
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
