#include "tests/support/teststripe.h"

#include <algorithm>
#include <cerrno>

#include "platform/system/error.h"

namespace HiveTest {

using Interfaces::ShPtr;
using Platform::Error;

u64 TestStripe::seek(u64 position) {
    ++counters.seeks;
    return _position = std::min(position, elementCount());
}

u64 TestStripe::read(ShPtr destination, u64 count, u32) {
    ++counters.reads;
    transfer();
    const u64 left = elementCount() - std::min(_position, elementCount());  // it may have shrunk meanwhile
    const u64 taken = std::min({count, left, mostAtOnce});
    load(_position * _elementSize, destination.address(), taken * _elementSize);
    counters.bytesRead += taken * _elementSize;
    _position += taken;
    return taken;
}

u64 TestStripe::write(ShPtr source, u64 count, u32) {
    ++counters.writes;
    transfer();
    const u64 most = std::max(_maxCount, elementCount());
    const u64 given = std::min(count, most - std::min(_position, most));
    if (given < count) Error::setSystem(ENOSPC);
    if (given && _position + given > elementCount()) resize((_position + given) * _elementSize);
    store(_position * _elementSize, source.address(), given * _elementSize);
    counters.bytesWritten += given * _elementSize;
    if (written) written->emplace_back(_position * _elementSize, given * _elementSize);
    _position += given;
    return given;
}

u64 TestStripe::trim(u64, u32) {
    Error::set(Error::notSupported);
    return 0;
}

u64 TestStripe::clear(u64, u32) {
    Error::set(Error::notSupported);
    return 0;
}

u64 TestStripe::setElementCount(u64 count) {
    ++counters.resizes;
    if (count > _maxCount)
        Error::setSystem(ENOSPC);
    else
        resize(count * _elementSize);
    _position = std::min(_position, elementCount());
    return elementCount();
}

}  // namespace HiveTest
