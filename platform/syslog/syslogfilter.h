#pragma once

#include <atomic>

#include "platform/system/export.h"
#include "platform/system/types.h"

namespace Platform {

/// A log channel's number, as given by `SysLogFilter::reg`. Channel 0 is the default channel, always there.
using LogChannel = u32;

/// Which log lines are produced: a line of level N on a channel is, when `level()` <= N and the channel is
/// on. Levels run from 1 (detail) to 4 (failures); the filter starts at 5, so that nothing is printed.
/// Channels start on.
///
/// Thread-safety: all operations may be called from any thread.
class PLATFORM_API SysLogFilter {
 public:
    static constexpr u32 maxChannels = 64;
    static constexpr LogChannel defaultChannel = 0;
    static constexpr u32 levelSilent = 5;

    /// Registers a channel under a name and returns its number; a name known already keeps its number. When
    /// all 64 are taken the default channel is returned. `name` must live as long as the process (a string
    /// constant).
    static LogChannel reg(const char* name);
    /// The channel's id as it stands in log lines: the name it was registered under.
    static const char* id(LogChannel channel);
    static u32 level() { return _level.load(std::memory_order_relaxed); }
    static void setLevel(u32 level) { _level.store(level, std::memory_order_relaxed); }
    static bool state(LogChannel channel) {
        return (_on.load(std::memory_order_relaxed) >> channel & 1) != 0;
    }
    static void setState(LogChannel channel, bool on);

    /// The one test a line costs when it is off.
    static bool enabled(u32 lineLevel, LogChannel channel) { return level() <= lineLevel && state(channel); }

 private:
    static std::atomic<u32> _level;
    static std::atomic<u64> _on;  // one bit a channel
};

}  // namespace Platform
