#include "utility/CAAudioChannelLayout.h"

#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr UInt32 kCountInTag = 0xFFFF;

size_t LayoutBytes(UInt32 descriptions) noexcept
{
    return offsetof(AudioChannelLayout, mChannelDescriptions) + sizeof(AudioChannelDescription) * descriptions;
}

}  // namespace

AudioChannelLayout* CAAudioChannelLayout::Create(UInt32 channels)
{
    void* const memory = std::calloc(1, LayoutBytes(channels));
    if (!memory) throw std::bad_alloc();
    auto* const layout = static_cast<AudioChannelLayout*>(memory);
    SetAllToUnknown(*layout, channels);
    return layout;
}

void CAAudioChannelLayout::Destroy(AudioChannelLayout* layout)
{
    std::free(layout);
}

void CAAudioChannelLayout::SetAllToUnknown(AudioChannelLayout& layout, UInt32 channels) noexcept
{
    layout.mChannelLayoutTag = kAudioChannelLayoutTag_UseChannelDescriptions;
    layout.mChannelBitmap = 0;
    layout.mNumberChannelDescriptions = channels;
    AudioChannelDescription* const descriptions = layout.mChannelDescriptions;
    for (UInt32 channel = 0; channel < channels; ++channel)
        descriptions[channel] = {kAudioChannelLabel_Unknown, 0, {0, 0, 0}};
}

UInt32 CAAudioChannelLayout::NumberChannels(const AudioChannelLayout& layout) noexcept
{
    switch (layout.mChannelLayoutTag) {
        case kAudioChannelLayoutTag_UseChannelDescriptions:
            return layout.mNumberChannelDescriptions;
        case kAudioChannelLayoutTag_UseChannelBitmap:
            return static_cast<UInt32>(std::popcount(layout.mChannelBitmap));
        default:
            return layout.mChannelLayoutTag & kCountInTag;
    }
}

bool operator==(const AudioChannelLayout& a, const AudioChannelLayout& b) noexcept
{
    return a.mNumberChannelDescriptions == b.mNumberChannelDescriptions &&
           std::memcmp(&a, &b, LayoutBytes(a.mNumberChannelDescriptions)) == 0;
}

void CAShowAudioChannelLayout(FILE* file, const AudioChannelLayout* layout)
{
    if (!layout) {
        std::fprintf(file, "\tNULL layout\n");
        return;
    }
    std::fprintf(file, "\tTag=0x%X, ", layout->mChannelLayoutTag);
    if (layout->mChannelLayoutTag == kAudioChannelLayoutTag_UseChannelBitmap) {
        std::fprintf(file, "Using Bitmap:0x%X\n", layout->mChannelBitmap);
        return;
    }
    std::fprintf(file, "Num Chan Descs=%d\n", static_cast<int>(layout->mNumberChannelDescriptions));
    const AudioChannelDescription* const descriptions = layout->mChannelDescriptions;
    for (UInt32 index = 0; index < layout->mNumberChannelDescriptions; ++index) {
        const AudioChannelDescription& channel = descriptions[index];
        const Float32* const at = channel.mCoordinates;
        std::fprintf(file, "\t\tLabel=%d, Flags=0x%X, [az=%f,el=%f,dist=%f]\n", static_cast<int>(channel.mChannelLabel),
                     channel.mChannelFlags, double(at[0]), double(at[1]), double(at[2]));
    }
}
