#include "fuzz/walkhive.h"
#include "hive/hivefile.h"
#include "tests/support/memorystripe.h"

/// libFuzzer's entry point: the input is a hive file, but for its base block, which is made to pass. The
/// input is read the two ways that change nothing, and once as a writable hive.
extern "C" int LLVMFuzzerTestOneInput(const Platform::u8* data, size_t size) {
    using Libraries::Files::Hive::HiveFile;
    static const HiveFuzz::LogToNowhere log;
    std::vector<Platform::u8> file(data, data + size);
    HiveFuzz::repairBaseBlock(file);
    const auto store = Platform::makeRef<HiveTest::MemoryStripe>(std::move(file));
    HiveFuzz::walkHive(store, HiveFile::modeReadOnly | HiveFile::modeLinearFallback, false);
    HiveFuzz::walkHive(store, HiveFile::modeReadOnly | HiveFile::modeUnsafe);
    HiveFuzz::walkHive(store, HiveFile::modeReadWrite, false);
    return 0;
}
