#include "platform/system/error.h"

namespace Platform {

namespace {
thread_local u32 current = 0;
}  // namespace

void Error::set(u32 code) {
    current = code;
}

u32 Error::get() {
    return current;
}

}  // namespace Platform
