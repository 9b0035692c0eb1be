#include "record/RawFile.h"

#include "record/FileSettings.h"

#include <algorithm>

namespace record {

RawFile::RawFile(OutputTarget& target, SampleFormat format, unsigned channels)
    : mTarget(target), mFormat(format), mChannels(channels), mFrameBytes(channels * BytesPerSample(format))
{
    mBytes.reserve(kPieceFrames * mFrameBytes);
}

int RawFile::Write(const float* samples, size_t frames)
{
    while (frames > 0) {
        const size_t piece = std::min(frames, kPieceFrames);
        ConvertSamples(mFormat, samples, piece * mChannels, mBytes, mClipped);
        size_t written = 0;
        const int error = mTarget.Append(mBytes.data(), mBytes.size(), written);
        mFrames += written / mFrameBytes;  // End cuts off a frame of which only a part was written
        if (error != 0) return error;
        samples += piece * mChannels;
        frames -= piece;
    }
    return 0;
}

int RawFile::End()
{
    return mTarget.EndAt(DataBytes());
}

}  // namespace record
