#include "platform/system/object.h"

namespace Platform {

RefCount::~RefCount() = default;

void RefCount::decRef() const {
    if (_count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    lastRefGone();
    delete this;
}

bool RefCount::incRefIfAlive() const {
    u32 count = _count.load(std::memory_order_relaxed);
    while (count != 0)
        if (_count.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
    return false;
}

Object::~Object() {
    if (GcProxy* proxy = _proxy.load(std::memory_order_acquire)) {
        proxy->objectGone();  // an object destroyed without ever having been counted
        proxy->decWeakRef();
    }
}

void Object::lastRefGone() const {
    if (GcProxy* proxy = _proxy.load(std::memory_order_acquire)) proxy->objectGone();
}

GcProxy* Object::gcproxy() const {
    GcProxy* proxy = _proxy.load(std::memory_order_acquire);
    if (proxy) return proxy;
    auto* fresh = new GcProxy(this);
    if (_proxy.compare_exchange_strong(proxy, fresh, std::memory_order_acq_rel)) return fresh;
    fresh->decWeakRef();
    return proxy;
}

void GcProxy::decWeakRef() {
    if (_weakCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

bool GcProxy::lockWeakRef() {
    enter();
    const bool alive = _object && _object->incRefIfAlive();
    leave();
    return alive;
}

void GcProxy::objectGone() {
    enter();
    _object = nullptr;
    leave();
}

void GcProxy::enter() {
    while (_busy.exchange(true, std::memory_order_acquire)) _busy.wait(true, std::memory_order_relaxed);
}

void GcProxy::leave() {
    _busy.store(false, std::memory_order_release);
    _busy.notify_one();
}

}  // namespace Platform
