#include <CLI/CLI.hpp>

#include "tool/changecommand.h"
#include "tool/keypath.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

class CreateCommand final : public ChangeCommand {
 private:
    void defineChange(CLI::App& app) override {
        app.add_option("KEY", _key, "Key path, as for ls")->required()->type_name("");
    }

    void change(const Ref<HiveFile>& hive) override {
        KeyAt at = resolveKey(hive, hiveOptions, "/");
        for (const Ref<String>& name : parseKeyPath(_key)) {
            Ref<Key> child = at.key->key(name);
            if (!child) child = at.key->createKey(name);
            if (!child) fail("cannot create key " + inQuotes(name) + where(at));
            at = {child, childPath(at.path, name->view())};
        }
    }

    std::string _key;
};

const CommandRegistration registration =
    registerCommand<CreateCommand>("create", "Create a key, with its missing parents",
                                   "  hivectl create NTUSER.DAT Software/Vendor/Product");

}  // namespace

}  // namespace HiveCtl
