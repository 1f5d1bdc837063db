// write_seeds DIRECTORY: writes what the fuzzer of each target starts from: DIRECTORY/hive, /program,
// /regtext and /strings.

#include "hive/hivefile.h"
#include "tests/support/hiveshapes.h"
#include "tests/support/regtext.h"
#include "tests/support/tempdir.h"

using namespace HiveTest;  // NOLINT: made of the builder's words
using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::RegFileUtil;

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const auto write = [&](const char* target, const std::string& name, const std::vector<u8>& bytes) {
        const std::string directory = std::string(argv[1]) + "/" + target + "/";
        std::filesystem::create_directories(directory);
        writeFile(directory + name, bytes);
    };
    const auto bytesOf = [](const std::string& text) { return std::vector<u8>(text.begin(), text.end()); };
    for (const auto& [shape, file] : hiveShapes()) {
        write("hive", shape, file);
        const auto hive = HiveFile::open(Platform::makeRef<MemoryStripe>(file), HiveFile::modeReadOnly,
                                         HiveFile::hiveCodepageLatin1);
        for (const auto options : {RegFileUtil::exportDefault, RegFileUtil::exportBinaryOnly}) {
            const std::string name = shape + (options ? ", exact" : "");
            const std::string text = exportText(hive->root(), options);
            const std::string half = utf16ToUtf8(text.substr(2));  // and single bytes mean something
            write("regtext", name, bytesOf("\1" + half.substr(0, 4000)));
            write("strings", name, bytesOf("\3\3\3" + half.substr(0, 1000)));
            write("strings", name + ", UTF-16", bytesOf("\3\3\3" + text.substr(0, 1000)));
        }
    }
    for (u32 i = 1; i < 20; ++i) write("program", std::to_string(i), patternBytes(100 * i, i));
    return 0;
}
