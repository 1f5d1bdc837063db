#include "tool/context.h"

#include <cerrno>

#include "platform/filesys/file.h"
#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/keypath.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

std::string openFailure(const HiveOptions& options, u32 code) {
    const std::string file = visible(options.path);
    switch (code) {
        case Error::systemBase + ENOENT:
            return "no such file: " + file + " (" + hexNumber(code) + ")";
        case Error::systemBase + EACCES:
            return "no permission to open " + file + " (" + hexNumber(code) + ")";
        case Error::systemBase + EWOULDBLOCK:
            return file + " is open for writing in another program (" + hexNumber(code) + ")";
        case Error::systemBase + ENOTSUP:
            return file + " is no regular file (" + hexNumber(code) + ")";
        case ErrorCode::none:  // there is less than the header to read
            return file + " is not a hive: shorter than a hive's header";
        case ErrorCode::badHive:
            return file + " is not a hive: no hive signature, or the file was cut short " + "(" +
                   hexNumber(code) + ")";
        default:
            return "cannot open " + file + ": " + errorText(code);
    }
}

namespace {

Ref<String> hivePath(const HiveOptions& options) {
    Ref<String> path = String::fromUtf8(options.path);
    if (path->toUtf8() != options.path)
        throw Failure("cannot open " + visible(options.path) +
                      ": the file name is not UTF-8; rename the file");
    return path;
}

}  // namespace

Ref<HiveFile> openHive(const HiveOptions& options, u32 mode) {
    const Ref<String> path = hivePath(options);
    // Where names cannot be read in the code page, the readable ones beside them are still to be found.
    mode |= HiveFile::modeLinearFallback;
    if (options.unsafe) mode |= HiveFile::modeUnsafe;
    Error::set(ErrorCode::none);
    Ref<HiveFile> hive = HiveFile::open(path, mode, options.codepage);
    if (!hive) throw Failure(openFailure(options, Error::get()));
    return hive;
}

Ref<Interfaces::Stripe> openHiveFile(const HiveOptions& options) {
    using Services::Filesystem::Client::File;
    Error::set(ErrorCode::none);
    Ref<File> file = File::open(hivePath(options), File::readExisting);
    if (!file) throw Failure(openFailure(options, Error::get()));
    return file;
}

namespace {

KeyAt resolveNames(const Ref<HiveFile>& hive, const HiveOptions& options, const std::string& path,
                   const std::vector<Ref<String>>& names) {
    KeyAt at{hive->root(), u"/"};
    if (!at.key) {
        const char* const hint = options.unsafe ? "" : "; the file is damaged, --unsafe may read more of it";
        throw Failure("cannot read the root key of " + visible(options.path) + " (" +
                      hexNumber(Error::get()) + ")" + hint);
    }
    for (const Ref<String>& name : names) {
        Error::set(ErrorCode::none);
        const Ref<Key> next = at.key->key(name);
        if (!next && Error::get() != ErrorCode::noSuchKey)
            throw Failure("cannot search the subkeys of " + visible(at.path) + " in " +
                          visible(options.path) + ": " + errorText(Error::get()));
        if (!next) {
            const std::string where =
                at.path == u"/" ? "" : ": " + visible(at.path) + " has no subkey " + inQuotes(name);
            throw Failure("no such key: " + inQuotes(path) + " in " + visible(options.path) + where);
        }
        const Ref<String> stored = next->name();
        at = {next, childPath(at.path, (stored ? stored : name)->view())};
    }
    return at;
}

}  // namespace

KeyAt resolveKey(const Ref<HiveFile>& hive, const HiveOptions& options, const std::string& path) {
    return resolveNames(hive, options, path, parseKeyPath(path));
}

KeyAt resolveParent(const Ref<HiveFile>& hive, const HiveOptions& options, const std::string& path) {
    std::vector<Ref<String>> names = parseKeyPath(path);
    names.pop_back();
    return resolveNames(hive, options, path, names);
}

Ref<Value> resolveValue(const KeyAt& at, const HiveOptions& options, const std::string& name) {
    const Ref<String> wanted = name == "@" ? String::create() : String::fromUtf8(name);
    Error::set(ErrorCode::none);
    Ref<Value> value = at.key->value(wanted);
    if (value) return value;
    const std::string where = " in " + visible(at.path) + " of " + visible(options.path);
    if (Error::get() != ErrorCode::noSuchValue)
        throw Failure("cannot search the values" + where + ": " + errorText(Error::get()));
    if (wanted->isEmpty()) throw Failure("no default value" + where + "; name one of the values");
    throw Failure("no such value: " + inQuotes(wanted) + where);
}

std::string shownValueName(const Ref<String>& name) {
    return name->isEmpty() ? "@" : inQuotes(name);
}

}  // namespace HiveCtl
