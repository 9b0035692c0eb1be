// WavWriter: a WAV file that is readable at every moment, whatever ends the program.
// Why: a recording is worth more than the program that makes it. The sizes in the header are written anew
// once a second, and past 4 GiB the reserved chunk becomes the 64-bit one (EBU Tech 3306).
// Start at Open, then Write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cli {

enum class SampleFormat { Float32, Signed24, Signed16 };

/// Bytes of one sample in the file.
unsigned BytesPerSample(SampleFormat format);

/// The header of a file that holds `frames` frames: 94 bytes, of the 64-bit form where 32 bits do not suffice.
///
/// @param endless  the sizes say "until the end", for a stream that cannot be written anew
std::vector<uint8_t> MakeWavHeader(SampleFormat format, unsigned channels, unsigned rateHz, uint64_t frames,
                                   bool endless);

class WavWriter {
public:
    WavWriter(SampleFormat format, unsigned channels, unsigned rateHz);
    ~WavWriter();
    WavWriter(const WavWriter&) = delete;
    WavWriter& operator=(const WavWriter&) = delete;

    /// Creates the file and writes its header.
    ///
    /// @param path     "-" writes to standard output, with sizes that say "until the end"
    /// @param replace  whether a file that exists may be replaced; a link is never followed
    /// @return         0, or the system's error number (17: the file exists)
    int Open(const std::string& path, bool replace);

    /// Appends frames. Integer formats round to the nearest value and clip at full scale.
    ///
    /// @param samples  interleaved, full scale 1.0
    /// @return         0, or the error number; the file then ends with its last whole frame
    int Write(const float* samples, size_t frames);

    /// Brings the header up to what was written. @return 0 or an error number
    int UpdateHeader();

    /// Updates the header and closes. @return the first error there was, 0 for none
    int Close();

    uint64_t Frames() const { return mFrames; }
    /// Samples beyond full scale that an integer format cut off.
    uint64_t ClippedSamples() const { return mClipped; }

private:
    std::vector<uint8_t> MakeHeader() const;
    void Convert(const float* samples, size_t count);
    int WriteAll(const uint8_t* bytes, size_t count);

    const SampleFormat mFormat;
    const unsigned mChannels;
    const unsigned mRateHz;
    int mDescriptor = -1;
    bool mSeekable = false;
    int mError = 0;
    uint64_t mFrames = 0;
    uint64_t mClipped = 0;
    std::vector<uint8_t> mBytes;  // one converted piece
};

}  // namespace cli
