// CAException: the one exception of the utility, framework and plug-in rooms.
// Why: a failing platform call has a 32-bit number, and the function table turns exactly that into a status.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

class CAException {
public:
    explicit CAException(OSStatus error) noexcept : mError(error) {}

    /// The error number of the failing call, or a four-character code.
    OSStatus GetError() const noexcept { return mError; }

    /// Throws unless `error` is 0.
    static void ThrowIf(OSStatus error)
    {
        if (error != 0) throw CAException(error);
    }

private:
    OSStatus mError;
};
