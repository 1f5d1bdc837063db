#pragma once

#include <optional>

#include "tool/atomicfile.h"
#include "tool/context.h"

namespace HiveCtl {

/// A hive open for changing. By default a copy in the same directory is changed, which takes the original's
/// place with `commit`: whatever happens before that, the hive is as it was. The original is locked
/// meanwhile, so that no two programs change it at once. All operations throw Failure.
class WorkingHive {
 public:
    /// `inPlace`: changes the file itself.
    WorkingHive(const HiveOptions& options, bool inPlace);

    const Ref<HiveFile>& hive() const { return _hive; }
    /// Makes the changes durable and puts them in the hive's place. REQUIRES: no key or value of the hive is
    /// held.
    void commit();
    /// A failure of the change or the commit with the reason why the file could not be written, if that is
    /// it.
    Failure explained(const Failure& failure) const { return _copy ? _copy->explained(failure) : failure; }

 private:
    const HiveOptions _options;
    Ref<Interfaces::Stripe> _lock;  // the original, when a copy is changed
    std::optional<AtomicFile> _copy;
    Ref<HiveFile> _hive;
};

}  // namespace HiveCtl
