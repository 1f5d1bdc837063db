#pragma once

#include "regfile/salvage/salvage.h"
#include "tool/context.h"
#include "tool/fdstripe.h"
#include "tool/progress.h"

namespace HiveCtl {

/// The export of a key of a damaged hive: each finding is a line on standard error, and so is the count at
/// the end.
class SalvageBranch {
 public:
    /// Opens the hive file, as bytes. Throws Failure.
    SalvageBranch(const HiveOptions& options, const std::string& key, Progress& progress);

    /// False when the text could not be written. Throws Failure when there is nothing to write.
    bool exportTo(const Ref<FdStripe>& target, const std::string& prefix,
                  Libraries::Files::Hive::RegFileUtil::ExportOptions options);
    /// Tells the count.
    ExitCode finish();

 private:
    void tell(const Libraries::Files::Hive::SalvageFinding& finding);

    const HiveOptions& _options;
    const std::string& _key;
    Progress& _progress;
    Ref<Interfaces::Stripe> _file;
    Libraries::Files::Hive::SalvageCounts _counts;
};

}  // namespace HiveCtl
