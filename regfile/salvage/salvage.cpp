#include "regfile/salvage/salvage.h"

#include <new>

#include "regfile/salvage/salvageroot.h"
#include "regfile/salvage/salvagewalk.h"
#include "regfile/util.h"

namespace Libraries::Files::Hive {

bool Salvage::exportRegFile(const Ref<Interfaces::Stripe>& hive, HiveFile::HiveCodepage codepage,
                            const Array<Ref<String>>& names, const Ref<Interfaces::Stripe>& target,
                            const Ref<String>& prefix, RegFileUtil::ExportOptions options, const Sink& sink,
                            SalvageCounts& counts) try {
    counts = {};
    if (!hive || !target || !prefix || !sink) return ErrorCode::fail(ErrorCode::nullArgument);
    if (hive->elementSize() != 1) return ErrorCode::fail(ErrorCode::wrongElementSize);
    SalvageFile file(hive);
    SalvageRecords records(file, codepage);
    SalvageWalk walk(file, records, sink, counts);
    SalvageFlaws flaws;
    checkBaseBlock(file, flaws);
    std::optional<SalvagedKey> key = findRoot(file, records, flaws);
    walk.tell(flaws);
    if (!key) return ErrorCode::fail(ErrorCode::badHive);
    key->name.clear();  // the root key is nameless whatever its record says
    if (!walk.descend(*key, names)) return ErrorCode::fail(ErrorCode::noSuchKey);

    Error::set(ErrorCode::none);
    const Ref<CharPrinter> out = openRegFileText(target, (options & RegFileUtil::exportAppend) != 0, nullptr);
    if (!out) return false;
    RegFileText text(out, (options & RegFileUtil::exportBinaryOnly) != 0);
    std::u16string path(Util::regPathToWindowsStyle(prefix)->view());
    walk.run(std::move(*key), path + u'\\', text);
    return finishRegFileText(out, nullptr);
} catch (const std::bad_alloc&) {  // of a container of the standard library
    outOfMemory();
}

}  // namespace Libraries::Files::Hive
