// samples_write HIVE: changes values all over a hive file, in place, and prints what it did, one line each:
//   set    KEY NAME TYPE SIZE SEED   a value, new or not, now has this pattern as its data
//   delete KEY NAME
// KEY is the path in library notation, NAME and KEY in hexadecimal UTF-8. The lines say what a reader that
// shares no code with the library must find, and all else must be as it was.

#include <cstdio>

#include "hive/keys/keyobj.h"
#include "hive/values/valueobj.h"
#include "tests/support/hivebuilder.h"

namespace {

using namespace HiveTest;                // NOLINT
using namespace Libraries::Files::Hive;  // NOLINT
using Interfaces::ShPtr;

constexpr u32 SIZES[] = {1, 5, 100, 4096, 16344, 16345, 70000, 1048576};

std::string hex(const std::string& bytes) {
    std::string digits;
    for (const char byte : bytes) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(byte));
        digits += pair;
    }
    return digits.empty() ? "-" : digits;
}

class Changes {
 public:
    /// Changes this key's values every few keys, then those of the keys below.
    bool change(const Ref<KeyObj>& key, const std::string& path) {
        if (_keys++ % 23 == 0 && !changeValues(key, path)) return false;
        for (u32 i = 0; i < key->keys(); ++i) {
            const Ref<KeyObj> below = key->key(i);
            if (!below || !below->valid() || !below->name()) continue;
            std::string name;
            for (const char c : below->name()->toUtf8())
                name += c == '/' ? std::string("\\/") : std::string(1, c);
            if (!change(below, path.empty() ? name : path + "/" + name)) return false;
        }
        return true;
    }

 private:
    bool changeValues(const Ref<KeyObj>& key, const std::string& path) {
        const auto created =
            refCast<ValueObj>(key->createValue(String::create(u"grown by a test"), Value::valueBinary));
        // Through all sizes for a few, one size of up to 70,000 bytes for most.
        const u32 count = _keys / 23, steps = count % 20 == 0 ? 8 : 1;
        for (u32 i = 0; i < steps; ++i)
            if (!created || !set(created, SIZES[(count + i) % (steps == 1 ? 7 : 8)])) return false;
        report(created, path);
        if (key->values() < 4) return true;
        const Ref<ValueObj> changed = key->value(0u), removed = key->value(1u);
        if (!changed->name() || !removed->name()) return true;
        const std::string name = removed->name()->toUtf8();
        if (!set(changed, changed->size() + 1 + _keys % 40) || !key->deleteValue(removed)) return false;
        report(changed, path);
        std::printf("delete %s %s\n", hex(path).c_str(), hex(name).c_str());
        return true;
    }

    bool set(const Ref<ValueObj>& value, u32 size) {
        const auto data = patternBytes(size, ++_seed);
        if (value->size(size) != size) return false;
        // A data cell near the file's start is written only in part; the value is then cut to that part.
        const u32 written = value->write(ShPtr::fromConst(data.data()), 0, size);
        return written && value->size(written) == written;
    }

    void report(const Ref<ValueObj>& value, const std::string& path) const {
        std::printf("set %s %s %u %u %u\n", hex(path).c_str(), hex(value->name()->toUtf8()).c_str(),
                    static_cast<u32>(value->type()), value->size(), _seed);
    }

    u32 _keys = 0;
    u32 _seed = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return std::fputs("usage: samples_write HIVE\n", stderr), 2;
    const auto hive = HiveFile::open(String::fromUtf8(argv[1]), 0, HiveFile::hiveCodepageLatin1);
    const auto root = hive ? refCast<KeyObj>(hive->root()) : nullptr;
    if (!root || !Changes().change(root, "") || !hive->flush()) {
        std::fprintf(stderr, "%s: failed, error %x\n", argv[1], Platform::Error::get());
        return 1;
    }
    return 0;
}
