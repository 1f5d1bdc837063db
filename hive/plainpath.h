#pragma once

namespace Libraries::Files::Hive {

/// Whether the shortcuts of record access, search and free space are left out. They change no result, log
/// line or file byte, which the tests run both ways to show (CMake option HIVE_PLAIN_PATH). Only in a damaged
/// hive, whose cells serve several ends, may what was read from one once still count when another has changed
/// it.
#ifdef HIVE_PLAIN_PATH
constexpr bool PLAIN_PATH = true;
#else
constexpr bool PLAIN_PATH = false;
#endif

}  // namespace Libraries::Files::Hive
