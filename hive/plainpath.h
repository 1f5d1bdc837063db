#pragma once

namespace Libraries::Files::Hive {

/// Whether the shortcuts of record access, search and free space are left out. They change no result, log
/// line or file byte; the tests run both ways to show it (CMake option HIVE_PLAIN_PATH).
#ifdef HIVE_PLAIN_PATH
constexpr bool PLAIN_PATH = true;
#else
constexpr bool PLAIN_PATH = false;
#endif

}  // namespace Libraries::Files::Hive
