#include <CLI/CLI.hpp>

#include "hive/errorcodes.h"
#include "regfile/valueedit.h"
#include "tool/changecommand.h"
#include "tool/valuedata.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

using Libraries::Files::Hive::ValueEdit;
namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

class SetCommand final : public ChangeCommand {
 private:
    void defineChange(CLI::App& app) override {
        app.add_option("KEY", _key, "Key path, as for ls; the key must exist")->required()->type_name("");
        app.add_option("NAME", _name, "The value's name ('' or @: the default value)")
            ->required()
            ->type_name("");
        app.add_option(
               "TYPE", _type,
               "sz, expand-sz, multi-sz (one DATA a string), dword, dword-be, qword (decimal or 0x), binary "
               "(hex), or a number for any other type (hex)")
            ->required()
            ->type_name("");
        app.add_option("DATA", _data, "The data; - takes its bytes from standard input")->type_name("");
    }

    ExitCode execute() override {
        _parsed = parseValueData(_type, _data);
        return ChangeCommand::execute();
    }

    void change(const Ref<HiveFile>& hive) override {
        const KeyAt at = resolveKey(hive, hiveOptions, _key);
        const Ref<String> name = _name == "@" ? String::create() : String::fromUtf8(_name);
        Ref<Value> value = at.key->value(name);
        if (!value) value = at.key->createValue(name, _parsed.type);
        if (!value) fail("cannot create value " + shownValueName(name) + where(at));
        if (value->type() != _parsed.type && !value->setType(_parsed.type))
            fail("cannot change the type of value " + shownValueName(name) + where(at));
        const auto size = static_cast<u32>(_parsed.bytes.size());
        const auto result = ValueEdit::setData(at.key, value, _parsed.bytes.data(), size);
        if (result == ValueEdit::writeFailed)
            Error::set(ErrorCode::shortWrite);  // trying other places left another
        if (result != ValueEdit::done)
            fail("cannot set value " + shownValueName(name) + " to " + counted(size, "byte") + where(at));
    }

    std::string _key;
    std::string _name;
    std::string _type;
    std::vector<std::string> _data;
    ValueData _parsed{Value::valueNone, {}};
};

const CommandRegistration registration = registerCommand<SetCommand>(
    "set", "Set a value, creating it when missing",
    "  hivectl set NTUSER.DAT \"Control Panel/Desktop\" Wallpaper sz 'C:\\pic.bmp'\n"
    "  hivectl set NTUSER.DAT Software/Vendor Paths multi-sz one two three\n"
    "  hivectl set NTUSER.DAT Software/Vendor Blob binary - < blob.bin");

}  // namespace

}  // namespace HiveCtl
