#include <CLI/CLI.hpp>

#include "hive/errorcodes.h"
#include "regfile/util.h"
#include "regfile/valueedit.h"
#include "tool/changecommand.h"
#include "tool/failure.h"
#include "tool/keypath.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

using Libraries::Files::Hive::Util;
using Libraries::Files::Hive::ValueEdit;
namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

class DeleteCommand final : public ChangeCommand {
 private:
    void defineChange(CLI::App& app) override {
        app.add_option("KEY", _key, "Key path, as for ls")->required()->type_name("");
        _nameOption =
            app.add_option("NAME", _name, "The value to delete ('' or @: the default value); none: the key")
                ->type_name("");
        app.add_flag("--recursive", _recursive, "Delete the key with all below it")->excludes(_nameOption);
    }

    void change(const Ref<HiveFile>& hive) override {
        if (_nameOption->count() > 0)
            deleteValue(resolveKey(hive, hiveOptions, _key));
        else
            deleteKey(hive);
    }

    void deleteValue(const KeyAt& at) {
        const Ref<Value> value = resolveValue(at, hiveOptions, _name);
        const Ref<String> name = value->name();
        if (!at.key->deleteValue(value))
            fail("cannot delete value " + (name ? shownValueName(name) : inQuotes(_name)) + where(at));
        if (!ValueEdit::settleList(at.key)) fail("cannot write the list of values" + where(at));
    }

    void deleteKey(const Ref<HiveFile>& hive) {
        const KeyAt at = resolveKey(hive, hiveOptions, _key);
        const std::string path = visible(at.path) + " of " + visible(hiveOptions.path);
        if (parseKeyPath(_key).empty())
            throw Failure("the root key of " + visible(hiveOptions.path) + " cannot be deleted");
        const KeyAt parent = resolveParent(hive, hiveOptions, _key);
        if (_recursive ? Util::recursiveKeyDelete(parent.key, at.key) : parent.key->deleteKey(at.key)) return;
        if (Error::get() == ErrorCode::keyNotEmpty && !_recursive)
            throw Failure(path + " has subkeys or values; --recursive deletes it with all below it");
        fail("cannot delete " + path);
    }

    std::string _key;
    std::string _name;
    CLI::Option* _nameOption = nullptr;
    bool _recursive = false;
};

const CommandRegistration registration =
    registerCommand<DeleteCommand>("delete", "Delete a value, or a key",
                                   "  hivectl delete NTUSER.DAT Software/Vendor Setting\n"
                                   "  hivectl delete NTUSER.DAT Software/Vendor --recursive");

}  // namespace

}  // namespace HiveCtl
