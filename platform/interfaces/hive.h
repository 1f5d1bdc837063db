#pragma once

#include "platform/interfaces/stripe.h"
#include "platform/system/string.h"
#include "platform/system/vector.h"

/// The platform's interfaces of a configuration hive: a tree of keys, each with values.
///
/// Failures are returned, never thrown: false, a null `Ref` or 0, with the reason in
/// `Platform::Error::get()`. Names and paths are matched case-insensitively. Every operation that reads or
/// changes the hive holds the hive's monitor for its whole run and may be called from any thread; plain
/// getters take no lock.
namespace Interfaces::Config::Hive {

using Platform::Ref;
using Platform::RefCount;
using Platform::ShPtr;
using Platform::String;
using Platform::TVector;
using Platform::u32;
using Platform::u64;

/// One value of a key. Holds its hive and its key.
class Value : public virtual RefCount {
 public:
    /// The registry type code as stored in the hive (never to be renumbered). Codes without a name here are
    /// kept as they are and reach the data only through `binary` and `read`.
    enum ValueType : u32 {
        valueNone = 0,
        valueString = 1,
        valueExpandString = 2,
        valueBinary = 3,
        valueDword = 4,
        valueDwordBigEndian = 5,
        valueStrings = 7,
        valueQword = 11,
    };

    /// The name, "" for the default value; null when the object is not valid or the stored name has no text.
    virtual Ref<String> name() const = 0;
    virtual ValueType type() const = 0;
    /// Changes the type code, not the data. Errors: 0x1000, 0x1001.
    virtual bool setType(ValueType type) = 0;

    /// Length of the data in bytes; 0 with error 0x1001 when not valid.
    virtual u32 size() = 0;
    /// Changes the length, keeping the data's head; returns the length in force afterwards. Errors: 0x1000,
    /// 0x1001, 0x1002.
    virtual u32 size(u32 newSize) = 0;
    virtual u32 maxSize() const = 0;
    /// Whether `binary` gives a resizable stripe.
    virtual bool canResize() const = 0;
    virtual bool readOnly() = 0;

    /// Copies up to `count` bytes from `offset` on; returns how many. `count` is cut to `size()`, not to what
    /// lies behind `offset`; data kept inside the value record is always copied from its first byte.
    virtual u32 read(ShPtr destination, u32 offset, u32 count) = 0;
    /// Overwrites bytes, never extends; returns how many were written.
    virtual u32 write(ShPtr source, u32 offset, u32 count) = 0;

    /// The text of a string value (types 1 and 2) of at most `maxLength` UTF-16 units as stored, without
    /// trailing NULs. Errors: 0x1001, 0x1011, 0x1012 longer, 0x1013 one byte of data.
    virtual Ref<String> string(u32 maxLength) = 0;
    /// Errors: 0x1000, 0x1001, 0x1011, 0x1012, 0x1017 not all written; so `setStrings`.
    virtual bool setString(Ref<String> text) = 0;
    /// The texts of a string list (type 7). Errors: 0x1001, 0x1011, 0x1012, 0x1014 not terminated.
    virtual Ref<TVector<Ref<String>>> strings(u32 maxLength) = 0;
    virtual bool setStrings(Ref<TVector<Ref<String>>> texts) = 0;
    /// The number of a value of type 4, 5 or 11; all ones on failure, and error 0 on success, so that a
    /// stored all-ones number can be told from a failure. Errors: 0x1001, 0x1011, 0x1015, 0x1016.
    virtual u64 number() = 0;
    /// Errors: 0x1000, 0x1001, 0x1011, 0x1015, 0x1017, 0x1019 above 32 bits for a 32-bit type.
    virtual bool setNumber(u64 number) = 0;
    /// The data as a byte store of its own, whatever the type.
    virtual Ref<Interfaces::Stripe> binary() = 0;
};

class Key;

/// A position in a key's list of subkeys, from 0 to the count. Not a snapshot: the key moves it along when
/// entries before it come or go. Keeps its key alive. One iterator is for one user at a time.
class KeyIterator : public virtual RefCount {
 public:
    /// Moves to `position`, at most to the count; returns the new position.
    virtual u32 seek(u32 position) = 0;
    virtual u32 count() = 0;
    /// The entry at the position, which moves on; null at the end (and for an entry that cannot be opened).
    virtual Ref<Key> next() = 0;
};

/// The same for a key's values.
class ValueIterator : public virtual RefCount {
 public:
    virtual u32 seek(u32 position) = 0;
    virtual u32 count() = 0;
    virtual Ref<Value> next() = 0;
};

/// One key. Holds its hive and its parent key.
class Key : public virtual RefCount {
 public:
    /// The name, "" for the root key; null when the object is not valid or the stored name has no text.
    virtual Ref<String> name() = 0;

    /// The subkey of that name. Errors: 0x1003 no such key, 0x2007 broken subkey list.
    virtual Ref<Key> key(Ref<String> name) = 0;
    /// Makes a subkey. Errors: 0x1000 read-only, 0x1002 no room, 0x1005 it exists, 0x1006 name longer than
    /// 255 characters, 0x1007 no room in the list, 0x1018 too deep, 0x200A no hash of the name, 0x200D the
    /// search broke down.
    virtual Ref<Key> createKey(Ref<String> name) = 0;
    /// Deletes a subkey without subkeys and values. Errors: 0x1000, 0x1010 not empty, 0x8446 no subkey of
    /// this object.
    virtual bool deleteKey(Ref<Key> key) = 0;
    virtual Ref<KeyIterator> keyIterator() = 0;

    /// The value of that name ("" for the default value). Errors: 0x1004 no such value, 0x2008 broken value
    /// list.
    virtual Ref<Value> value(Ref<String> name) = 0;
    /// Makes a value: without data, or with a number's length. Errors: 0x1000, 0x1002, 0x1008 it exists,
    /// 0x1009 name too long.
    virtual Ref<Value> createValue(Ref<String> name, Value::ValueType type) = 0;
    /// Deletes a value that this object handed out (else 0x8446). Error: 0x1000.
    virtual bool deleteValue(Ref<Value> value) = 0;
    virtual Ref<ValueIterator> valueIterator() = 0;

    /// Moves a value or a key (with all below it) into this key under a new name. Errors: 0x1000, 0x8446
    /// another hive's; of a value 0x100B bad name, 0x100D name taken; of a key 0x1006 bad name, 0x100A
    /// subkeys unreadable, 0x100C name taken, 0x100E into itself, 0x100F the root, 0x1018 too deep, 0x200A no
    /// hash of the name, 0x200E search broke down.
    virtual bool move(Ref<Value> value, Ref<String> newName) = 0;
    virtual bool move(Ref<Key> key, Ref<String> newName) = 0;

    virtual bool readOnly() = 0;
};

/// An open hive.
class RegistryHive : public virtual RefCount {
 public:
    /// The root key; the same object as long as anybody holds it. Error 0x2001 when it cannot be read.
    virtual Ref<Key> root() = 0;
    /// The key at a path below the root, names separated by '/'; null when a component is missing.
    virtual Ref<Key> path(Ref<String> path) = 0;
    /// Writes what has changed to the file. True when nothing is left to write.
    virtual bool flush() = 0;
    /// The mode bits given at opening.
    virtual u32 mode() const = 0;
    virtual u32 versionMajor() const = 0;
    virtual u32 versionMinor() const = 0;
    virtual bool readonly() const = 0;
    virtual bool valid() const = 0;
};

}  // namespace Interfaces::Config::Hive
