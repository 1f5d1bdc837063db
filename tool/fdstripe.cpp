#include "tool/fdstripe.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace HiveCtl {

int writeAll(int fd, const void* data, u64 count, u64& done) {
    constexpr u64 MAX_TRANSFER = 1 << 30;  // keeps every count in ssize_t
    const auto* const bytes = static_cast<const u8*>(data);
    for (done = 0; done < count;) {
        const ssize_t moved = ::write(fd, bytes + done, toSize(std::min(count - done, MAX_TRANSFER)));
        if (moved >= 0) {
            done += static_cast<u64>(moved);
        } else if (errno == EAGAIN) {
            pollfd ready{fd, POLLOUT, 0};  // whoever shares the terminal or pipe made it non-blocking
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

u64 FdStripe::write(Interfaces::ShPtr source, u64 count, u32) {
    u64 done = 0;
    const int failure = writeAll(_fd, source.address(), count, done);
    _count += done;
    if (failure) {
        Error::setSystem(failure);
        if (!_writeError) _writeError = failure;
    }
    if (_observer) _observer(_count);
    return done;
}

u64 FdStripe::notSupported() {
    Error::set(Error::notSupported);
    return 0;
}

}  // namespace HiveCtl
