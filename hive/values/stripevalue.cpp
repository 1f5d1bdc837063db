#include "hive/values/stripevalue.h"

#include <algorithm>

#include "hive/errorcodes.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

namespace {

/// Value data has 32-bit lengths; a larger count is the caller's mistake.
bool fits(u64 count) {
    if (count <= UINT32_MAX) return true;
    Error::set(ErrorCode::wrongArgument);
    return false;
}

u64 notSupported() {
    Error::set(Error::notSupported);
    return 0;
}

}  // namespace

StripeValue::StripeValue(Ref<ValueObj> value) : _value(std::move(value)) {}

u64 StripeValue::seek(u64 position) {
    return _position = static_cast<u32>(std::min<u64>(position, _value->size()));
}

u64 StripeValue::read(ShPtr destination, u64 count, u32) {
    if (!fits(count)) return 0;
    const u32 done = _value->read(std::move(destination), _position, static_cast<u32>(count));
    _position += done;
    return done;
}

u64 StripeValue::write(ShPtr source, u64 count, u32) {
    if (!fits(count)) return 0;
    const u32 done = _value->write(std::move(source), _position, static_cast<u32>(count));
    _position += done;
    return done;
}

u64 StripeValue::trim(u64, u32) {
    return notSupported();
}

u64 StripeValue::clear(u64, u32) {
    return notSupported();
}

u64 StripeValue::elementCount() {
    return _value->size();
}

u64 StripeValue::maxElementCount() {
    return _value->canResize() ? ValueObj::MAX_VALUE_DATA_SIZE : elementCount();
}

u64 StripeValue::minElementCount() {
    return _value->canResize() ? 0 : elementCount();
}

u64 StripeValue::setElementCount(u64 count) {
    if (!fits(count)) return 0;
    return _value->canResize() ? _value->size(static_cast<u32>(count)) : elementCount();
}

ShHandle StripeValue::map(Ref<SharedMemory> memory) {
    return ShHandle{std::move(memory), nullptr, 0};
}

void StripeValue::unmap(ShHandle) {}

}  // namespace Libraries::Files::Hive
