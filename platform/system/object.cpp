#include "platform/system/object.h"

namespace Platform {

RefCount::~RefCount() = default;

void RefCount::destroy() const {
    lastRefGone();
    delete this;
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

bool GcProxy::lockWeakRef() {
    if (onlyThread()) return _object && _object->incRefIfAlive();
    enter();
    const bool alive = _object && _object->incRefIfAlive();
    leave();
    return alive;
}

void GcProxy::objectGone() {
    if (onlyThread()) {
        _object = nullptr;
        return;
    }
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
