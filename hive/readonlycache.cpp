#include "hive/readonlycache.h"

#include "hive/hivelog.h"
#include "platform/system/error.h"

namespace Libraries::Files::Hive {

using Platform::Error;
using Platform::log;

namespace {
constexpr u64 firstCapacity = 1048576;
constexpr u64 leastCapacity = 131072;  // holds one window: nothing wanted, 64 KiB before and behind
constexpr u64 readAround = 65536;
}  // namespace

ReadOnlyCache::ReadOnlyCache(Platform::Ref<Interfaces::Stripe> stripe)
    : _stripe(std::move(stripe)),
      _capacity(std::max(firstCapacity, leastCapacity)),
      _readBehind(readAround),
      _readAhead(readAround),
      _fileSize(_stripe->elementCount()) {
    if (_stripe->elementSize() != 1)
        log(4, Channel::hive, "Stripe object with elementsize != 1 not supported");
    createBlock();
}

void ReadOnlyCache::createBlock() {
    _block = Platform::ShMem::create(_capacity);
    // The misspelling has been in the log since the first release; log filters look for it.
    if (!_block) log(4, Channel::hive, "Failed to allcoate ShMem for readonly cache with size: ", _capacity);
}

RecordView ReadOnlyCache::view(u64 place) const {
    return RecordView(_block->address() + place, _capacity - place);
}

RecordView ReadOnlyCache::get(u64 position, u64 length) {
    if (!_block || position > _fileSize || length > _fileSize - position) return {};
    // Each range but those at the file's ends spans at least 128 KiB, so there are few of them.
    for (const Range& range : _ranges)
        if (range.position <= position && position - range.position <= range.length &&
            length <= range.length - (position - range.position))
            return view(range.place + (position - range.position));

    const u64 start = position > _readBehind ? position - _readBehind : 0;
    const u64 end = _fileSize - (position + length) > _readAhead ? position + length + _readAhead : _fileSize;
    const u64 count = end - start;
    u64 place = 0;
    if (!makeRoom(count, place)) return {};
    if (_stripe->seek(start) != start) {
        log(3, Channel::hive, "Failed to seek to ", start);
        return {};
    }
    Error::set(0);
    if (_stripe->read(Platform::ShPtr(_block, place), count) != count) {
        log(3, Channel::hive, "Failed to read data, count=", count, " : ", Error::get());
        return {};
    }
    _ranges.push_back({start, count, place});
    _used = place + count;
    return view(place + (position - start));
}

bool ReadOnlyCache::makeRoom(u64 bytes, u64& place) {
    place = 0;
    if (bytes > _capacity) {
        _capacity = 2 * bytes;
        createBlock();
    } else if (_used + bytes < _capacity) {
        place = _used;
        return true;
    }
    _ranges.clear();
    _used = 0;
    return bool(_block);
}

}  // namespace Libraries::Files::Hive
