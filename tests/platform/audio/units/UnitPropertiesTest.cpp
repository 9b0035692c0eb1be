// What units refuse, and what of it a client is told.
#include "platform/audio/units/UnitRig.h"
#include "support/Faults.h"

#include <cstdlib>
#include <new>

using namespace support;

namespace {
Faults* sFaults = nullptr;
}

// Not inlined: the compiler would judge the pairs by halves.
[[gnu::noinline]] void* operator new(size_t bytes)
{
    void* const memory = sFaults && sFaults->FailsNow() ? nullptr : std::malloc(bytes);
    if (!memory) throw std::bad_alloc();
    return memory;
}
[[gnu::noinline]] void* operator new(size_t bytes, const std::nothrow_t&) noexcept
{
    return sFaults && sFaults->FailsNow() ? nullptr : std::malloc(bytes);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}

namespace {

constexpr UInt32 kInput = kAudioUnitScope_Input, kOutput = kAudioUnitScope_Output, kGlobal = kAudioUnitScope_Global;

OSStatus InitializeWith(AudioUnit unit, const AudioStreamBasicDescription& input,
                        const AudioStreamBasicDescription& output)
{
    EXPECT_EQ(SetFormat(unit, kInput, 0, input), 0);
    EXPECT_EQ(SetFormat(unit, kOutput, 0, output), 0);
    const OSStatus status = AudioUnitInitialize(unit);
    EXPECT_EQ(AudioUnitUninitialize(unit), 0);
    return status;
}

/// A chain and a mixer built as a capture builds them, up to the first failure; all given back after it.
OSStatus BuildAll()
{
    AUGraph graph = nullptr;
    AudioUnit mixer = nullptr;
    const auto build = [&]() -> OSStatus {
        if (const OSStatus error = NewAUGraph(&graph)) return error;
        for (const char* subtype : {"genr", "vari", "conv"}) {
            ComponentDescription description{};
            description.componentSubType = FourCC({subtype[0], subtype[1], subtype[2], subtype[3], 0});
            AUNode node = 0;
            if (const OSStatus error = AUGraphNewNode(graph, &description, 0, nullptr, &node)) return error;
        }
        if (const OSStatus error = AUGraphOpen(graph)) return error;
        if (const OSStatus error = AUGraphInitialize(graph)) return error;
        ComponentDescription description{FourCC("aumx"), FourCC("mxmx"), FourCC("appl"), 0, 0};
        if (const OSStatus error = OpenAComponent(FindNextComponent(nullptr, &description), &mixer)) return error;
        if (const OSStatus error = Set(mixer, kAudioUnitProperty_ElementCount, kInput, 0, UInt32{3})) return error;
        return AudioUnitInitialize(mixer);
    };
    const OSStatus status = build();
    if (graph) DisposeAUGraph(graph);
    if (mixer) CloseComponent(mixer);
    return status;
}

}  // namespace

