#include "platform/iochar/charwriter.h"

#include <algorithm>

#include "platform/system/error.h"
#include "platform/system/utf8.h"

namespace Platform {

namespace {

constexpr u32 DEFAULT_UNITS = 8192;
constexpr u32 MIN_UNITS = 2;  // one may be held back, see flush

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
    if (!_good || _buffer.empty()) return;
    const CharBuffer bytes = toBytes(_buffer);
    _stream->write(ShPtr::fromConst(bytes.data()), bytes.size());
}

void CharWriter::writeThrough(std::u16string_view units) {
    while (_good && !units.empty()) {
        const std::size_t count = std::min(units.size(), _capacity - _buffer.size());
        _buffer.append(units.substr(0, count));
        units.remove_prefix(count);
        if (_buffer.size() == _capacity) flush();
    }
}

bool CharWriter::flush() {
    if (!_good || _buffer.empty()) return _good;
    if (_stream->elementSize() == sizeof(char16_t)) {
        _good = _stream->write(ShPtr::fromConst(_buffer.data()), _buffer.size()) == _buffer.size();
        _buffer.clear();
        return _good;
    }
    // The other half of a pair may still come: a high surrogate at the end waits for it.
    const std::size_t held = isHighSurrogate(_buffer.back()) ? 1 : 0;
    const CharBuffer bytes = toBytes(std::u16string_view(_buffer).substr(0, _buffer.size() - held));
    if (!bytes.empty()) _good = _stream->write(ShPtr::fromConst(bytes.data()), bytes.size()) == bytes.size();
    _buffer.erase(0, _buffer.size() - held);
    return _good;
}

}  // namespace Platform
