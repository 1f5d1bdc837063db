#pragma once

#include <atomic>

#include "platform/system/counter.h"
#include "platform/system/export.h"
#include "platform/system/heap.h"
#include "platform/system/ref.h"

namespace Platform {

class GcProxy;

/// The reference count of an object, shared by all its interfaces: every interface and `Object` derive from
/// it virtually, so that an object has one count whatever face it is held by. The object dies with its last
/// count.
///
/// Thread-safety: `incRef` and `decRef` may be called from any thread.
class PLATFORM_API RefCount {
 public:
    RefCount(const RefCount&) = delete;
    RefCount& operator=(const RefCount&) = delete;

    void incRef() const { _count.increment(); }
    void decRef() const {
        if (_count.decrement()) destroy();
    }

    // Without memory for an object the process ends, see Heap.
    static void* operator new(std::size_t bytes) { return Heap::mustAlloc(bytes); }
    static void operator delete(void* object) { Heap::free(object); }

 protected:
    RefCount() = default;
    virtual ~RefCount();

    /// Called once, when the count has reached 0 and before destruction: cuts the weak references.
    virtual void lastRefGone() const {}

 private:
    friend class GcProxy;
    /// Takes a count unless the object is already dying. REQUIRES: the object's memory is still valid.
    bool incRefIfAlive() const { return _count.incrementIfAny(); }
    void destroy() const;

    mutable RefCounter _count{0};
};

/// A counted object that can also be referred to weakly.
class PLATFORM_API Object : public virtual RefCount {
 public:
    /// The object's weak-reference proxy, made on first use. The pointer is valid while the object lives;
    /// take a weak reference (`GcProxy::incWeakRef`) to keep the proxy longer.
    GcProxy* gcproxy() const;

 protected:
    Object() = default;
    ~Object() override;
    void lastRefGone() const override;

 private:
    mutable std::atomic<GcProxy*> _proxy{nullptr};
};

/// Stands for an object in weak references and outlives it: the object owns one weak count, each weak
/// reference one.
///
/// Thread-safety: all operations may be called from any thread. A lock never resurrects: once the object's
/// count has reached 0, `lockWeakRef` fails for good.
class PLATFORM_API GcProxy {
 public:
    GcProxy(const GcProxy&) = delete;
    GcProxy& operator=(const GcProxy&) = delete;

    void incWeakRef() { _weakCount.increment(); }
    void decWeakRef() {
        if (_weakCount.decrement()) delete this;
    }

    /// Takes a strong count on the object. Returns false when it is gone; on true the caller owns the count.
    bool lockWeakRef();

    static void* operator new(std::size_t bytes) { return Heap::mustAlloc(bytes); }
    static void operator delete(void* proxy) { Heap::free(proxy); }

 private:
    friend class Object;
    explicit GcProxy(const Object* object) : _object(object) {}
    ~GcProxy() = default;
    void objectGone();
    void enter();
    void leave();

    RefCounter _weakCount{1};
    std::atomic<bool> _busy{
        false};  // guards _object; a full mutex would triple the size of every weak reference
    const Object* _object;
};

/// A weak reference: the object's address beside its proxy. Empty, or one weak count for as long as it lives.
template <typename T>
class WeakRef {
 public:
    WeakRef() = default;
    explicit WeakRef(const Ref<T>& ref) : WeakRef(ref.get()) {}
    explicit WeakRef(T* object) : _object(object), _proxy(object ? object->gcproxy() : nullptr) {
        if (_proxy) _proxy->incWeakRef();
    }
    WeakRef(WeakRef&& other) noexcept
        : _object(std::exchange(other._object, nullptr)), _proxy(std::exchange(other._proxy, nullptr)) {}
    WeakRef& operator=(WeakRef&& other) noexcept {
        std::swap(_object, other._object);
        std::swap(_proxy, other._proxy);
        return *this;
    }
    ~WeakRef() {
        if (_proxy) _proxy->decWeakRef();
    }

    /// Whether this is a reference to `object`, which is alive.
    bool refersTo(const T* object) const { return _object == object && lock(); }
    /// The object, or null when it is gone or the reference is empty.
    Ref<T> lock() const { return _proxy && _proxy->lockWeakRef() ? Ref<T>::adopt(_object) : Ref<T>(); }

 private:
    T* _object = nullptr;
    GcProxy* _proxy = nullptr;
};

}  // namespace Platform
