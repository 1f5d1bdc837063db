#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

namespace {

/// Reads a byte store through a small window, forwards.
class Window {
 public:
    explicit Window(Ref<Interfaces::Stripe> stripe) : _stripe(std::move(stripe)), _buffer(BYTES) {}

    /// A view of at least `bytes` bytes at `position`; null when they are not there.
    RecordView at(u64 position, u64 bytes) {
        if (position < _start || position - _start + bytes > _filled) {
            _start = position;
            _filled = _stripe->seek(position) == position ? _stripe->read(ShPtr(_buffer.data()), BYTES) : 0;
            if (_filled < bytes) return {};
        }
        return RecordView(_buffer.data() + (position - _start), _filled - (position - _start));
    }

 private:
    static constexpr u64 BYTES = 65536;
    Ref<Interfaces::Stripe> _stripe;
    Array<u8> _buffer;
    u64 _start = 0;
    u64 _filled = 0;
};

bool addCells(Window& window, u64 position, u64 end, HiveUsage& usage) {
    while (position < end) {
        const RecordView cell = window.at(position, sizeof(hive_record));
        const u32 length = cell ? cell.absoluteSize() : 0;
        if (length < sizeof(hive_record) || length > end - position) return false;
        (cell.size() < 0 ? usage.usedCells : usage.freeCells) += 1;
        (cell.size() < 0 ? usage.usedBytes : usage.freeBytes) += length;
        position += alignedLength(length);
    }
    return true;
}

}  // namespace

bool RegistryHiveObj::usage(HiveUsage& usage) {
    usage = {};
    if (!_valid) {
        Error::set(ErrorCode::badHive);
        return false;
    }
    const MonGuard guard(*_mon);
    if (!internalFlush()) return false;
    // Past the cache, which a look at every hbin would only churn.
    Window window(_file);
    const u64 end = u64{hbinsSize()} + HIVE_HEADER_SIZE;
    for (u64 position = HIVE_HEADER_SIZE; position < end;) {
        const RecordView head = window.at(position, sizeof(hive_hbin));
        const u32 size = head ? head.u32At(offsetof(hive_hbin, size)) : 0;
        if (size == 0 || size % HBIN_READ_BUFFER_SIZE || size > end - position ||
            std::memcmp(head.as<hive_hbin>().signature, hive_hbin::SIGNATURE, 4) != 0) {
            Error::set(ErrorCode::inconsistentData);
            return false;
        }
        ++usage.hbins;
        if (!addCells(window, position + sizeof(hive_hbin), position + size, usage)) {
            Error::set(ErrorCode::inconsistentData);
            return false;
        }
        position += size;
    }
    return true;
}

}  // namespace Libraries::Files::Hive
