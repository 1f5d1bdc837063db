#pragma once

#include "check/checkcontext.h"

namespace Libraries::Files::Hive {

/// The base block, as read, and what it is good for.
struct BaseBlock {
    hive_header header;  // in file byte order
    bool isHive = false;
};

/// Checks the base block's fields. Not a hive: without its signature and without an hbin behind it.
BaseBlock checkBaseBlock(CheckContext& context);

/// Enters all cells of the hbins area into the context's table. Behind a broken hbin it goes on with the next
/// head that is at home where it stands.
void checkHbins(CheckContext& context, const hive_header& header);

}  // namespace Libraries::Files::Hive
