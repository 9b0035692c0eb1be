#include "plugin/settings/SharedPreferences.h"

#include "platform/foundation/PropertyList.h"
#include "platform/process/Folders.h"
#include "platform/process/ProcessManager.h"
#include "plugin/settings/MainBundle.h"
#include "plugin/settings/RunningApplications.h"

namespace {

using cf::As;
using cf::Ref;
using settings::ValueOf;

constexpr UInt32 kPathRoom = 4096;

/// A value inside "DeviceSettings", which the caller releases; null where there is none of that type.
CFArrayRef CopySetting(const char* key)
{
    const auto list = Ref<cf::Dictionary>::Adopt(CopySharedPList());
    return Ref<cf::Array>::Share(
               ValueOf<cf::Array>(ValueOf<cf::Dictionary>(list.Get(), settings::kDeviceSettings), key))
        .Detach();
}

}  // namespace

namespace settings {

std::string PreferencePath(const char* fileName, bool makeFolder)
{
    FSRef folder;
    uint8_t room[kPathRoom];
    std::string path;
    if (FSFindFolder(kUserDomain, kPreferencesFolderType, makeFolder, &folder) != 0) return path;
    if (FSRefMakePath(&folder, room, kPathRoom) != 0) return path;
    path = reinterpret_cast<const char*>(room);
    if (!path.ends_with('/')) path += '/';
    return path + fileName;
}

Ref<cf::Dictionary> ReadPreferences(const char* fileName, std::string& problem)
{
    problem.clear();
    auto nothing = Ref<cf::Dictionary>::Adopt(CFDictionaryCreateMutable(kCFAllocatorDefault, 0));
    const std::string path = PreferencePath(fileName);
    FSRef file;
    if (path.empty() || FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &file, nullptr) != 0)
        return nothing;

    const auto text =
        Ref<cf::String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, path.c_str(), kCFStringEncodingUTF8));
    if (!text) {
        problem = "lies in a folder whose name is not UTF-8";
        return nothing;
    }
    const auto url = Ref<cf::URL>::Adopt(
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text.Get(), kCFURLPOSIXPathStyle, false));
    const CFReadStreamRef stream = CFReadStreamCreateWithFile(kCFAllocatorDefault, url.Get());
    const auto owner = Ref<cf::ReadStream>::Adopt(stream);
    CFReadStreamOpen(stream);  // where it cannot be opened, the error tells why
    CFStringRef error = nullptr;
    const auto list = Ref<cf::Object>::Adopt(CFPropertyListCreateFromStream(
        kCFAllocatorDefault, stream, 0, kCFPropertyListMutableContainers, nullptr, &error));
    CFReadStreamClose(stream);
    problem = cf::ToStdString(Ref<cf::String>::Adopt(error).Get());
    if (const auto* dictionary = As<cf::Dictionary>(list.Get())) return Ref<cf::Dictionary>::Share(dictionary);
    if (list) problem = "is a property list, but no dictionary at its top";
    return nothing;
}

}  // namespace settings

CFMutableDictionaryRef CopySharedPList()
{
    std::string unused;
    return const_cast<CFMutableDictionaryRef>(settings::ReadPreferences(settings::kFileName, unused).Detach());
}

CFArrayRef CopyDeviceSettings()
{
    return CopySetting(settings::kDevices);
}

CFArrayRef CopyOutputApplications()
{
    return CopySetting(settings::kOutputApplications);
}

CFStringRef CopyOutputUIDForHost()
{
    const auto applications = Ref<cf::Array>::Adopt(CopyOutputApplications());
    if (!applications) return nullptr;
    const auto identifier = settings::CopyMainBundleIdentifier(), path = settings::CopyMainBundlePath();
    for (const auto& item : applications.Get()->Get()) {
        const auto* entry = As<cf::Dictionary>(item.Get());
        if (!entry || !(settings::AreEqual(entry->Find(settings::kApplicationIdentifier), identifier.Get()) ||
                        settings::AreEqual(entry->Find(settings::kApplicationPath), path.Get())))
            continue;
        return Ref<cf::String>::Share(ValueOf<cf::String>(entry, settings::kOutputDeviceUID)).Detach();
    }
    return nullptr;
}

bool CorvaneIsEnabled()
{
    const auto list = Ref<cf::Dictionary>::Adopt(CopySharedPList());
    SInt32 enabled = 0;
    const auto* number = ValueOf<cf::Number>(list.Get(), settings::kEnabled);
    if (number) CFNumberGetValue(number, kCFNumberSInt32Type, &enabled);
    return enabled != 0;
}

bool IsLumenfeedActive()
{
    const auto running = Ref<cf::Array>::Adopt(CopyLaunchedApplications(true, false));
    bool runs = false;
    for (const auto& item : running.Get()->Get()) {
        const auto* identifier =
            ValueOf<cf::String>(As<cf::Dictionary>(item.Get()), kCFBundleIdentifierKey->Text().c_str());
        runs |= identifier && CFStringCompare(identifier, CFSTR("com.ostrel.tollery"), kCFCompareCaseInsensitive) ==
                                  kCFCompareEqualTo;
    }
    if (!runs) return false;
    std::string unused;
    const auto list = settings::ReadPreferences("com.ostrel.tollery.plist", unused);
    int8_t enabled = 0;
    const auto* number = ValueOf<cf::Number>(list.Get(), "lumenfeedEnabled");
    if (number) CFNumberGetValue(number, kCFNumberSInt8Type, &enabled);
    return enabled != 0;
}
