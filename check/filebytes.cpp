#include "check/filebytes.h"

namespace Libraries::Files::Hive {

FileBytes::FileBytes(Ref<Interfaces::Stripe> stripe)
    : _stripe(std::move(stripe)),
      _size(_stripe->elementCount()),
      _pages(Platform::heapBuffer(u64{PAGE} * SLOTS)),
      _numbers(SLOTS, ~u64{0}) {
    if (!_pages) Platform::outOfMemory();
}

const u8* FileBytes::page(u64 number) {
    const std::size_t slot = number % SLOTS;
    u8* const bytes = &_pages[slot * PAGE];
    if (_numbers[slot] == number) return bytes;
    const u64 position = number * PAGE;
    const u64 there = position < _size ? std::min<u64>(PAGE, _size - position) : 0;
    u64 got = 0;
    if (there && _stripe->seek(position) == position) got = _stripe->read(Interfaces::ShPtr(bytes), there);
    if (got < there) _cameShort = true;
    Platform::Mem::fill8(bytes + got, 0, PAGE - got);
    _numbers[slot] = number;
    return bytes;
}

RecordView FileBytes::view(u64 position, u64 length) {
    const u64 inPage = position % PAGE;
    if (length <= PAGE - inPage) return RecordView(page(position / PAGE) + inPage, length);
    _joined.resize(toSize(length));
    for (u64 done = 0; done < length;) {
        const u64 from = (position + done) % PAGE;
        const u64 count = std::min<u64>(length - done, PAGE - from);
        Platform::Mem::copy(_joined.data() + done, page((position + done) / PAGE) + from, count);
        done += count;
    }
    return RecordView(_joined.data(), length);
}

}  // namespace Libraries::Files::Hive
