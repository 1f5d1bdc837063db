// Bytes as text: the text reader and writer, the INI parser, numbers, paths, and names in every code page.

#include "fuzz/target.h"
#include "hive/nameencoding.h"
#include "hive/registryhiveobj.h"
#include "platform/ini/iniparser.h"
#include "platform/iochar/stringutil.h"
#include "platform/text/reader.h"
#include "platform/text/writer.h"
#include "regfile/util.h"
#include "tests/support/hiveimage.h"

namespace {

using namespace HiveFuzz;                // NOLINT
using namespace Libraries::Files::Hive;  // NOLINT
using namespace Libraries::Files::Text;  // NOLINT
using HiveTest::MemoryStripe;

/// All that a parse tells, in one string.
class Events final : public Object, public virtual Interfaces::IniParserInterface {
 public:
    bool begin(Ref<RefCount>) override { return tell(u'b', String::create()); }
    bool section(Ref<String> name) override { return tell(u's', name); }
    bool line(Ref<String> text) override { return tell(u'l', text); }
    bool value(Ref<String> name, Ref<String> data) override { return tell(u'n', name) && tell(u'd', data); }
    bool end() override { return tell(u'e', String::create()); }

    std::u16string told;

 private:
    bool tell(char16_t kind, const Ref<String>& text) {
        expect(text->view().find_first_of(u"\r\n") == std::u16string_view::npos, "one line at a time");
        (told += kind).append(text->view()) += u'\n';
        return true;
    }
};

std::u16string parsed(std::u16string_view text, u32 bufferUnits) {
    const auto* bytes = reinterpret_cast<const u8*>(text.data());
    const std::vector<u8> units(bytes, bytes + 2 * text.size());
    const auto reader = CharReader::create(makeRef<MemoryStripe>(units, 2U), bufferUnits);
    const auto events = makeRef<Events>();
    const u32 result = IniParser::parse(reader, events, IniParser::registryText);
    expect(result == IniParser::parsed || result == IniParser::malformed, "no other result");
    return events->told.append(StrConv::str(reader->line(), 10)->view()) +
           static_cast<char16_t>(u'0' + result);
}

void parse(const std::u16string& text) {
    const std::u16string events = parsed(text, 0);
    expect(parsed(text, 1) == events, "buffers do not change a parse");
    std::u16string oneEnd;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != u'\r')
            oneEnd += text[i];
        else if (i + 1 == text.size() || text[i + 1] != u'\n')
            oneEnd += u'\n';
    }
    expect(parsed(oneEnd, 0) == events, "all line ends are alike");
}

std::u16string read(const Ref<MemoryStripe>& store, Encoding encoding, u32 bufferUnits) {
    const auto reader = CharReader::create(Reader::create(store, encoding, nullptr), bufferUnits);
    std::u16string text;
    for (char16_t unit; reader->next(unit);) text += unit;
    expect(!reader->failed(), "any bytes are text");
    return text;
}

/// Writes a text and reads it again.
void write(const std::u16string& text, Encoding encoding) {
    const auto store = makeRef<MemoryStripe>();
    const auto writer = Writer::create(store, encoding, true, nullptr);
    const bool done = writer->write(ShPtr::fromConst(text.data()), text.size()) == text.size();
    if (encoding == Encoding::ansi) return;  // holds not every text, and a byte-order mark by chance
    expect(done, "texts can be written");
    const auto again = String::create(read(store, encoding, 0));
    if (encoding != Encoding::utf8) return expect(again->equal(text), "texts come back");
    // A high surrogate at the end waits for its low one.
    const auto expected = String::fromUtf8(String::create(text)->toUtf8());
    expect(expected->startsWith(again->view()) && expected->length() - again->length() <= 1,
           "UTF-8 comes back");
}

void convert(const Ref<String>& text, u32 base) {
    u64 number = 0, again = 0;
    if (!StrConv::num(text, number, base)) return;
    expect(StrConv::num(StrConv::str(number, base), again, base) && again == number, "numbers come back");
}

void changePaths(const Ref<String>& path) {
    const auto fromExport = Util::regPathFromWindowsStyle, toExport = Util::regPathToWindowsStyle;
    const auto library = fromExport(path), exported = toExport(path);
    expect(fromExport(toExport(library))->equal(library), "paths come back");
    expect(toExport(fromExport(exported))->equal(exported), "export paths come back");
}

/// Stores a name as a hive of that code page would, and reads it again.
void storeName(const Ref<String>& name, HiveFile::HiveCodepage codepage, u32 limit) {
    static HiveTest::HiveImage image;
    const auto hive = makeRef<RegistryHiveObj>(makeRef<MemoryStripe>(image.finish()), HiveFile::modeReadOnly,
                                               codepage, nullptr);
    u64 length = limit;
    bool compressed = false;
    const HeapBuffer stored = hive->stringToRegName(name, length, compressed);
    if (!stored) return expect(2 * name->length() > limit, "names that fit can be stored");
    expect(length <= u64{limit} + 2, "names keep the limit");
    std::u16string wide;
    for (u64 i = 0; i < length; i += 2) wide += static_cast<char16_t>(stored[i] | stored[i + 1] << 8);
    const auto narrow = regNameToString(stored.get(), static_cast<u32>(length), codepage);
    const std::u16string_view whole = name->view().substr(0, name->view().find(u'\0'));
    expect((compressed ? narrow->view() : wide) == whole, "names come back");
}

void read8Bit(const std::string& bytes, HiveFile::HiveCodepage codepage) {
    const auto* raw = reinterpret_cast<const u8*>(bytes.data());
    const auto name = regNameToString(raw, static_cast<u32>(bytes.size()), codepage);
    if (!name) return;
    const HeapBuffer again = stringToBytes(name, codepage);
    expect(again && std::equal(raw, raw + bytes.size(), again.get()), "8-bit names come back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const Platform::u8* data, std::size_t size) {
    Input input(data, size);
    const u32 base = 2 + input.below(35), limit = input.word();
    const std::string bytes = input.rest();
    const Encoding encoding{base % 4};
    const auto store = makeRef<MemoryStripe>(bytes);
    const std::u16string text = read(store, encoding, 0);
    expect(read(store, encoding, 3) == text, "buffers do not change a text");
    write(text, encoding);
    parse(text);
    convert(String::create(text), base);
    changePaths(String::create(text));
    for (u32 codepage = 0; codepage < 4; ++codepage) {
        storeName(String::create(text), HiveFile::HiveCodepage{codepage}, limit);
        read8Bit(bytes, HiveFile::HiveCodepage{codepage});
    }
    return 0;
}
