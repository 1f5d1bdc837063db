// write_seeds DIRECTORY: writes small intact hives of every shape, for a fuzzer to start from.

#include <cstdio>

#include "fuzz/hiveshapes.h"
#include "tests/support/tempdir.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: write_seeds DIRECTORY\n");
        return 2;
    }
    for (const HiveFuzz::HiveShape& shape : HiveFuzz::hiveShapes())
        HiveTest::writeFile(std::string(argv[1]) + "/" + shape.name, shape.file);
    return 0;
}
