#include "platform/iochar/charwriter.h"

#include <algorithm>

#include "platform/system/error.h"
#include "platform/system/utf8.h"

namespace Platform {

namespace {

constexpr u32 DEFAULT_UNITS = 8192;
constexpr u32 MIN_UNITS = 2;  // one may be held back, see flush
constexpr std::size_t FIRST_UNITS = 256;

CharBuffer toBytes(std::u16string_view units) {
    CharBuffer bytes;
    bytes.reserve(units.size());
    Utf8Encoder encoder;
    encoder.feed(units, bytes);
    encoder.finish(bytes);
    return bytes;
}

}  // namespace

Ref<CharWriter> CharWriter::create(Ref<Interfaces::Stream> stream, u32 bufferUnits, LineEnd lineEnd) {
    if (!stream) {
        Error::set(Error::nullArgument);
        return {};
    }
    const u32 size = stream->elementSize();
    if (size != 1 && size != sizeof(char16_t)) {
        Error::set(Error::notSupported);
        return {};
    }
    return makeRef<CharWriter>(std::move(stream), bufferUnits, lineEnd);
}

CharWriter::CharWriter(Ref<Interfaces::Stream> stream, u32 bufferUnits, LineEnd lineEnd)
    : _stream(std::move(stream)),
      _capacity(bufferUnits ? std::max(bufferUnits, MIN_UNITS) : DEFAULT_UNITS),
      _lineEnd(lineEnd) {}

CharWriter::~CharWriter() {
    flush();
    // A high surrogate still held back has stayed alone.
    if (!_good || _used == 0) return;
    const CharBuffer bytes = toBytes(buffered());
    _stream->write(ShPtr::fromConst(bytes.data()), bytes.size());
}

void CharWriter::writeThrough(std::u16string_view units) {
    while (_good && !units.empty()) {
        makeRoom(units.size());
        const std::size_t count = std::min(units.size(), _room.size() - _used);
        units.copy(_room.data() + _used, count);
        _used += count;
        units.remove_prefix(count);
        if (_used == _capacity) flush();
    }
}

/// Makes the buffer longer, up to its capacity, for `wanted` units more.
void CharWriter::makeRoom(std::size_t wanted) {
    if (_room.size() == _capacity || wanted < _room.size() - _used) return;
    const std::size_t size = std::max({_used + wanted + 1, 2 * _room.size(), FIRST_UNITS});
    _room.resize(std::min(size, _capacity));
}

/// After a failed write nothing more is taken.
void CharWriter::dropAll() {
    _room = {};
    _used = 0;
}

bool CharWriter::flush() {
    if (!_good || _used == 0) return _good;
    std::size_t held = 0;
    if (_stream->elementSize() == sizeof(char16_t)) {
        _good = _stream->write(ShPtr::fromConst(_room.data()), _used) == _used;
    } else {
        // The other half of a pair may still come: a high surrogate at the end waits for it.
        held = isHighSurrogate(_room[_used - 1]) ? 1 : 0;
        const CharBuffer bytes = toBytes(buffered().substr(0, _used - held));
        if (!bytes.empty())
            _good = _stream->write(ShPtr::fromConst(bytes.data()), bytes.size()) == bytes.size();
    }
    if (held) _room[0] = _room[_used - 1];
    _used = held;
    if (!_good) dropAll();
    return _good;
}

}  // namespace Platform
