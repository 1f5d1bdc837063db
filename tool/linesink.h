#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/iochar/charprinter.h"
#include "tool/base.h"

namespace HiveCtl {

/// Takes what the library prints (log lines, reports) and hands it on line by line, as it comes. Not
/// thread-safe.
class LineSink final : public Object, public virtual Interfaces::Stream {
 public:
    using Consumer = std::function<void(std::u16string_view line)>;

    /// A printer that feeds `consumer`. The consumer must not throw: the library calls it.
    static Ref<CharPrinter> printer(Consumer consumer);

    explicit LineSink(Consumer consumer) : _consumer(std::move(consumer)) {}

    u32 elementSize() override { return sizeof(char16_t); }
    u64 seek(u64) override { return 0; }
    u64 pos() override { return 0; }
    u64 read(Interfaces::ShPtr, u64, u32) override { return 0; }
    u64 write(Interfaces::ShPtr source, u64 count, u32 unused = 0) override;
    u64 trim(u64, u32) override { return 0; }
    u64 clear(u64, u32) override { return 0; }

 private:
    Consumer _consumer;
    std::u16string _line;
};

}  // namespace HiveCtl
