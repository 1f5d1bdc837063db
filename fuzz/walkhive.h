#pragma once

#include <vector>

#include "platform/interfaces/stripe.h"

namespace HiveFuzz {

using Platform::Ref;
using Platform::u32;
using Platform::u64;
using Platform::u8;

/// What a walk met.
struct WalkCounts {
    bool opened = false;
    u64 keys = 0;
    u64 values = 0;
    u64 dataBytes = 0;
    u64 descriptors = 0;
    u64 exportBytes = 0;
    u64 failures = 0;  ///< keys, values, data and lists that could not be read
};

/// Opens the hive that `store` holds in the given mode and uses every reading operation there is on it: all
/// keys and values, lookups by name, typed reads, data stripes, the security records, the usage count and, if
/// asked for, an export (which costs as much as all the rest). Goes on behind everything that cannot be read.
/// The work is bounded by the size of the store.
WalkCounts walkHive(const Ref<Interfaces::Stripe>& store, u32 mode, bool withExport = true);

/// Makes the base block of a hive file pass the checks of opening, so that what lies behind it is reached:
/// signature, version, length of the hbins area and checksum. Files below 4096 bytes are left alone.
void repairBaseBlock(std::vector<u8>& file);

/// Sends all log lines to nowhere but lets each be put together, for the length of a scope.
class LogToNowhere {
 public:
    LogToNowhere();
    ~LogToNowhere();
    LogToNowhere(const LogToNowhere&) = delete;
    LogToNowhere& operator=(const LogToNowhere&) = delete;
};

}  // namespace HiveFuzz
