#include "platform/syslog/syslogfilter.h"

#include <cstring>
#include <mutex>

namespace Platform {

// Everything here is initialised before any code runs: channels are registered by initialisers of other
// libraries.
constinit std::atomic<u32> SysLogFilter::_level{SysLogFilter::levelSilent};
constinit std::atomic<u64> SysLogFilter::_on{~u64{0}};

namespace {

constexpr const char* DEFAULT_ID = "Default";

constinit std::mutex registering;
/// Filled from the front and never changed afterwards, so that ids are read without the lock.
constinit std::atomic<const char*> ids[SysLogFilter::maxChannels] = {DEFAULT_ID};

}  // namespace

LogChannel SysLogFilter::reg(const char* name) {
    if (!name) return defaultChannel;
    const std::lock_guard guard(registering);
    for (LogChannel channel = 0; channel < maxChannels; ++channel) {
        const char* const known = ids[channel].load(std::memory_order_relaxed);
        if (known && std::strcmp(known, name) != 0) continue;
        if (!known) ids[channel].store(name, std::memory_order_release);
        return channel;
    }
    return defaultChannel;
}

const char* SysLogFilter::id(LogChannel channel) {
    const char* const name = channel < maxChannels ? ids[channel].load(std::memory_order_acquire) : nullptr;
    return name ? name : DEFAULT_ID;
}

void SysLogFilter::setState(LogChannel channel, bool on) {
    if (channel >= maxChannels) return;
    const u64 bit = u64{1} << channel;
    if (on)
        _on.fetch_or(bit, std::memory_order_relaxed);
    else
        _on.fetch_and(~bit, std::memory_order_relaxed);
}

}  // namespace Platform
