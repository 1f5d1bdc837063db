#pragma once

#include "platform/system/object.h"

namespace Platform {

/// A counted growable vector.
template <typename T>
class TVector final : public Object {
 public:
    u64 size() const { return _items.size(); }
    /// REQUIRES: index < size().
    const T& at(u64 index) const { return _items[index]; }
    void append(T item) { _items.push_back(std::move(item)); }
    auto begin() const { return _items.begin(); }
    auto end() const { return _items.end(); }

 private:
    Array<T> _items;
};

/// A counted array that does not change after it was made.
template <typename T>
class TConstArray final : public Object {
 public:
    TConstArray(const T* items, u64 count) : _items(items, items + count) {}
    u64 size() const { return _items.size(); }
    const T* data() const { return _items.data(); }
    auto begin() const { return _items.begin(); }
    auto end() const { return _items.end(); }

 private:
    const Array<T> _items;
};

}  // namespace Platform
