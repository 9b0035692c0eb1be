#include "FakeSource.h"
#include "capture/OSLAudio_MatrixMixer.h"

#include <algorithm>
#include <memory>

namespace {

/// Gives the same sample on all channels.
class ConstantSource final : public OSLAudio_Source {
public:
    ConstantSource(UInt32 channels, float value, bool interleaved = false)
        : mDesc(FloatDesc(48000, channels, interleaved)), mValue(value)
    {
    }
    OSStatus GetRenderDesc(AudioStreamBasicDescription* desc) override
    {
        *desc = mDesc;
        return 0;
    }
    OSStatus SetMaxRenderSlice(UInt32) override { return 0; }
    OSStatus GetMaxRenderSlice(UInt32*) override { return 0; }
    OSStatus Render(UInt32*, const AudioTimeStamp*, UInt32, UInt32 frames, AudioBufferList* data) noexcept override
    {
        for (UInt32 buffer = 0; buffer < data->mNumberBuffers; ++buffer)
            std::fill_n(static_cast<float*>(data->mBuffers[buffer].mData), frames, mValue);
        return 0;
    }

    AudioStreamBasicDescription mDesc;
    float mValue;
};

class MatrixMixer : public testing::Test {
protected:
    void Make(std::vector<OSLAudio_Source*> sources, UInt32 outputs = 2)
    {
        ASSERT_EQ(mMixer.Create(UInt32(sources.size()), 1), 0);
        for (UInt32 bus = 0; bus < sources.size(); ++bus) mMixer.SetInputAudioSource(bus, sources[bus]);
        AudioStreamBasicDescription desc = FloatDesc(48000, outputs, false);
        ASSERT_EQ(mMixer.SetStreamDesc(kAudioUnitScope_Output, 0, &desc), 0);
        ASSERT_EQ(mMixer.SetMaxRenderSlice(8192), 0);
        ASSERT_EQ(mMixer.Initialize(), 0);
    }
    Block Render()
    {
        Block block(2, 64);
        UInt32 flags = 0;
        const AudioTimeStamp time{};
        EXPECT_EQ(mMixer.Render(&flags, &time, 0, 64, block.List()), 0);
        return block;
    }
    /// The last frame of a mix, when every change of volume has been ramped.
    std::pair<float, float> Mixed()
    {
        for (int block = 0; block < 50; ++block) Render();
        const Block block = Render();
        return {block[0][63], block[1][63]};
    }
    float Volume(UInt32 element)
    {
        float volume = -1;
        EXPECT_EQ(mMixer.GetVolume(element, &volume), 0);
        return volume;
    }

    OSLAudio_MatrixMixer mMixer;
    ConstantSource mA{2, 0.5F}, mB{2, 0.25F}, mC{2, 0.125F}, mMono{1, 0.0625F, true};
};

TEST_F(MatrixMixer, BeginsWithEachChannelOnTheOutputsInTurnAndAddressesThemAcrossBuses)
{
    Make({&mA, &mB, &mC});
    EXPECT_EQ(Mixed(), std::pair(0.875F, 0.875F));
    for (UInt32 input = 0; input < 6; ++input) {
        EXPECT_EQ(Volume(input << 16 | 0xFFFF), 1.0F);
        for (UInt32 output = 0; output < 2; ++output)
            EXPECT_EQ(Volume(input << 16 | output), input % 2 == output ? 1.0F : 0.0F);
    }
    EXPECT_EQ(Volume(0xFFFF0001), 1.0F);
    EXPECT_EQ(Volume(0xFFFFFFFF), 1.0F);
    mMixer.SetInputVolume(2, 0.5F);   // left of mB
    mMixer.SetOutputVolume(1, 0.5F);  // the right side
    mMixer.SetCrossVolume(4, 0, 0);   // left of mC
    mMixer.SetCrossVolume(4, 1, 1);
    EXPECT_EQ(Volume(2u << 16 | 0xFFFF), 0.5F);
    EXPECT_EQ(Volume(0xFFFF0001), 0.5F);
    EXPECT_EQ(Volume(4u << 16 | 1), 1.0F);
    EXPECT_EQ(Mixed(), std::pair(0.5F + 0.125F, (0.875F + 0.125F) / 2));
}

TEST_F(MatrixMixer, CountsChannelsAcrossBusesAndScopes)
{
    Make({&mA, &mMono, &mB});
    const UInt32 expected[][2] = {{0, 2}, {2, 1}, {3, 2}};
    for (UInt32 bus = 0; bus < 3; ++bus) {
        UInt32 first = 9, count = 9;
        EXPECT_EQ(mMixer.GetChannelRange(kAudioUnitScope_Input, bus, &first, &count), 0);
        EXPECT_EQ(first, expected[bus][0]);
        EXPECT_EQ(count, expected[bus][1]);
    }
    const UInt32 counts[] = {7, 5, 2, 0};
    for (UInt32 scope = 0; scope < 4; ++scope) {
        UInt32 count = 9;
        EXPECT_EQ(mMixer.GetNumberChannels(scope, &count), 0);
        EXPECT_EQ(count, counts[scope]);
    }
    UInt32 first = 9, count = 9;
    EXPECT_NE(mMixer.GetChannelRange(kAudioUnitScope_Input, 3, &first, &count), 0);
    EXPECT_EQ(first + count, 0u);
    EXPECT_EQ(Mixed(), std::pair(0.5F + 0.0625F + 0.25F, 0.5F + 0.25F));  // channels 0, 2, 4 and 1, 3
}

TEST_F(MatrixMixer, ABusWithoutSourceIsSilentAndShiftsTheFormatsBehindIt)
{
    Make({nullptr, &mMono, &mA});
    AudioStreamBasicDescription desc{};
    mMixer.GetStreamDesc(kAudioUnitScope_Input, 0, &desc);
    EXPECT_EQ(desc.mChannelsPerFrame, 1u);
    EXPECT_TRUE(desc.mFormatFlags & kAudioFormatFlagIsNonInterleaved);
    mMixer.GetStreamDesc(kAudioUnitScope_Input, 1, &desc);
    EXPECT_EQ(desc.mChannelsPerFrame, 2u);
    EXPECT_EQ(Render()[0].size(), 64u);  // and still renders
}

}  // namespace
