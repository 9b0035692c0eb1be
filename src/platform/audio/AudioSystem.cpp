#include "platform/audio/AudioSystem.h"

#include "platform/kernel/MutexGuard.h"
#include "platform/kernel/System.h"
#include "platform/machine/Machine.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace platform::audio {

namespace {

constexpr AudioObjectPropertyAddress Global(AudioObjectPropertySelector selector)
{
    return {selector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMaster};
}

machine::AudioServer& Server()
{
    return machine::Machine::Current().GetAudioServer();
}

std::vector<AudioDeviceID> NumbersOf(const NativeDevices& native)
{
    std::vector<AudioDeviceID> numbers;
    for (const NativeDevice& device : native.mDevices) numbers.push_back(device.mID);
    return numbers;
}

/// A copy that a process made of itself has none of its threads, and nothing to end.
void UnloadAtExit()
{
    if (AudioSystem::Get().IsOfThisProcess()) AudioSystem::Get().Unload(true);
}

}  // namespace

AudioSystem& AudioSystem::Get()
{
    static auto& system = *new AudioSystem;
    return system;
}

void AudioSystem::EnsureRunning()
{
    if (Loop()) return;
    const kernel::MutexGuard guard(mStartMutex);
    if (Loop()) return;
    mNative = CopyNativeDevices();  // what the thread starts to compare with; it does not run yet
    mProcess.store(kernel::getpid(), std::memory_order_relaxed);
    kernel::pthread_cond_init(&mRuns, nullptr);
    kernel::pthread_create(&mThread, nullptr, &RunEntry, this, "corvane-system");
    {
        const kernel::MutexGuard loopGuard(mLoopMutex);
        while (!Loop()) kernel::pthread_cond_wait(&mRuns, &mLoopMutex);
    }
    Server().AddListener(this);
    OnServerChanged();  // what changed before it could be heard of
}

void* AudioSystem::RunEntry(void* system)
{
    auto& self = *static_cast<AudioSystem*>(system);
    {
        const kernel::MutexGuard guard(self.mLoopMutex);
        self.mLoop.store(cf::RunLoopOfThisThread(), std::memory_order_release);
        kernel::pthread_cond_signal(&self.mRuns);
    }
    CFRunLoopRun();
    return nullptr;
}

bool AudioSystem::IsOfThisProcess() const
{
    return mProcess.load(std::memory_order_relaxed) == kernel::getpid();
}

void AudioSystem::EnsurePlugIns()
{
    if (mLoaded.load(std::memory_order_acquire) || IsOnOwnThread()) return;
    EnsureRunning();
    const kernel::MutexGuard guard(mStartMutex);  // the loop does not end meanwhile
    if (Loop()) cf::PerformAndWait(Loop(), [this] { LoadPlugIns(); });
}

void AudioSystem::LoadPlugIns()
{
    if (mLoaded.load(std::memory_order_relaxed)) return;
    for (auto& plugIn : MakePlugIns()) {
        const AudioObjectID number = mObjects.Add(plugIn);
        mPlugIns.emplace_back(number, plugIn);
        const OSStatus error = plugIn->Calls().InitializeWithObjectID(plugIn->Reference(), number);
        if (error != 0) std::fprintf(stderr, "corvane: a plug-in did not start (status %d)\n", int(error));
    }
    // After the libraries were loaded, so that it runs before their own ends do.
    static const int atExit = std::atexit(&UnloadAtExit);
    static_cast<void>(atExit);
    mLoaded.store(true, std::memory_order_release);
}

void AudioSystem::TearPlugInsDown()
{
    for (auto& [number, plugIn] : mPlugIns) static_cast<void>(plugIn->Calls().Teardown(plugIn->Reference()));
    mObjects.Clear();
    mPlugIns.clear();
    mLoaded.store(false, std::memory_order_release);
}

void AudioSystem::Unload(bool exiting)
{
    const kernel::MutexGuard guard(mStartMutex);
    if (!Loop()) return;
    mExiting.store(exiting, std::memory_order_relaxed);
    Server().RemoveListener(this);
    cf::PerformAndWait(Loop(), [this] {
        TearPlugInsDown();
        const kernel::MutexGuard loopGuard(mLoopMutex);
        CFRunLoopStop(mLoop.exchange(nullptr, std::memory_order_acq_rel));
    });
    kernel::pthread_join(mThread, nullptr);
    kernel::pthread_cond_destroy(&mRuns);
    mExiting.store(false, std::memory_order_relaxed);
}

void AudioSystem::TellLater(AudioObjectID object, std::vector<AudioObjectPropertyAddress> changed)
{
    if (changed.empty()) return;
    DoLater([this, object, changed = std::move(changed)] { mListeners.Tell(object, changed); });
}

void AudioSystem::DoLater(std::function<void()> work)
{
    const kernel::MutexGuard guard(mLoopMutex);
    if (Loop()) cf::Perform(Loop(), std::move(work));
}

void AudioSystem::OnServerChanged() noexcept
{
    DoLater([this] { CompareNativeDevices(); });
}

void AudioSystem::CompareNativeDevices()
{
    NativeDevices now = CopyNativeDevices();
    std::vector<AudioObjectPropertyAddress> changed;
    if (NumbersOf(now) != NumbersOf(mNative)) changed.push_back(Global(kAudioHardwarePropertyDevices));
    if (now.mDefaultInput != mNative.mDefaultInput) changed.push_back(Global(kAudioHardwarePropertyDefaultInputDevice));
    if (now.mDefaultOutput != mNative.mDefaultOutput) {
        changed.push_back(Global(kAudioHardwarePropertyDefaultOutputDevice));
        changed.push_back(Global(kAudioHardwarePropertyDefaultSystemOutputDevice));
    }
    mNative = std::move(now);
    if (!changed.empty()) mListeners.Tell(kAudioObjectSystemObject, changed);
}

}  // namespace platform::audio

void AudioHardwareUnload()
{
    platform::audio::AudioSystem::Get().Unload(false);
}
