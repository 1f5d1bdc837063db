// The tree in SQLite as one who knows it would keep it: keys and values in tables without row numbers, so
// that each is one B-tree ordered by what is looked for; statements prepared once; one transaction; file
// format, journal, durability and cache as they come.

#include <sqlite3.h>

#include <cstdio>
#include <optional>
#include <stdexcept>

#include "bench/folding.h"
#include "bench/regtext.h"
#include "bench/store.h"

namespace HiveBench {

namespace {

constexpr auto SCHEMA = R"(
CREATE TABLE keys(parent INTEGER NOT NULL, fold TEXT NOT NULL, id INTEGER NOT NULL, name TEXT NOT NULL,
                  PRIMARY KEY(parent, fold)) WITHOUT ROWID;
CREATE TABLE vals(key INTEGER NOT NULL, fold TEXT NOT NULL, name TEXT NOT NULL, type INTEGER NOT NULL,
                  data BLOB NOT NULL, PRIMARY KEY(key, fold)) WITHOUT ROWID;
CREATE TABLE state(nextKey INTEGER NOT NULL);
)";
constexpr sqlite3_int64 ROOT = 0;

class Database {
 public:
    Database(const std::string& file, int flags) {
        const int code = sqlite3_open_v2(file.c_str(), &_handle, flags, nullptr);
        check(code == SQLITE_OK);
    }
    ~Database() { sqlite3_close(_handle); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    sqlite3* handle() const { return _handle; }
    void run(const char* sql) { check(sqlite3_exec(_handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK); }
    void check(bool good) const {
        if (!good) throw std::runtime_error(std::string("sqlite: ") + sqlite3_errmsg(_handle));
    }

 private:
    sqlite3* _handle = nullptr;
};

class Statement {
 public:
    Statement(Database& database, const char* sql) : _database(database) {
        database.check(sqlite3_prepare_v3(database.handle(), sql, -1, SQLITE_PREPARE_PERSISTENT, &_handle,
                                          nullptr) == SQLITE_OK);
    }
    ~Statement() { sqlite3_finalize(_handle); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /// Binds arguments from the first on. Texts and bytes must live until the statement is reset.
    template <typename... Arguments>
    void bind(const Arguments&... arguments) {
        int place = 0;
        (bindOne(++place, arguments), ...);
    }
    /// Whether there is a row; without one the statement is reset.
    bool step() {
        const int code = sqlite3_step(_handle);
        if (code == SQLITE_ROW) return true;
        sqlite3_reset(_handle);
        _database.check(code == SQLITE_DONE);
        return false;
    }
    void reset() { sqlite3_reset(_handle); }
    /// Runs a statement that gives no rows.
    template <typename... Arguments>
    void run(const Arguments&... arguments) {
        bind(arguments...);
        while (step()) {
        }
    }

    sqlite3_int64 number(int column) const { return sqlite3_column_int64(_handle, column); }
    std::string_view text(int column) const {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(_handle, column));
        return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(_handle, column))};
    }
    std::span<const u8> blob(int column) const {
        const auto* bytes = static_cast<const u8*>(sqlite3_column_blob(_handle, column));
        return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(_handle, column))};
    }

 private:
    void bindOne(int place, sqlite3_int64 number) { sqlite3_bind_int64(_handle, place, number); }
    void bindOne(int place, std::string_view text) {
        sqlite3_bind_text(_handle, place, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }
    void bindOne(int place, std::span<const u8> bytes) {
        // A null pointer would bind NULL, whatever the length.
        sqlite3_bind_blob(_handle, place, bytes.empty() ? "" : static_cast<const void*>(bytes.data()),
                          static_cast<int>(bytes.size()), SQLITE_STATIC);
    }

    Database& _database;
    sqlite3_stmt* _handle = nullptr;
};

/// One file, open within one transaction, with its statements.
class Session {
 public:
    enum Mode { create, change, read };

