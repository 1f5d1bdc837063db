// write_seeds DIRECTORY: writes what the fuzzer of each target starts from: DIRECTORY/hive, /program,
// /regtext and /strings.

#include "hive/hivefile.h"
#include "regfile/regfileutil.h"
#include "tests/support/hiveshapes.h"
#include "tests/support/memorystripe.h"
#include "tests/support/tempdir.h"

namespace {

using namespace HiveTest;  // NOLINT: made of the builder's words
using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::RegFileUtil;
using Platform::String;

std::string exported(const std::vector<u8>& file, RegFileUtil::ExportOptions options) {
    const auto hive = HiveFile::open(Platform::makeRef<MemoryStripe>(file), HiveFile::modeReadOnly,
                                     HiveFile::hiveCodepageLatin1);
    const auto target = Platform::makeRef<MemoryStripe>();
    RegFileUtil::exportRegFile(hive->root(), Ref<Interfaces::Stripe>(target), String::create(), options,
                               nullptr, false);
    return target->text();
}

/// Half the length of UTF-16, and single bytes mean something.
std::string utf8(const std::string& utf16) {
    std::u16string units;
    for (std::size_t i = 2; i + 1 < utf16.size(); i += 2)
        units += static_cast<char16_t>(static_cast<u8>(utf16[i]) | static_cast<u8>(utf16[i + 1]) << 8);
    return String::create(units)->toUtf8();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const auto write = [&](const char* target, const std::string& name, const std::vector<u8>& bytes) {
        const std::string directory = std::string(argv[1]) + "/" + target + "/";
        std::filesystem::create_directories(directory);
        writeFile(directory + name, bytes);
    };
    const auto bytesOf = [](const std::string& text) { return std::vector<u8>(text.begin(), text.end()); };
    for (const auto& [shape, hive] : hiveShapes()) {
        write("hive", shape, hive);
        for (const auto options : {RegFileUtil::exportDefault, RegFileUtil::exportBinaryOnly}) {
            const std::string name = shape + (options ? ", exact" : "");
            const std::string text = exported(hive, options);
            write("regtext", name, bytesOf("\1" + utf8(text).substr(0, 4000)));
            write("strings", name, bytesOf("\3\3\3" + utf8(text).substr(0, 1000)));
            write("strings", name + ", UTF-16", bytesOf("\3\3\3" + text.substr(0, 1000)));
        }
    }
    for (u32 i = 1; i < 20; ++i) write("program", std::to_string(i), patternBytes(100 * i, i));
    return 0;
}
