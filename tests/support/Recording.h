// Recording: a WAV file as an independent reader sees it.
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
    std::vector<float> samples(size_t(info.frames) * size_t(info.channels));
    const sf_count_t read = sf_readf_float(reader, samples.data(), info.frames);
    sf_close(reader);
    if (read != info.frames) throw std::runtime_error(file.string() + ": it ends before it says");
    return {info.samplerate, info.channels, std::move(samples)};
}

}  // namespace support
