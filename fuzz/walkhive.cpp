#include "fuzz/walkhive.h"

#include <algorithm>
#include <cstring>

#include "hive/hivefile.h"
#include "platform/syslog/syslogfilter.h"
#include "platform/syslog/syslogstream.h"
#include "regfile/regfileutil.h"
#include "regfile/walkbudget.h"

namespace HiveFuzz {

using Interfaces::ShPtr;
using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::HiveUsage;
using Libraries::Files::Hive::Key;
using Libraries::Files::Hive::RegFileUtil;
using Libraries::Files::Hive::Value;
using Libraries::Files::Hive::WalkBudget;
using Platform::String;

namespace {

constexpr u64 BUFFER_BYTES = 65536;
constexpr u32 TEXT_LIMIT = 16777216;  // as the export reads texts
constexpr u32 LOOKUPS_PER_KEY = 3;
constexpr u64 BROKEN_LISTS = 1000;  // a list may cost its whole length before it turns out broken

/// Takes any amount of bytes and keeps only their number.
class CountingStripe final : public Platform::Object, public virtual Interfaces::Stripe {
 public:
    u32 elementSize() override { return 1; }
    u64 seek(u64 position) override { return _position = std::min(position, _count); }
    u64 pos() override { return _position; }
    u64 read(ShPtr, u64, u32) override { return 0; }
    u64 write(ShPtr, u64 count, u32) override {
        _position += count;
        _count = std::max(_count, _position);
        return count;
    }
    u64 trim(u64, u32) override { return 0; }
    u64 clear(u64, u32) override { return 0; }
    u64 elementCount() override { return _count; }
    u64 maxElementCount() override { return ~u64{0}; }
    u64 minElementCount() override { return 0; }
    u64 setElementCount(u64 count) override { return _count = count; }
    Interfaces::ShHandle map(Ref<Interfaces::SharedMemory>) override { return {}; }
    void unmap(Interfaces::ShHandle) override {}

 private:
    u64 _position = 0;
    u64 _count = 0;
};

class Walker {
 public:
    Walker(const Ref<Key>& root, WalkCounts& counts)
        : _budget(root), _counts(counts), _buffer(BUFFER_BYTES) {}

    void walkKey(const Ref<Key>& key) {
        ++_counts.keys;
        walkValues(key);
        const auto subkeys = key->keyIterator();
        u32 lookups = 0;
        for (u32 left = subkeys ? subkeys->count() : 0; left > 0; --left) {
            const Ref<Key> subkey = subkeys->next();
            if (!subkey) return failList();
            if (!_budget.takeEntry() || _brokenLists > BROKEN_LISTS) return;
            const Ref<String> name = subkey->name();
            if (!name) ++_counts.failures;
            if (name && lookups++ < LOOKUPS_PER_KEY) key->key(name->upper());
            walkKey(subkey);
        }
    }

 private:
    void failList() {
        ++_counts.failures;
        ++_brokenLists;
    }

    void walkValues(const Ref<Key>& key) {
        const auto values = key->valueIterator();
        u32 lookups = 0;
        for (u32 left = values ? values->count() : 0; left > 0; --left) {
            const Ref<Value> value = values->next();
            if (!value) return failList();
            if (!_budget.takeEntry()) return;
            ++_counts.values;
            const Ref<String> name = value->name();
            if (!name) ++_counts.failures;
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
        const u32 piece = static_cast<u32>(std::min<u64>(size, BUFFER_BYTES));
        if (value.read(ShPtr(_buffer.data()), 0, piece) != piece) ++_counts.failures;
        value.read(ShPtr(_buffer.data()), size / 2, piece);
        value.read(ShPtr(_buffer.data()), size - std::min(size, 1U), piece);
        const auto data = value.binary();
        if (!data) return;
        u64 taken = 0;
        while (taken < size && data->read(ShPtr(_buffer.data()), piece) == piece) taken += piece;
        _counts.dataBytes += taken;
        data->seek(data->elementCount());
        data->read(ShPtr(_buffer.data()), std::min<u64>(piece, 16));
    }

    WalkBudget _budget;
    WalkCounts& _counts;
    std::vector<u8> _buffer;
    u64 _brokenLists = 0;
};

void readDescriptors(HiveFile& hive, WalkCounts& counts) {
    const auto walk = hive.securityDescriptorIterator();
    if (!walk) return;
    while (const auto descriptor = walk->next()) {
        ++counts.descriptors;
        if (!descriptor->get()) ++counts.failures;
        descriptor->users();
    }
}

void exportBranch(const Ref<Key>& root, u32 mode, WalkCounts& counts) {
    const auto target = Platform::makeRef<CountingStripe>();
    const auto options =
        mode & HiveFile::modeUnsafe ? RegFileUtil::exportBinaryOnly : RegFileUtil::exportDefault;
    if (!RegFileUtil::exportRegFile(root, Ref<Interfaces::Stripe>(target), String::from8("HKEY_USERS/X"),
                                    options, nullptr, false))
        ++counts.failures;
    counts.exportBytes = target->elementCount();
}

}  // namespace

WalkCounts walkHive(const Ref<Interfaces::Stripe>& store, u32 mode, bool withExport) {
    WalkCounts counts;
    const Ref<HiveFile> hive = HiveFile::open(store, mode, HiveFile::hiveCodepageLatin1);
    if (!hive) return counts;
    counts.opened = true;
    hive->header();
    HiveUsage usage;
    if (!hive->usage(usage)) ++counts.failures;
    readDescriptors(*hive, counts);
    const Ref<Key> root = hive->root();
    if (!root) {
        ++counts.failures;
        return counts;
    }
    Walker(root, counts).walkKey(root);
    if (withExport) exportBranch(root, mode, counts);
    return counts;
}

void repairBaseBlock(std::vector<u8>& file) {
    constexpr u64 BASE_BLOCK = 4096;
    if (file.size() < BASE_BLOCK) return;
    const auto put = [&file](u64 at, u32 number) {
        for (u32 i = 0; i < 4; ++i) file[at + i] = static_cast<u8>(number >> 8 * i);
    };
    std::memcpy(file.data(), "regf", 4);
    const bool minor3 = file[24] == 3;
    put(20, 1);
    put(24, minor3 ? 3 : 5);
    put(40, static_cast<u32>((file.size() - BASE_BLOCK) / BASE_BLOCK * BASE_BLOCK));
    u8 sum[4] = {};
    for (u64 at = 0; at < 508; ++at) sum[at % 4] ^= file[at];
    std::memcpy(file.data() + 508, sum, 4);
}

LogToNowhere::LogToNowhere() {
    using Platform::CharPrinter;
    using Platform::CharWriter;
    const Ref<Interfaces::Stripe> nowhere = Platform::makeRef<CountingStripe>();
    Platform::SysLogStream::redirect(CharPrinter::create(CharWriter::create(nowhere, 0)));
    Platform::SysLogFilter::setLevel(1);
}

LogToNowhere::~LogToNowhere() {
    Platform::SysLogFilter::setLevel(Platform::SysLogFilter::levelSilent);
    Platform::SysLogStream::redirect(nullptr);
}

}  // namespace HiveFuzz
