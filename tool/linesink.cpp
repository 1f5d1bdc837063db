#include "tool/linesink.h"

#include <cstring>

namespace HiveCtl {

Ref<CharPrinter> LineSink::printer(Consumer consumer) {
    // Reports are not flushed by who makes them: the least buffer there is makes them come while they are
    // news.
    constexpr u32 BUFFER_UNITS = 2;
    return CharPrinter::create(
        CharWriter::create(makeRef<LineSink>(std::move(consumer)), BUFFER_UNITS, CharWriter::LineEnd::lf));
}

u64 LineSink::write(Interfaces::ShPtr source, u64 count, u32) {
    for (u64 i = 0; i < count; ++i) {
        char16_t unit;
        std::memcpy(&unit, source.address() + i * sizeof(unit), sizeof(unit));
        if (unit != u'\n') {
            _line += unit;
            continue;
        }
        _consumer(_line);
        _line.clear();
    }
    return count;
}

}  // namespace HiveCtl
