// OutputTarget: where the bytes of a recording go: a file by its path, or standard output.
// Why: no link is followed, no file is lost to one that was never made, and a pipe whose reader stalls never holds the
// program. The folder is opened once, and every later step starts from it, so that nothing changes underneath.
// Start at Open and Append.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace record {

/// Error numbers are the system's; 0: done.
///
/// @thread one at a time, but for Interrupt
class OutputTarget {
public:
    OutputTarget() = default;
    ~OutputTarget() { Close(); }
    OutputTarget(const OutputTarget&) = delete;
    OutputTarget& operator=(const OutputTarget&) = delete;

    /// Finds out whether Open would succeed, without touching what is there. "-" is standard output.
    static int Check(const std::string& path, bool replace);

    /// Creates the file, or opens the pipe or device. An older file stays until TakeName.
    int Open(const std::string& path, bool replace);

    /// Writes at the end. Of a pipe the wait for its reader ends with EINTR after Interrupt.
    ///
    /// @param written  bytes that were written, also where an error follows
    int Append(const uint8_t* bytes, size_t count, size_t& written);

    /// Whether Overwrite can reach what was appended: not in a pipe.
    bool IsRewritable() const { return mKind == Kind::File || mKind == Kind::SharedFile; }
    /// Writes over what was appended. @param offset  from the first byte of this recording
    int Overwrite(uint64_t offset, const uint8_t* bytes, size_t count);

    /// Cuts or fills with zeros, so that the recording has `length` bytes. No effect on a pipe.
    int EndAt(uint64_t length);

    /// Whether an older file still has the name.
    bool WaitsForName() const { return !mTemporary.empty(); }
    bool HasReplaced() const { return mHasReplaced; }
    /// Puts the file in the place of the older one, once its bytes are on the disk. After an error it stays beside.
    int TakeName();

    /// Removes the file, or cuts the recording off standard output again; the older file stays. Then closes.
    void Remove();
    int Close();

    /// Where the bytes are to be found.
    std::string Path() const;

    void Interrupt() noexcept { mInterrupted.store(true, std::memory_order_relaxed); }

private:
    enum class Kind {
        None,
        File,        // made here
        SharedFile,  // standard output into a file: others may write before and after
        Stream,
    };

    int OpenStandardOutput();
    int OpenStream();
    int CreateFile(bool beside);
    int WriteSome(const uint8_t* bytes, size_t count, size_t& written);
    int WriteSomeToStream(const uint8_t* bytes, size_t count, size_t& written);
    bool IsStillOurs(const std::string& name) const;

    Kind mKind = Kind::None;
    int mDescriptor = -1;
    int mFolder = -1;
    int mOverwriting = -1;   // for Overwrite; mDescriptor, unless that can only append
    std::string mPath;       // as given
    std::string mName;       // in mFolder
    std::string mTemporary;  // the name in mFolder while an older file has mName
    bool mHasReplaced = false;
    uint64_t mStart = 0;                    // where in the file the recording begins
    uint64_t mLength = 0;                   // bytes appended
    uint64_t mGivesUpAt = 0;                // host time after which no reader is waited for; 0: not interrupted
    std::atomic<bool> mInterrupted{false};  // stored by any thread, loaded by the one that writes
};

}  // namespace record
