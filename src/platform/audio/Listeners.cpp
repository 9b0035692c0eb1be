#include "platform/audio/Listeners.h"

#include "platform/kernel/MutexGuard.h"

#include <algorithm>
#include <optional>

namespace platform::audio {

namespace {

constexpr UInt32 kAnyCode = kAudioObjectPropertySelectorWildcard;  // the same for scopes

bool Matches(const AudioObjectPropertyAddress& wanted, const AudioObjectPropertyAddress& changed)
{
    return (wanted.mSelector == changed.mSelector || wanted.mSelector == kAnyCode) &&
           (wanted.mScope == changed.mScope || wanted.mScope == kAnyCode) &&
           (wanted.mElement == changed.mElement || wanted.mElement == kAudioObjectPropertyElementWildcard);
}

std::vector<AudioObjectPropertyAddress> MatchesAmong(const Listeners::Listener& listener, AudioObjectID object,
                                                     const std::vector<AudioObjectPropertyAddress>& changed)
{
    std::vector<AudioObjectPropertyAddress> matches;
    if (listener.mObject != object) return matches;
    std::ranges::copy_if(changed, std::back_inserter(matches),
                         [&](const auto& address) { return Matches(listener.mAddress, address); });
    return matches;
}

}  // namespace

bool Listeners::Listener::operator==(const Listener& other) const
{
    return mObject == other.mObject && mAddress.mSelector == other.mAddress.mSelector &&
           mAddress.mScope == other.mAddress.mScope && mAddress.mElement == other.mAddress.mElement &&
           mProcedure == other.mProcedure && mClientData == other.mClientData;
}

Listeners::Listeners()
{
    kernel::pthread_cond_init(&mCallEnded, nullptr);
}

bool Listeners::Add(const Listener& listener)
{
    const kernel::MutexGuard guard(mMutex);
    if (std::ranges::find(mRows, listener, &Row::mListener) != mRows.end()) return false;
    mRows.push_back({listener, mNextNumber++});
    return true;
}

bool Listeners::Remove(const Listener& listener)
{
    const kernel::MutexGuard guard(mMutex);
    const auto row = std::ranges::find(mRows, listener, &Row::mListener);
    if (row == mRows.end()) return false;
    const uint64_t number = row->mNumber;
    mRows.erase(row);
    while (mRunning == number && !pthread_equal(mRunner, pthread_self()))
        kernel::pthread_cond_wait(&mCallEnded, &mMutex);
    return true;
}

void Listeners::Tell(AudioObjectID object, const std::vector<AudioObjectPropertyAddress>& changed)
{
    for (uint64_t told = 0;;) {
        std::optional<Row> next;
        std::vector<AudioObjectPropertyAddress> matches;
        {
            const kernel::MutexGuard guard(mMutex);
            for (const Row& row : mRows) {
                if (row.mNumber <= told) continue;
                matches = MatchesAmong(row.mListener, object, changed);
                if (matches.empty()) continue;
                next = row;
                break;
            }
            if (!next) return;
            told = mRunning = next->mNumber;
            mRunner = pthread_self();
        }
        // What a listener answers concerns nobody: it was told.
        static_cast<void>(
            next->mListener.mProcedure(object, UInt32(matches.size()), matches.data(), next->mListener.mClientData));
        const kernel::MutexGuard guard(mMutex);
        mRunning = 0;
        kernel::pthread_cond_broadcast(&mCallEnded);
    }
}

}  // namespace platform::audio
