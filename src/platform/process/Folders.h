// Folders: well-known folders, and files in them, by reference.
// Start at FSFindFolder.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

#include <string>

constexpr OSStatus fnfErr = -43;  // no such file

/// A file or folder that is there.
struct FSRef {
    std::string mPath;  // absolute
};

constexpr int16_t kUserDomain = -32763;
constexpr OSType kPreferencesFolderType = FourCC("pref");

/// @param create  whether to make the folder where it is not there, for the user alone
/// @return        0, or fnfErr where the user has no such folder, or it cannot be made: errno may say why
OSStatus FSFindFolder(int16_t domain, OSType type, bool create, FSRef* folder);
/// Writes the path with its NUL. @return 0, or fnfErr where the room is too small
OSStatus FSRefMakePath(const FSRef* reference, uint8_t* path, UInt32 room);
/// @return 0, or fnfErr where nothing lies there; a link counts as what it is
OSStatus FSPathMakeRef(const uint8_t* path, FSRef* reference, bool* isFolder);
