#include "tool/fdsource.h"

#include <unistd.h>

#include <cerrno>

namespace HiveCtl {

u64 FdSource::notSupported() {
    Error::set(Error::notSupported);
    return 0;
}

u64 FdSource::read(Interfaces::ShPtr destination, u64 count, u32) {
    u64 done = 0;
    while (done < count) {
        const ssize_t got = ::read(_fd, destination.address() + done, toSize(count - done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) Error::setSystem(errno);
        if (got <= 0) break;
        done += static_cast<u64>(got);
    }
    _position += done;
    if (_observer) _observer(_position);
    return done;
}

}  // namespace HiveCtl
