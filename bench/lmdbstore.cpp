// The tree in LMDB: one map from paths to records. A key's path is its names, upper-cased and joined by \2; a
// value's is its key's, \1 and its own name. So a key's values stand behind the key, then its subkeys with
// all below them, and a branch is one range. A record holds the name as spelled, for a value after its type
// and the name's length, and then the data.

#include <lmdb.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "bench/folding.h"
#include "bench/store.h"

namespace HiveBench {

namespace {

constexpr u64 MAP_SIZE = u64{16} << 30;  // address space, not memory
constexpr char VALUE_MARK = '\1';
constexpr char KEY_MARK = '\2';

void check(int code) {
    if (code) throw std::runtime_error(std::string("lmdb: ") + mdb_strerror(code));
}

MDB_val slice(std::string_view text) {
    return {text.size(), const_cast<char*>(text.data())};
}
std::string_view textOf(const MDB_val& slice) {
    return {static_cast<const char*>(slice.mv_data), slice.mv_size};
}

/// One file, open within one transaction.
class Session {
 public:
    Session(const std::string& file, bool readOnly) {
        check(mdb_env_create(&_environment));
        check(mdb_env_set_mapsize(_environment, MAP_SIZE));
        check(mdb_env_open(_environment, file.c_str(), MDB_NOSUBDIR | (readOnly ? MDB_RDONLY : 0u), 0666));
        check(mdb_txn_begin(_environment, nullptr, readOnly ? MDB_RDONLY : 0u, &_transaction));
        check(mdb_dbi_open(_transaction, nullptr, 0, &_map));
        check(mdb_cursor_open(_transaction, _map, &_cursor));
    }
    ~Session() {
        if (_cursor) mdb_cursor_close(_cursor);
        if (_transaction) mdb_txn_abort(_transaction);
        mdb_env_close(_environment);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void finish() {
        mdb_cursor_close(_cursor);
        _cursor = nullptr;
        check(mdb_txn_commit(std::exchange(_transaction, nullptr)));
    }

    MDB_val get(std::string_view path) {
        MDB_val key = slice(path);
        MDB_val record;
        check(mdb_get(_transaction, _map, &key, &record));
        return record;
    }
    /// Room for a record of `size` bytes at a path where there is none.
    char* make(std::string_view path, u64 size) { return place(path, size, MDB_NOOVERWRITE); }
    char* replace(std::string_view path, u64 size) { return place(path, size, 0); }
    void remove(std::string_view path) {
        MDB_val key = slice(path);
        check(mdb_del(_transaction, _map, &key, nullptr));
    }
    /// Calls `visit(path, record)` from a path on, as long as it returns true.
    template <typename Visit>
    void scan(std::string_view from, Visit visit) {
        MDB_val key = slice(from);
        MDB_val record;
        int code = mdb_cursor_get(_cursor, &key, &record, from.empty() ? MDB_FIRST : MDB_SET_RANGE);
        while (!code && visit(textOf(key), textOf(record)))
            code = mdb_cursor_get(_cursor, &key, &record, MDB_NEXT);
        if (code != MDB_NOTFOUND) check(code);
    }
    void removeAtCursor() { check(mdb_cursor_del(_cursor, 0)); }

 private:
    char* place(std::string_view path, u64 size, unsigned flags) {
        MDB_val key = slice(path);
        MDB_val record{size, nullptr};
        check(mdb_put(_transaction, _map, &key, &record, flags | MDB_RESERVE));
        return static_cast<char*>(record.mv_data);
    }

    MDB_env* _environment = nullptr;
    MDB_txn* _transaction = nullptr;
    MDB_dbi _map = 0;
    MDB_cursor* _cursor = nullptr;
};

/// The path of a key whose names are separated by '/'.
std::string keyPath(std::string_view path) {
    std::string made;
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), name.size() + 1));
        if (!made.empty()) made += KEY_MARK;
        appendFolded(made, name);
    }
    return made;
}

std::string valuePath(std::string path, std::string_view name) {
    path += VALUE_MARK;
    appendFolded(path, name);
    return path;
}

struct ValueRecord {
    u32 type;
    std::string_view name;
    std::string_view data;
};

constexpr u64 VALUE_HEAD = 2;  // the type and the name's length, a byte each

void fillValue(char* record, std::string_view name, u32 type, std::span<const u8> data) {
    record[0] = static_cast<char>(type);
    record[1] = static_cast<char>(name.size());
    std::memcpy(record + VALUE_HEAD, name.data(), name.size());
    if (!data.empty()) std::memcpy(record + VALUE_HEAD + name.size(), data.data(), data.size());
}

