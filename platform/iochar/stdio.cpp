#include "platform/iochar/stdio.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "platform/iochar/fdwriter.h"
#include "platform/system/error.h"
#include "platform/system/proc.h"

namespace Platform {

namespace {

/// Bytes on their way to a descriptor; there is nothing to read or to move to.
class FdStream final : public Object, public virtual Interfaces::Stream {
 public:
    explicit FdStream(int fd) : _fd(fd) {}

    u32 elementSize() override { return 1; }
    u64 seek(u64) override {
        notSupported();
        return _written;
    }
    u64 pos() override { return _written; }
    u64 read(ShPtr, u64, u32) override { return notSupported(); }
    u64 write(ShPtr source, u64 count, u32) override;
    u64 trim(u64, u32) override { return notSupported(); }
    u64 clear(u64, u32) override { return notSupported(); }

 private:
    static u64 notSupported() {
        Error::set(Error::notSupported);
        return 0;
    }

    const int _fd;
    u64 _written = 0;
};

u64 FdStream::write(ShPtr source, u64 count, u32) {
    u64 done = 0;
    while (done < count) {
        const ssize_t moved = ::write(_fd, source.address() + done, toSize(count - done));
        if (moved >= 0) {
            done += static_cast<u64>(moved);
        } else if (errno == EAGAIN) {
            // Whoever shares the terminal or pipe made it non-blocking.
            pollfd ready{_fd, POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            Error::setSystem(errno);
            break;
        }
    }
    _written += done;
    return done;
}

/// Lives on to the very end of the process, since other objects' destructors may print; what it holds is
/// written out at the normal exit. No local static: running out of memory here prints, and so comes here
/// again.
template <int fd>
Ref<CharWriter> standardWriter() {
    static constinit std::atomic<CharWriter*> writer{nullptr};
    if (!writer.load(std::memory_order_acquire)) {
        InitCode::lock();
        if (!writer.load(std::memory_order_relaxed)) {
            const Ref<CharWriter> made = newFdWriter(fd);
            made->incRef();
            writer.store(made.get(), std::memory_order_release);
            std::atexit([] { standardWriter<fd>()->flush(); });
        }
        InitCode::unlock();
    }
    return Ref<CharWriter>(writer.load(std::memory_order_acquire));
}

}  // namespace

Ref<CharWriter> newFdWriter(int fd) {
    return CharWriter::create(makeRef<FdStream>(fd), 0, CharWriter::LineEnd::lf);
}

Ref<CharWriter> StdIO::stdOutWriter() {
    return standardWriter<STDOUT_FILENO>();
}

Ref<CharWriter> StdIO::stdErrWriter() {
    return standardWriter<STDERR_FILENO>();
}

}  // namespace Platform
