#include "platform/system/mon.h"

namespace Platform {

Ref<Mon> Mon::create() {
    return makeRef<Mon>();
}

void Mon::await() {
    while (_state.exchange(isAwaited, std::memory_order_acquire) != isFree)
        _state.wait(isAwaited, std::memory_order_relaxed);
}

}  // namespace Platform