ValueRecord valueOf(std::string_view record) {
    const auto nameLength = static_cast<u8>(record.at(1));
    return {static_cast<u8>(record[0]), record.substr(VALUE_HEAD, nameLength),
            record.substr(VALUE_HEAD + nameLength)};
}

class LmdbStore final : public Store {
 public:
    const char* name() const override { return "lmdb"; }
    bool utf8Names() const override { return true; }
    bool hasText() const override { return false; }

    void build(const std::string& file, const Tree& tree) override {
        std::remove(file.c_str());
        std::remove((file + "-lock").c_str());
        Session session(file, false);
        make(session, tree, 0, static_cast<u32>(tree.keys().size()), {});
        session.finish();
    }

    u64 lookUp(const std::string& file, std::span<const Query> queries) override {
        Session session(file, true);
        u64 sum = 0;
        for (const Query& query : queries) {
            std::string path = keyPath(query.path8);
            session.get(path);
            const auto value =
                valueOf(textOf(session.get(valuePath(std::move(path), valueNames8()[query.valueName]))));
            sum += hashBytes(value.data.data(), value.data.size(), value.type);
        }
        session.finish();
        return sum;
    }

    Totals walk(const std::string& file) override {
        Session session(file, true);
        Adder adder;
        session.scan({}, [&adder](std::string_view path, std::string_view record) {
            if (path.rfind(VALUE_MARK) == std::string_view::npos) {
                adder.key(record.data(), record.size());
            } else {
                const auto value = valueOf(record);
                adder.value(adder.lastKey(), value.name.data(), value.name.size(), value.type,
                            value.data.data(), value.data.size());
            }
            return true;
        });
        session.finish();
        return adder.totals();
    }

    void change(const std::string& file, const Changes& changes) override {
        Session session(file, false);
        const Tree& tree = changes.tree;
        for (const Query& query : changes.writes) {
            const PlannedValue& planned = tree.values()[query.value];
            const std::string& own = valueNames8()[planned.name];
            const std::string path = valuePath(keyPath(query.path8), own);
            need(valueOf(textOf(session.get(path))).data.size() == planned.size, "write a value");
            fillValue(session.replace(path, VALUE_HEAD + own.size() + planned.size), own, planned.type,
                      tree.data(planned));
        }
        for (const Query& query : changes.recreated) {
            const PlannedValue& planned = tree.values()[query.value];
            const std::string path = keyPath(query.path8);
            session.remove(valuePath(path, valueNames8()[planned.name]));
            makeValue(session, path, tree, planned);
        }
        for (const Query& query : changes.subtrees) {
            const std::string path = keyPath(query.path8);
            session.scan(path, [&](std::string_view at, std::string_view) {
                if (!at.starts_with(path) || (at.size() > path.size() && at[path.size()] > KEY_MARK))
                    return false;
                session.removeAtCursor();
                return true;
            });
            make(session, tree, query.key, tree.keys()[query.key].end, path.substr(0, path.rfind(KEY_MARK)));
        }
        session.finish();
    }

    void exportText(const std::string&, const std::string&) override { throw std::runtime_error("left out"); }
    void importText(const std::string&, const std::string&) override { throw std::runtime_error("left out"); }

 private:
    static void makeValue(Session& session, const std::string& path, const Tree& tree,
                          const PlannedValue& value) {
        const std::string& own = valueNames8()[value.name];
        fillValue(session.make(valuePath(path, own), VALUE_HEAD + own.size() + value.size), own, value.type,
                  tree.data(value));
    }
    /// Makes the planned keys from `from` to `end`, the first of them below `parent`.
    static void make(Session& session, const Tree& tree, u32 from, u32 end, const std::string& parent) {
        std::array<std::string, LEVELS + 1> current;
        current[tree.keys()[from].level - 1] = parent;
        for (u32 i = from; i < end; ++i) {
            const PlannedKey& key = tree.keys()[i];
            const std::string_view own = tree.name8(key);
            std::string& path = current[key.level];
            path = current[key.level - 1];
            if (!path.empty()) path += KEY_MARK;
            appendFolded(path, own);
            std::memcpy(session.make(path, own.size()), own.data(), own.size());
            for (u32 j = i * VALUES_PER_KEY; j < (i + 1) * VALUES_PER_KEY; ++j)
                makeValue(session, path, tree, tree.values()[j]);
        }
    }
};

}  // namespace

std::unique_ptr<Store> newLmdbStore() {
    return std::make_unique<LmdbStore>();
}

}  // namespace HiveBench
