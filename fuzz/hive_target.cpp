// Bytes as a hive: checked, opened in every mode, read in full, exported, salvaged, and changed. What a hive
// without faults promises is asked of it.

#include "fuzz/target.h"
#include "platform/syslog/syslogfilter.h"
#include "platform/syslog/syslogstream.h"
#include "regfile/salvage/salvage.h"
#include "regfile/util.h"
#include "regfile/valueedit.h"
#include "tests/support/reading.h"
#include "tests/support/regtext.h"

namespace {

using namespace HiveFuzz;                // NOLINT
using namespace Libraries::Files::Hive;  // NOLINT
using namespace HiveTest;                // NOLINT

/// Changes some keys and values of whatever the hive holds, the first ones found. Whether it succeeds is
/// open.
void change(const Ref<Key>& key, u32& left) {
    static const std::vector<u8> data(20000, 'x');
    const auto newName = String::from8("New"), longText = String::create(std::u16string(9000, u'x'));
    const auto texts = makeRef<TVector<Ref<String>>>();
    texts->append(longText);
    const auto subkeys = key->keyIterator();
    while (const auto subkey = subkeys && left > 0 ? subkeys->next() : nullptr) {
        --left;
        change(subkey, left);
        const u32 kind = left % 4;
        if (kind == 0) key->move(subkey, newName);
        if (kind == 1) Util::recursiveKeyDelete(key, subkey);
    }
    const auto values = key->valueIterator();
    while (const auto value = values && left > 0 ? values->next() : nullptr) {
        const u32 kind = --left % 8;
        if (kind < 4) ValueEdit::setData(key, value, data.data(), kind * kind * 2000);
        if (kind == 4) key->move(value, newName);
        if (kind == 5) key->deleteValue(value);
        if (kind > 5 && !ValueEdit::setString(key, value, longText)) ValueEdit::setStrings(key, value, texts);
    }
    ValueEdit::settleList(key);
    if (const auto child = key->createKey(newName)) child->createValue(newName, Value::valueQword);
    if (const auto value = key->createValue(newName, Value::valueString)) value->setString(newName);
}

void read(const std::vector<u8>& file, u32 mode, bool sound) {
    const auto store = makeRef<MemoryStripe>(file);
    const auto hive = HiveFile::open(store, mode | HiveFile::modeReadOnly, HiveFile::hiveCodepageLatin1);
    const Ref<Key> root = hive ? hive->root() : nullptr;
    expect(root || !sound, "a sound hive opens");
    if (!hive) return;
    Reading all(*hive);
    if (root) {
        u32 changes = 40;
        exportText(root);
        change(root, changes);
    }
    expect(!store->counters.writes && !store->counters.resizes, "reading writes nothing");
}

/// `room` is how much the file may grow by.
void write(const std::vector<u8>& file, u32 mode, u64 room, bool sound) {
    const auto store = makeRef<MemoryStripe>(file);
    store->setMaxElementCount(file.size() + room);
    Ref<HiveFile> hive = HiveFile::open(store, mode, HiveFile::hiveCodepageLatin1);
    if (!hive) return;
    if (!(mode & HiveFile::modeWriteThrough)) Reading all(*hive);  // else changes come first
    expect(!store->counters.writes && !store->counters.resizes, "reading writes nothing");
    u32 changes = 40;
    if (const Ref<Key> root = hive->root()) change(root, changes);
    hive->flush();
    hive.reset();
    // A change that found no room may be half done.
    const std::string fault = sound && room ? faultOf(store->bytes()) : std::string();
    expect(fault.empty(), "no " + fault);
    if ((hive = HiveFile::open(store, HiveFile::modeReadOnly, HiveFile::hiveCodepageLatin1)))
        Reading again(*hive);
}

void salvage(const std::vector<u8>& file, bool sound) {
    const auto store = makeRef<MemoryStripe>(file), target = makeRef<MemoryStripe>();
    SalvageCounts counts;
    Salvage::exportRegFile(
        store, HiveFile::hiveCodepageLatin1, {}, target, String::create(), RegFileUtil::exportBinaryOnly,
        [](const SalvageFinding&) {}, counts);
    if (!sound) return;
    const auto hive = HiveFile::open(store, HiveFile::modeReadOnly, HiveFile::hiveCodepageLatin1);
    bool done = false;  // not where data lies too low
    const std::string text = exportText(hive->root(), RegFileUtil::exportBinaryOnly, &done);
    expect(counts.lost == 0 && (!done || target->text() == text), "of a sound hive nothing is lost");
}

/// Lets the lines of the log be put together, for some inputs, and drops them.
void setLog(bool on) {
    const auto dropped = CharWriter::create(makeRef<MemoryStripe>(), 0);
    SysLogStream::redirect(on ? CharPrinter::create(dropped) : nullptr);
    SysLogFilter::setLevel(on ? 1 : SysLogFilter::levelSilent);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const Platform::u8* data, std::size_t size) {
    const std::vector<u8> file(data, data + size);
    setLog(size > 508 && data[508] % 8 == 0);
    const bool sound = faultOf(file).empty();
    read(file, size > 508 && data[508] % 2 ? HiveFile::modeLinearFallback : 0U, sound);
    read(file, HiveFile::modeUnsafe, sound);
    write(file, HiveFile::modeReadWrite, 1 << 20, sound);
    write(file, HiveFile::modeWriteThrough | HiveFile::modeResizeAll | HiveFile::modeLinearFallback, 0,
          sound);
    salvage(file, sound);
    return 0;
}
