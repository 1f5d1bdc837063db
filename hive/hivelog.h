#pragma once

#include "platform/syslog/log.h"

/// The library's log channels, registered once when the library is loaded.
namespace Libraries::Files::Hive::Channel {

extern const Platform::LogChannel hive;              ///< "Hive": store, keys, values
extern const Platform::LogChannel regExporter;       ///< "HiveRegExporter"
extern const Platform::LogChannel regUtil;           ///< "HiveRegUtil"
extern const Platform::LogChannel regImporter;       ///< "HiveRegImporter"
extern const Platform::LogChannel security;          ///< "HIVE SD"
extern const Platform::LogChannel securityIterator;  ///< "HIVE SD Iterator"
extern const Platform::LogChannel util;              ///< "HiveUtil"

}  // namespace Libraries::Files::Hive::Channel
