#pragma once

#include "hive/hivefile.h"
#include "regfile/walkbudget.h"
#include "tests/support/memorystripe.h"

namespace HiveTest {

using namespace Libraries::Files::Hive;  // NOLINT: the library's objects throughout

/// Uses every reading operation on a hive and goes on behind everything that cannot be read. The work is
/// bounded by the size of the file.
class Reading {
 public:
    explicit Reading(HiveFile& hive) : _budget(hive.root()), _buffer(BUFFER_BYTES) {
        HiveUsage usage;
        hive.header();
        hive.usage(usage);
        const auto walk = hive.securityDescriptorIterator();
        while (const auto descriptor = walk ? walk->next() : nullptr) {
            descriptor->get();
            descriptor->users();
        }
        if (const Ref<Key> root = hive.root()) readKey(root);
    }
    /// Keys and values met.
    u64 entries() const { return _entries; }

 private:
    static constexpr u64 BUFFER_BYTES = 65536;
    static constexpr u32 TEXT_LIMIT = 16777216;  // as the export reads texts
    static constexpr u32 LOOKUPS_PER_KEY = 3;
    static constexpr u64 BROKEN_LISTS = 1000;  // a list may cost its whole length before it turns out broken

    void readKey(const Ref<Key>& key) {
        readValues(key);
        const auto subkeys = key->keyIterator();
        u32 lookups = 0;
        for (u32 left = subkeys ? subkeys->count() : 0; left > 0; --left) {
            const Ref<Key> subkey = subkeys->next();
            ++_entries;
            _brokenLists += !subkey;
            if (!subkey || !_budget.takeEntry() || _brokenLists > BROKEN_LISTS) return;
            const Ref<String> name = subkey->name();
            if (name && lookups++ < LOOKUPS_PER_KEY) key->key(name->upper());
            readKey(subkey);
        }
    }

    void readValues(const Ref<Key>& key) {
        const auto values = key->valueIterator();
        u32 lookups = 0;
        for (u32 left = values ? values->count() : 0; left > 0; --left) {
            const Ref<Value> value = values->next();
            ++_entries;
            _brokenLists += !value;
            if (!value || !_budget.takeEntry()) return;
            const Ref<String> name = value->name();
            if (name && lookups++ < LOOKUPS_PER_KEY) key->value(name->upper());
            readValue(*value);
        }
    }

    void readValue(Value& value) {
        const u32 size = value.size();
        if (!_budget.takeData(size)) return;
        value.string(TEXT_LIMIT);
        value.strings(TEXT_LIMIT);
        value.number();
        const ShPtr buffer(_buffer.data());
        const u32 piece = static_cast<u32>(std::min<u64>(size, BUFFER_BYTES));
        for (const u32 from : {0U, size / 2, size - std::min(size, 1U)}) value.read(buffer, from, piece);
        const auto data = value.binary();
        if (!data) return;
        for (u64 taken = 0; taken < size && data->read(buffer, piece) == piece; taken += piece) continue;
        data->seek(data->elementCount());
        data->read(buffer, std::min(piece, 16U));
    }

    WalkBudget _budget;
    std::vector<u8> _buffer;
    u64 _entries = 0;
    u64 _brokenLists = 0;
};

}  // namespace HiveTest
