#include "plugin/settings/RunningApplications.h"

#include "platform/process/ProcessManager.h"
#include "plugin/settings/MainBundle.h"

#include <algorithm>

namespace {

using cf::As;
using cf::Ref;

bool IsTrue(CFDictionaryRef application, CFStringRef key)
{
    const auto* value = As<cf::Boolean>(CFDictionaryGetValue(application, key));
    return value && CFBooleanGetValue(value);
}

bool RunsInBackground(CFDictionaryRef application)
{
    return IsTrue(application, CFSTR("LSBackgroundOnly")) || IsTrue(application, CFSTR("LSUIElement"));
}

/// The dictionary of a process with its bundle's path; null where either cannot be had.
Ref<cf::Dictionary> CopyApplication(const ProcessSerialNumber& process)
{
    const auto known = Ref<cf::Dictionary>::Adopt(
        ProcessInformationCopyDictionary(&process, kProcessDictionaryIncludeAllInformationMask));
    FSRef location;
    if (!known || GetProcessBundleLocation(&process, &location) != 0) return {};
    const auto path = Ref<cf::String>::Adopt(
        CFStringCreateWithCString(kCFAllocatorDefault, location.mPath.c_str(), kCFStringEncodingUTF8));
    if (!path) return {};
    const CFMutableDictionaryRef application = CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, known.Get());
    CFDictionarySetValue(application, kCFBundlePathKey, path.Get());
    return Ref<cf::Dictionary>::Adopt(application);
}

}  // namespace

CFArrayRef CopyLaunchedApplications(bool includeBackground, bool excludeSelf)
{
    const CFMutableArrayRef applications = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    const auto ownPath = settings::CopyMainBundlePath();
    ProcessSerialNumber process{0, kNoProcess};
    while (GetNextProcess(&process) == 0 && process.lowLongOfPSN != kNoProcess) {
        const auto application = CopyApplication(process);
        if (!application) continue;
        const CFTypeRef path = CFDictionaryGetValue(application.Get(), kCFBundlePathKey);
        const bool isSelf = settings::AreEqual(path, ownPath.Get());
        if (includeBackground || !RunsInBackground(application.Get()) || (isSelf && !excludeSelf))
            CFArrayAppendValue(applications, application.Get());
    }
    return applications;
}

CFDictionaryRef DictionaryThatContainsCFTypeForKey(CFArrayRef array, CFTypeRef value, CFStringRef key)
{
    CFDictionaryRef last = nullptr;
    if (!array || !value) return nullptr;
    for (const auto& item : array->Get()) {
        const auto* dictionary = As<cf::Dictionary>(item.Get());
        const CFTypeRef found = dictionary ? CFDictionaryGetValue(dictionary, key) : nullptr;
        if (found && CFEqual(found, value)) last = dictionary;
    }
    return last;
}

bool CFArraysContainSameValues(CFArrayRef a, CFArrayRef b)
{
    return CFArrayGetCount(a) == CFArrayGetCount(b) &&
           std::ranges::all_of(a->Get(), [&](const auto& value) { return CFArrayContainsValue(b, value.Get()); });
}
