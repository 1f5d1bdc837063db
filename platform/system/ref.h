#pragma once

#include <cstddef>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace Platform {

/// A counted reference to a `RefCount` object: holds one count for as long as it lives. A null `Ref` is the
/// common failure result of operations that return objects.
///
/// Thread-safety: different `Ref`s to one object may be used from different threads; one `Ref` object may
/// not.
template <typename T>
class Ref {
 public:
    Ref() = default;
    Ref(std::nullptr_t) {}  // NOLINT: null is a legitimate value of every reference
    /// Takes a count of its own on `object` (which may be null).
    explicit Ref(T* object) : _object(object) {
        if (_object) _object->incRef();
    }
    Ref(const Ref& other) : Ref(other._object) {}
    Ref(Ref&& other) noexcept : _object(std::exchange(other._object, nullptr)) {}
    /// A reference to a derived class serves as one to its base.
    template <typename U>
    requires std::is_convertible_v<U*, T*> Ref(const Ref<U>& other)
        : Ref(static_cast<T*>(other.get())) {}  // NOLINT: as implicit as the pointer conversion
    template <typename U>
    requires std::is_convertible_v<U*, T*> Ref(Ref<U>&& other)
    noexcept : _object(other.release()) {}  // NOLINT: as implicit as the pointer conversion
    ~Ref() { reset(); }

    Ref& operator=(Ref other) noexcept {
        std::swap(_object, other._object);
        return *this;
    }

    /// Gives up the count; the reference is null afterwards.
    void reset() {
        if (T* object = std::exchange(_object, nullptr)) object->decRef();
    }

    /// Adopts a count that was taken already (`GcProxy::lockWeakRef` hands one over).
    static Ref adopt(T* counted) {
        Ref ref;
        ref._object = counted;
        return ref;
    }

    /// Hands the count over to the caller; the reference is null afterwards.
    T* release() { return std::exchange(_object, nullptr); }

    T* get() const { return _object; }
    T* operator->() const { return _object; }
    T& operator*() const { return *_object; }
    explicit operator bool() const { return _object != nullptr; }

    template <typename U>
    bool operator==(const Ref<U>& other) const {
        return _object == other.get();
    }
    bool operator==(std::nullptr_t) const { return _object == nullptr; }

 private:
    T* _object = nullptr;
};

/// Builds a counted object; the result holds its first count.
template <typename T, typename... Args>
Ref<T> makeRef(Args&&... args) {
    return Ref<T>(new T(std::forward<Args>(args)...));
}

/// The object seen as a `T`, null when it is none (a dynamic type check).
template <typename T, typename U>
Ref<T> refCast(const Ref<U>& ref) {
    // Nothing derives from a final class: its own type is all there is to check.
    if constexpr (std::is_final_v<T> && requires(U * object) { static_cast<T*>(object); }) {
        const U* const object = ref.get();
        return Ref<T>(object && typeid(*object) == typeid(T) ? static_cast<T*>(ref.get()) : nullptr);
    } else {
        return Ref<T>(dynamic_cast<T*>(ref.get()));
    }
}

}  // namespace Platform
