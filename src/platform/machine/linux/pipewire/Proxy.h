// Proxy: our end of one object of the server, with one table of events. Both end with it.
#pragma once

#include <pipewire/pipewire.h>

#include <utility>

namespace platform::machine::pipewire {

class Proxy {
public:
    /// Binds an object that the server announced.
    Proxy(pw_registry* registry, uint32_t id, const char* type, uint32_t version, const void* events, void* self)
        : mProxy(static_cast<pw_proxy*>(pw_registry_bind(registry, id, type, version, 0)))
    {
        if (mProxy != nullptr) pw_proxy_add_object_listener(mProxy, &mHook, events, self);
    }

    /// Takes the list of announcements itself.
    Proxy(pw_registry* registry, const pw_registry_events& events, void* self)
        : mProxy(reinterpret_cast<pw_proxy*>(registry))
    {
        if (mProxy != nullptr) pw_proxy_add_object_listener(mProxy, &mHook, &events, self);
    }

    /// Takes an object that we had the server make, or null where that failed.
    Proxy(void* created, const pw_proxy_events* events, void* self) : mProxy(static_cast<pw_proxy*>(created))
    {
        if (mProxy != nullptr) pw_proxy_add_listener(mProxy, &mHook, events, self);
    }

    ~Proxy()
    {
        if (mProxy == nullptr) return;
        spa_hook_remove(&mHook);
        pw_proxy_destroy(mProxy);
    }
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

    /// Null where it could not be had.
    template <typename Interface>
    Interface* As() const
    {
        return reinterpret_cast<Interface*>(mProxy);
    }

private:
    pw_proxy* mProxy;
    spa_hook mHook{};
};

}  // namespace platform::machine::pipewire
