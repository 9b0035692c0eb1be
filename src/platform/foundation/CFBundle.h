// CFBundle: a folder with an Info.plist around a shared library.
// Why: the tap and the plug-in are found and loaded alike, and share the one platform with their host.
#pragma once

#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/CFURL.h"

#include <atomic>

namespace cf {

constexpr const char* kBundleIdentifier = "CFBundleIdentifier";

/// A folder, its Info.plist, and its library once that is loaded.
class Bundle final : public Object {
public:
    static constexpr CFTypeID kTypeID = kBundleType;
    Bundle(std::string folder, Ref<Dictionary> info) : mFolder(std::move(folder)), mInfo(std::move(info)) {}

    CFTypeID TypeID() const override { return kTypeID; }
    std::string Describe() const override { return mFolder; }

    const std::string& Folder() const { return mFolder; }
    const Dictionary& Info() const { return *mInfo.Get(); }
    /// Where `name` lies in the bundle's library, which is loaded at need; null where that fails.
    void* FindFunction(const std::string& name) const;

private:
    void* Load() const;

    const std::string mFolder;
    const Ref<Dictionary> mInfo;
    mutable std::atomic<void*> mLibrary{nullptr};  // stored (release) and loaded (acquire) by any thread
};

/// The bundles of this installation, in the order of their folders' names; what is no bundle is passed over.
std::vector<Ref<Bundle>> InstalledBundles();

}  // namespace cf

/// The bundle at a folder, or null where its Info.plist is missing, no regular file, beyond the
/// limits that PropertyList.h states, or not a dictionary.
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, const char* folder);
/// The bundle of the application that this process is, not retained; null where it has none. It has no Info.plist.
CFBundleRef CFBundleGetMainBundle();
/// A bundle of this installation by its identifier ("CFBundleIdentifier"), not retained; null where there is none. The
/// same one each time.
CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef identifier);
/// Not retained; null where it has none.
CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);
/// Where the bundle lies (the main one: its executable); the caller releases it. Null where that may not be read.
CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
/// A value of the Info.plist; null where there is none.
CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);
/// Loads the bundle's library (key "CFBundleExecutable", a plain file name inside the bundle) on first use;
/// it stays loaded. Null where that fails, with one line on standard error that says why.
void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef name);
