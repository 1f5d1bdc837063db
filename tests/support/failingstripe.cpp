#include "tests/support/failingstripe.h"

#include "platform/system/error.h"

namespace HiveTest {

using Interfaces::ShPtr;
using Platform::Error;

void FailingStripe::failAt(u64 index, u32 kinds, bool persistent) {
    _failIndex = index;
    _kinds = kinds;
    _persistent = persistent;
    _operations = _failures = 0;
}

bool FailingStripe::fails(u32 kinds) {
    if (!(_kinds & kinds)) return false;
    const u64 index = _operations++;
    if (index != _failIndex && !(_persistent && index > _failIndex)) return false;
    ++_failures;
    return true;
}

u64 FailingStripe::seek(u64 position) {
    if (!fails(seeks)) return _store->seek(position);
    Error::set(errorCode);
    return ~u64{0};
}

u64 FailingStripe::read(ShPtr destination, u64 count, u32 unused) {
    if (!fails(reads | shortReads)) return _store->read(destination, count, unused);
    const u64 moved = _kinds & shortReads ? _store->read(destination, count / 2, unused) : 0;
    Error::set(errorCode);
    return moved;
}

u64 FailingStripe::write(ShPtr source, u64 count, u32 unused) {
    if (!fails(writes | shortWrites)) return _store->write(source, count, unused);
    const u64 moved = _kinds & shortWrites ? _store->write(source, count / 2, unused) : 0;
    Error::set(errorCode);
    return moved;
}

u64 FailingStripe::setElementCount(u64 count) {
    if (!fails(resizes)) return _store->setElementCount(count);
    Error::set(errorCode);
    return _store->elementCount();
}

}  // namespace HiveTest
