#pragma once

#include "platform/interfaces/stripe.h"
#include "platform/text/encoding.h"

namespace Libraries::Files::Text {

/// A stream of UTF-16 units (element size 2) that reads text from a byte store, from its start on. A
/// byte-order mark (UTF-8, UTF-16LE, UTF-16BE) overrides the encoding given; without one, well-formed UTF-8
/// is taken as such when the text cannot be UTF-16LE. Writing and moving are not supported (0x10002).
class PLATFORM_API Reader : public virtual Interfaces::Stream {
 public:
    /// Null with the error code set: 0x8445 null stripe, 0x10002 a stripe whose elements are not bytes or an
    /// unknown encoding. `ansi` as in `Writer::create`.
    static Platform::Ref<Reader> create(Platform::Ref<Interfaces::Stripe> stripe, Encoding encoding,
                                        const void* ansi);
};

}  // namespace Libraries::Files::Text
