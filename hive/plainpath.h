#pragma once

namespace Libraries::Files::Hive {

/// Whether the shortcuts of record access, search and free space are left out. They change no result, log
/// line or file byte, but for log lines where cells of a damaged hive serve several ends and one of them
/// changes the cell; the tests run both ways to show it (CMake option HIVE_PLAIN_PATH).
#ifdef HIVE_PLAIN_PATH
constexpr bool PLAIN_PATH = true;
#else
constexpr bool PLAIN_PATH = false;
#endif

}  // namespace Libraries::Files::Hive
