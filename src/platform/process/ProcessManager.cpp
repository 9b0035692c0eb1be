#include "platform/process/ProcessManager.h"

#include "platform/machine/Machine.h"
#include "platform/machine/Processes.h"
#include "platform/process/Applications.h"

#include <algorithm>

namespace {

using platform::process::Application;
using platform::process::IdentifierSource;
using Applications = std::vector<Application>;

thread_local Applications sWalk;  // what the thread's last walk found at its start

/// The start time tells a process from a later one of its number.
ProcessSerialNumber NumberOf(const Application& application)
{
    return {static_cast<UInt32>(application.mStartTime), static_cast<UInt32>(application.mPID)};
}

Applications::const_iterator Find(const ProcessSerialNumber& process)
{
    return std::find_if(sWalk.cbegin(), sWalk.cend(), [&](const Application& application) {
        const ProcessSerialNumber number = NumberOf(application);
        return number.lowLongOfPSN == process.lowLongOfPSN && number.highLongOfPSN == process.highLongOfPSN;
    });
}

bool IsStillThere(const Application& application)
{
    return platform::machine::Machine::Current().GetProcesses().MaySignal(application.mPID);
}

cf::Ref<cf::Object> MakeBoolean(bool value)
{
    return cf::Ref<cf::Object>::Share(value ? kCFBooleanTrue : kCFBooleanFalse);
}

cf::Ref<cf::Object> MakeString(const std::string& text)
{
    return cf::Ref<cf::Object>::Adopt(new cf::String(text));
}

CFDictionaryRef Describe(const Application& application)
{
    // Whom no desktop and no sandbox knows has no face.
    const bool background = application.mIdentifierSource == IdentifierSource::Executable;
    cf::Dictionary::Entries entries;
    entries["CFBundleIdentifier"] = MakeString(application.mIdentifier);
    entries["CFBundleName"] = MakeString(application.mName);
    entries["pid"] = cf::Ref<cf::Object>::Adopt(new cf::Number(int64_t(application.mPID)));
    entries["LSBackgroundOnly"] = MakeBoolean(background);
    entries["LSUIElement"] = MakeBoolean(application.mHidden);
    return new cf::Dictionary(std::move(entries));
}

}  // namespace

OSStatus GetNextProcess(ProcessSerialNumber* process)
{
    const bool starts = process->lowLongOfPSN == kNoProcess;
    if (starts) sWalk = platform::process::CopyRunningApplications();
    Applications::const_iterator next = starts ? sWalk.cbegin() : Find(*process);
    if (!starts && next != sWalk.cend()) ++next;
    const bool found = next != sWalk.cend();
    *process = found ? NumberOf(*next) : ProcessSerialNumber{0, kNoProcess};
    return found ? 0 : procNotFound;
}

CFDictionaryRef ProcessInformationCopyDictionary(const ProcessSerialNumber* process, UInt32)
{
    const auto found = Find(*process);
    return found != sWalk.cend() && IsStillThere(*found) ? Describe(*found) : nullptr;
}

OSStatus GetProcessBundleLocation(const ProcessSerialNumber* process, FSRef* location)
{
    const auto found = Find(*process);
    if (found == sWalk.cend() || found->mExecutable.empty()) return procNotFound;
    location->mPath = found->mExecutable;
    return 0;
}
