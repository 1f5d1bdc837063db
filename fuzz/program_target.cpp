// Bytes as a program of changes to a hive, which is compared with a plain model of it.

#include "fuzz/target.h"
#include "tests/model/model.h"

extern "C" int LLVMFuzzerTestOneInput(const Platform::u8* data, std::size_t size) {
    using namespace HiveTest;  // NOLINT
    HiveFuzz::Input input(data, size);
    const u32 head = input.byte(), minor = head % 2 ? 3 : 5;
    // A list may be full, so that the next key makes it two.
    const u32 crowd = head < 16 ? minor == 3 ? KeyObj::MAX_KEYS_LF_LIST : KeyObj::MAX_KEYS_LH_LIST : 0;
    Model model(
        minor, head & 2 ? HiveFile::modeWriteThrough : HiveFile::modeReadWrite,
        [&](u32 bound) { return (bound > 256 ? input.word() : input.byte()) % bound; }, crowd);
    while (!input.atEnd()) {
        u32 repaired = 0;
        for (u32 left = 1 + input.byte(); left > 0 && !input.atEnd(); --left) model.run(1);
        model.close(repaired);
        model.open();
    }
    HiveFuzz::expect(!testing::Test::HasFailure(), "the model");
    return 0;
}
