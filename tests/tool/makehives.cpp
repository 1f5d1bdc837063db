// Writes the hives of the command-line tests into a directory: makehives DIRECTORY
//   makehives --shapes DIRECTORY: intact hives of every shape instead

#include <iostream>

#include "tests/support/hiveshapes.h"
#include "tests/support/tempdir.h"

namespace HiveTest {

namespace {

std::vector<u8> sz(std::u16string text) {
    text += u'\0';
    return utf16Bytes(text);
}

std::vector<u8> multiSz(std::initializer_list<std::u16string> texts) {
    std::u16string joined;
    for (const std::u16string& text : texts) joined += text + u'\0';
    return sz(joined);
}

/// A value of each kind, and values whose data is not what their type promises.
KeyPlan vendorKey() {
    return {.name = u"Vendor",
            .values = {{u"", 1, sz(u"the default")},
                       {u"Text", 1, sz(u"C:\\Temp\\\u00E4\u20AC")},
                       {u"Expand", 2, sz(u"%HOME%\\x")},
                       {u"Bin", 3, patternBytes(20)},
                       {u"Num", 4, numberBytes(26)},
                       {u"NumBe", 5, {0, 0, 1, 2}},
                       {u"List", 7, multiSz({u"one", u"two"})},
                       {u"Quad", 11, numberBytes(0xFFFFFFFFFFFFFFFF, 8)},
                       {u"Empty", 0, {}},
                       {u"Odd", 1, {65}},
                       {u"ShortNum", 4, {1, 2}},
                       {u"Strange", 0x1234, {1, 2, 3}}}};
}

void writeNormal(const std::string& path, u32 minor) {
    HiveBuilder hive(minor);
    const KeyPlan vendor = vendorKey();
    hive.build({.keys = {{.name = u"Software", .keys = {vendor}},
                         {.name = u"a/b", .keys = {{.name = u"info"}}},
                         {.name = u"Gr\u00F6\u00DFe", .values = {{u"\u00FCber", 4, numberBytes(1)}}},
                         {.name = u"Zoo"}}});
    writeFile(path, hive.finish());
}

/// Names and texts that would drive a terminal or fool a reader. All key names end in "key".
void writeHostile(const std::string& path) {
    HiveBuilder hive(5);
    std::u16string loneSurrogate = u"\u0100?key";
    loneSurrogate[1] = 0xD800;
    KeyPlan root;
    for (const std::u16string& name :
         {std::u16string(u"\x1b[2Jkey"), std::u16string(u"line\nbreak\rkey"),
          std::u16string(u"\x7f\u009b1mkey"), std::u16string(u"quo\"te key"), std::u16string(u"sl/ash key"),
          std::u16string(u"back\\slash key"), std::u16string(u"\u202Eturned key"),
          std::u16string(u"\U0001F600 key"), loneSurrogate})
        root.keys.push_back({.name = name, .keys = {{.name = u"below key"}}});
    root.values = {{u"esc\x1b]0;title\a", 1, sz(u"\x1b[31mred\nline")},
                   {u"list", 7, multiSz({u"a\x1b", u"b\u0085"})},
                   {u"bad\nnumber\x1b", 4, {1}}};
    root.values.push_back({loneSurrogate, 1, sz(loneSurrogate)});
    hive.build(root);
    writeFile(path, hive.finish());
}

/// A hive with one fault of each kind beside intact keys.
void writeDamaged(const std::string& path) {
    HiveBuilder hive(5);
    hive.build({.values = {{u"good", 4, numberBytes(1)},
                           {u"lost data", 3, patternBytes(100)},
                           {u"lost record", 4, numberBytes(1)},
                           {u"huge", 1, sz(u"text longer than four bytes")}},
                .keys = {{.name = u"badkey"},
                         {.name = u"badlist", .keys = {{.name = u"a"}, {.name = u"b"}}},
                         {.name = u"badvalues", .values = {{u"x", 3, {1}}}},
                         {.name = u"good", .keys = {{.name = u"below"}}}}});
    hive.poke32(hive.value(u"", u"lost data").record + 12, 0x00F00000);
    hive.poke(hive.value(u"", u"lost record").record + 4, "xx");
    hive.poke32(hive.value(u"", u"huge").record + 8, 0x7FFFFFF0);
    hive.poke(hive.key(u"badkey").record + 4, "xx");
    hive.poke(hive.key(u"badlist").list + 4, "xx");
    hive.poke32(hive.key(u"badvalues").record + 40, 100000);
    writeFile(path, hive.finish());
}

/// A key whose subkeys are the key itself, twice.
void writeCircular(const std::string& path) {
    HiveBuilder hive(5);
    hive.build({.keys = {{.name = u"loop", .keys = {{.name = u"x"}, {.name = u"y"}}}}});
    const LaidKey& loop = hive.key(u"loop");
    hive.poke32(loop.list + 8, loop.record);
    hive.poke32(loop.list + 16, loop.record);
    writeFile(path, hive.finish());
}

void writeHeaders(const std::string& directory) {
    HiveBuilder hive(7);
    hive.build({});
    writeFile(directory + "/version.hive", hive.finish());
    hive.pokeHeader32(24, 5);
    writeFile(directory + "/checksum.hive", hive.bytes());
    std::vector<u8> bytes = hive.finish();
    bytes.resize(bytes.size() - 4096);
    writeFile(directory + "/cut.hive", bytes);
    bytes.resize(100);
    writeFile(directory + "/short.hive", bytes);
    bytes.assign(8192, 'x');
    writeFile(directory + "/foreign.hive", bytes);
}

void writeBig(const std::string& path) {
    HiveBuilder hive(5);
    hive.freeCell(30000);  // data near the start of a hive is cut short by how extents are measured
    hive.build({.values = {{u"big", 3, patternBytes(300000)}}});
    writeFile(path, hive.finish());
}

}  // namespace

}  // namespace HiveTest

int main(int argc, char** argv) try {
    if (argc == 3 && argv[1] == std::string("--shapes")) {
        for (const HiveTest::HiveShape& shape : HiveTest::hiveShapes())
            HiveTest::writeFile(std::string(argv[2]) + "/" + shape.name, shape.file);
        return 0;
    }
    if (argc != 2) return 2;
    const std::string directory = argv[1];
    HiveTest::writeNormal(directory + "/v13.hive", 3);
    HiveTest::writeNormal(directory + "/v15.hive", 5);
    HiveTest::writeHostile(directory + "/hostile.hive");
    HiveTest::writeDamaged(directory + "/damaged.hive");
    HiveTest::writeCircular(directory + "/circular.hive");
    HiveTest::writeBig(directory + "/big.hive");
    HiveTest::writeHeaders(directory);
    return 0;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
