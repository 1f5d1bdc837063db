#include "tool/atomicfile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "tool/errortext.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

constexpr std::string_view COPY_MARK = ".hivectl-";
constexpr std::string_view COPY_NUMBER = "XXXXXX";  // as mkostemp fills it in
constexpr int MAX_TRIES = 100;

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

/// Has the signals that remove the temporary file wait, so that none comes between its making and its noting.
class SignalsHeld {
 public:
    SignalsHeld() {
        sigset_t signals;
        ::sigemptyset(&signals);
        for (const int number : deadlySignals) ::sigaddset(&signals, number);
        ::sigprocmask(SIG_BLOCK, &signals, &_before);
    }
    ~SignalsHeld() { ::sigprocmask(SIG_SETMASK, &_before, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
    sigset_t _before;
};

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

/// The path with symbolic links resolved, as far as that can be done.
std::string resolved(const std::string& path) {
    std::error_code failed;
    const std::filesystem::path target = std::filesystem::weakly_canonical(path, failed);
    return failed ? path : target.string();
}

/// Whether a file of this name is a temporary one of `target`; both without their directory.
bool isCopyName(std::string_view name, std::string_view target) {
    if (name.size() != target.size() + COPY_MARK.size() + COPY_NUMBER.size() || !name.starts_with(target) ||
        !name.substr(target.size()).starts_with(COPY_MARK))
        return false;
    name.remove_prefix(target.size() + COPY_MARK.size());
    return std::ranges::all_of(name, [](unsigned char c) { return std::isalnum(c) != 0; });
}

/// Removes a temporary file whose maker lives no more: nobody has it locked. While we have the lock the name
/// stays this file's, since whoever else would take it away needs the lock as well.
void removeUnlessLocked(const char* path) {
    constexpr int flags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    int fd = ::open(path, O_RDWR | flags);  // network file systems want it writable for the lock
    if (fd < 0) fd = ::open(path, O_RDONLY | flags);
    if (fd < 0) return;
    struct stat opened {};
    struct stat named {};
    if (::fstat(fd, &opened) == 0 && S_ISREG(opened.st_mode) && ::flock(fd, LOCK_EX | LOCK_NB) == 0 &&
        ::lstat(path, &named) == 0 && isSame(opened, named))
        ::unlink(path);
    ::close(fd);
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
    _target = resolved(path);
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

void AtomicFile::removeStale(const std::string& path) {
    const std::filesystem::path target = resolved(path);
    std::error_code failed;
    for (std::filesystem::directory_iterator files(directoryOf(target.string()), failed), end;
         !failed && files != end; files.increment(failed))
        if (isCopyName(files->path().filename().string(), target.filename().string()))
            removeUnlessLocked(files->path().c_str());
}

void AtomicFile::openTemporary(bool keepContents) {
    removeStale(_target);
    for (int tries = 1; !makeLocked(); ++tries) {
        discard();
        if (tries == MAX_TRIES) fail("cannot keep a temporary file for", EBUSY);
    }
    struct stat old {};
    if (::stat(_target.c_str(), &old) == 0)
        takeOldAttributes(old);
    else
        ::fchmod(_fd, newFileMode());
    _stripe = makeRef<FdStripe>(_fd, keepContents ? copyOldContents() : 0);
}

/// Makes the temporary file. Until it is locked another run may take it for one that was left behind; false
/// when that has happened.
bool AtomicFile::makeLocked() {
    std::string name = _target + std::string(COPY_MARK) + std::string(COPY_NUMBER);
    {
        const SignalsHeld held;
        _fd = ::mkostemp(name.data(), O_CLOEXEC);
        if (_fd < 0) fail("cannot make a temporary file in " + visible(directoryOf(_target)) + " for", errno);
        _temporary = name;
        removeOnSignal(_temporary.c_str());
    }
    const Ref<String> path = String::fromUtf8(name);
    if (path->toUtf8() == name) {
        _locked = File::open(path, File::readWriteExisting);
        _lockError = _locked ? 0 : Error::get();
    } else {  // nothing that a hive could be read from, but export text can be written to it
        _lockError =
            Error::systemBase + static_cast<u32>(::flock(_fd, LOCK_EX | LOCK_NB) == 0 ? EILSEQ : errno);
    }
    return _lockError != Error::systemBase + EWOULDBLOCK && isThere();
}

bool AtomicFile::isThere() const {
    struct stat opened {};
    struct stat named {};
    return ::fstat(_fd, &opened) == 0 && ::lstat(_temporary.c_str(), &named) == 0 && isSame(opened, named);
}

Ref<Interfaces::Stripe> AtomicFile::store() {
    if (!_locked) fail("cannot lock a temporary file for", static_cast<int>(_lockError - Error::systemBase));
    if (!_store) _store = makeRef<WatchedStore>(_locked);
    return _store;
}

Failure AtomicFile::explained(const Failure& failure) const {
    const u32 code = _store ? _store->failure() : 0;
    if (code <= Error::systemBase || !*failure.what()) return failure;
    const std::string reason = systemErrorText(static_cast<int>(code - Error::systemBase));
    const std::string text = failure.what();
    return text.find(reason) == std::string::npos ? Failure(text + "; " + reason, failure.exitCode())
                                                  : failure;
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
    _store.reset();
    _locked.reset();
    const int directory = ::open(directoryOf(_target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) return;
    ::fsync(directory);
    ::close(directory);
}

/// The name goes before the lock does.
void AtomicFile::discard() {
    if (!_temporary.empty()) {
        if (_fd < 0 || isThere()) ::unlink(_temporary.c_str());
        removeOnSignal(nullptr);
        _temporary.clear();
    }
    _store.reset();
    _locked.reset();
    if (_fd >= 0) ::close(std::exchange(_fd, -1));
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
