// WavFile: a WAV file whose header is rewritten as it grows.
// Why: the sizes stand at the front, so a header that is written once is wrong when the program is killed. Past 4 GiB
// the reserved chunk becomes the 64-bit one (EBU Tech 3306). docs/formats/recordings.md has the layout.
#pragma once

#include "record/RawFile.h"

namespace record {

struct WavLayout {
    SampleFormat mFormat = SampleFormat::Float32;
    unsigned mChannels = 2;
    unsigned mRateHz = 48000;
    uint32_t mChannelMask = 0;  // speaker positions; 0: none
};

/// The header of a file that holds `frames` frames, of the 64-bit form where 32 bits do not suffice.
///
/// @param endless  the sizes say "until the end", for a stream that cannot be rewritten
std::vector<uint8_t> MakeWavHeader(const WavLayout& layout, uint64_t frames, bool endless);

class WavFile final : public RawFile {
public:
    WavFile(OutputTarget& target, const WavLayout& layout);

    int Begin() override;
    int Update() override;
    int End() override;

private:
    std::vector<uint8_t> MakeHeader() const;

    const WavLayout mLayout;
};

}  // namespace record
