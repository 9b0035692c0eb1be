// RawFile: interleaved samples, little-endian, without a header. WavFile adds one.
#pragma once

#include "record/OutputTarget.h"
#include "record/SampleFormat.h"
#include "record/SoundFile.h"

#include <vector>

namespace record {

class RawFile : public SoundFile {
public:
    RawFile(OutputTarget& target, SampleFormat format, unsigned channels);

    int Begin() override { return 0; }
    int Write(const float* samples, size_t frames) override;
    int Update() override { return 0; }
    int End() override;
    uint64_t Frames() const override { return mFrames; }

protected:
    uint64_t DataBytes() const { return mFrames * mFrameBytes; }

    OutputTarget& mTarget;
    const SampleFormat mFormat;
    const unsigned mChannels;
    const unsigned mFrameBytes;
    uint64_t mFrames = 0;  // whole in the file

private:
    std::vector<uint8_t> mBytes;  // one converted piece
};

}  // namespace record
