#pragma once

#include <functional>
#include <map>
#include <set>

#include "platform/system/heap.h"
#include "tests/hive/openedhive.h"
#include "tests/support/failingstripe.h"
#include "tests/support/sharedstripe.h"

namespace HiveTest {

/// One hive under change while its store or the memory fails, and what must hold in it. An operation is
/// about subjects (a value, or the keys whose lists it changes); once it has failed they are spoilt, which
/// means that they may hold anything and are left alone. Everything else must be as expected.
class FaultSession {
 public:
    FaultSession(const std::vector<u8>& file, u32 mode);

    /// Once more when it fails: a hive whose root cannot be read is of no more use.
    void open();
    void close() {
        held.reset();
        root.reset();
        hive.reset();
    }
    Ref<Key> key(std::u16string_view path) { return hive ? hive->path(text(path)) : nullptr; }
    /// Failures so far, of the store and of memory.
    u64 faults() const { return failing->failures() + (memoryFails && !Platform::Heap::callsToFailure()); }

    using Check = std::function<bool()>;
    using Subjects = std::initializer_list<std::u16string>;
    /// Runs an operation unless a subject is spoilt. It must succeed unless something failed underneath, and
    /// set an error code when it fails. `holds` must hold from then on; it replaces what was expected of the
    /// same `item` of the first subject. Not `sure`: it may pass over the failure of a vk record's update, as
    /// resizing is documented to, so that success with a failure underneath tells nothing.
    void apply(Subjects subjects, const std::u16string& item, bool sure, const Check& operation,
               const Check& holds);
    void expect(const std::u16string& subject, const std::u16string& item, const Check& holds) {
        _expected[subject][item] = holds;
    }
    /// Reads more than the cache holds, so that all that is loaded is dropped.
    void churn(std::u16string_view values);

    void checkExpected(const char* when);
    /// What no script touches.
    void checkKept(const char* when);

    const u32 mode;
    const Ref<SharedStripe> store;
    const Ref<FailingStripe> failing;
    Ref<RegistryHiveObj> hive;
    Ref<Key> root;
    Ref<Key> held;  // its lists in memory stay right where those on disk do not
    bool memoryFails = false;

 private:
    std::map<std::u16string, std::map<std::u16string, Check>> _expected;
    std::set<std::u16string> _spoilt;
};

struct FaultScript {
    const char* name;
    void (*run)(FaultSession& session);
    bool lasts;  ///< whether what succeeded is there after reopening too
};

/// Every kind of operation, in scripts that begin with `faultStart`.
extern const FaultScript faultScripts[5];
/// More data than the cache holds, in every storage form, and subkey lists that are about to change kind.
std::vector<u8> faultStart(u32 minor);

}  // namespace HiveTest
