#include "platform/text/writer.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "platform/system/byteorder.h"
#include "platform/system/error.h"
#include "platform/system/mem.h"
#include "platform/system/utf8.h"

namespace Libraries::Files::Text {

using namespace Platform;
using Interfaces::Stripe;

namespace {

constexpr u64 CHUNK_UNITS = 8192;          // what is converted at a time
constexpr u64 WHOLE_UNITS = u64{1} << 20;  // what is written at a time where nothing is to be converted
constexpr char16_t BYTE_ORDER_MARK = 0xFEFF;

class WriterObj final : public Object, public Writer {
 public:
    WriterObj(Ref<Stripe> stripe, Encoding encoding) : _stripe(std::move(stripe)), _encoding(encoding) {}
    ~WriterObj() override;

    u32 elementSize() override { return sizeof(char16_t); }
    u64 pos() override { return _written; }
    u64 seek(u64) override {
        notSupported();
        return _written;
    }
    u64 read(ShPtr, u64, u32) override { return notSupported(); }
    u64 write(ShPtr source, u64 count, u32) override;
    u64 trim(u64, u32) override { return notSupported(); }
    u64 clear(u64, u32) override { return notSupported(); }

    bool writeChunk(std::u16string_view units);

 private:
    static u64 notSupported() {
        Error::set(Error::notSupported);
        return 0;
    }
    bool encode(std::u16string_view units);
    bool writeBytes(const void* bytes, u64 count);

    const Ref<Stripe> _stripe;
    const Encoding _encoding;
    u64 _written = 0;
    Utf8Encoder _utf8;
    CharBuffer _bytes;
};

WriterObj::~WriterObj() {
    _bytes.clear();
    _utf8.finish(_bytes);
    if (!_bytes.empty()) writeBytes(_bytes.data(), _bytes.size());
}

u64 WriterObj::write(ShPtr source, u64 count, u32) {
    const u8* const from = source.address();
    if (!from && count != 0) {
        Error::set(Error::nullArgument);
        return 0;
    }
    Utf16Buffer units;
    const bool asItIs = _encoding == Encoding::utf16Le && hostIsLittleEndian;  // by far the most used
    for (u64 done = 0; done < count;) {
        const u64 now = std::min(asItIs ? WHOLE_UNITS : CHUNK_UNITS, count - done);
        const u8* const chunk = from + done * sizeof(char16_t);
        if (asItIs) {
            if (!writeBytes(chunk, now * sizeof(char16_t))) return done;
        } else {
            // Copied, since nothing promises that the source is aligned for units.
            units.resize(toSize(now));
            Mem::copy(units.data(), chunk, now * sizeof(char16_t));
            if (!writeChunk(units)) return done;
        }
        done += now;
        _written += now;
    }
    return count;
}

bool WriterObj::writeChunk(std::u16string_view units) {
    _bytes.clear();
    return encode(units) && writeBytes(_bytes.data(), _bytes.size());
}

bool WriterObj::encode(std::u16string_view units) {
    if (_encoding == Encoding::utf8) {
        _utf8.feed(units, _bytes);
        return true;
    }
    for (const char16_t unit : units) {
        const char low = static_cast<char>(unit & 0xFF);
        const char high = static_cast<char>(unit >> 8);
        if (_encoding == Encoding::utf16Be) _bytes.push_back(high);
        _bytes.push_back(low);
        if (_encoding == Encoding::utf16Le) _bytes.push_back(high);
        if (_encoding == Encoding::ansi && high != 0) {
            Error::set(Error::notSupported);
            return false;
        }
    }
    return true;
}

bool WriterObj::writeBytes(const void* bytes, u64 count) {
    return _stripe->write(ShPtr::fromConst(bytes), count) == count;
}

}  // namespace

Ref<Writer> Writer::create(Ref<Stripe> stripe, Encoding encoding, bool writeBom, const void* ansi) {
    if (!stripe) {
        Error::set(Error::nullArgument);
        return {};
    }
    if (stripe->elementSize() != 1 || encoding > Encoding::utf16Be || ansi) {
        Error::set(Error::notSupported);
        return {};
    }
    auto writer = makeRef<WriterObj>(std::move(stripe), encoding);
    // One byte a character leaves no room for a mark: there is none to write.
    if (writeBom && encoding != Encoding::ansi &&
        !writer->writeChunk(std::u16string_view(&BYTE_ORDER_MARK, 1)))
        return {};
    return writer;
}

}  // namespace Libraries::Files::Text
