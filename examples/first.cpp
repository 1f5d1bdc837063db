#include <iostream>

#include "hive/hivefile.h"
#include "regfile/util.h"

using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::Util;
using Platform::Error;
using Platform::String;

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    const auto hive =
        HiveFile::open(String::fromUtf8(argv[1]), HiveFile::modeReadOnly, HiveFile::hiveCodepageLatin1);
    const auto key = hive ? Util::openPath(hive->root(), String::fromUtf8(argv[2])) : nullptr;
    const auto value = key ? key->value(String::fromUtf8(argv[3])) : nullptr;
    const auto text = value ? value->string(1000) : nullptr;
    if (!text) {
        std::cerr << "failed with error 0x" << std::hex << Error::get() << "\n";
        return 1;
    }
    std::cout << text->toUtf8() << "\n";
}
