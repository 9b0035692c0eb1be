#include "platform/audio/ObjectTable.h"

#include "platform/kernel/MutexGuard.h"

#include <algorithm>
#include <utility>

namespace platform::audio {

AudioObjectID ObjectTable::Add(std::shared_ptr<PlugIn> plugIn)
{
    const kernel::MutexGuard guard(mMutex);
    mRows.emplace(mNext, Row{std::move(plugIn), kAudioObjectSystemObject, kAudioPlugInClassID, true});
    return mNext++;
}

std::optional<AudioObjectID> ObjectTable::Create(AudioHardwarePlugInRef plugIn, AudioObjectID owner, UInt32 classID)
{
    const kernel::MutexGuard guard(mMutex);
    const auto own = std::ranges::find_if(mRows, [&](const auto& row) {
        return row.second.mClassID == kAudioPlugInClassID && row.second.mPlugIn->Reference() == plugIn;
    });
    if (own == mRows.end() || (owner != kAudioObjectSystemObject && !Owns(plugIn, owner))) return std::nullopt;
    mRows.emplace(mNext, Row{own->second.mPlugIn, owner, classID, false});
    return mNext++;
}

bool ObjectTable::Publish(AudioHardwarePlugInRef plugIn, std::span<const AudioObjectID> objects)
{
    const kernel::MutexGuard guard(mMutex);
    bool changed = false;
    for (const AudioObjectID object : objects)
        if (Owns(plugIn, object)) changed |= !std::exchange(mRows[object].mPublished, true);
    return changed;
}

bool ObjectTable::Forget(AudioHardwarePlugInRef plugIn, std::span<const AudioObjectID> objects)
{
    const kernel::MutexGuard guard(mMutex);
    bool changed = false;
    for (const AudioObjectID object : objects) {
        if (!Owns(plugIn, object)) continue;
        changed |= mRows[object].mPublished;
        ForgetWithWhatItOwns(object);
    }
    return changed;
}

void ObjectTable::Clear()
{
    std::map<AudioObjectID, Row> rows;  // their ends run without the lock
    const kernel::MutexGuard guard(mMutex);
    rows.swap(mRows);
}

std::shared_ptr<PlugIn> ObjectTable::Find(AudioObjectID object)
{
    const kernel::MutexGuard guard(mMutex);
    const auto row = mRows.find(object);
    return row == mRows.end() || !row->second.mPublished ? nullptr : row->second.mPlugIn;
}

std::vector<AudioDeviceID> ObjectTable::CopyDevices()
{
    const kernel::MutexGuard guard(mMutex);
    std::vector<AudioDeviceID> devices;
    for (const auto& [number, row] : mRows)
        if (row.mPublished && row.mClassID == kAudioDeviceClassID) devices.push_back(number);
    return devices;
}

bool ObjectTable::Owns(AudioHardwarePlugInRef plugIn, AudioObjectID object) const
{
    const auto row = mRows.find(object);
    return row != mRows.end() && row->second.mPlugIn->Reference() == plugIn;
}

void ObjectTable::ForgetWithWhatItOwns(AudioObjectID object)
{
    mRows.erase(object);
    for (;;) {
        const auto owned = std::ranges::find_if(mRows, [&](const auto& row) { return row.second.mOwner == object; });
        if (owned == mRows.end()) return;
        ForgetWithWhatItOwns(owned->first);
    }
}

}  // namespace platform::audio
