#include "platform/machine/linux/pipewire/Context.h"

#include <pipewire/impl.h>
#include <pipewire/pipewire.h>
#include <pthread.h>
#include <spa/support/thread.h>

namespace platform::machine::pipewire {

Context::Context(Loop& loop) : mLoop(loop)
{
    const BlockedSignals inherited;  // the library starts its data thread here
    // Where client-rt.conf is missing the library takes client.conf by itself.
    if (!TryConfiguration("client-rt.conf")) {
        GoWithoutConfiguration();
        return;
    }
    mThreadUtils = static_cast<spa_thread_utils*>(pw_context_get_object(mContext, SPA_TYPE_INTERFACE_ThreadUtils));
    if (mThreadUtils == nullptr)
        mShortcoming =
            "without PipeWire's real-time module, so the thread that takes sound from the server is scheduled as any "
            "other";
}

Context::~Context()
{
    const BlockedSignals blocked;
    if (mContext != nullptr) pw_context_destroy(mContext);
}

// For a thread that the library did not make, it names the calling one to the broker.
bool Context::RequestPriority(int priority) const
{
    if (mThreadUtils == nullptr) return false;
    auto* self = reinterpret_cast<spa_thread*>(pthread_self());
    return spa_thread_utils_acquire_rt(mThreadUtils, self, priority) >= 0;
}

bool Context::TryConfiguration(const char* file)
{
    mContext = pw_context_new(mLoop.Get(), pw_properties_new(PW_KEY_CONFIG_NAME, file, nullptr), 0);
    return mContext != nullptr;
}

void Context::GoWithoutConfiguration()
{
    if (!TryConfiguration("null")) {
        mShortcoming = "PipeWire's client library could not be set up: is its installation complete?";
        return;
    }
    for (const char* library : {"audioconvert/libspa-audioconvert", "support/libspa-support"})
        pw_context_add_spa_lib(mContext, library[0] == 'a' ? "audio.convert.*" : "support.*", library);
    for (const char* module : {"protocol-native", "client-node", "adapter", "metadata"})
        pw_context_load_module(mContext, (std::string("libpipewire-module-") + module).c_str(), nullptr, nullptr);
    mShortcoming = "without PipeWire's client configuration, so audio threads are scheduled as any other";
}

}  // namespace platform::machine::pipewire
