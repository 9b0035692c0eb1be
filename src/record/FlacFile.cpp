#include "record/FlacFile.h"

#include "record/FileSettings.h"
#include "record/SampleFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

namespace record {

namespace {

constexpr unsigned kCompressionLevel = 5;
constexpr uint64_t kBlockSizesOffset =
    12;  // of the first field that is rewritten: after mark, block head, block frames
constexpr unsigned kLengthBits = 36;

// Most significant byte first.
void AppendBigEndian(std::vector<uint8_t>& bytes, uint64_t value, unsigned bits)
{
    for (unsigned shift = bits; shift > 0; shift -= 8) bytes.push_back(uint8_t(value >> (shift - 8)));
}

}  // namespace

FlacFile::FlacFile(OutputTarget& target, const FlacLayout& layout) : mTarget(target), mLayout(layout) {}

// Deleting an encoder that runs would write its last block; End has been called, or the file is to go.
FlacFile::~FlacFile()
{
    mError = ECANCELED;
}

bool FlacFile::AddChannelMask()
{
    if (!mLayout.mChannelMask) return true;
    mComment.reset(FLAC__metadata_object_new(FLAC__METADATA_TYPE_VORBIS_COMMENT));
    const std::string mask = fmt::format("0x{:04X}", *mLayout.mChannelMask);
    FLAC__StreamMetadata_VorbisComment_Entry entry;
    if (!mComment || !FLAC__metadata_object_vorbiscomment_entry_from_name_value_pair(
                         &entry, "WAVEFORMATEXTENSIBLE_CHANNEL_MASK", mask.c_str()))
        return false;
    FLAC__StreamMetadata* comment = mComment.get();
    return FLAC__metadata_object_vorbiscomment_append_comment(comment, entry, false) &&
           FLAC__stream_encoder_set_metadata(mEncoder.get(), &comment, 1);
}

int FlacFile::Begin()
{
    mEncoder.reset(FLAC__stream_encoder_new());
    FLAC__StreamEncoder* encoder = mEncoder.get();
    if (!encoder || !AddChannelMask()) return ENOMEM;
    FLAC__stream_encoder_set_compression_level(encoder, kCompressionLevel);
    FLAC__stream_encoder_set_channels(encoder, mLayout.mChannels);
    FLAC__stream_encoder_set_bits_per_sample(encoder, mLayout.mSampleBits);
    FLAC__stream_encoder_set_sample_rate(encoder, mLayout.mRateHz);
    FLAC__stream_encoder_set_streamable_subset(encoder, FLAC__format_sample_rate_is_subset(mLayout.mRateHz));
    const auto status = FLAC__stream_encoder_init_stream(encoder, TakeBytes, nullptr, nullptr, TakeDigest, this);
    if (status == FLAC__STREAM_ENCODER_INIT_STATUS_OK) return 0;
    return mError != 0 ? mError : EINVAL;
}

int FlacFile::Write(const float* samples, size_t frames)
{
    while (frames > 0) {
        const size_t piece = std::min(frames, kPieceFrames);
        mIntegers.resize(piece * mLayout.mChannels);
        std::transform(samples, samples + mIntegers.size(), mIntegers.begin(),
                       [this](float sample) { return ToInteger(sample, mLayout.mSampleBits, mClipped); });
        if (!FLAC__stream_encoder_process_interleaved(mEncoder.get(), mIntegers.data(), uint32_t(piece)))
            return ErrorOfEncoder();
        mFrames += piece;
        samples += mIntegers.size();
        frames -= piece;
    }
    return 0;
}

int FlacFile::ErrorOfEncoder() const
{
    if (mError != 0) return mError;
    const bool memory = FLAC__stream_encoder_get_state(mEncoder.get()) == FLAC__STREAM_ENCODER_MEMORY_ALLOCATION_ERROR;
    return memory ? ENOMEM : EIO;
}

FLAC__StreamEncoderWriteStatus FlacFile::TakeBytes(const FLAC__StreamEncoder*, const FLAC__byte* bytes, size_t count,
                                                   uint32_t frames, uint32_t, void* file)
{
    auto& self = *static_cast<FlacFile*>(file);
    size_t written = 0;
    if (self.mError == 0) self.mError = self.mTarget.Append(bytes, count, written);
    if (self.mError != 0) return FLAC__STREAM_ENCODER_WRITE_STATUS_FATAL_ERROR;
    self.mWholeBytes += count;
    if (frames == 0) return FLAC__STREAM_ENCODER_WRITE_STATUS_OK;
    const uint32_t size = uint32_t(count);
    self.mLeastBlockBytes = self.mEncodedFrames == 0 ? size : std::min(self.mLeastBlockBytes, size);
    self.mMostBlockBytes = std::max(self.mMostBlockBytes, size);
    self.mEncodedFrames += frames;
    return FLAC__STREAM_ENCODER_WRITE_STATUS_OK;
}

void FlacFile::TakeDigest(const FLAC__StreamEncoder*, const FLAC__StreamMetadata* metadata, void* file)
{
    std::copy_n(metadata->data.stream_info.md5sum, 16, static_cast<FlacFile*>(file)->mDigest.begin());
}

int FlacFile::Update()
{
    if (!mTarget.IsRewritable()) return 0;
    const uint64_t length = mEncodedFrames >> kLengthBits == 0 ? mEncodedFrames : 0;  // 0: unknown
    std::vector<uint8_t> fields;
    AppendBigEndian(fields, mLeastBlockBytes, 24);
    AppendBigEndian(fields, mMostBlockBytes, 24);
    AppendBigEndian(fields,
                    uint64_t(mLayout.mRateHz) << 44 | uint64_t(mLayout.mChannels - 1) << 41 |
                        uint64_t(mLayout.mSampleBits - 1) << kLengthBits | length,
                    64);
    fields.insert(fields.end(), mDigest.begin(), mDigest.end());
    return mTarget.Overwrite(kBlockSizesOffset, fields.data(), fields.size());
}

int FlacFile::End()
{
    const bool finished = FLAC__stream_encoder_finish(mEncoder.get());
    mEnded = true;
    int error = finished ? 0 : ErrorOfEncoder();
    for (const int later : {mTarget.EndAt(mWholeBytes), Update()})
        if (error == 0) error = later;
    return error;
}

}  // namespace record
