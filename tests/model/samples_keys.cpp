// samples_keys HIVE LIST: changes a hive file all over and writes to LIST what it did, a line each, paths in
// library notation and '\t' between them:
//   create PATH                a key beside each of 500 existing ones
//   move PATH NEWPATH          100 branches
//   delete PATH                100 keys with all below them
// samples_keys.py compares the hive with what the list makes of the original.

#include <algorithm>
#include <fstream>
#include <iostream>
#include <random>

#include "hive/hivefile.h"
#include "regfile/util.h"

using namespace Libraries::Files::Hive;  // NOLINT

namespace {

std::string below(const std::string& path, const Ref<String>& name) {
    const std::string part = Util::regPathFromWindowsStyle(name)->toUtf8();
    return path.empty() ? part : path + "/" + part;
}

std::string parentOf(const std::string& path) {
    size_t at = path.size();
    while (at-- > 0 && !(path[at] == '/' && (at == 0 || path[at - 1] != '\\'))) continue;
    return at + 1 ? path.substr(0, at) : "";
}

void collect(const Ref<Key>& key, std::string path, std::vector<std::string>& paths) {
    const auto keys = key->keyIterator();
    while (const auto child = keys->next()) {
        // What the helpers cannot name is left alone.
        if (!child->name() || child->name()->view().find(u'\\') != std::u16string_view::npos) continue;
        paths.push_back(below(path, child->name()));
        collect(child, paths.back(), paths);
    }
}

class Changer {
 public:
    Changer(Ref<HiveFile> hive, std::ofstream& list)
        : _hive(std::move(hive)), _root(_hive->root()), _list(list) {}

    bool run() {
        for (u32 i = 0; i < 500; ++i) {
            const std::string path = parentOf(some());
            const Ref<String> name = fresh(i);
            if (!open(path)->createKey(name)) return false;
            _list << "create\t" << below(path, name) << "\n";
        }
        for (u32 i = 500, moved = 0; moved < 100; ++i) {
            const std::string from = some(), to = parentOf(some());
            if (to == from || to.rfind(from + "/", 0) == 0) continue;
            if (!open(to)->move(open(from), fresh(i))) return false;
            _list << "move\t" << from << "\t" << below(to, fresh(i)) << "\n";
            ++moved;
            _paths.clear();
        }
        for (u32 deleted = 0; deleted < 100; ++deleted) {
            const std::string path = some();
            if (!Util::recursiveKeyDelete(open(parentOf(path)), open(path))) return false;
            _list << "delete\t" << path << "\n";
            _paths.clear();
        }
        return _hive->flush();
    }

 private:
    Ref<Key> open(const std::string& path) const {
        return path.empty() ? _root : Util::openPath(_root, String::fromUtf8(path));
    }
    /// A name that sorts anywhere among the others.
    Ref<String> fresh(u32 i) {
        std::string name(1, static_cast<char>('A' + i * 7 % 26));
        return String::from8(name.append(" new key ").append(std::to_string(i)));
    }
    /// The path of an existing key at random; small branches only, or a few changes would take everything.
    std::string some() {
        if (_paths.empty()) collect(_root, "", _paths);
        for (;;) {
            const std::string& path = _paths[_random() % _paths.size()];
            const auto branch = std::count_if(_paths.begin(), _paths.end(), [&](const std::string& other) {
                return other.size() > path.size() && other[path.size()] == '/' && other.starts_with(path);
            });
            if (branch < 50) return path;
        }
    }

    const Ref<HiveFile> _hive;
    const Ref<Key> _root;
    std::ofstream& _list;
    std::mt19937 _random{1};
    std::vector<std::string> _paths;  // of all keys; empty when they have to be collected anew
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const auto hive =
        HiveFile::open(String::fromUtf8(argv[1]), HiveFile::modeReadWrite, HiveFile::hiveCodepageLatin1);
    std::ofstream list(argv[2]);
    if (hive && Changer(hive, list).run() && list.flush()) return 0;
    std::cerr << "failed with error " << std::hex << Error::get() << "\n";
    return 1;
}
