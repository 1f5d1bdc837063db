#include <CLI/CLI.hpp>

#include "tool/changecommand.h"
#include "tool/failure.h"
#include "tool/keypath.h"
#include "tool/naming.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

class MoveCommand final : public ChangeCommand {
 private:
    void defineChange(CLI::App& app) override {
        app.add_option("KEY", _key, "Key path, as for ls")->required()->type_name("");
        app.add_option("NEWKEY", _newKey, "Its new path; all but the last name must exist")
            ->required()
            ->type_name("");
    }

    void change(const Ref<HiveFile>& hive) override {
        const KeyAt at = resolveKey(hive, hiveOptions, _key);
        const auto newNames = parseKeyPath(_newKey);
        if (newNames.empty()) throw Failure("the root key cannot be replaced", exitUsage);
        const KeyAt parent = resolveParent(hive, hiveOptions, _newKey);
        const Ref<String> newName = newNames.back();
        const Ref<Key> taken = parent.key->key(newName);
        // A name that differs in case alone is taken by the key itself: it is moved in two steps.
        const bool onItself = taken && taken == at.key;
        if (onItself && at.key->name() && at.key->name()->equal(newName)) return;
        if ((onItself && !parent.key->move(at.key, unusedKeyName(parent.key))) ||
            !parent.key->move(at.key, newName))
            fail("cannot move " + visible(at.path) + " to " +
                 visible(childPath(parent.path, newName->view())) + " in " + visible(hiveOptions.path));
    }

    std::string _key;
    std::string _newKey;
};

const CommandRegistration registration =
    registerCommand<MoveCommand>("move", "Move or rename a key with all below it",
                                 "  hivectl move NTUSER.DAT Software/Vendor Software/NewVendor");

}  // namespace

}  // namespace HiveCtl
