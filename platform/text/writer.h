#pragma once

#include "platform/interfaces/stripe.h"
#include "platform/text/encoding.h"

namespace Libraries::Files::Text {

/// A stream of UTF-16 units (element size 2) that writes them as text into a byte store, from the store's
/// current position on. Reading and moving are not supported (0x10002). Unbuffered: wrap it in a
/// `CharWriter`.
class PLATFORM_API Writer : public virtual Interfaces::Stream {
 public:
    /// Null with the error code set: 0x8445 null stripe, 0x10002 a stripe whose elements are not bytes or an
    /// encoding that cannot be written, or the stripe's error when the byte-order mark cannot be written.
    /// `ansi` is the code page of `Encoding::ansi`; only none (null) is supported.
    static Platform::Ref<Writer> create(Platform::Ref<Interfaces::Stripe> stripe, Encoding encoding,
                                        bool writeBom, const void* ansi);
};

}  // namespace Libraries::Files::Text
