#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>

#include "tool/command.h"
#include "tool/failure.h"
#include "tool/output.h"
#include "tool/visible.h"
#include "tool/walk.h"

namespace HiveCtl {

namespace {

bool isText(u32 type) {
    return type == Value::valueString || type == Value::valueExpandString || type == Value::valueStrings;
}

class FindCommand final : public HiveCommand {
 private:
    void defineMore(CLI::App& app) override {
        app.add_option("TEXT", _text, "What key names, value names or texts are to contain, in any case")
            ->required()
            ->type_name("");
        defineKey(app, _key);
        defineJson(app, _json);
    }

    ExitCode execute() override {
        if (_text.empty()) throw Failure("TEXT is empty; give at least one character", exitUsage);
        _wanted = String::fromUtf8(_text)->upper();
        const KeyAt at = resolveKey(openHive(hiveOptions), hiveOptions, _key);
        Walk walk(at);
        search(walk, at);
        if (!_found && walk.complete())
            throw Failure("nothing contains " + inQuotes(_text) + " below " + visible(at.path) + " of " +
                          visible(hiveOptions.path));
        return walk.exitCode();
    }

    /// The recursion ends with the library's limit on the depth of keys.
    void search(Walk& walk, const KeyAt& at) {
        walk.values(at,
                    [&](const Ref<Value>& value, const Ref<String>& name) { look(walk, at, value, name); });
        walk.subkeys(at, [&](const KeyAt& subkey, const Ref<String>& name) {
            if (contains(name->view())) showKey(subkey);
            search(walk, subkey);
        });
    }

    void look(Walk& walk, const KeyAt& at, const Ref<Value>& value, const Ref<String>& name) {
        const bool inName = contains(name->view());
        bool inData = false;
        if (isText(value->type())) {
            // The data itself, not what a typed read makes of it: nothing in it is to be missed.
            const auto bytes = readData(value, walk.budget());
            if (!bytes) walk.unreadableData(at, name);
            inData = bytes && contains(unitsOf(*bytes));
        }
        if (!inName && !inData) return;
        _found = true;
        _json ? showJson(walk, at, value, name, inName, inData) : show(walk, at, value, name);
    }

    bool contains(std::u16string_view text) const {
        const auto same = [](char16_t a, char16_t b) { return String::upperUnit(a) == b; };
        const std::u16string_view wanted = _wanted->view();
        return std::search(text.begin(), text.end(), wanted.begin(), wanted.end(), same) != text.end();
    }

    void showKey(const KeyAt& key) {
        _found = true;
        if (_json)
            out().line(Json({{"kind", "key"}, {"path", String::create(key.path)->toUtf8()}}).dump());
        else
            out().line("key    " + visible(key.path));
    }

    static void show(Walk& walk, const KeyAt& at, const Ref<Value>& value, const Ref<String>& name) {
        out().line("value  " + visible(at.path) + "  " + shownValueName(name) + " = " +
                   typeName(value->type()) + " " + preview(value, walk.budget()).value_or("(unreadable)"));
    }

    static void showJson(Walk& walk, const KeyAt& at, const Ref<Value>& value, const Ref<String>& name,
                         bool inName, bool inData) {
        Json entry = {{"kind", "value"},        {"path", String::create(at.path)->toUtf8()},
                      {"name", name->toUtf8()}, {"type", typeName(value->type())},
                      {"in_name", inName},      {"in_data", inData}};
        const auto content = readContent(value, walk.budget());
        entry["value"] = content ? contentJson(*content) : Json();
        out().line(entry.dump());
    }

    std::string _text;
    std::string _key;
    bool _json = false;
    Ref<String> _wanted;  // in upper case
    bool _found = false;
};

const CommandRegistration registration = registerCommand<FindCommand>(
    "find", "Find keys, value names and texts that contain a text", "  hivectl find NTUSER.DAT wallpaper");

}  // namespace

}  // namespace HiveCtl