    Session(const std::string& file, Mode mode) : _database(openFor(file, mode), flagsOf(mode)), _mode(mode) {
        if (mode == create)
            _database.run((std::string("BEGIN;") + SCHEMA + "INSERT INTO state VALUES(1)").c_str());
        if (mode == change) _database.run("BEGIN IMMEDIATE");
        if (mode == read) _database.run("BEGIN");
        _statements.emplace(_database);
        Statement next(_database, "SELECT nextKey FROM state");
        _database.check(next.step());
        _nextKey = next.number(0);
    }

    /// Commits, with all that makes it durable.
    void finish() {
        if (_mode != read) Statement(_database, "UPDATE state SET nextKey = ?").run(_nextKey);
        _statements.reset();
        _database.run("COMMIT");
    }

    /// The id of a subkey; false when there is none.
    bool find(sqlite3_int64 parent, std::string_view name, sqlite3_int64& id) {
        _fold.clear();
        appendFolded(_fold, name);
        _statements->findKey.bind(parent, _fold);
        if (!_statements->findKey.step()) return false;
        id = _statements->findKey.number(0);
        _statements->findKey.reset();
        return true;
    }
    sqlite3_int64 findPath(std::string_view path) {
        sqlite3_int64 id = ROOT;
        while (!path.empty()) {
            const std::string_view name = path.substr(0, path.find('/'));
            path.remove_prefix(std::min(path.size(), name.size() + 1));
            need(find(id, name, id), "find a key");
        }
        return id;
    }
    sqlite3_int64 createKey(sqlite3_int64 parent, std::string_view name) {
        _fold.clear();
        appendFolded(_fold, name);
        _statements->insertKey.run(parent, std::string_view(_fold), _nextKey, name);
        return _nextKey++;
    }
    void createValue(sqlite3_int64 key, std::string_view name, u32 type, std::span<const u8> data) {
        _fold.clear();
        appendFolded(_fold, name);
        _statements->insertValue.run(key, std::string_view(_fold), name, sqlite3_int64{type}, data);
    }
    void setValue(sqlite3_int64 key, std::string_view name, u32 type, std::span<const u8> data) {
        _fold.clear();
        appendFolded(_fold, name);
        _statements->replaceValue.run(key, std::string_view(_fold), name, sqlite3_int64{type}, data);
    }
    void writeValue(sqlite3_int64 key, std::string_view name, std::span<const u8> data) {
        _fold.clear();
        appendFolded(_fold, name);
        _statements->updateValue.run(data, key, std::string_view(_fold));
        need(sqlite3_changes(_database.handle()) == 1, "write a value");
    }
    void deleteValue(sqlite3_int64 key, std::string_view name) {
        _fold.clear();
        appendFolded(_fold, name);
        _statements->deleteValue.run(key, std::string_view(_fold));
        need(sqlite3_changes(_database.handle()) == 1, "delete a value");
    }
    void deleteTree(sqlite3_int64 parent, std::string_view name) {
        sqlite3_int64 id = 0;
        need(find(parent, name, id), "find a subtree");
        deleteBelow(id);
        _fold.clear();
        appendFolded(_fold, name);
        _statements->deleteKey.run(parent, std::string_view(_fold));
    }
    /// Calls `visit(type, data)` with one value.
    template <typename Visit>
    void readValue(sqlite3_int64 key, std::string_view name, Visit visit) {
        _fold.clear();
        appendFolded(_fold, name);
        Statement& find = _statements->findValue;
        find.bind(key, std::string_view(_fold));
        need(find.step(), "find a value");
        visit(static_cast<u32>(find.number(0)), find.blob(1));
        find.reset();
    }
    /// Calls `visit(name, type, data)` with each value, in order.
    template <typename Visit>
    void forValues(sqlite3_int64 key, Visit visit) {
        Statement& list = _statements->listValues;
        list.bind(key);
        while (list.step()) visit(list.text(0), static_cast<u32>(list.number(1)), list.blob(2));
    }
    /// Calls `visit(level, id, name)` with each key below, parents before children, in order. Each level has
    /// a statement of its own, so that nothing needs to be copied.
    template <typename Visit>
    void forKeysBelow(sqlite3_int64 key, Visit visit, u32 level = 0) {
        while (_lists.size() <= level)
            _lists.push_back(std::make_unique<Statement>(
                _database, "SELECT id, name FROM keys WHERE parent = ? ORDER BY fold"));
        Statement& list = *_lists[level];
        list.bind(key);
        while (list.step()) {
            const sqlite3_int64 id = list.number(0);
            visit(level, id, list.text(1));
            forKeysBelow(id, visit, level + 1);
        }
    }

