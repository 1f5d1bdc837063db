// Bytes as a registry text: what an import of it leaves comes back from its own export.

#include "fuzz/target.h"
#include "hive/hivefile.h"
#include "tests/support/regtext.h"

namespace {

using namespace HiveFuzz;  // NOLINT
using HiveTest::MemoryStripe;
using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::ImportCounts;
using Libraries::Files::Hive::RegFileUtil;
using Platform::makeRef;
using Platform::Ref;
using Platform::String;

/// A new hive, and what is done with it.
class Hive {
 public:
    explicit Hive(u32 minor)
        : _store(makeRef<MemoryStripe>()),
          _hive(HiveFile::create(_store, minor, HiveFile::modeReadWrite, HiveFile::hiveCodepageLatin1,
                                 nullptr)) {}

    bool import(const std::string& text, ImportCounts* counts = nullptr) {
        return RegFileUtil::importRegFile(_hive, makeRef<MemoryStripe>(text), String::create(), nullptr, true,
                                          counts);
    }
    std::string exported(RegFileUtil::ExportOptions options) {
        bool done = false;
        const std::string text = HiveTest::exportText(_hive->root(), options, &done);
        expect(done, "what was imported can be exported");
        return text;
    }
    void reopen() {
        _hive.reset();
        const std::string fault = faultOf(_store->bytes());
        expect(fault.empty(), "no " + fault);
        _hive = HiveFile::open(_store, HiveFile::modeReadWrite, HiveFile::hiveCodepageLatin1);
        expect(bool(_hive), "the hive opens again");
    }

 private:
    Ref<MemoryStripe> _store;
    Ref<HiveFile> _hive;
};

bool holdsNul(const std::string& utf16) {
    for (std::size_t i = 0; i + 1 < utf16.size(); i += 2)
        if (!utf16[i] && !utf16[i + 1]) return true;
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const Platform::u8* data, std::size_t size) {
    Input input(data, size);
    const u32 minor = input.byte() % 2 ? 3 : 5;
    Hive first(minor), second(minor), plain(minor);
    first.import(input.rest());
    const std::string exact = first.exported(RegFileUtil::exportBinaryOnly);
    const std::string readable = first.exported(RegFileUtil::exportDefault);

    first.reopen();
    expect(first.exported(RegFileUtil::exportBinaryOnly) == exact, "the file holds what memory held");
    ImportCounts counts;
    expect(first.import(exact, &counts) && counts.keysCreated == 0, "its own export can be imported");
    expect(first.exported(RegFileUtil::exportBinaryOnly) == exact, "a hive's own export changes nothing");

    expect(second.import(exact), "an export can be imported");
    second.reopen();
    expect(second.exported(RegFileUtil::exportBinaryOnly) == exact, "an export comes back");

    // Strings with line breaks have no readable form; those with a NUL inside come back up to it.
    if (!plain.import(readable)) return 0;
    const std::string cut = plain.exported(RegFileUtil::exportDefault);
    expect(cut == readable || holdsNul(readable), "a readable export comes back");
    plain.reopen();
    expect(plain.exported(RegFileUtil::exportDefault) == cut, "the file holds what the readable text said");
    return 0;
}
