#include "record/WavFile.h"

#include <utility>

namespace record {

namespace {

constexpr uint32_t kUntilTheEnd = 0xFFFFFFFF;
constexpr uint16_t kTagInteger = 1;
constexpr uint16_t kTagFloat = 3;
constexpr uint16_t kTagExtensible = 0xFFFE;
constexpr uint16_t kExtensionBytes = 22;

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

uint16_t TagOf(SampleFormat format)
{
    return format == SampleFormat::Float32 ? kTagFloat : kTagInteger;
}

// What the plain format chunk cannot say for certain: positions of more than two channels, and integers above 16 bits.
bool NeedsExtension(const WavLayout& layout)
{
    return layout.mChannels > 2 || layout.mFormat == SampleFormat::Signed24;
}

void AddFormatChunk(LittleEndian& out, const WavLayout& layout)
{
    const bool extended = NeedsExtension(layout);
    const uint16_t sampleBits = uint16_t(8 * BytesPerSample(layout.mFormat));
    const unsigned frameBytes = layout.mChannels * BytesPerSample(layout.mFormat);
    out.Text("fmt ").Number(uint32_t(extended ? 18 + kExtensionBytes : 18));
    out.Number(extended ? kTagExtensible : TagOf(layout.mFormat)).Number(uint16_t(layout.mChannels));
    out.Number(uint32_t(layout.mRateHz)).Number(uint32_t(layout.mRateHz * frameBytes));
    out.Number(uint16_t(frameBytes)).Number(sampleBits).Number(uint16_t(extended ? kExtensionBytes : 0));
    if (!extended) return;
    out.Number(sampleBits).Number(layout.mChannelMask);
    // The tag as the identifier {0000xxxx-0000-0010-8000-00AA00389B71}.
    out.Number(uint32_t(TagOf(layout.mFormat))).Number(uint16_t(0)).Number(uint16_t(0x0010));
    out.Number(uint64_t(0x719B3800AA000080));
}

}  // namespace

std::vector<uint8_t> MakeWavHeader(const WavLayout& layout, uint64_t frames, bool endless)
{
    const uint64_t dataBytes = frames * layout.mChannels * BytesPerSample(layout.mFormat);
    const uint64_t formatBytes = NeedsExtension(layout) ? 18 + kExtensionBytes : 18;
    // What follows the size field of the outermost chunk: form, reserved chunk, format, fact, data.
    const uint64_t riffBytes = 4 + (8 + 28) + (8 + formatBytes) + (8 + 4) + 8 + dataBytes + (dataBytes & 1);
    const bool wide = riffBytes >= kUntilTheEnd;
    const bool open = wide || endless;

    LittleEndian out;
    out.Text(wide ? "RF64" : "RIFF").Number(open ? kUntilTheEnd : uint32_t(riffBytes)).Text("WAVE");
    out.Text(wide ? "ds64" : "JUNK").Number(uint32_t(28));
    out.Number(wide ? riffBytes : 0).Number(wide ? dataBytes : 0).Number(wide ? frames : 0).Number(uint32_t(0));
    AddFormatChunk(out, layout);
    out.Text("fact").Number(uint32_t(4)).Number(open ? kUntilTheEnd : uint32_t(frames));
    out.Text("data").Number(open ? kUntilTheEnd : uint32_t(dataBytes));
    return out.Take();
}

WavFile::WavFile(OutputTarget& target, const WavLayout& layout)
    : RawFile(target, layout.mFormat, layout.mChannels), mLayout(layout)
{
}

std::vector<uint8_t> WavFile::MakeHeader() const
{
    return MakeWavHeader(mLayout, mFrames, !mTarget.IsRewritable());
}

int WavFile::Begin()
{
    const auto header = MakeHeader();
    size_t written = 0;
    return mTarget.Append(header.data(), header.size(), written);
}

int WavFile::Update()
{
    if (!mTarget.IsRewritable()) return 0;
    const auto header = MakeHeader();
    return mTarget.Overwrite(0, header.data(), header.size());
}

int WavFile::End()
{
    const uint64_t dataBytes = DataBytes();
    const int error = mTarget.EndAt(MakeHeader().size() + dataBytes + (dataBytes & 1));
    const int headerError = Update();
    return error != 0 ? error : headerError;
}

}  // namespace record