 private:
    struct Statements {
        explicit Statements(Database& database)
            : findKey(database, "SELECT id FROM keys WHERE parent = ? AND fold = ?"),
              insertKey(database, "INSERT INTO keys VALUES(?, ?, ?, ?)"),
              deleteKey(database, "DELETE FROM keys WHERE parent = ? AND fold = ?"),
              listIds(database, "SELECT id FROM keys WHERE parent = ?"),
              deleteKeys(database, "DELETE FROM keys WHERE parent = ?"),
              findValue(database, "SELECT type, data FROM vals WHERE key = ? AND fold = ?"),
              listValues(database, "SELECT name, type, data FROM vals WHERE key = ? ORDER BY fold"),
              insertValue(database, "INSERT INTO vals VALUES(?, ?, ?, ?, ?)"),
              replaceValue(database, "INSERT OR REPLACE INTO vals VALUES(?, ?, ?, ?, ?)"),
              updateValue(database, "UPDATE vals SET data = ? WHERE key = ? AND fold = ?"),
              deleteValue(database, "DELETE FROM vals WHERE key = ? AND fold = ?"),
              deleteValues(database, "DELETE FROM vals WHERE key = ?") {}
        Statement findKey, insertKey, deleteKey, listIds, deleteKeys;
        Statement findValue, listValues, insertValue, replaceValue, updateValue, deleteValue, deleteValues;
    };

    static std::string openFor(const std::string& file, Mode mode) {
        if (mode == create) std::remove(file.c_str());
        return file;
    }
    static int flagsOf(Mode mode) {
        if (mode == read) return SQLITE_OPEN_READONLY;
        return SQLITE_OPEN_READWRITE | (mode == create ? SQLITE_OPEN_CREATE : 0);
    }
    void deleteBelow(sqlite3_int64 key) {
        std::vector<sqlite3_int64> ids;
        _statements->listIds.bind(key);
        while (_statements->listIds.step()) ids.push_back(_statements->listIds.number(0));
        for (const sqlite3_int64 id : ids) deleteBelow(id);
        _statements->deleteValues.run(key);
        if (!ids.empty()) _statements->deleteKeys.run(key);
    }

    Database _database;
    const Mode _mode;
    std::optional<Statements> _statements;
    std::vector<std::unique_ptr<Statement>> _lists;
    sqlite3_int64 _nextKey = 0;
    std::string _fold;
};

/// Makes keys of export text's sections; most of a section's path is that of the section before.
class Importer {
 public:
    explicit Importer(Session& session) : _session(session) {}

    void section(std::u16string_view path) {
        _path.clear();
        appendUtf8(_path, path);
        std::string_view rest = _path;
        std::size_t level = 0;
        while (!rest.empty()) {
            const std::string_view name = rest.substr(0, rest.find('\\'));
            rest.remove_prefix(std::min(rest.size(), name.size() + 1));
            if (!name.empty()) enter(level++, name);
        }
        _open.resize(level);
    }
    void value(std::u16string_view name, u32 type, std::span<const u8> data) {
        _name.clear();
        appendUtf8(_name, name);
        _session.setValue(_open.empty() ? ROOT : _open.back().id, _name, type, data);
    }

 private:
    struct OpenKey {
        std::string name;
        sqlite3_int64 id;
    };

    void enter(std::size_t level, std::string_view name) {
        if (level < _open.size() && _open[level].name == name) return;
        _open.resize(level);
        const sqlite3_int64 parent = level ? _open[level - 1].id : ROOT;
        sqlite3_int64 id = 0;
        if (!_session.find(parent, name, id)) id = _session.createKey(parent, name);
        _open.push_back({std::string(name), id});
    }

    Session& _session;
    std::vector<OpenKey> _open;
    std::string _path;
    std::string _name;
};

class SqliteStore final : public Store {
 public:
    const char* name() const override { return "sqlite"; }
    bool utf8Names() const override { return true; }
    bool hasText() const override { return true; }

