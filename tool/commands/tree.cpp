#include <CLI/CLI.hpp>

#include "tool/command.h"
#include "tool/keypath.h"
#include "tool/output.h"
#include "tool/visible.h"
#include "tool/walk.h"

namespace HiveCtl {

namespace {

class TreeCommand final : public HiveCommand {
 private:
    void defineMore(CLI::App& app) override {
        defineKey(app, _key);
        app.add_option("--depth", _depth, "Levels of keys to show below the first (default: all)")
            ->type_name("N");
        app.add_flag("--values", _values, "Show values as well");
    }

    ExitCode execute() override {
        const KeyAt at = resolveKey(openHive(hiveOptions), hiveOptions, _key);
        Walk walk(at);
        out().line(visible(at.path));
        showBelow(walk, at, 1);
        out().line(counted(_keyCount, "key") + (_values ? ", " + counted(_valueCount, "value") : ""));
        return walk.exitCode();
    }

    /// The recursion ends with the library's limit on the depth of keys.
    void showBelow(Walk& walk, const KeyAt& at, u32 level) {
        const std::string indent(2 * u64{level}, ' ');
        if (_values)
            walk.values(at, [&](const Ref<Value>& value, const Ref<String>& name) {
                const auto text = preview(value, walk.budget());
                if (!text) walk.unreadableData(at, name);
                out().line(indent + shownValueName(name) + " = " + typeName(value->type()) + " " +
                           text.value_or("(unreadable)"));
                ++_valueCount;
            });
        if (level > _depth) return;
        walk.subkeys(at, [&](const KeyAt& subkey, const Ref<String>& name) {
            out().line(indent + visible(pathName(name->view())) + "/");
            ++_keyCount;
            showBelow(walk, subkey, level + 1);
        });
    }

    std::string _key;
    u32 _depth = ~u32{0};
    bool _values = false;
    u64 _keyCount = 0;
    u64 _valueCount = 0;
};

const CommandRegistration registration = registerCommand<TreeCommand>(
    "tree", "Show the keys below a key", "  hivectl tree NTUSER.DAT Software --depth 2 --values");

}  // namespace

}  // namespace HiveCtl
