// LoopThread: a thread that runs a loop as long as the object lives.
#pragma once

#include "platform/foundation/CFRunLoop.h"
#include "platform/kernel/MutexGuard.h"

#include <utility>

namespace support {

class LoopThread {
public:
    explicit LoopThread(const char* name)
    {
        platform::kernel::pthread_cond_init(&mReady, nullptr);
        platform::kernel::pthread_create(&mThread, nullptr, &Run, this, name);
        const platform::kernel::MutexGuard guard(mMutex);
        while (!mLoop) platform::kernel::pthread_cond_wait(&mReady, &mMutex);
    }
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;
    ~LoopThread()
    {
        End();
        platform::kernel::pthread_cond_destroy(&mReady);
    }

    CFRunLoopRef Loop() const { return mLoop; }
    /// Stops the loop and waits for the end of its thread.
    void End()
    {
        if (!mLoop) return;
        CFRunLoopStop(mLoop);
        platform::kernel::pthread_join(mThread, nullptr);
        CFRelease(std::exchange(mLoop, nullptr));
    }

private:
    static void* Run(void* self)
    {
        auto& thread = *static_cast<LoopThread*>(self);
        {
            const platform::kernel::MutexGuard guard(thread.mMutex);
            thread.mLoop = cf::RunLoopOfThisThread();
            CFRetain(thread.mLoop);  // a case may stop it, and the thread ends
            platform::kernel::pthread_cond_signal(&thread.mReady);
        }
        CFRunLoopRun();
        return nullptr;
    }

    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t mReady;
    pthread_t mThread{};
    CFRunLoopRef mLoop = nullptr;
};

}  // namespace support
