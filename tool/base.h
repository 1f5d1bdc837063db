#pragma once

#include "hive/hivefile.h"

/// The command-line program. Its failures are exceptions (`Failure`), turned into one line on standard error
/// and an exit code by `main`.
namespace HiveCtl {

using namespace Platform;  // NOLINT: the program is written in the platform's vocabulary
using Interfaces::Config::Hive::Key;
using Interfaces::Config::Hive::KeyIterator;
using Interfaces::Config::Hive::Value;
using Interfaces::Config::Hive::ValueIterator;
using Libraries::Files::Hive::HiveFile;

/// Exit codes; scripts rely on them.
enum ExitCode : int {
    exitDone = 0,
    exitFailed = 1,  ///< failed, not found, or done only in part
    exitUsage = 2,   ///< wrong arguments
};

}  // namespace HiveCtl
