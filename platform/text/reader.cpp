#include "platform/text/reader.h"

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

constexpr u64 BLOCK_BYTES = 65536;

struct Mark {
    std::string_view bytes;
    Encoding encoding;
};
constexpr Mark MARKS[] = {
    {"\xEF\xBB\xBF", Encoding::utf8}, {"\xFF\xFE", Encoding::utf16Le}, {"\xFE\xFF", Encoding::utf16Be}};

/// Whether a text that begins so, without a mark, is UTF-8 though it was announced as UTF-16LE. The texts
/// read here contain ASCII characters (line ends at the least), which in UTF-16LE have a NUL as their high
/// byte: a text without any NUL is not UTF-16LE, and it is UTF-8 when it is well-formed as such. A sequence
/// cut at the block's end counts as well-formed.
bool looksLikeUtf8(std::string_view head) {
    if (head.empty() || head.find('\0') != std::string_view::npos) return false;
    Utf8Decoder decoder;
    Utf16Buffer ignored;
    decoder.feed(head, ignored);
    return decoder.wellFormed();
}

/// Decodes one block at a time, so that memory stays bounded whatever the text's length.
class ReaderObj final : public Object, public Reader {
 public:
    ReaderObj(Ref<Stripe> stripe, Encoding encoding) : _stripe(std::move(stripe)), _encoding(encoding) {}

    u32 elementSize() override { return sizeof(char16_t); }
    u64 pos() override { return _delivered; }
    u64 seek(u64) override {
        notSupported();
        return _delivered;
    }
    u64 read(ShPtr destination, u64 count, u32) override;
    u64 write(ShPtr, u64, u32) override { return notSupported(); }
    u64 trim(u64, u32) override { return notSupported(); }
    u64 clear(u64, u32) override { return notSupported(); }

 private:
    static u64 notSupported() {
        Error::set(Error::notSupported);
        return 0;
    }
    bool fillUnits();
    void fillBytes();
    void begin();
    void decode();
    void convert();
    void decodeUtf16();

    const Ref<Stripe> _stripe;
    Encoding _encoding;
    bool _begun = false;
    bool _ended = false;   // the stripe has no more
    u32 _error = 0;        // why it has no more, 0 for the end of the text
    u64 _delivered = 0;    // units handed out
    u64 _unitCount = 0;    // units decoded
    u64 _unitsPos = 0;     // the first of them not handed out
    bool _asItIs = false;  // they stand in _bytes, else in _units
    Utf16Buffer _units;
    CharBuffer _bytes;  // the block being decoded
    Utf8Decoder _utf8;
};

u64 ReaderObj::read(ShPtr destination, u64 count, u32) {
    u8* const to = destination.address();
    if (!to && count != 0) {
        Error::set(Error::nullArgument);
        return 0;
    }
    u64 done = 0;
    while (done < count) {
        if (_unitsPos == _unitCount && !fillUnits()) {
            if (_error != 0) Error::set(_error);
            break;
        }
        const u64 now = std::min<u64>(count - done, _unitCount - _unitsPos);
        const auto* const from = _asItIs ? _bytes.data() : reinterpret_cast<const char*>(_units.data());
        Mem::copy(to + done * sizeof(char16_t), from + _unitsPos * sizeof(char16_t), now * sizeof(char16_t));
        _unitsPos += now;
        done += now;
    }
    _delivered += done;
    return done;
}

/// Decodes the next block that holds any units. False at the end of the text or of what can be read.
bool ReaderObj::fillUnits() {
    _unitsPos = _unitCount = 0;
    while (_unitCount == 0 && !_ended) {
        if (!_begun) _stripe->seek(0);
        fillBytes();
        if (!_begun) begin();
        decode();
    }
    return _unitCount != 0;
}

/// Takes the next block. Only the last one is not full, so that no unit of UTF-16 lies across a border.
void ReaderObj::fillBytes() {
    u64 have = 0;
    _bytes.resize(BLOCK_BYTES);
    // Only the error code tells a failure from the end; it is the caller's once the text handed out ends
    // there.
    const u32 before = Error::get();
    Error::set(0);
    while (have < BLOCK_BYTES && !_ended) {
        const u64 count = _stripe->read(ShPtr(_bytes.data() + have), BLOCK_BYTES - have);
        _error = Error::get();
        _ended = count == 0 || _error != 0;
        have += std::min(count, BLOCK_BYTES - have);
    }
    Error::set(before);
    _bytes.resize(toSize(have));
}

/// Settles the encoding by the first block.
void ReaderObj::begin() {
    _begun = true;
    for (const Mark& mark : MARKS) {
        if (!_bytes.starts_with(mark.bytes)) continue;
        _encoding = mark.encoding;
        _bytes.erase(0, mark.bytes.size());
        return;
    }
    if (_encoding == Encoding::utf16Le && looksLikeUtf8(_bytes)) _encoding = Encoding::utf8;
}

/// Replaces the units by those of the block, which are at hand where they stand there as they are.
void ReaderObj::decode() {
    _asItIs = _encoding == Encoding::utf16Le && hostIsLittleEndian;
    if (!_asItIs) convert();
    _unitCount = _asItIs ? _bytes.size() / 2 : _units.size();
}

void ReaderObj::convert() {
    const bool isUtf16 = _encoding != Encoding::utf8 && _encoding != Encoding::ansi;
    if (!isUtf16) _units.clear();
    if (_encoding == Encoding::utf8) {
        _utf8.feed(_bytes, _units);
        if (_ended && _error == 0) _utf8.finish(_units);
    } else if (_encoding == Encoding::ansi) {
        for (const char byte : _bytes) _units.push_back(static_cast<u8>(byte));
    } else {
        decodeUtf16();
    }
}

/// A last byte without its other half is dropped.
void ReaderObj::decodeUtf16() {
    _units.resize(_bytes.size() / 2);
    Mem::copy(_units.data(), _bytes.data(), _units.size() * sizeof(char16_t));
    if ((_encoding == Encoding::utf16Le) == hostIsLittleEndian) return;
    for (char16_t& unit : _units) unit = swap16(unit);
}

}  // namespace

Ref<Reader> Reader::create(Ref<Stripe> stripe, Encoding encoding, const void* ansi) {
    if (!stripe) {
        Error::set(Error::nullArgument);
        return {};
    }
    if (stripe->elementSize() != 1 || encoding > Encoding::utf16Be || ansi) {
        Error::set(Error::notSupported);
        return {};
    }
    return makeRef<ReaderObj>(std::move(stripe), encoding);
}

}  // namespace Libraries::Files::Text
