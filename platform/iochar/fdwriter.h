#pragma once

#include "platform/iochar/charwriter.h"

namespace Platform {

/// A new UTF-8 writer, line end "\n", on an open descriptor, which stays the caller's. Each writer has a
/// buffer of its own, so that users of one descriptor need no common lock. Internal to the platform.
Ref<CharWriter> newFdWriter(int fd);

}  // namespace Platform
