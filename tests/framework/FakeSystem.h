// FakeSystem: the audio system's side of a plug-in, in a test's hand. Its functions stand in for the platform's of the
// same names.
#pragma once

#include "platform/audio/AudioHardwarePlugIn.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

struct FakeSystem {
    FakeSystem();
    ~FakeSystem();

    std::string mChanged;              // what was told of, "fsiz glob 0 of 7" each, with a semicolon
    std::function<void()> mOnChanged;  // called at each
    std::map<UInt32, UInt32> mValues;  // what the system object answers; nothing: "who?"
    std::vector<UInt32> mListenedTo;   // selectors, one a listener
    AudioObjectPropertyListenerProc mListener = nullptr;
};

/// The four letters of a code, and back.
inline UInt32 Code(const char* letters)
{
    return UInt32(letters[0]) << 24 | UInt32(letters[1]) << 16 | UInt32(letters[2]) << 8 | UInt32(letters[3]);
}
std::string Letters(UInt32 code);
inline std::string Status(OSStatus status)
{
    return status == 0 ? "ok" : Letters(static_cast<UInt32>(status));
}
