#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "tool/command.h"
#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/output.h"
#include "tool/valuetext.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

class GetCommand final : public HiveCommand {
 private:
    void defineMore(CLI::App& app) override {
        app.add_option("KEY", _key, "Key path, as for ls")->required()->type_name("");
        app.add_option("NAME", _name, "The value's name ('' or @, and when left out: the default value)")
            ->type_name("");
        auto* const raw = app.add_flag("--raw", _raw, "Write the data's bytes as they are");
        auto* const hex = app.add_flag("--hex", _hex, "Print a hex dump of the data")->excludes(raw);
        defineJson(app, _json);
        app.get_option("--json")->excludes(raw)->excludes(hex);
    }

    ExitCode execute() override {
        const KeyAt at = resolveKey(openHive(hiveOptions), hiveOptions, _key);
        const Ref<Value> value = resolveValue(at, hiveOptions, _name);
        WalkBudget budget(at.key);
        if (_raw || _hex) {
            const auto bytes = readData(value, budget);
            if (!bytes) fail(at, value, "");
            const std::string_view raw(reinterpret_cast<const char*>(bytes->data()), bytes->size());
            out().write(_raw ? raw : std::string_view(hexDump(*bytes)));
            return exitDone;
        }
        const auto content = readContent(value, budget);
        if (!content) fail(at, value, "; --hex shows the data as it is");
        out().write(_json ? json(at, value, *content) : contentText(*content));
        return exitDone;
    }

    static std::string json(const KeyAt& at, const Ref<Value>& value, const Content& content) {
        const Ref<String> name = value->name();
        return Json({{"path", String::create(at.path)->toUtf8()},
                     {"name", name ? name->toUtf8() : ""},
                     {"type", typeName(value->type())},
                     {"type_code", u32{value->type()}},
                     {"size", value->size()},
                     {"value", contentJson(content)}})
                   .dump() +
               "\n";
    }

    [[noreturn]] void fail(const KeyAt& at, const Ref<Value>& value, const char* hint) const {
        const u32 code = Error::get();
        const Ref<String> name = value->name();
        throw Failure("cannot read value " + (name ? shownValueName(name) : inQuotes(_name)) + " (" +
                      typeName(value->type()) + ", " + counted(value->size(), "byte") + ") in " +
                      visible(at.path) + " of " + visible(hiveOptions.path) + ": " + errorText(code) + hint);
    }

    std::string _key;
    std::string _name;
    bool _raw = false;
    bool _hex = false;
    bool _json = false;
};

const CommandRegistration registration = registerCommand<GetCommand>(
    "get", "Print one value", "  hivectl get NTUSER.DAT \"Control Panel/Desktop\" Wallpaper");

}  // namespace

}  // namespace HiveCtl
