#pragma once

#include "tests/support/hivebuilder.h"

namespace HiveTest {

/// What the DWORD value "Number" of the key "Near/Far" holds.
constexpr u32 FAR_NUMBER = 0x5CA1AB1E;

/// Moves the records of the key "Far" and of its value to three cells at `place`, `place` + 4096 and so on,
/// each of which must have room for them. `write(record offset, bytes)` changes a cell's body.
template <typename Write>
void moveFar(const HiveBuilder& hive, u32 place, Write write) {
    const auto body = [&hive](u32 record) {
        const u32 length = 0U - hive.peek32(record);
        std::vector<u8> bytes;
        for (u32 at = 4; at < length; at += 4)
            for (const u8 byte : numberBytes(hive.peek32(record + at))) bytes.push_back(byte);
        return bytes;
    };
    const LaidKey& far = hive.key(u"Near/Far");
    write(place + 4, body(far.record));
    write(place + 44, numberBytes(place + 4096));  // the value list
    write(place + 4096 + 4, numberBytes(place + 2 * 4096));
    write(place + 2 * 4096 + 4, body(hive.value(u"Near/Far", u"Number").record));
    write(hive.key(u"Near").list + 8, numberBytes(place));
}

inline KeyPlan farPlan() {
    const ValuePlan number{.name = u"Number", .type = 4, .data = numberBytes(FAR_NUMBER)};
    return {.name = u"R", .keys = {{.name = u"Near", .keys = {{.name = u"Far", .values = {number}}}}}};
}

/// A hive of `fileBytes` bytes, mostly made-up hbins of 4096 bytes, whose key "Near/Far" lies at the very
/// end, so that all hbins must be discovered on the way to it.
inline Ref<SparseStripe> farHive(u64 fileBytes) {
    HiveBuilder hive(5);
    hive.build(farPlan());
    const Ref<SparseStripe> store = hive.stretched(fileBytes);
    const u32 lastCells = static_cast<u32>(fileBytes - 4096 - 3 * 4096 + 32);
    moveFar(hive, lastCells, [&store](u32 offset, const std::vector<u8>& bytes) {
        store->seek(u64{offset} + 4096);
        store->write(Interfaces::ShPtr::fromConst(bytes.data()), bytes.size());
    });
    store->seek(0);
    return store;
}

}  // namespace HiveTest
