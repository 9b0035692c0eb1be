// PreferenceFile: the shared preferences as the companion writes them: whole, one writer at a time, or not at all.
// Why: every process of the user reads the file whenever it likes, another companion may be writing, and this one may
// die; none of them may see half a file or lose another's change. Start at Open, change Root, end with Save.
// docs/user/corvane-preferences.5 tells every key.
#pragma once

#include "platform/foundation/CFDictionary.h"

#include <string>

namespace cli {

/// Holds the file for one change, from Open to its end. For threads that may block.
class PreferenceFile {
public:
    PreferenceFile() = default;
    ~PreferenceFile();
    PreferenceFile(const PreferenceFile&) = delete;
    PreferenceFile& operator=(const PreferenceFile&) = delete;

    /// Waits for other writers, then reads what there is; no file is an empty one.
    ///
    /// @param problem  set to a sentence for a person where the result is not 0
    /// @return         kExitDone, kExitPreferences for a file that cannot be used (it is left as it is), or kExitFailed
    int Open(std::string& problem);

    /// The top-level dictionary, between Open and Save.
    CFMutableDictionaryRef Root() const { return const_cast<CFMutableDictionaryRef>(mRoot.Get()); }

    /// Puts the whole tree in the place of the file, and tells all processes of the user. Where that fails the
    /// old file stays as it was.
    ///
    /// @return kExitDone or kExitFailed, as Open
    int Save(std::string& problem);

private:
    int TakeLock(std::string& problem);
    void RemoveLeftovers() const;
    bool WriteBeside(const std::string& temporary, const std::vector<uint8_t>& bytes, std::string& problem) const;

    std::string mFolder, mPath;
    int mLock = -1;
    cf::Ref<cf::Dictionary> mRoot;
};

}  // namespace cli
