#include "cli/WavWriter.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr size_t kPieceFrames = 4096;
constexpr uint32_t kUntilTheEnd = 0xFFFFFFFF;
constexpr uint16_t kTagInteger = 1;
constexpr uint16_t kTagFloat = 3;

class LittleEndian {
public:
    LittleEndian& Text(const char (&text)[5])
    {
        mBytes.insert(mBytes.end(), text, text + 4);
        return *this;
    }
    template <class T>
    LittleEndian& Number(T value)
    {
        for (size_t i = 0; i < sizeof(T); ++i) mBytes.push_back(uint8_t(uint64_t(value) >> (8 * i)));
        return *this;
    }
    std::vector<uint8_t> Take() { return std::move(mBytes); }

private:
    std::vector<uint8_t> mBytes;
};

// Rounds to the nearest value of `bits`, full scale 2^(bits-1), and cuts off what lies beyond.
int32_t ToInteger(float sample, unsigned bits, uint64_t& clipped)
{
    const double scale = double(1u << (bits - 1));
    const double value = std::nearbyint(double(sample) * scale);
    if (value > scale - 1) return ++clipped, int32_t(scale - 1);
    if (value < -scale) return ++clipped, int32_t(-scale);
    return std::isnan(value) ? 0 : int32_t(value);
}

}  // namespace

unsigned BytesPerSample(SampleFormat format)
{
    switch (format) {
        case SampleFormat::Float32:
            return 4;
        case SampleFormat::Signed24:
            return 3;
        case SampleFormat::Signed16:
            return 2;
    }
    return 0;
}

std::vector<uint8_t> MakeWavHeader(SampleFormat format, unsigned channels, unsigned rateHz, uint64_t frames,
                                   bool endless)
{
    const unsigned frameBytes = channels * BytesPerSample(format);
    const uint64_t dataBytes = frames * frameBytes;
    // What follows the size field of the outermost chunk: form, reserved chunk, format, fact, data.
    const uint64_t riffBytes = 4 + (8 + 28) + (8 + 18) + (8 + 4) + 8 + dataBytes + (dataBytes & 1);
    const bool wide = riffBytes >= kUntilTheEnd;
    const bool open = wide || endless;

    LittleEndian out;
    out.Text(wide ? "RF64" : "RIFF").Number(open ? kUntilTheEnd : uint32_t(riffBytes)).Text("WAVE");
    out.Text(wide ? "ds64" : "JUNK").Number(uint32_t(28));
    out.Number(wide ? riffBytes : 0).Number(wide ? dataBytes : 0).Number(wide ? frames : 0).Number(uint32_t(0));
    out.Text("fmt ").Number(uint32_t(18)).Number(format == SampleFormat::Float32 ? kTagFloat : kTagInteger);
    out.Number(uint16_t(channels)).Number(uint32_t(rateHz)).Number(uint32_t(rateHz * frameBytes));
    out.Number(uint16_t(frameBytes)).Number(uint16_t(8 * BytesPerSample(format))).Number(uint16_t(0));
    out.Text("fact").Number(uint32_t(4)).Number(open ? kUntilTheEnd : uint32_t(frames));
    out.Text("data").Number(open ? kUntilTheEnd : uint32_t(dataBytes));
    return out.Take();
}

WavWriter::WavWriter(SampleFormat format, unsigned channels, unsigned rateHz)
    : mFormat(format), mChannels(channels), mRateHz(rateHz)
{
    mBytes.reserve(kPieceFrames * channels * BytesPerSample(format));
}

WavWriter::~WavWriter()
{
    Close();
}

int WavWriter::Open(const std::string& path, bool replace)
{
    if (path == "-") {
        mDescriptor = STDOUT_FILENO;
    } else {
        const int creation = replace ? O_TRUNC : O_EXCL;
        mDescriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | creation, 0600);
        if (mDescriptor < 0) return errno;
        struct stat status;
        mSeekable = ::fstat(mDescriptor, &status) == 0 && S_ISREG(status.st_mode);
    }
    const auto header = MakeHeader();
    return mError = WriteAll(header.data(), header.size());
}

std::vector<uint8_t> WavWriter::MakeHeader() const
{
    return MakeWavHeader(mFormat, mChannels, mRateHz, mFrames, !mSeekable);
}

void WavWriter::Convert(const float* samples, size_t count)
{
    const unsigned width = BytesPerSample(mFormat);
    mBytes.resize(count * width);
    if (mFormat == SampleFormat::Float32) {
        std::memcpy(mBytes.data(), samples, count * width);
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        const int32_t value = ToInteger(samples[i], 8 * width, mClipped);
        for (unsigned b = 0; b < width; ++b) mBytes[i * width + b] = uint8_t(uint32_t(value) >> (8 * b));
    }
}

int WavWriter::WriteAll(const uint8_t* bytes, size_t count)
{
    while (count > 0) {
        const ssize_t written = ::write(mDescriptor, bytes, count);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return errno;
        if (written == 0) return ENOSPC;
        bytes += written;
        count -= size_t(written);
    }
    return 0;
}

int WavWriter::Write(const float* samples, size_t frames)
{
    while (frames > 0 && mError == 0) {
        const size_t piece = std::min(frames, kPieceFrames);
        Convert(samples, piece * mChannels);
        mError = WriteAll(mBytes.data(), mBytes.size());
        if (mError != 0) break;  // a piece that did not fit is cut off when the file is closed
        mFrames += piece;
        samples += piece * mChannels;
        frames -= piece;
    }
    return mError;
}

int WavWriter::UpdateHeader()
{
    if (!mSeekable) return 0;
    const auto header = MakeHeader();
    const ssize_t written = ::pwrite(mDescriptor, header.data(), header.size(), 0);
    if (written == ssize_t(header.size())) return 0;
    return written < 0 ? errno : ENOSPC;
}

int WavWriter::Close()
{
    if (mDescriptor < 0) return mError;
    if (mSeekable) {
        const uint64_t dataBytes = mFrames * mChannels * BytesPerSample(mFormat);
        const uint64_t fileBytes = MakeHeader().size() + dataBytes;
        if (::ftruncate(mDescriptor, off_t(fileBytes + (dataBytes & 1))) != 0 && mError == 0) mError = errno;
        if (const int error = UpdateHeader(); mError == 0) mError = error;
    }
    if (mDescriptor != STDOUT_FILENO && ::close(mDescriptor) != 0 && mError == 0) mError = errno;
    mDescriptor = -1;
    return mError;
}

}  // namespace cli
