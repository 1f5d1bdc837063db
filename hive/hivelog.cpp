#include "hive/hivelog.h"

namespace Libraries::Files::Hive::Channel {

using Platform::SysLogFilter;

const Platform::LogChannel hive = SysLogFilter::reg("Hive");
const Platform::LogChannel regExporter = SysLogFilter::reg("HiveRegExporter");
const Platform::LogChannel regUtil = SysLogFilter::reg("HiveRegUtil");
const Platform::LogChannel regImporter = SysLogFilter::reg("HiveRegImporter");
const Platform::LogChannel security = SysLogFilter::reg("HIVE SD");
const Platform::LogChannel securityIterator = SysLogFilter::reg("HIVE SD Iterator");
const Platform::LogChannel util = SysLogFilter::reg("HiveUtil");

}  // namespace Libraries::Files::Hive::Channel