    void build(const std::string& file, const Tree& tree) override {
        Session session(file, Session::create);
        make(session, tree, 0, static_cast<u32>(tree.keys().size()), ROOT);
        session.finish();
    }

    u64 lookUp(const std::string& file, std::span<const Query> queries) override {
        Session session(file, Session::read);
        u64 sum = 0;
        for (const Query& query : queries)
            session.readValue(session.findPath(query.path8), valueNames8()[query.valueName],
                              [&sum](u32 type, std::span<const u8> data) {
                                  sum += hashBytes(data.data(), data.size(), type);
                              });
        session.finish();
        return sum;
    }

    Totals walk(const std::string& file) override {
        Session session(file, Session::read);
        Adder adder;
        session.forKeysBelow(ROOT, [&](u32, sqlite3_int64 id, std::string_view name) {
            adder.key(name.data(), name.size());
            session.forValues(id, [&adder](std::string_view own, u32 type, std::span<const u8> data) {
                adder.value(adder.lastKey(), own.data(), own.size(), type, data.data(), data.size());
            });
        });
        session.finish();
        return adder.totals();
    }

    void change(const std::string& file, const Changes& changes) override {
        Session session(file, Session::change);
        const Tree& tree = changes.tree;
        for (const Query& query : changes.writes) {
            const PlannedValue& planned = tree.values()[query.value];
            session.writeValue(session.findPath(query.path8), valueNames8()[planned.name],
                               tree.data(planned));
        }
        for (const Query& query : changes.recreated) {
            const PlannedValue& planned = tree.values()[query.value];
            const sqlite3_int64 key = session.findPath(query.path8);
            session.deleteValue(key, valueNames8()[planned.name]);
            session.createValue(key, valueNames8()[planned.name], planned.type, tree.data(planned));
        }
        for (const Query& query : changes.subtrees) {
            const std::string_view path = query.path8;
            const auto cut = path.rfind('/');
            const sqlite3_int64 parent = session.findPath(path.substr(0, cut));
            session.deleteTree(parent, path.substr(cut + 1));
            make(session, tree, query.key, tree.keys()[query.key].end, parent);
        }
        session.finish();
    }

    void exportText(const std::string& file, const std::string& text) override {
        Session session(file, Session::read);
        RegTextWriter writer(text);
        std::u16string path = u"\\";
        std::vector<std::size_t> lengths;
        const auto block = [&](sqlite3_int64 id) {
            writer.section(path);
            session.forValues(id, [&writer](std::string_view name, u32 type, std::span<const u8> data) {
                writer.value(name, type, data);
            });
            writer.endSection();
        };
        block(ROOT);
        session.forKeysBelow(ROOT, [&](u32 level, sqlite3_int64 id, std::string_view name) {
            lengths.resize(level + 1);
            path.resize(level ? lengths[level - 1] : 1);
            path += u'\\';
            appendUtf16(path, name);
            lengths[level] = path.size();
            block(id);
        });
        writer.finish();
        session.finish();
    }

    void importText(const std::string& text, const std::string& file) override {
        Session session(file, Session::create);
        Importer importer(session);
        readRegText(text, importer);
        session.finish();
    }

 private:
    /// Makes the planned keys from `from` to `end`, the first of them below `parent`.
    static void make(Session& session, const Tree& tree, u32 from, u32 end, sqlite3_int64 parent) {
        std::array<sqlite3_int64, LEVELS + 1> current{};
        current[tree.keys()[from].level - 1] = parent;
        for (u32 i = from; i < end; ++i) {
            const PlannedKey& key = tree.keys()[i];
            current[key.level] = session.createKey(current[key.level - 1], tree.name8(key));
            for (u32 j = i * VALUES_PER_KEY; j < (i + 1) * VALUES_PER_KEY; ++j) {
                const PlannedValue& value = tree.values()[j];
                session.createValue(current[key.level], valueNames8()[value.name], value.type,
                                    tree.data(value));
            }
        }
    }
};

}  // namespace

std::unique_ptr<Store> newSqliteStore() {
    return std::make_unique<SqliteStore>();
}

}  // namespace HiveBench
