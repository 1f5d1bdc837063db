#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "tool/command.h"
#include "tool/errortext.h"
#include "tool/keypath.h"
#include "tool/output.h"
#include "tool/visible.h"
#include "tool/walk.h"

namespace HiveCtl {

namespace {

class ListCommand final : public HiveCommand {
 private:
    void defineMore(CLI::App& app) override {
        defineKey(app, _key);
        defineJson(app, _json);
    }

    ExitCode execute() override {
        const KeyAt at = resolveKey(openHive(hiveOptions), hiveOptions, _key);
        Walk walk(at);
        walk.subkeys(at, [&](const KeyAt& subkey, const Ref<String>& name) { showKey(subkey, name); });
        walk.values(at, [&](const Ref<Value>& value, const Ref<String>& name) {
            _json ? showValueJson(walk, at, value, name) : showValue(walk, at, value, name);
        });
        return walk.exitCode();
    }

    void showKey(const KeyAt& subkey, const Ref<String>& name) const {
        if (_json)
            out().line(Json({{"kind", "key"},
                             {"name", name->toUtf8()},
                             {"path", String::create(subkey.path)->toUtf8()}})
                           .dump());
        else
            out().line(visible(pathName(name->view())) + "/");
    }

    static void showValue(Walk& walk, const KeyAt& at, const Ref<Value>& value, const Ref<String>& name) {
        const auto text = preview(value, walk.budget());
        if (!text) walk.unreadableData(at, name);
        const std::string size = std::to_string(value->size());
        out().line(padded(shownValueName(name), 24) + "  " + padded(typeName(value->type()), 10) +
                   std::string(size.size() < 8 ? 8 - size.size() : 0, ' ') + size + "  " +
                   text.value_or("(unreadable)"));
    }

    static void showValueJson(Walk& walk, const KeyAt& at, const Ref<Value>& value, const Ref<String>& name) {
        Json entry = {{"kind", "value"},
                      {"name", name->toUtf8()},
                      {"type", typeName(value->type())},
                      {"type_code", u32{value->type()}},
                      {"size", value->size()}};
        if (const auto content = readContent(value, walk.budget())) {
            entry["value"] = contentJson(*content);
        } else {
            // Data that is not what its type promises is still data.
            entry["value"] = nullptr;
            entry["error"] = errorText(Error::get());
            if (const auto bytes = readData(value, walk.budget()))
                entry["hex"] = hexBytes(*bytes);
            else
                walk.unreadableData(at, name);
        }
        out().line(entry.dump());
    }

    std::string _key;
    bool _json = false;
};

const CommandRegistration registration = registerCommand<ListCommand>(
    "ls", "List a key's subkeys and values", "  hivectl ls NTUSER.DAT Software/Vendor");

}  // namespace

}  // namespace HiveCtl
