// FlacFile: a FLAC file whose length is rewritten as it grows.
// Why: libFLAC writes each block as it is complete, but the length only at an orderly end; a file of a killed program
// would have none. docs/formats/recordings.md says what is lost then.
#pragma once

#include "record/OutputTarget.h"
#include "record/SoundFile.h"

#include <FLAC/metadata.h>
#include <FLAC/stream_encoder.h>

#include <array>
#include <memory>
#include <optional>
#include <vector>

namespace record {

struct FlacLayout {
    unsigned mSampleBits = 24;
    unsigned mChannels = 2;
    unsigned mRateHz = 48000;
    /// Speaker positions, where they are not those that FLAC gives this number of channels; 0: channels have none.
    std::optional<uint32_t> mChannelMask;
};

class FlacFile final : public SoundFile {
public:
    FlacFile(OutputTarget& target, const FlacLayout& layout);
    ~FlacFile() override;

    int Begin() override;
    int Write(const float* samples, size_t frames) override;
    int Update() override;
    int End() override;
    uint64_t Frames() const override { return mEnded ? mEncodedFrames : mFrames; }
    uint64_t FramesInFile() const override { return mEncodedFrames; }

private:
    struct Delete {
        void operator()(FLAC__StreamEncoder* encoder) const { FLAC__stream_encoder_delete(encoder); }
        void operator()(FLAC__StreamMetadata* metadata) const { FLAC__metadata_object_delete(metadata); }
    };

    static FLAC__StreamEncoderWriteStatus TakeBytes(const FLAC__StreamEncoder*, const FLAC__byte* bytes, size_t count,
                                                    uint32_t frames, uint32_t block, void* file);
    static void TakeDigest(const FLAC__StreamEncoder*, const FLAC__StreamMetadata* metadata, void* file);
    bool AddChannelMask();
    int ErrorOfEncoder() const;

    OutputTarget& mTarget;
    const FlacLayout mLayout;
    std::unique_ptr<FLAC__StreamMetadata, Delete> mComment;  // used by mEncoder
    std::unique_ptr<FLAC__StreamEncoder, Delete> mEncoder;
    std::vector<FLAC__int32> mIntegers;  // one converted piece
    int mError = 0;                      // of the target
    bool mEnded = false;
    uint64_t mFrames = 0;         // given to the encoder
    uint64_t mEncodedFrames = 0;  // in whole blocks in the file
    uint64_t mWholeBytes = 0;     // up to the end of the last whole block
    uint32_t mLeastBlockBytes = 0, mMostBlockBytes = 0;
    std::array<uint8_t, 16> mDigest{};  // of the samples, known at the end; zeros: unknown
};

}  // namespace record
