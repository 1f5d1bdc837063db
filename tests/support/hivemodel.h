#pragma once

#include "tests/hive/cells.h"
#include "tests/hive/openedhive.h"

namespace HiveTest {

/// A value as it should be, and the record it lies in.
struct ModelValue {
    std::u16string name;
    u32 type;
    std::vector<u8> data;
    u32 record;
};

/// A key as it should be. `listed` is what its list record holds: the records of the values, but for the
/// trace that removing the last but one of a list leaves until the record is written whole again.
struct ModelKey {
    u32 record = 0;
    std::vector<ModelValue> values;
    std::vector<u32> listed;
};

/// Drives a hive and a plain model of it through the same random operations on the values of some keys; the
/// same seed gives the same operations. Failures of the hive are test failures.
class HiveModel {
 public:
    static constexpr u32 KEYS = 5;

    /// With `avoidTrace` no operation removes the last but one entry of a list.
    HiveModel(u32 minor, u32 mode, u32 seed, bool avoidTrace);
    ~HiveModel();

    void run(u32 operations);
    /// Removes the last but one value of some key, so that there is a trace to see.
    void leaveTrace();
    /// Closes the hive and checks the file: every list record holds what it should, and once the traces are
    /// repaired the file has no fault. Returns the file as it was closed, and how many entries were repaired.
    std::vector<u8> close(u32& repaired);
    /// Opens the hive and compares all values, through names and in order.
    void open();

 private:
    void step();
    Ref<KeyObj> key(u32 index);
    Ref<ValueObj> value(u32 key, u64 index);
    void create(u32 key);
    void change(u32 key, u64 index);
    void resize(u32 key, u64 index);
    void move(u32 from, u64 index, u32 to);
    void remove(u32 key, u64 index);
    void link(u32 key, ModelValue value);
    void unlink(u32 key, u64 index);
    bool leavesTrace(u64 removed, u64 entries) const { return entries > 1 && removed == entries - 2; }
    std::u16string freshName();
    u32 someSize();
    std::vector<u8> bytes(u64 count) { return patternBytes(count, _random()); }

    Random _random;
    const u32 _mode;
    const bool _avoidTrace;
    u32 _names = 0;
    Ref<MemoryStripe> _store;
    Ref<RegistryHiveObj> _hive;
    std::vector<Ref<KeyObj>> _held;     // all keys while a list in memory may differ from its record
    std::vector<Ref<ValueObj>> _users;  // some values, as a caller would hold them
    std::vector<ModelKey> _keys{KEYS};
};

}  // namespace HiveTest
