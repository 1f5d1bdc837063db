#include "tool/workinghive.h"

#include "hive/errorcodes.h"
#include "platform/filesys/file.h"
#include "tool/errortext.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

using Services::Filesystem::Client::File;

/// Locks the hive file against other writers. Throws Failure.
Ref<Interfaces::Stripe> lockHive(const HiveOptions& options) {
    struct stat before {};
    struct stat after {};
    const bool there = ::stat(options.path.c_str(), &before) == 0;
    Ref<File> file = File::open(String::fromUtf8(options.path), File::readWriteExisting);
    if (!file) throw Failure(openFailure(options, Error::get()));
    // Another program may have put a new file in its place before the lock was ours.
    if (there && ::stat(options.path.c_str(), &after) == 0 && before.st_ino == after.st_ino &&
        before.st_dev == after.st_dev)
        return file;
    throw Failure(visible(options.path) + " was replaced by another program just now; try again");
}

}  // namespace

WorkingHive::WorkingHive(const HiveOptions& options, bool inPlace) : _options(options) {
    openHive(options);  // what is wrong with the hive is told before anything is copied
    if (inPlace) {
        _hive = openHive(options, HiveFile::modeReadWrite);
        AtomicFile::removeStale(options.path);
        return;
    }
    _lock = lockHive(options);
    _copy.emplace(options.path, true);
    Error::set(Libraries::Files::Hive::ErrorCode::none);
    _hive = HiveFile::open(_copy->store(), HiveFile::modeReadWrite | HiveFile::modeLinearFallback,
                           options.codepage);
    if (!_hive) throw Failure(openFailure(options, Error::get()));
}

void WorkingHive::commit() {
    if (!_hive->flush())
        throw Failure("cannot write " + visible(_options.path) + ": " + errorText(Error::get()));
    if (_copy && !_copy->storeIsWhole()) throw Failure("cannot write " + visible(_options.path));
    _hive.reset();
    if (_copy) _copy->commit();
}

}  // namespace HiveCtl
