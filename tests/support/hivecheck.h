#pragma once

#include <string>
#include <vector>

#include "check/hivecheck.h"
#include "tests/support/memorystripe.h"

namespace HiveTest {

/// What `HiveCheck` finds in a file, faults and notes alike: hives that the library writes must give neither.
inline std::vector<std::string> hiveFaults(const std::vector<u8>& file,
                                           Libraries::Files::Hive::HiveCheckCounts* counts = nullptr) {
    using namespace Libraries::Files::Hive;  // NOLINT: one function
    std::vector<std::string> lines;
    HiveCheckCounts ignored;
    const auto store = Platform::makeRef<MemoryStripe>(file);
    const auto keep = [&lines](const HiveFinding& finding) {
        char place[16];
        std::snprintf(place, sizeof place, "%x ", finding.offset);
        lines.push_back((finding.severity == HiveFinding::fault ? "fault " : "note ") +
                        (finding.offset == HiveFinding::baseBlock ? std::string() : std::string(place)) +
                        (finding.path ? finding.path->toUtf8() : "") +
                        (finding.value ? " \"" + finding.value->toUtf8() + "\"" : "") + ": " + finding.text);
    };
    if (!HiveCheck::run(Platform::Ref<Interfaces::Stripe>(store), HiveFile::hiveCodepageLatin1, keep,
                        counts ? *counts : ignored))
        lines.push_back("no hive");
    return lines;
}

}  // namespace HiveTest
