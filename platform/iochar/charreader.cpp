#include "platform/iochar/charreader.h"

#include <algorithm>

#include "platform/system/error.h"

namespace Platform {

namespace {
constexpr u32 DEFAULT_UNITS = 8192;
constexpr u32 MAX_UNITS = 1 << 20;  // more saves no calls worth mentioning
}  // namespace

Ref<CharReader> CharReader::create(Ref<Interfaces::Stream> stream, u32 bufferUnits) {
    if (!stream) {
        Error::set(Error::nullArgument);
        return {};
    }
    if (stream->elementSize() != sizeof(char16_t)) {
        Error::set(Error::notSupported);
        return {};
    }
    return makeRef<CharReader>(std::move(stream), bufferUnits);
}

CharReader::CharReader(Ref<Interfaces::Stream> stream, u32 bufferUnits)
    : _stream(std::move(stream)), _capacity(bufferUnits ? std::min(bufferUnits, MAX_UNITS) : DEFAULT_UNITS) {}

bool CharReader::fill() {
    _position = 0;
    if (_failed) {
        _buffer.clear();
        return false;
    }
    _buffer.resize(_capacity);
    // Only the error code tells a failure from the end.
    const u32 before = Error::get();
    Error::set(0);
    const u64 count = _stream->read(ShPtr(_buffer.data()), _capacity);
    _failed = Error::get() != 0;  // what came before the failure is still handed out
    if (!_failed) Error::set(before);
    _buffer.resize(toSize(std::min<u64>(count, _capacity)));
    return !_buffer.empty();
}

}  // namespace Platform
