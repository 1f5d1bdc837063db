#include "platform/filesys/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string>
#include <string_view>

#include "platform/system/error.h"

namespace Services::Filesystem::Client {

using namespace Platform;
using Interfaces::ShHandle;
using Interfaces::ShPtr;

namespace {

static_assert(sizeof(off_t) == sizeof(s64), "file offsets must have 64 bits");

constexpr u64 MAX_LENGTH = std::numeric_limits<s64>::max();
// Linux moves no more than this in one call; asking for it keeps the count in ssize_t everywhere.
constexpr u64 MAX_TRANSFER = 0x7FFFF000;

/// Repeats a system call that a signal broke off.
template <typename Call>
auto retried(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

/// Closes the descriptor with the object.
class Descriptor {
 public:
    explicit Descriptor(int fd) : _fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
    ~Descriptor() {
        if (_fd >= 0) ::close(_fd);
    }
    int get() const { return _fd; }

 private:
    int _fd;
};

class FileObj final : public Object, public File {
 public:
    FileObj(Descriptor fd, bool writable, bool isDevice)
        : _fd(std::move(fd)), _writable(writable), _isDevice(isDevice) {}

    u32 elementSize() override { return 1; }
    u64 pos() override { return _position; }
    u64 seek(u64 position) override { return _position = position ? std::min(position, elementCount()) : 0; }
    u64 read(ShPtr destination, u64 count, u32) override;
    u64 write(ShPtr source, u64 count, u32) override;
    u64 readAt(u64 position, ShPtr destination, u64 count) override;
    u64 trim(u64, u32) override { return notSupported(); }
    u64 clear(u64, u32) override { return notSupported(); }

    u64 elementCount() override;
    u64 maxElementCount() override { return MAX_LENGTH; }
    u64 minElementCount() override { return 0; }
    u64 setElementCount(u64 count) override;
    ShHandle map(Ref<SharedMemory> memory) override { return {std::move(memory), nullptr, 0}; }
    void unmap(ShHandle) override {}

    bool flush() override;

 private:
    static u64 notSupported() {
        Error::set(Error::notSupported);
        return 0;
    }
    bool isEmpty() const;
    template <typename Call>
    u64 transfer(const ShPtr& memory, u64 count, Call call);

    const Descriptor _fd;
    const bool _writable;
    const bool _isDevice;
    u64 _position = 0;
};

/// Moves `count` bytes between memory and the file's position by as many calls as it takes; a call that moves
/// nothing ends it.
template <typename Call>
u64 FileObj::transfer(const ShPtr& memory, u64 count, Call call) {
    if (count == 0) return 0;
    u8* const address = memory.address();
    if (!address) {
        Error::set(Error::nullArgument);
        return 0;
    }
    u64 done = 0;
    while (done < count) {
        const u64 want = std::min({count - done, MAX_TRANSFER, MAX_LENGTH - _position});
        const ssize_t moved = retried(
            [&] { return call(address + done, static_cast<size_t>(want), static_cast<off_t>(_position)); });
        if (moved < 0) Error::setSystem(errno);
        if (moved <= 0) break;
        done += static_cast<u64>(moved);
        _position += static_cast<u64>(moved);
    }
    return done;
}

u64 FileObj::read(ShPtr destination, u64 count, u32) {
    return transfer(destination, count, [this](void* to, size_t bytes, off_t offset) {
        return ::pread(_fd.get(), to, bytes, offset);
    });
}

u64 FileObj::readAt(u64 position, ShPtr destination, u64 count) {
    if (position > MAX_LENGTH) return 0;
    _position = position;
    return read(std::move(destination), count, 0);
}

u64 FileObj::write(ShPtr source, u64 count, u32) {
    if (!_writable) {
        Error::setSystem(EBADF);
        return 0;
    }
    return transfer(source, count, [this](const void* from, size_t bytes, off_t offset) -> ssize_t {
        const ssize_t moved = bytes ? ::pwrite(_fd.get(), from, bytes, offset) : 0;
        if (moved != 0) return moved;
        errno = EFBIG;  // a write that moves nothing would otherwise pass for a success
        return -1;
    });
}

/// Whether this is known to be a file without a byte.
bool FileObj::isEmpty() const {
    struct stat status {};
    return !_isDevice && ::fstat(_fd.get(), &status) == 0 && status.st_size == 0;
}

u64 FileObj::elementCount() {
    if (_isDevice) {
        const off_t end = ::lseek(_fd.get(), 0, SEEK_END);
        if (end >= 0) return static_cast<u64>(end);
    } else {
        struct stat status {};
        if (::fstat(_fd.get(), &status) == 0) return static_cast<u64>(status.st_size);
    }
    Error::setSystem(errno);
    return 0;
}

u64 FileObj::setElementCount(u64 count) {
    if (!_writable) {
        Error::setSystem(EBADF);
    } else if (count > MAX_LENGTH) {
        Error::setSystem(EFBIG);
    } else if (count == 0 && isEmpty()) {
        _position = 0;  // a file cut to nothing is taken for one being replaced, and written out when closed
        return 0;
    } else if (retried([&] { return ::ftruncate(_fd.get(), static_cast<off_t>(count)); }) != 0) {
        Error::setSystem(errno);
    } else {
        _position = std::min(_position, count);
        return count;
    }
    return elementCount();
}

bool FileObj::flush() {
    if (retried([this] { return ::fsync(_fd.get()); }) == 0) return true;
    Error::setSystem(errno);
    return false;
}

Ref<File> failed(int errnoValue) {
    Error::setSystem(errnoValue);
    return {};
}

bool knownFlags(u32 flags) {
    return flags == File::readExisting || flags == File::readWriteExisting || flags == File::readAny ||
           flags == File::writeOrCreate;
}

}  // namespace

Ref<File> File::open(Ref<String> path, u32 flags) {
    if (!path) {
        Error::set(Error::nullArgument);
        return {};
    }
    if (!knownFlags(flags) || path->view().find(u'\0') != std::u16string_view::npos) {
        Error::set(Error::wrongArgument);
        return {};
    }
    const bool writable = (flags & openWrite) != 0;
    // Not blocking, so that a pipe without a writer is refused below instead of waited for.
    const int systemFlags = (writable ? O_RDWR : O_RDONLY) | ((flags & openCreate) != 0 ? O_CREAT : 0) |
                            O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const std::string name = path->toUtf8();
    Descriptor fd(retried([&] { return ::open(name.c_str(), systemFlags, 0666); }));
    struct stat status {};
    if (fd.get() < 0 || ::fstat(fd.get(), &status) != 0) return failed(errno);
    if (S_ISDIR(status.st_mode)) return failed(EISDIR);
    const bool isDevice = S_ISBLK(status.st_mode);
    if (!isDevice && !S_ISREG(status.st_mode)) return failed(ENOTSUP);
    if (writable && retried([&] { return ::flock(fd.get(), LOCK_EX | LOCK_NB); }) != 0) return failed(errno);
    return makeRef<FileObj>(std::move(fd), writable, isDevice);
}

}  // namespace Services::Filesystem::Client
