#include "platform/system/mon.h"

namespace Platform {

Ref<Mon> Mon::create() {
    return makeRef<Mon>();
}

}  // namespace Platform
