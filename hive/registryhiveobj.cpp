#include "hive/registryhiveobj.h"

#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"
#include "hive/pathnotation.h"
#include "hive/security/securitydescriptoriteratorobj.h"

namespace Libraries::Files::Hive {

RegistryHiveObj::RegistryHiveObj(Ref<Interfaces::Stripe> file, u32 mode, HiveCodepage codepage,
                                 Ref<Services::Filesystem::Client::FSItem> item)
    : _file(std::move(file)),
      _item(std::move(item)),
      _mode(mode),
      _cache(INITIAL_CACHE_SIZE),
      _codepage(codepage) {
    open();
}

RegistryHiveObj::~RegistryHiveObj() {
    if (_mon) flush();
}

void RegistryHiveObj::open() {
    u32 cacheSize = INITIAL_CACHE_SIZE;
    if (_mode & modeUnsafe) {
        if (!(_mode & modeReadOnly)) {
            Error::set(ErrorCode::wrongArgument);
            return;
        }
        cacheSize = HIVE_HEADER_SIZE;
        _unsafeCache = makeRef<ReadOnlyCache>(_file);
    }
    _mon = Mon::create();
    if (!_cache.allocate(cacheSize)) {
        log(4, Channel::hive, "Failed to allocate initial buffer size: ", cacheSize);
        return;
    }
    if (!_cache.map()) {
        log(4, Channel::hive, "Failed to map buffer");
        return;
    }
    hive_header header;
    if (!readHeader(header) || !checkHeader(header)) return;
    _rootCell = L32ToHost(header.rootCell);
    _header = header;
    _valid = true;
}

bool RegistryHiveObj::readHeader(hive_header& header) {
    if (_file->seek(0) != 0 || _file->read(ShPtr(_cache.at(0)), HIVE_HEADER_SIZE) != HIVE_HEADER_SIZE) {
        log(4, Channel::hive, "Failed to read file: ", Error::get());
        return false;
    }
    header = _cache.view(0).as<hive_header>();
    return true;
}

bool RegistryHiveObj::checkHeader(const hive_header& header) {
    if (std::memcmp(header.signature, hive_header::SIGNATURE, sizeof(header.signature)) != 0) {
        log(4, Channel::hive, "Wrong signature: ",
            std::string_view(reinterpret_cast<const char*>(header.signature), sizeof(header.signature)));
        Error::set(ErrorCode::badHive);
        return false;
    }
    const u64 needed = u64{L32ToHost(header.hbinsSize)} + HIVE_HEADER_SIZE;
    const u64 present = _file->elementCount();
    if (needed > UINT32_MAX || needed > present) {
        log(4, Channel::hive, "File too small");
        log(1, Channel::hive, "minimum size: ", needed);
        log(1, Channel::hive, "file size:    ", present);
        Error::set(ErrorCode::badHive);
        return false;
    }
    const u32 major = L32ToHost(header.majorVersion);
    const u32 minor = L32ToHost(header.minorVersion);
    if (major != 1 || (minor != 3 && minor != 5)) {
        log(4, Channel::hive, "Unsupported registry version");
        log(1, Channel::hive, "major=", major, " minor=", minor);
        Error::set(ErrorCode::unsupported);
        return false;
    }
    const u32 checksum = calculateHeaderChecksum(&header);
    if (checksum != L32ToHost(header.checksum)) {
        log(4, Channel::hive, "Checksum wrong");
        log(1, Channel::hive, "from header:", L32ToHost(header.checksum));
        log(1, Channel::hive, "calculated: ", checksum);
        Error::set(ErrorCode::unsupported);
        return false;
    }
    return true;
}

u32 RegistryHiveObj::calculateHeaderChecksum(const hive_header* header) {
    const RecordView words(reinterpret_cast<const u8*>(header), offsetof(hive_header, checksum));
    u32 checksum = 0;
    for (u32 offset = 0; offset < offsetof(hive_header, checksum); offset += sizeof(u32))
        checksum ^= words.u32At(offset);
    return checksum;
}

Ref<Key> RegistryHiveObj::root() {
    return rootObj();
}

Ref<KeyObj> RegistryHiveObj::rootObj() {
    if (!_valid) {
        Error::set(ErrorCode::badHive);
        return nullptr;
    }
    const MonGuard guard(*_mon);
    if (!_cache.mapped()) {
        Error::set(ErrorCode::badHive);
        return nullptr;
    }
    if (Ref<KeyObj> live = _root.lock()) return live;
    auto root = makeRef<KeyObj>(Ref<RegistryHiveObj>(this), _rootCell, nullptr);
    if (!root->valid()) {
        log(3, Channel::hive, "Root key not valid");
        _valid = false;
        Error::set(ErrorCode::badHive);
        return nullptr;
    }
    _root = WeakRef<KeyObj>(root);
    return root;
}

Ref<Key> RegistryHiveObj::path(Ref<String> path) {
    if (!path) {
        Error::set(ErrorCode::nullArgument);
        return nullptr;
    }
    const Ref<KeyObj> root = rootObj();
    PathNames names(path);
    return root ? root->findPath(names) : nullptr;
}

Ref<SecurityDescriptorIterator> RegistryHiveObj::securityDescriptorIterator() {
    const Ref<KeyObj> key = rootObj();
    if (!key) return nullptr;
    return makeRef<SecurityDescriptorIteratorObj>(Ref<RegistryHiveObj>(this), key->sdOffset());
}

HiveHeader RegistryHiveObj::header() const {
    const MonGuard guard(*_mon);
    HiveHeader result;
    result.primarySequence = L32ToHost(_header.primarySequence);
    result.secondarySequence = L32ToHost(_header.secondarySequence);
    u64 stamp;
    std::memcpy(&stamp, _header.lastWritten, sizeof(stamp));
    result.lastWritten = L64ToHost(stamp);
    result.majorVersion = versionMajor();
    result.minorVersion = versionMinor();
    result.rootCell = _rootCell;
    result.hbinsSize = hbinsSize();
    Utf16Buffer name;
    for (u32 i = 0; i + 1 < sizeof(_header.fileName); i += 2) {
        const auto unit = static_cast<char16_t>(_header.fileName[i] | _header.fileName[i + 1] << 8);
        if (!unit) break;
        name += unit;
    }
    result.fileName = String::create(name);
    return result;
}

bool RegistryHiveObj::refuseUnsafe(const char* operation) const {
    if (!(_mode & modeUnsafe)) return false;
    log(3, Channel::hive, "Call of ", operation, " in unsafe mode");
    return true;
}

bool RegistryHiveObj::refuseChangeHere(const char* operation) const {
    if (readonly()) {
        Error::set(ErrorCode::readOnly);
        return true;
    }
    return refuseUnsafe(operation);
}

}  // namespace Libraries::Files::Hive
