#pragma once

#include <optional>

#include "hive/keys/keyobj.h"
#include "regfile/regfiletext.h"
#include "regfile/walkbudget.h"

namespace Libraries::Files::Hive {

/// Writes key branches as registry export text on a printer.
class RegFileExporter {
 public:
    /// `errorPrinter` may be null: errors then go to the log. `flag` is stored and changes nothing.
    RegFileExporter(Ref<CharPrinter> out, Ref<CharPrinter> errorPrinter, bool flag, bool binaryOnly);

    /// Writes the block of `key` and of every key below it, parents before children. `path` (export notation)
    /// stands before the key's name. False, with a report, at the first thing that cannot be read or written.
    bool recursiveExport(const Ref<Key>& key, const Ref<String>& path);

    bool flag() const { return _flag; }

 private:
    template <typename AnyKey>
    bool exportKey(const Ref<AnyKey>& key);
    template <typename AnyKey>
    bool exportSubkey(const Ref<AnyKey>& key);
    bool exportSubkeys(const Ref<Key>& key);
    bool exportSubkeys(const Ref<KeyObj>& key);
    bool exportValues(const Ref<Key>& key);
    bool exportValues(const Ref<KeyObj>& key);
    bool exportLeaf(KeyObj& parent, u32 index);
    template <typename KeyObject>
    bool exportListed(const ValueListPlace& list, KeyObject keyObject);
    bool exportValue(const Ref<Value>& value);
    bool hasPlainForm(const ValueBatch::Entry& value) const;
    bool exportCopy(const ValueBatch::Entry& value);
    bool exportAsText(const Ref<Value>& value, const Ref<String>& name);
    bool exportAsBinary(const Ref<Value>& value, const Ref<String>& name);
    bool fail(const char* message) const;
    bool failData(const char* message, std::u16string_view valueName) const;
    Ref<String> placeOf(std::u16string_view valueName) const;
    bool readData(Interfaces::Stripe& data, u64 count, Array<u8>& bytes) const;
    void reportFallback(const char* kind, const Ref<String>& place);

    RegFileText _text;
    const Ref<CharPrinter> _errorPrinter;
    const bool _flag;
    std::optional<WalkBudget> _budget;  // of the walk under way
    Utf16Buffer _path;                  // of the key being written: one buffer, however deep the walk
    Ref<RegistryHiveObj> _hive;         // that of the keys, when it is read-only
    LeafCopy _leaf;                     // the key being written, if it was copied
    ValueBatch _values;                 // the values being written
};

}  // namespace Libraries::Files::Hive
