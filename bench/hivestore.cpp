#include <cstdio>

#include "bench/store.h"
#include "hive/hivefile.h"
#include "platform/filesys/file.h"
#include "regfile/regfileutil.h"
#include "regfile/util.h"
#include "regfile/valueedit.h"

namespace HiveBench {

namespace {

using Interfaces::ShPtr;
using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::Key;
using Libraries::Files::Hive::RegFileUtil;
using Libraries::Files::Hive::Util;
using Libraries::Files::Hive::Value;
using Libraries::Files::Hive::ValueEdit;
using Platform::Ref;
using Platform::String;
using Services::Filesystem::Client::File;

constexpr auto CODEPAGE = HiveFile::hiveCodepageLatin1;
constexpr u32 VERSION_MINOR = 5;

/// A hive open for changing, and its file, to be made durable.
struct WritableHive {
    Ref<File> file;
    Ref<HiveFile> hive;

    void close() {
        need(hive->flush() && file->flush(), "write the hive");
        hive.reset();
        file.reset();
    }
};

WritableHive createHive(const std::string& path) {
    std::remove(path.c_str());
    WritableHive made;
    made.file = File::open(String::fromUtf8(path), File::writeOrCreate);
    need(bool(made.file), "create the hive's file");
    made.hive = HiveFile::create(Ref<Interfaces::Stripe>(made.file), VERSION_MINOR, HiveFile::modeReadWrite,
                                 CODEPAGE, nullptr);
    need(bool(made.hive), "create the hive");
    return made;
}

class HiveStore final : public Store {
 public:
    HiveStore() {
        for (const auto name : valueNames()) _valueNames.push_back(String::create(name));
    }

    const char* name() const override { return "hive"; }
    bool utf8Names() const override { return false; }
    bool hasText() const override { return true; }

    void build(const std::string& file, const Tree& tree) override {
        WritableHive made = createHive(file);
        std::array<Ref<Key>, LEVELS + 1> current;
        current[0] = made.hive->root();
        for (u32 i = 0; i < tree.keys().size(); ++i) {
            const u32 level = tree.keys()[i].level;
            current[level] = createKey(current[level - 1], tree, i);
        }
        current = {};
        made.close();
    }

    u64 lookUp(const std::string& file, std::span<const Query> queries) override {
        const Ref<HiveFile> hive = HiveFile::open(String::fromUtf8(file), HiveFile::modeReadOnly, CODEPAGE);
        need(bool(hive), "open the hive");
        const Ref<Key> root = hive->root();
        u64 sum = 0;
        for (const Query& query : queries) {
            const Ref<Key> key = Util::openPath(root, String::create(query.path));
            need(bool(key), "find a key");
            const Ref<Value> value = key->value(_valueNames[query.valueName]);
            need(bool(value), "find a value");
            const u32 size = read(value);
            sum += hashBytes(_buffer.data(), size, value->type());
        }
        return sum;
    }

    Totals walk(const std::string& file) override {
        const Ref<HiveFile> hive = HiveFile::open(String::fromUtf8(file), HiveFile::modeReadOnly, CODEPAGE);
        need(bool(hive), "open the hive");
        Adder adder;
        walkBelow(hive->root(), adder);
        return adder.totals();
    }

    void change(const std::string& file, const Changes& changes) override {
        WritableHive opened;
        opened.file = File::open(String::fromUtf8(file), File::readWriteExisting);
        need(bool(opened.file), "open the hive's file");
        opened.hive = HiveFile::open(Ref<Interfaces::Stripe>(opened.file), HiveFile::modeReadWrite, CODEPAGE);
        need(bool(opened.hive), "open the hive");
        changeAll(opened.hive->root(), changes);
        opened.close();
    }

    void exportText(const std::string& file, const std::string& text) override {
        const Ref<HiveFile> hive = HiveFile::open(String::fromUtf8(file), HiveFile::modeReadOnly, CODEPAGE);
        need(bool(hive), "open the hive");
        need(RegFileUtil::exportRegFile(hive->root(), String::fromUtf8(text), String::create(),
                                        RegFileUtil::exportDefault, nullptr, false),
             "export");
    }

    void importText(const std::string& text, const std::string& file) override {
        WritableHive made = createHive(file);
        need(RegFileUtil::importRegFile(made.hive, String::fromUtf8(text), String::create(), nullptr, false),
             "import");
        made.close();
    }

