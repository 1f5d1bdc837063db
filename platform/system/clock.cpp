#include "platform/system/clock.h"

#include <chrono>
#include <ratio>

namespace Platform {

u64 Clock::fileTime() {
    using Units = std::chrono::duration<u64, std::ratio<1, 10'000'000>>;
    constexpr u64 unixEpoch = 116'444'736'000'000'000;  // 1970-01-01 in these units
    const auto sinceUnixEpoch = std::chrono::system_clock::now().time_since_epoch();
    return unixEpoch + std::chrono::duration_cast<Units>(sinceUnixEpoch).count();
}

}  // namespace Platform
