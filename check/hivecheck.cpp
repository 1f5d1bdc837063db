#include "check/hivecheck.h"

#include <new>

#include "check/keycheck.h"
#include "check/layoutcheck.h"

namespace Libraries::Files::Hive {

namespace {

void noteUnreached(CheckContext& context) {
    for (u32 index = 0; index < context.cells.count(); ++index) {
        if (!context.cells.isUsed(index) || context.cells.use(index) != CellUse::none) continue;
        const u32 offset = context.cells.offset(index);
        const std::string signature(
            std::string_view(context.record(context.cellAt(offset), sizeof(hive_record_list)).signature()));
        const bool isRecord = signature == "nk" || signature == "vk" || signature == "sk" ||
                              signature == "db" || signature == "ri" || signature == "li" ||
                              signature == "lf" || signature == "lh";
        context.note(offset, "used cell of " + countText(context.cells.length(index), "byte") +
                                 (isRecord ? " (" + signature + ")" : "") + " that nothing refers to");
    }
}

}  // namespace

bool HiveCheck::run(Ref<Interfaces::Stripe> file, HiveFile::HiveCodepage codepage, const Sink& sink,
                    HiveCheckCounts& counts) try {
    counts = {};
    if (!file) return ErrorCode::fail(ErrorCode::nullArgument);
    if (file->elementSize() != 1) return ErrorCode::fail(ErrorCode::wrongElementSize);
    CheckContext context(std::move(file), codepage, sink, counts);
    const BaseBlock block = checkBaseBlock(context);
    if (!block.isHive) return ErrorCode::fail(ErrorCode::badHive);
    checkHbins(context, block.header);
    SecurityCheck security(context);
    KeyCheck keys(context, security);
    const u32 root = L32ToHost(block.header.rootCell);
    if (keys.run(root)) {
        security.checkRing(root, keys.rootSecurity());
        noteUnreached(context);
    } else {
        context.fault(HiveFinding::baseBlock,
                      "no root key at " + hexText(root) + ": no key could be checked");
    }
    if (context.bytes.cameShort())
        context.fault(HiveFinding::baseBlock, "the file could not be read in full while it was checked");
    return true;
} catch (const std::bad_alloc&) {  // of a container of the standard library
    outOfMemory();
}

}  // namespace Libraries::Files::Hive