 private:
    /// The value's data in the buffer; returns its size.
    u32 read(const Ref<Value>& value) {
        const u32 size = value->size();
        if (_buffer.size() < size) _buffer.resize(size);
        need(value->read(ShPtr(_buffer.data()), 0, size) == size, "read a value");
        return size;
    }

    void createValue(const Ref<Key>& key, const Tree& tree, u32 index) {
        const PlannedValue& planned = tree.values()[index];
        const Ref<Value> value =
            key->createValue(_valueNames[planned.name], static_cast<Value::ValueType>(planned.type));
        need(bool(value), "create a value");
        need(ValueEdit::setData(key, value, tree.data(planned).data(), planned.size) == ValueEdit::done,
             "set a value");
    }

    /// A key with its values.
    Ref<Key> createKey(const Ref<Key>& parent, const Tree& tree, u32 index) {
        Ref<Key> key = parent->createKey(String::create(tree.name(tree.keys()[index])));
        need(bool(key), "create a key");
        for (u32 i = 0; i < VALUES_PER_KEY; ++i) createValue(key, tree, index * VALUES_PER_KEY + i);
        return key;
    }

    void walkBelow(const Ref<Key>& key, Adder& adder) {
        const auto keys = key->keyIterator();
        for (u32 left = keys->count(); left; --left) {
            const Ref<Key> subkey = keys->next();
            need(bool(subkey), "read a key");
            const Ref<String> name = subkey->name();
            adder.key(name->view().data(), name->length() * sizeof(char16_t));
            walkValues(subkey, adder);
            walkBelow(subkey, adder);
        }
    }

    void walkValues(const Ref<Key>& key, Adder& adder) {
        const auto values = key->valueIterator();
        for (u32 left = values->count(); left; --left) {
            const Ref<Value> value = values->next();
            need(bool(value), "read a value");
            const Ref<String> name = value->name();
            const u32 size = read(value);
            adder.value(adder.lastKey(), name->view().data(), name->length() * sizeof(char16_t),
                        value->type(), _buffer.data(), size);
        }
    }

    void changeAll(const Ref<Key>& root, const Changes& changes) {
        const Tree& tree = changes.tree;
        const auto find = [&root](const std::u16string& path) {
            const Ref<Key> key = Util::openPath(root, String::create(path));
            need(bool(key), "find a key");
            return key;
        };
        for (const Query& query : changes.writes) {
            const PlannedValue& planned = tree.values()[query.value];
            const Ref<Value> value = find(query.path)->value(_valueNames[planned.name]);
            need(value && value->size() == planned.size &&
                     value->write(ShPtr::fromConst(tree.data(planned).data()), 0, planned.size) ==
                         planned.size,
                 "write a value");
        }
        for (const Query& query : changes.recreated) {
            const Ref<Key> key = find(query.path);
            const Ref<Value> value = key->value(_valueNames[query.valueName]);
            need(value && key->deleteValue(value), "delete a value");
            createValue(key, tree, query.value);
            need(ValueEdit::settleList(key), "settle a value list");
        }
        for (const Query& query : changes.subtrees) recreate(root, changes.tree, query);
    }

    void recreate(const Ref<Key>& root, const Tree& tree, const Query& query) {
        const u64 cut = query.path.rfind(u'/');
        const Ref<Key> parent =
            Util::openPath(root, String::create(std::u16string_view(query.path).substr(0, cut)));
        need(bool(parent), "find a parent");
        need(Util::recursiveKeyDelete(parent, parent->key(String::create(query.path.substr(cut + 1)))),
             "delete a subtree");
        const u32 top = tree.keys()[query.key].level;
        std::array<Ref<Key>, LEVELS + 1> current;
        current[top - 1] = parent;
        for (u32 i = query.key; i < tree.keys()[query.key].end; ++i) {
            const u32 level = tree.keys()[i].level;
            current[level] = createKey(current[level - 1], tree, i);
        }
    }

    std::vector<Ref<String>> _valueNames;
    std::vector<u8> _buffer;
};

}  // namespace

std::unique_ptr<Store> newHiveStore() {
    return std::make_unique<HiveStore>();
}

}  // namespace HiveBench
