// What units refuse, and what of it a client is told.
#include "platform/audio/units/UnitRig.h"
#include "support/AllocationFaults.h"

using namespace support;

namespace {

/// Opens a unit, which may fail.
OSStatus TryOpen(const char (&subtype)[5], OwnedUnit& unit)
{
    ComponentDescription description = Description(subtype);
    AudioUnit opened = nullptr;
    const OSStatus status = OpenAComponent(FindNextComponent(nullptr, &description), &opened);
    unit.reset(opened);
    return status;
}

/// Builds a chain, a mixer and an output up to the first failure, and gives all of it back.
OSStatus BuildAll()
{
    AUGraph graph = nullptr;
    OwnedUnit mixer, output;
    const auto build = [&]() -> OSStatus {
        if (const OSStatus error = NewAUGraph(&graph)) return error;
        for (const auto& description : {Description("genr"), Description("vari"), Description("conv")}) {
            AUNode node = 0;
            if (const OSStatus error = AUGraphNewNode(graph, &description, 0, nullptr, &node)) return error;
        }
        if (const OSStatus error = AUGraphOpen(graph)) return error;
        if (const OSStatus error = AUGraphInitialize(graph)) return error;
        if (const OSStatus error = TryOpen("mxmx", mixer)) return error;
        if (const OSStatus error = Set(mixer.get(), kAudioUnitProperty_ElementCount, kInput, 0, UInt32{3}))
            return error;
        if (const OSStatus error = AudioUnitInitialize(mixer.get())) return error;
        if (const OSStatus error = TryOpen("def ", output)) return error;
        return AudioUnitInitialize(output.get());
    };
    const OSStatus status = build();
    if (graph) DisposeAUGraph(graph);
    return status;
}

}  // namespace

TEST(Units, RefuseFormatsThatAreNoFloatsOrDoNotGoTogether)
{
    AudioStreamBasicDescription integers = FloatFormat(48000, 2), wide = integers, odd = integers;
    integers.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    wide.mBitsPerChannel = 64;
    odd.mBytesPerFrame = 8;
    const OwnedUnit converter = Open("conv"), varispeed = Open("vari");
    for (const auto& format : {integers, wide, odd, FloatFormat(0, 2), FloatFormat(48000, 0)})
        EXPECT_EQ(SetFormat(converter.get(), kInput, 0, format), kAudioUnitErr_FormatNotSupported);
    const AudioStreamBasicDescription woven = FloatFormat(48000, 2, kInterleaved);
    EXPECT_EQ(SetFormat(converter.get(), kInput, 0, woven), 0);
    EXPECT_EQ(SetFormat(converter.get(), kOutput, 0, woven), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(SetFormat(varispeed.get(), kInput, 0, woven), kAudioUnitErr_FormatNotSupported);

    const auto initialize = [](const OwnedUnit& unit, const auto& input, const auto& output) {
        EXPECT_EQ(SetFormat(unit.get(), kInput, 0, input), 0);
        EXPECT_EQ(SetFormat(unit.get(), kOutput, 0, output), 0);
        const OSStatus status = AudioUnitInitialize(unit.get());
        EXPECT_EQ(AudioUnitUninitialize(unit.get()), 0);
        return status;
    };
    EXPECT_EQ(initialize(converter, FloatFormat(96000, 2), FloatFormat(44100, 2)), 0);
    EXPECT_EQ(initialize(converter, FloatFormat(96000, 2), FloatFormat(44100, 1)), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(initialize(converter, FloatFormat(4000, 2), FloatFormat(4000, 2)), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(initialize(converter, FloatFormat(192000, 2), FloatFormat(8000, 2)), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(initialize(converter, FloatFormat(48000, 65), FloatFormat(48000, 65)), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(initialize(varispeed, FloatFormat(48000, 2), FloatFormat(44100, 2)), kAudioUnitErr_FormatNotSupported);
    const OwnedUnit output = Open("def ");
    EXPECT_EQ(SetFormat(output.get(), kInput, 0, FloatFormat(48000, 65)), 0);
    EXPECT_EQ(AudioUnitInitialize(output.get()), kAudioUnitErr_FormatNotSupported);
}

TEST(Units, SayWhichPartOfAnAddressIsWrongAndKeepTheirPropertiesOnceInitialized)
{
    const OwnedUnit mixer = Open("mxmx"), varispeed = Open("vari");
    constexpr UInt32 kQuality = kAudioUnitProperty_RenderQuality;
    EXPECT_EQ(Set(mixer.get(), kQuality, kGlobal, 0, UInt32{1}), kAudioUnitErr_InvalidProperty);
    EXPECT_EQ(Set(varispeed.get(), kQuality, kInput, 0, UInt32{1}), kAudioUnitErr_InvalidScope);
    EXPECT_EQ(Set(varispeed.get(), kQuality, kGlobal, 1, UInt32{1}), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(Set(varispeed.get(), kQuality, kGlobal, 0, uint64_t{1}), kAudio_ParamError);
    EXPECT_EQ(Set(varispeed.get(), kAudioUnitProperty_Latency, kGlobal, 0, 1.0), kAudioUnitErr_PropertyNotWritable);
    uint16_t narrow = 0;
    EXPECT_EQ(Get(varispeed.get(), kQuality, kGlobal, 0, narrow), kAudio_ParamError);

    EXPECT_EQ(SetFormat(mixer.get(), kInput, 2, FloatFormat(48000, 1)), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(Set(mixer.get(), kAudioUnitProperty_ElementCount, kInput, 0, UInt32{3}), 0);
    EXPECT_EQ(SetFormat(mixer.get(), kInput, 2, FloatFormat(48000, 1)), 0);
    EXPECT_EQ(AudioUnitInitialize(mixer.get()), 0);
    EXPECT_EQ(SetFormat(mixer.get(), kInput, 2, FloatFormat(48000, 2)), kAudioUnitErr_Initialized);
    EXPECT_EQ(AudioUnitUninitialize(mixer.get()), 0);
    AudioStreamBasicDescription kept{};
    EXPECT_EQ(Get(mixer.get(), kAudioUnitProperty_StreamFormat, kInput, 2, kept), 0);
    EXPECT_EQ(kept.mChannelsPerFrame, 1u);

    Channels block(2, std::vector<float>(64));
    EXPECT_EQ(Render(varispeed.get(), block), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(AudioUnitInitialize(varispeed.get()), 0);
    EXPECT_EQ(Render(varispeed.get(), block), kAudioUnitErr_NoConnection);
    EXPECT_EQ(Render(varispeed.get(), block, 1), kAudioUnitErr_InvalidElement);
    block.pop_back();
    EXPECT_EQ(Render(varispeed.get(), block), kAudio_ParamError);
}

TEST(Units, EveryAllocationThatFailsIsReportedAndLeavesNothingBehind)
{
    ASSERT_EQ(BuildAll(), 0);
    OSStatus status = kAudio_MemFullError;
    for (int failing = 0; status != 0; ++failing) {
        Faults faults{failing};
        sAllocationFaults = &faults;
        status = BuildAll();
        sAllocationFaults = nullptr;
        ASSERT_EQ(status, faults.mCalls > failing ? kAudio_MemFullError : 0) << failing;
    }
}
