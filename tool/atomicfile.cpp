#include "tool/atomicfile.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

constexpr std::array deadlySignals = {SIGINT, SIGTERM, SIGHUP};

/// The temporary file of the process, for the signal handler; empty when there is none.
char pendingTemporary[PATH_MAX];

void removeAndDie(int signalNumber) {
    if (pendingTemporary[0]) ::unlink(pendingTemporary);
    ::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
}

/// Has the temporary file removed when the user breaks off; null: no more.
void removeOnSignal(const char* path) {
    pendingTemporary[0] = '\0';
    if (path && std::strlen(path) < sizeof pendingTemporary) std::strcpy(pendingTemporary, path);
    for (const int number : deadlySignals) {
        struct sigaction action {};
        if (::sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
        action.sa_handler = path ? removeAndDie : SIG_DFL;
        ::sigaction(number, &action, nullptr);
    }
}

bool isSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// The mode a new file gets.
mode_t newFileMode() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

std::string directoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

AtomicFile::AtomicFile(const std::string& path, bool keepContents) : _target(path) {
    struct stat target {};
    struct stat standardOutput {};
    const bool exists = ::stat(path.c_str(), &target) == 0;
    // "/dev/stdout" may well be a regular file, which whoever opened it goes on writing to.
    const bool isOutput =
        exists && ::fstat(STDOUT_FILENO, &standardOutput) == 0 && isSame(target, standardOutput);
    if (exists && S_ISDIR(target.st_mode)) fail("cannot write", EISDIR);
    if (isOutput || (exists && !S_ISREG(target.st_mode))) {
        openDirectly(path, isOutput);
        return;
    }
    std::error_code ignored;
    const std::filesystem::path resolved = std::filesystem::weakly_canonical(path, ignored);
    if (!ignored) _target = resolved.string();
    openTemporary(keepContents);
}

AtomicFile::~AtomicFile() {
    discard();
}

void AtomicFile::openDirectly(const std::string& path, bool isOutput) {
    _fd = isOutput ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                   : ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (_fd < 0) fail("cannot write", errno);
    _stripe = makeRef<FdStripe>(_fd);
}

void AtomicFile::openTemporary(bool keepContents) {
    std::string name = _target + ".XXXXXX";
    _fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (_fd < 0) fail("cannot make a temporary file in " + visible(directoryOf(_target)) + " for", errno);
    _temporary = name;
    removeOnSignal(_temporary.c_str());
    struct stat old {};
    if (::stat(_target.c_str(), &old) == 0)
        takeOldAttributes(old);
    else
        ::fchmod(_fd, newFileMode());
    _stripe = makeRef<FdStripe>(_fd, keepContents ? copyOldContents() : 0);
}

/// Where the owner cannot be kept (we are somebody else) the new file is ours, as with any other program.
void AtomicFile::takeOldAttributes(const struct stat& old) const {
    struct stat own {};
    const bool isOwn = ::fstat(_fd, &own) == 0 && own.st_uid == old.st_uid && own.st_gid == old.st_gid;
    const bool kept = isOwn || ::fchown(_fd, old.st_uid, old.st_gid) == 0;
    ::fchmod(_fd, old.st_mode & (kept ? 07777 : 0777));
    copyExtendedAttributes();
}

/// As far as the system lets us; labels of its own it sets itself.
void AtomicFile::copyExtendedAttributes() const {
    const ssize_t length = ::listxattr(_target.c_str(), nullptr, 0);
    if (length <= 0) return;
    std::vector<char> names(static_cast<std::size_t>(length));
    const ssize_t listed = ::listxattr(_target.c_str(), names.data(), names.size());
    for (ssize_t at = 0; at < listed;) {
        const char* const name = names.data() + at;
        at += static_cast<ssize_t>(std::strlen(name)) + 1;
        const ssize_t size = ::getxattr(_target.c_str(), name, nullptr, 0);
        if (size < 0) continue;
        std::vector<char> value(static_cast<std::size_t>(size));
        const ssize_t got = ::getxattr(_target.c_str(), name, value.data(), value.size());
        if (got >= 0)
            static_cast<void>(::fsetxattr(_fd, name, value.data(), static_cast<std::size_t>(got), 0));
    }
}

u64 AtomicFile::copyOldContents() {
    const int old = ::open(_target.c_str(), O_RDONLY | O_CLOEXEC);
    if (old < 0 && errno == ENOENT) return 0;
    if (old < 0) fail("cannot read", errno);
    std::array<u8, 65536> buffer;
    u64 copied = 0;
    int failure = 0;
    for (;;) {
        const ssize_t count = ::read(old, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) failure = errno;
        if (count <= 0) break;
        u64 done = 0;
        failure = writeAll(_fd, buffer.data(), static_cast<u64>(count), done);
        copied += done;
        if (failure) break;
    }
    ::close(old);
    if (failure) fail("cannot copy what is in", failure);
    return copied;
}

void AtomicFile::commit() {
    finish();
    if (!isAtomic()) return;
    if (::rename(_temporary.c_str(), _target.c_str()) != 0) fail("cannot replace", errno);
    syncDirectory();
}

void AtomicFile::commitNew() {
    finish();
    // Neither way replaces a file; the second serves file systems that do not know the first.
    if (::renameat2(AT_FDCWD, _temporary.c_str(), AT_FDCWD, _target.c_str(), RENAME_NOREPLACE) != 0) {
        if (errno == EEXIST || ::link(_temporary.c_str(), _target.c_str()) != 0) fail("cannot create", errno);
        ::unlink(_temporary.c_str());
    }
    syncDirectory();
}

/// Makes what was written durable, and closes the file.
void AtomicFile::finish() {
    if (isAtomic() && ::fsync(_fd) != 0) fail("cannot write", errno);
    if (::close(std::exchange(_fd, -1)) != 0) fail("cannot write", errno);
}

/// The file is in its place. That its name is not yet durable where directories cannot be synced is no
/// failure.
void AtomicFile::syncDirectory() {
    removeOnSignal(nullptr);
    _temporary.clear();
    const int directory = ::open(directoryOf(_target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) return;
    ::fsync(directory);
    ::close(directory);
}

void AtomicFile::discard() {
    if (_fd >= 0) ::close(std::exchange(_fd, -1));
    if (_temporary.empty()) return;
    ::unlink(_temporary.c_str());
    removeOnSignal(nullptr);
    _temporary.clear();
}

void AtomicFile::fail(const std::string& what, int errnoValue) {
    discard();
    throw Failure(what + " " + visible(_target) + ": " + systemErrorText(errnoValue));
}

bool isSameFile(const std::string& a, const std::string& b) {
    struct stat first {};
    struct stat second {};
    return ::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0 && isSame(first, second);
}

}  // namespace HiveCtl
