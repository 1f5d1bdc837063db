#pragma once

#include "platform/interfaces/hive.h"
#include "platform/system/mon.h"

/// Marks what lib.file.hive shows to the outside; everything else is hidden.
#define HIVE_API __attribute__((visibility("default")))

/// Registry hive files: reading, changing, and exchange with registry export text.
namespace Libraries::Files::Hive {

using namespace Platform;  // NOLINT: the library is written in the platform's vocabulary
using Interfaces::Config::Hive::Key;
using Interfaces::Config::Hive::KeyIterator;
using Interfaces::Config::Hive::RegistryHive;
using Interfaces::Config::Hive::Value;
using Interfaces::Config::Hive::ValueIterator;

}  // namespace Libraries::Files::Hive
