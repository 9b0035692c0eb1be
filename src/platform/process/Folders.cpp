#include "platform/process/Folders.h"

#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"

#include <sys/stat.h>
#include <cerrno>
#include <cstring>

namespace {

bool IsFolder(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// A folder and those that it lies in, for the user alone where they are new.
bool MakeFolders(const std::string& path)
{
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string folder = path.substr(0, end);
        if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
        if (end == path.npos) return true;
    }
}

}  // namespace

OSStatus FSFindFolder(int16_t domain, OSType type, bool create, FSRef* folder)
{
    if (domain != kUserDomain || type != kPreferencesFolderType) return fnfErr;
    std::string path = platform::machine::Machine::Current().GetFiles().PreferencesFolder();
    if (path.empty() || (create && !MakeFolders(path)) || !IsFolder(path)) return fnfErr;
    folder->mPath = std::move(path);
    return 0;
}

OSStatus FSRefMakePath(const FSRef* reference, uint8_t* path, UInt32 room)
{
    const std::string& text = reference->mPath;
    if (text.size() >= room) return fnfErr;
    std::memcpy(path, text.c_str(), text.size() + 1);
    return 0;
}

OSStatus FSPathMakeRef(const uint8_t* path, FSRef* reference, bool* isFolder)
{
    std::string text = reinterpret_cast<const char*>(path);
    struct stat status;
    if (lstat(text.c_str(), &status) != 0) return fnfErr;
    reference->mPath = std::move(text);
    if (isFolder) *isFolder = S_ISDIR(status.st_mode);
    return 0;
}
