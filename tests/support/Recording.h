// Recording: a file of sound as an independent reader sees it.
#pragma once

#include "support/SignalAnalysis.h"

#include <sndfile.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace support {

struct Recording {
    int mRateHz = 0;
    int mChannels = 0;
    std::vector<float> mSamples;  // interleaved

    size_t Frames() const { return mChannels ? mSamples.size() / size_t(mChannels) : 0; }
    std::vector<float> Channel(unsigned which) const { return support::Channel(mSamples, unsigned(mChannels), which); }
};

inline Recording ReadRecording(const std::filesystem::path& file)
{
    SF_INFO info = {};
    SNDFILE* reader = sf_open(file.c_str(), SFM_READ, &info);
    if (!reader) throw std::runtime_error(file.string() + ": " + sf_strerror(nullptr));
    // In pieces: a file need not say how long it is.
    std::vector<float> samples, piece(4096 * size_t(info.channels));
    for (sf_count_t read; (read = sf_read_float(reader, piece.data(), sf_count_t(piece.size()))) > 0;)
        samples.insert(samples.end(), piece.begin(), piece.begin() + read);
    sf_close(reader);
    if (info.frames != SF_COUNT_MAX && samples.size() != size_t(info.frames * info.channels))
        throw std::runtime_error(file.string() + ": it ends before it says");
    return {info.samplerate, info.channels, std::move(samples)};
}

}  // namespace support
