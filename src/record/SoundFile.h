// SoundFile: one file being written, in one of the types. Private to the room.
#pragma once

#include <cstddef>
#include <cstdint>

namespace record {

/// Error numbers are the system's. After an error of Begin or Write, only End follows.
class SoundFile {
public:
    virtual ~SoundFile() = default;

    virtual int Begin() = 0;
    virtual int Write(const float* samples, size_t frames) = 0;
    /// Brings the header up to what is in the file.
    virtual int Update() = 0;
    /// Completes the file: it ends with its last whole frame.
    virtual int End() = 0;

    /// Frames that were written; after End, those that are whole in the file.
    virtual uint64_t Frames() const = 0;
    /// Of these, frames that have left the program.
    virtual uint64_t FramesInFile() const { return Frames(); }
    uint64_t ClippedSamples() const { return mClipped; }

protected:
    uint64_t mClipped = 0;
};

}  // namespace record
