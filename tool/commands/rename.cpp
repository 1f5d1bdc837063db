#include <CLI/CLI.hpp>

#include "regfile/valueedit.h"
#include "tool/changecommand.h"
#include "tool/naming.h"

namespace HiveCtl {

namespace {

using Libraries::Files::Hive::ValueEdit;

class RenameCommand final : public ChangeCommand {
 private:
    void defineChange(CLI::App& app) override {
        app.add_option("KEY", _key, "Key path, as for ls")->required()->type_name("");
        app.add_option("NAME", _name, "The value's name ('' or @: the default value)")
            ->required()
            ->type_name("");
        app.add_option("NEWNAME", _newName, "Its new name")->required()->type_name("");
    }

    void change(const Ref<HiveFile>& hive) override {
        const KeyAt at = resolveKey(hive, hiveOptions, _key);
        const Ref<Value> value = resolveValue(at, hiveOptions, _name);
        const Ref<String> newName = _newName == "@" ? String::create() : String::fromUtf8(_newName);
        const Ref<String> oldName = value->name();
        if (oldName && oldName->equal(newName)) return;
        // The library takes a name that differs in case alone for taken: by the value itself.
        const bool sameButCase = oldName && oldName->equalUpper(newName);
        if ((sameButCase && !at.key->move(value, unusedValueName(at.key))) || !at.key->move(value, newName))
            fail("cannot rename value " + shownValueName(oldName ? oldName : newName) + " to " +
                 shownValueName(newName) + where(at));
        if (!ValueEdit::settleList(at.key)) fail("cannot write the list of values" + where(at));
    }

    std::string _key;
    std::string _name;
    std::string _newName;
};

const CommandRegistration registration = registerCommand<RenameCommand>(
    "rename", "Give a value another name", "  hivectl rename NTUSER.DAT Software/Vendor OldName NewName");

}  // namespace

}  // namespace HiveCtl
