// SharedPreferences: the one file by which the companion tells every process of the user which devices there are to be.
// Why: the companion writes it whole and says so; whoever is concerned reads it anew. Nothing is kept between two
// calls. Start at CopySharedPList. docs/user/corvane-preferences.5 tells every key.
//
// Each call opens and reads the file: for threads that may block, never one that does I/O. Calls share nothing.
#pragma once

#include "platform/foundation/CFDictionary.h"

#include <string>

namespace settings {

constexpr const char* kFileName = "com.ostrel.corvane.sharedsource.plist";
constexpr const char* kChangedNotification = "com.ostrel.corvane.prefschanged";               // to all processes
constexpr const char* kLocallyChangedNotification = "com.ostrel.corvane.prefschanged_local";  // inside the companion

// The keys of the file, from its top down.
constexpr const char* kEnabled = "Enabled";
constexpr const char* kDeviceSettings = "DeviceSettings";
constexpr const char* kDevices = "Devices";
constexpr const char* kOutputApplications = "OutputApplications";
constexpr const char* kApplicationIdentifier = "NSApplicationBundleIdentifier";
constexpr const char* kApplicationPath = "NSApplicationPath";
constexpr const char* kOutputDeviceUID = "outputDeviceUID";

/// The value of a key, not retained; null where there is none of that type, or no dictionary.
template <class T>
const T* ValueOf(CFDictionaryRef dictionary, const char* key)
{
    return dictionary ? cf::As<T>(dictionary->Find(key)) : nullptr;
}

/// A file of that name in the user's preferences folder; empty where he has none, or it cannot be made where it is to
/// be.
std::string PreferencePath(const char* fileName, bool makeFolder = false);

/// What the file holds.
///
/// @param problem  set to one sentence for a person where the file is there and cannot be used; else to nothing
/// @return         mutable, and empty where there is no file or it cannot be used
cf::Ref<cf::Dictionary> ReadPreferences(const char* fileName, std::string& problem);

}  // namespace settings

/// The top-level dictionary, with mutable containers, which the caller releases. A damaged file reads as an empty one.
CFMutableDictionaryRef CopySharedPList();

/// The entries of the devices, and of the applications with an output of their own; the caller releases them. Null
/// where the file has none.
CFArrayRef CopyDeviceSettings();
CFArrayRef CopyOutputApplications();

/// The UID of the output device that is assigned to this process, which the caller releases; null for none.
CFStringRef CopyOutputUIDForHost();

/// The master switch.
bool CorvaneIsEnabled();

/// Whether the companion utility for sound runs, and its feed is on.
bool IsLumenfeedActive();
