#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "tests/support/hivecheck.h"

/// The entry point that each target defines: uses one input in full. Stops the process when a property does
/// not hold.
extern "C" int LLVMFuzzerTestOneInput(const Platform::u8* data, std::size_t size);

namespace HiveFuzz {

using Platform::u32;
using Platform::u64;
using Platform::u8;

/// Stops the process, which is how a fuzzer learns of a finding, unless the property holds.
inline void expect(bool holds, const std::string& property) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", property.c_str());
    std::abort();
}

/// The first finding of a hive but for cells that nobody uses; empty when there is none.
inline std::string faultOf(const std::vector<u8>& hive) {
    for (const std::string& line : HiveTest::hiveFaults(hive))
        if (!line.ends_with("nothing refers to")) return line;
    return {};
}

/// Takes an input apart; gives zeros behind its end.
class Input {
 public:
    Input(const u8* data, std::size_t size) : _at(data), _end(data + size) {}

    bool atEnd() const { return _at == _end; }
    u8 byte() { return atEnd() ? 0 : *_at++; }
    u32 below(u32 bound) { return byte() % bound; }
    u32 word() { return byte() | u32{byte()} << 8; }
    std::string rest() { return {std::exchange(_at, _end), _end}; }

 private:
    const u8* _at;
    const u8* _end;
};

}  // namespace HiveFuzz
