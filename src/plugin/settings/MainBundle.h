// MainBundle: who this process is among the applications that settings speak of.
#pragma once

#include "platform/foundation/CFDictionary.h"

namespace settings {

/// The main bundle's identifier, and where it lies; null where there is none. @thread any that may block
cf::Ref<cf::String> CopyMainBundleIdentifier();
cf::Ref<cf::String> CopyMainBundlePath();

/// Whether both are there and equal.
bool AreEqual(CFTypeRef a, CFTypeRef b);

}  // namespace settings
