#include "hive/hivefile.h"

#include "hive/hivelog.h"
#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

using Services::Filesystem::Client::File;
using Services::Filesystem::Client::FSItem;

namespace {

Ref<HiveFile> openHive(Ref<Interfaces::Stripe> stripe, u32 mode, HiveFile::HiveCodepage codepage,
                       Ref<FSItem> item) {
    auto hive = makeRef<RegistryHiveObj>(std::move(stripe), mode, codepage, std::move(item));
    return hive->valid() ? hive : nullptr;
}

}  // namespace

Ref<HiveFile> HiveFile::open(Ref<Interfaces::Stripe> stripe, u32 mode, HiveCodepage codepage) {
    if (!stripe) {
        Error::set(ErrorCode::nullArgument);
        return nullptr;
    }
    if (stripe->elementSize() != 1) {
        log(4, Channel::hive, "Stripe object with element size != 1 not supported");
        Error::set(ErrorCode::wrongElementSize);
        return nullptr;
    }
    return openHive(std::move(stripe), mode, codepage, nullptr);
}

Ref<HiveFile> HiveFile::open(Ref<String> path, u32 mode, HiveCodepage codepage) {
    if (!path) {
        Error::set(ErrorCode::nullArgument);
        return nullptr;
    }
    const Ref<File> file =
        File::open(path, mode & modeReadOnly ? File::readExisting : File::readWriteExisting);
    if (!file) return nullptr;
    if (file->elementSize() != 1) {
        log(4, Channel::hive, "File object with element size != 1 not supported");
        Error::set(ErrorCode::wrongElementSize);
        return nullptr;
    }
    return openHive(file, mode, codepage, file);
}

}  // namespace Libraries::Files::Hive
