// CADebug: codes as text, and the two error printers of the framework.
// Nothing depends on what they print; it goes to standard error.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

#include <cstddef>

constexpr size_t kOSTypeStringBytes = 11;

/// Writes a four-character code as 'abcd' where it begins with a printable character other than a backslash,
/// and else as 0x and eight digits.
///
/// @param text  room for kOSTypeStringBytes
/// @return      `text`
char* CAStringForOSType(UInt32 code, char* text);

/// Prints what happened, and where; leaves the program only with `isAssert`.
///
/// @param name   null or empty stands for "Assert", "Throw" or "Trace", as the flags have it
/// @param code   printed, and the status of the exit (1 for 0)
/// @param file   with `where`, the place
void Debug(const char* name, UInt32 code, const char* file, const char* where, bool isThrow, bool isAssert);

/// The same, and always leaves the program.
[[noreturn]] void Fatal(const char* name, UInt32 code, const char* file, const char* where, bool isThrow,
                        bool isAssert);
