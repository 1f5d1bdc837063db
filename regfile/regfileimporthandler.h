#pragma once

#include <optional>

#include "hive/base.h"
#include "platform/interfaces/iniparserinterface.h"
#include "platform/iochar/charprinter.h"
#include "platform/iochar/charreader.h"
#include "regfile/hexdata.h"
#include "regfile/regfileutil.h"

namespace Libraries::Files::Hive {

/// Applies registry export text to a hive, event by event. A failing callback stops the import where it is.
class RegFileImportHandler final : public Interfaces::IniParserInterface, public Object {
 public:
    /// `prefix` in export notation, without its last separator. `errorPrinter` may be null: errors then go to
    /// the log.
    RegFileImportHandler(Ref<RegistryHive> hive, const Ref<String>& prefix, Ref<CharPrinter> errorPrinter,
                         bool verbose);

    /// Whose line number stands before messages.
    void setSource(Ref<CharReader> source) { _source = std::move(source); }
    const ImportCounts& counts() const { return _counts; }
    /// Reports an error at the current line by the handler's rule; returns false.
    bool reportLine(const char* message) { return fail({{message}}, {}); }

    bool begin(Ref<RefCount> source) override;
    bool section(Ref<String> name) override { return sectionUnits(name->view()); }
    bool sectionUnits(std::u16string_view name) override;
    bool line(Ref<String> text) override;
    bool value(Ref<String> name, Ref<String> data) override { return valueUnits(name->view(), data->view()); }
    bool valueUnits(std::u16string_view label, std::u16string_view data) override;
    bool end() override { return true; }
    /// To be called when the import ends, however it ends.
    void settle();

 private:
    /// A key on the way to the current one.
    struct Step {
        Ref<String> element;  // of the path it was found by
        Ref<Key> key;
        Ref<String> name;  // the key's own; a deleted or moved key no longer gives this very string
    };

    /// A piece of a message: fixed text, then what it is about. Borrows that for the length of a call.
    struct Piece {
        Piece(const char* fixed, const Ref<String>& about = nullptr, std::optional<u64> code = std::nullopt)
            : text(fixed), subject(about.get()), number(code) {}

        const char* text;
        const String* subject;  // null for none
        std::optional<u64> number;
    };
    bool fail(std::initializer_list<Piece> message, std::initializer_list<Piece> details);
    bool failWithData(const char* message, const Ref<String>& name, std::u16string_view data);
    bool failWithCode(const char* message, const Ref<String>& path);
    bool failPrefix(const Ref<String>& name);
    void note(const char* text, const Ref<String>& subject) const;
    Ref<String> where() const;
    Ref<String> textOf(const Piece& piece) const;

    bool enterSection(std::u16string_view path);
    bool deleteSection(const Ref<String>& path);
    static bool isStep(const Step& step, std::u16string_view element);
    Ref<Key> openOrCreate(const Ref<Key>& key, const Ref<String>& name, std::u16string_view path);
    bool setString(const Ref<String>& name, std::u16string_view data);
    bool setDword(const Ref<String>& name, std::u16string_view data);
    bool setBinary(const Ref<String>& name, std::u16string_view data);
    Ref<Value> valueToSet(const Ref<String>& name, Value::ValueType type);

    const Ref<RegistryHive> _hive;
    const Ref<CharPrinter> _errorPrinter;
    Ref<Key> _current;   // the key that value lines apply to
    Ref<Key> _root;      // where `_steps` begin
    Array<Step> _steps;  // to the current key; none when there is none
    Ref<String> _prefix;
    Ref<String> _versionLine;     // null until it has come
    bool _listUnsettled = false;  // values of the current key were deleted
    const bool _verbose;
    Ref<CharReader> _source;
    ImportCounts _counts;
    HexData _hex;  // of the value being set
};

}  // namespace Libraries::Files::Hive
