// make_sample FILE [3|5]: writes a sample hive of version 1.3 or 1.5, laid out by the tests' hive builder: a
// few keys and values of every type and storage form, and one key with many subkeys.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "tests/support/hivebuilder.h"
#include "tests/support/tempdir.h"

namespace {

using namespace HiveTest;  // NOLINT: a file made of the builder's words

std::vector<u8> text(std::u16string_view units) {
    std::vector<u8> bytes = utf16Bytes(units);
    bytes.resize(bytes.size() + 2);
    return bytes;
}

std::vector<u8> texts(std::initializer_list<std::u16string_view> items) {
    std::vector<u8> bytes;
    for (const auto item : items) {
        const std::vector<u8> one = text(item);
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    bytes.resize(bytes.size() + 2);
    return bytes;
}

KeyPlan editor() {
    return {.name = u"Editor",
            .values =
                {
                    {.name = u"", .type = 1, .data = text(u"Acme Editor 4")},
                    {.name = u"Greeting", .type = 1, .data = text(u"Guten Tag, \u017Bó\u0142w \u2603")},
                    {.name = u"Install path", .type = 2, .data = text(u"%ProgramFiles%\\Acme\\Editor")},
                    {.name = u"Recent files", .type = 7, .data = texts({u"notes.txt", u"C:\\todo.md"})},
                    {.name = u"Window width", .type = 4, .data = numberBytes(1280)},
                    {.name = u"Port", .type = 5, .data = {0, 0, 0x1F, 0x90}},
                    {.name = u"First start", .type = 11, .data = numberBytes(0x01DA5E8F00000000, 8)},
                    {.name = u"Layout", .type = 3, .data = patternBytes(64)},
                    {.name = u"Thumbnail", .type = 3, .data = patternBytes(40000, 3)},
                    {.name = u"Nothing", .type = 0},
                },
            .className = u"AcmeClass",
            .security = 1};
}

KeyPlan root() {
    KeyPlan fonts{.name = u"Fonts"};
    for (int i = 0; i < 1500; ++i) {
        const std::string digits = std::to_string(10000 + i);
        fonts.keys.push_back({.name = u"Font" + std::u16string(digits.begin(), digits.end())});
    }
    const KeyPlan acme{.name = u"Acme",
                       .keys = {editor(), fonts, {.name = u"Caf\u00E9/Bar"}, {.name = u"\u65E5\u672C"}}};
    return {.name = u"ROOT",
            .keys = {{.name = u"Environment",
                      .values = {{.name = u"TEMP", .type = 2, .data = text(u"%USERPROFILE%\\Temp")}}},
                     {.name = u"Software", .keys = {acme}}}};
}

/// Writes the base block's file name field and clears what is reserved behind it.
void nameFile(HiveBuilder& hive, std::u16string_view name) {
    constexpr u32 FIELD = 48;
    constexpr u32 BASE_BLOCK = 4096;
    std::vector<u8> bytes = utf16Bytes(name);
    bytes.resize(BASE_BLOCK - FIELD);
    std::copy(bytes.begin(), bytes.end(), hive.bytes().begin() + FIELD);
}

}  // namespace

int main(int argc, char** argv) {
    const bool isV13 = argc == 3 && std::strcmp(argv[2], "3") == 0;
    if (argc != 2 && !isV13 && !(argc == 3 && std::strcmp(argv[2], "5") == 0)) {
        std::fprintf(stderr, "usage: make_sample FILE [3|5]\n");
        return 2;
    }
    HiveBuilder hive(isV13 ? 3 : 5);
    hive.setDescriptors({patternBytes(68, 1), patternBytes(92, 2)});
    hive.freeCell(40960);  // large data must lie further up than its length to be read whole
    hive.build(root());
    nameFile(hive, u"\\Samples\\sample.hive");
    try {
        writeFile(argv[1], hive.finish());
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "make_sample: %s\n", failure.what());
        return 1;
    }
    return 0;
}
