#pragma once

#include <algorithm>
#include <string>
#include <utility>

#include "platform/interfaces/stripe.h"
#include "platform/system/error.h"
#include "platform/system/mem.h"

/// A byte store in memory that hands over at most `step` bytes a call and fails behind `failAt`.
class FaultyStripe final : public Platform::Object, public virtual Interfaces::Stripe {
 public:
    using u32 = Platform::u32;
    using u64 = Platform::u64;
    static constexpr u32 failure = 0x20005;

    static Platform::Ref<FaultyStripe> create(std::string content = {}, u64 step = ~u64{0},
                                              u64 failAt = ~u64{0}) {
        auto stripe = Platform::makeRef<FaultyStripe>();
        stripe->bytes = std::move(content);
        stripe->_step = step;
        stripe->_failAt = failAt;
        return stripe;
    }

    u32 elementSize() override { return 1; }
    u64 seek(u64 position) override { return _position = std::min(position, elementCount()); }
    u64 pos() override { return _position; }
    u64 read(Platform::ShPtr destination, u64 count, u32) override {
        const u64 end = std::min<u64>(bytes.size(), _failAt);
        const u64 now = std::min({count, _step, end - _position});
        if (now == 0 && end < bytes.size()) Platform::Error::set(failure);
        Platform::Mem::copy(destination.address(), bytes.data() + _position, now);
        _position += now;
        return now;
    }
    u64 write(Platform::ShPtr source, u64 count, u32) override {
        if (_failAt - _position < count) {
            Platform::Error::set(failure);
            return 0;
        }
        bytes.resize(std::max<u64>(bytes.size(), _position + count));
        Platform::Mem::copy(bytes.data() + _position, source.address(), count);
        _position += count;
        return count;
    }
    u64 trim(u64, u32) override { return 0; }
    u64 clear(u64, u32) override { return 0; }
    u64 elementCount() override { return bytes.size(); }
    u64 maxElementCount() override { return ~u64{0}; }
    u64 minElementCount() override { return 0; }
    u64 setElementCount(u64 count) override {
        bytes.resize(count);
        return count;
    }
    Platform::ShHandle map(Platform::Ref<Platform::SharedMemory>) override { return {}; }
    void unmap(Platform::ShHandle) override {}

    std::string bytes;

 private:
    u64 _step = 0;
    u64 _failAt = 0;
    u64 _position = 0;
};