TEST(Units, TakeFloatsOnlyAndInterleavedOnesOnlyWhereTheyAreConverted)
{
    AudioStreamBasicDescription integers = FloatFormat(48000, 2), wide = integers, swapped = integers, none = integers,
                                stopped = integers, odd = integers;
    integers.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    wide.mBitsPerChannel = 64;
    swapped.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    none.mChannelsPerFrame = 0;
    stopped.mSampleRate = 0;
    odd.mBytesPerFrame = 8;
    const AudioUnit converter = OpenUnit("aufc", "conv");
    for (const auto& format : {integers, wide, swapped, none, stopped, odd}) {
        for (const UInt32 scope : {kInput, kOutput})
            EXPECT_EQ(SetFormat(converter, scope, 0, format), kAudioUnitErr_FormatNotSupported);
    }
    EXPECT_EQ(SetFormat(converter, kInput, 0, FloatFormat(48000, 2, kInterleaved)), 0);
    EXPECT_EQ(SetFormat(converter, kOutput, 0, FloatFormat(48000, 2, kInterleaved)), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(SetFormat(converter, kOutput, 0, FloatFormat(48000, 1, kInterleaved)), 0) << "one channel lies apart";
    CloseComponent(converter);
}

TEST(Units, RefuseFormatsThatDoNotGoTogetherWhenTheyAreInitialized)
{
    const struct {
        const char (&mType)[5];
        const char (&mSubtype)[5];
        AudioStreamBasicDescription mInput, mOutput;
        OSStatus mStatus;
    } cases[] = {
        {"aufc", "conv", FloatFormat(96000, 2), FloatFormat(44100, 2), 0},
        {"aufc", "conv", FloatFormat(96000, 2), FloatFormat(44100, 1), kAudioUnitErr_FormatNotSupported},
        {"aufc", "conv", FloatFormat(8000, 2), FloatFormat(8000, 2), 0},
        {"aufc", "conv", FloatFormat(4000, 2), FloatFormat(4000, 2), kAudioUnitErr_FormatNotSupported},
        {"aufc", "conv", FloatFormat(192000, 2), FloatFormat(8000, 2), kAudioUnitErr_FormatNotSupported},
        {"aufc", "conv", FloatFormat(48000, 65), FloatFormat(48000, 65), kAudioUnitErr_FormatNotSupported},
        {"aufc", "vari", FloatFormat(48000, 2), FloatFormat(44100, 2), kAudioUnitErr_FormatNotSupported},
        {"auou", "genr", FloatFormat(48000, 2), FloatFormat(48000, 1), kAudioUnitErr_FormatNotSupported},
    };
    for (const auto& each : cases) {
        const AudioUnit unit = OpenUnit(each.mType, each.mSubtype);
        EXPECT_EQ(InitializeWith(unit, each.mInput, each.mOutput), each.mStatus)
            << each.mSubtype << " " << each.mInput.mSampleRate;
        CloseComponent(unit);
    }
}

TEST(Units, SayWhichPartOfAnAddressIsWrong)
{
    const AudioUnit mixer = OpenUnit("aumx", "mxmx"), varispeed = OpenUnit("aufc", "vari");
    UInt32 value = 1;
    EXPECT_EQ(Set(mixer, kAudioUnitProperty_RenderQuality, kGlobal, 0, value), kAudioUnitErr_InvalidProperty);
    EXPECT_EQ(Set(varispeed, kAudioUnitProperty_RenderQuality, kInput, 0, value), kAudioUnitErr_InvalidScope);
    EXPECT_EQ(Set(varispeed, kAudioUnitProperty_RenderQuality, kGlobal, 1, value), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(Set(varispeed, kAudioUnitProperty_RenderQuality, kGlobal, 0, UInt32{128}), kAudio_ParamError);
    EXPECT_EQ(Set(varispeed, kAudioUnitProperty_RenderQuality, kGlobal, 0, uint64_t{1}), kAudio_ParamError);
    EXPECT_EQ(Set(varispeed, kAudioUnitProperty_Latency, kGlobal, 0, 1.0), kAudioUnitErr_PropertyNotWritable);
    uint16_t narrow = 0;
    EXPECT_EQ(Get(varispeed, kAudioUnitProperty_RenderQuality, kGlobal, 0, narrow), kAudio_ParamError);
    EXPECT_EQ(SetFormat(mixer, kInput, 2, FloatFormat(48000, 2)), kAudioUnitErr_InvalidElement);

    EXPECT_EQ(Set(mixer, kAudioUnitProperty_ElementCount, kInput, 0, UInt32{3}), 0);
    EXPECT_EQ(SetFormat(mixer, kInput, 2, FloatFormat(48000, 1)), 0);
    EXPECT_EQ(AudioUnitInitialize(mixer), 0);
    EXPECT_EQ(SetFormat(mixer, kInput, 2, FloatFormat(48000, 2)), kAudioUnitErr_Initialized);
    EXPECT_EQ(AudioUnitUninitialize(mixer), 0);
    AudioStreamBasicDescription kept{};
    EXPECT_EQ(Get(mixer, kAudioUnitProperty_StreamFormat, kInput, 2, kept), 0);
    EXPECT_EQ(kept.mChannelsPerFrame, 1u);

    Channels block(2, std::vector<float>(64));
    EXPECT_EQ(Render(varispeed, block), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(AudioUnitInitialize(varispeed), 0);
    EXPECT_EQ(Render(varispeed, block), kAudioUnitErr_NoConnection);
    EXPECT_EQ(Render(varispeed, block, 1), kAudioUnitErr_InvalidElement);
    block.pop_back();
    EXPECT_EQ(Render(varispeed, block), kAudio_ParamError);
    CloseComponent(mixer);
    CloseComponent(varispeed);
    EXPECT_EQ(AudioUnitInitialize(nullptr), kAudio_ParamError);
}

TEST(Units, AGraphRefusesConnectionsOfUnlikeFormats)
{
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), 0);
    const ComponentDescription description{FourCC("auou"), FourCC("genr"), FourCC("appl"), 0, 0},
        unknown{FourCC("auou"), FourCC("none"), 0, 0, 0};
    AUNode first = 0, second = 0;
    EXPECT_EQ(AUGraphNewNode(graph, &unknown, 0, nullptr, &first), kAudio_ParamError);
    ASSERT_EQ(AUGraphNewNode(graph, &description, 0, nullptr, &first), 0);
    ASSERT_EQ(AUGraphNewNode(graph, &description, 0, nullptr, &second), 0);
    ASSERT_EQ(AUGraphOpen(graph), 0);
    EXPECT_EQ(AUGraphConnectNodeInput(graph, first, 0, 17, 0), kAudio_ParamError);
    EXPECT_EQ(AUGraphConnectNodeInput(graph, first, 1, second, 0), kAudioUnitErr_InvalidElement);
    ASSERT_EQ(AUGraphConnectNodeInput(graph, first, 0, second, 0), 0);
    AudioUnit unit = nullptr;
    ASSERT_EQ(AUGraphGetNodeInfo(graph, second, nullptr, nullptr, nullptr, &unit), 0);
    ASSERT_EQ(SetFormat(unit, kInput, 0, FloatFormat(48000, 2)), 0);
    ASSERT_EQ(SetFormat(unit, kOutput, 0, FloatFormat(48000, 2)), 0);
    EXPECT_EQ(AUGraphInitialize(graph), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(DisposeAUGraph(graph), 0);
}

TEST(Units, EveryAllocationThatFailsIsReportedAndLeavesNothingBehind)
{
    ASSERT_EQ(BuildAll(), 0);
    for (int failing = 0;; ++failing) {
        Faults faults{failing};
        sFaults = &faults;
        const OSStatus status = BuildAll();
        sFaults = nullptr;
        if (faults.mCalls <= failing) {
            EXPECT_EQ(status, 0);
            EXPECT_GT(failing, 20);
            break;
        }
        ASSERT_EQ(status, kAudio_MemFullError) << failing;
    }
}
