#pragma once

#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

/// One sk record.
class SecurityDescriptorObj final : public SecurityDescriptor, public Object {
 public:
    /// The object for the record at `cell`; null unless it is an allocated sk record. REQUIRES the hive's
    /// monitor held.
    static Ref<SecurityDescriptorObj> create(const Ref<RegistryHiveObj>& hive, u32 cell);

    Ref<TConstArray<unsigned char>> get() override;
    bool set(const void* data, u32 length) override;
    u32 recordOfs() const override { return _cell; }
    u32 users() override;

 private:
    template <typename T, typename... Args>
    friend Ref<T> Platform::makeRef(Args&&... args);
    SecurityDescriptorObj(Ref<RegistryHiveObj> hive, u32 cell) : _hive(std::move(hive)), _cell(cell) {}
    bool check(const RecordView& record, int firstLine, const char* function) const;

    const Ref<RegistryHiveObj> _hive;
    const u32 _cell;
};

}  // namespace Libraries::Files::Hive
