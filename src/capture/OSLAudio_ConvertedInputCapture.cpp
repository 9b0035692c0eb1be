#include "capture/OSLAudio_ConvertedInputCapture.h"

#include "capture/Status.h"
#include "capture/buffers/UnitCalls.h"

#include <cmath>

using capture::DescribeUnit;
using capture::GetUnitProperty;
using capture::SetUnitProperty;

namespace {

constexpr UInt32 kSpeed = 0;          // the varispeed's parameter
constexpr UInt32 kLowestQuality = 0;  // the shortest filter: this is computed in every cycle

OSStatus PullInput(void* input, UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                   AudioBufferList* list)
{
    return static_cast<OSLAudio_ConvertedInputCapture*>(input)->InputRenderCallback(flags, time, bus, frames, list);
}

OSStatus AddNode(AUGraph graph, OSType type, OSType subType, AUNode* node)
{
    const ComponentDescription description = DescribeUnit(type, subType);
    return AUGraphNewNode(graph, &description, 0, nullptr, node);
}

OSStatus GetUnit(AUGraph graph, AUNode node, AudioUnit* unit)
{
    return AUGraphGetNodeInfo(graph, node, nullptr, nullptr, nullptr, unit);
}

OSStatus SetFormat(AudioUnit unit, UInt32 scope, const AudioStreamBasicDescription& desc)
{
    return SetUnitProperty(unit, kAudioUnitProperty_StreamFormat, scope, 0, desc);
}

}  // namespace

struct OSLAudio_ConvertedInputCapture::Graph {
    Graph() = default;
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;
    ~Graph()
    {
        if (!mGraph) return;
        AUGraphUninitialize(mGraph);
        AUGraphClose(mGraph);
        DisposeAUGraph(mGraph);
    }

    AUGraph mGraph = nullptr;
    AUNode mOutputNode = 0, mVarispeedNode = 0, mConverterNode = 0;
    AudioUnit mOutputUnit = nullptr, mVarispeedUnit = nullptr, mConverterUnit = nullptr;
};

OSLAudio_ConvertedInputCapture::OSLAudio_ConvertedInputCapture() = default;
OSLAudio_ConvertedInputCapture::~OSLAudio_ConvertedInputCapture() = default;

OSStatus OSLAudio_ConvertedInputCapture::SetOutputDesc(AudioStreamBasicDescription* desc)
{
    return capture::StatusOf([&] {
        mGraphs.push_back(std::make_unique<Graph>());
        Graph& graph = *mGraphs.back();
        const OSStatus error = BuildGraph(graph, *desc);
        mGraph.store(&graph, std::memory_order_release);  // also a half-built one, which refuses to render
        return error;
    });
}

OSStatus OSLAudio_ConvertedInputCapture::BuildGraph(Graph& graph, const AudioStreamBasicDescription& desc)
{
    if (const OSStatus error = NewAUGraph(&graph.mGraph)) return error;
    const AUGraph units = graph.mGraph;
    if (const OSStatus error = AddNode(units, FourCC("auou"), FourCC("genr"), &graph.mOutputNode)) return error;
    if (const OSStatus error = AddNode(units, FourCC("aufc"), FourCC("vari"), &graph.mVarispeedNode)) return error;
    if (const OSStatus error = AddNode(units, FourCC("aufc"), FourCC("conv"), &graph.mConverterNode)) return error;
    if (const OSStatus error = AUGraphOpen(units)) return error;
    if (const OSStatus error = GetUnit(units, graph.mOutputNode, &graph.mOutputUnit)) return error;
    if (const OSStatus error = GetUnit(units, graph.mVarispeedNode, &graph.mVarispeedUnit)) return error;
    if (const OSStatus error = GetUnit(units, graph.mConverterNode, &graph.mConverterUnit)) return error;
    if (const OSStatus error = SetFormats(graph, desc)) return error;
    if (const OSStatus error = AUGraphConnectNodeInput(units, graph.mVarispeedNode, 0, graph.mOutputNode, 0))
        return error;
    if (const OSStatus error = AUGraphConnectNodeInput(units, graph.mConverterNode, 0, graph.mVarispeedNode, 0))
        return error;
    const AURenderCallbackStruct callback = {PullInput, this};
    return SetUnitProperty(graph.mConverterUnit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                           callback);
}

OSStatus OSLAudio_ConvertedInputCapture::SetFormats(const Graph& graph, const AudioStreamBasicDescription& desc)
{
    AudioStreamBasicDescription source{};
    if (const OSStatus error = mSource->GetAudioDesc(&source)) return error;
    if (source.mChannelsPerFrame == 1)
        source.mFormatFlags = desc.mFormatFlags;  // one channel is interleaved either way
    if (const OSStatus error = SetFormat(graph.mConverterUnit, kAudioUnitScope_Input, source)) return error;
    if (const OSStatus error = SetFormat(graph.mConverterUnit, kAudioUnitScope_Output, desc)) return error;
    if (const OSStatus error = SetFormat(graph.mVarispeedUnit, kAudioUnitScope_Input, desc)) return error;
    if (const OSStatus error = SetFormat(graph.mVarispeedUnit, kAudioUnitScope_Output, desc)) return error;
    if (const OSStatus error = SetUnitProperty(graph.mVarispeedUnit, kAudioUnitProperty_RenderQuality,
                                               kAudioUnitScope_Global, 0, kLowestQuality))
        return error;
    if (const OSStatus error = SetFormat(graph.mOutputUnit, kAudioUnitScope_Input, desc)) return error;
    return SetFormat(graph.mOutputUnit, kAudioUnitScope_Output, desc);
}

OSStatus OSLAudio_ConvertedInputCapture::GetOutputDesc(AudioStreamBasicDescription* desc) const
{
    return GetUnitProperty(Current()->mOutputUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0, desc);
}

OSStatus OSLAudio_ConvertedInputCapture::GetRenderDesc(AudioStreamBasicDescription* desc)
{
    return GetOutputDesc(desc);
}

OSStatus OSLAudio_ConvertedInputCapture::SetMaxRenderSlice(UInt32 frames)
{
    const Graph& graph = *Current();
    for (const AudioUnit unit : {graph.mOutputUnit, graph.mVarispeedUnit, graph.mConverterUnit}) {
        if (const OSStatus error =
                SetUnitProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0, frames))
            return error;
    }
    return 0;
}

OSStatus OSLAudio_ConvertedInputCapture::GetMaxRenderSlice(UInt32* frames)
{
    return GetUnitProperty(Current()->mConverterUnit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global,
                           0, frames);
}

OSStatus OSLAudio_ConvertedInputCapture::GetGraphLatency(double* seconds)
{
    const Graph& graph = *Current();
    *seconds = 0;
    for (const AudioUnit unit : {graph.mConverterUnit, graph.mVarispeedUnit}) {
        Float64 delay = 0;
        if (const OSStatus error = GetUnitProperty(unit, kAudioUnitProperty_Latency, kAudioUnitScope_Global, 0, &delay))
            return error;
        *seconds += delay;
    }
    return 0;
}

OSStatus OSLAudio_ConvertedInputCapture::Start()
{
    if (const OSStatus error = AUGraphInitialize(Current()->mGraph)) return error;
    if (const OSStatus error = AUGraphStart(Current()->mGraph)) return error;
    return mSource->Start();
}

OSStatus OSLAudio_ConvertedInputCapture::Render(UInt32* flags, const AudioTimeStamp* time, UInt32, UInt32 frames,
                                                AudioBufferList* data) CORVANE_REALTIME
{
    const Graph& graph = *Current();
    const double rateScalar = mSilenceFrames > 0 ? RateScalarBefore(mSilenceFrames) : mSource->GetRateScalar();
    // A slow crystal gives fewer frames a second, and so fewer are pulled. Where the unit refuses, the last speed
    // holds.
    if (rateScalar > 0.0)
        AudioUnitSetParameter(graph.mVarispeedUnit, kSpeed, kAudioUnitScope_Global, 0, float(1.0 / rateScalar), 0);
    return AudioUnitRender(graph.mOutputUnit, flags, time, 0, frames, data);
}

OSStatus OSLAudio_ConvertedInputCapture::InputRenderCallback(UInt32*, const AudioTimeStamp*, UInt32, UInt32 frames,
                                                             AudioBufferList* list) CORVANE_REALTIME
{
    const OSStatus status = Fetch(&mFetchTime, frames, list);
    if (status != RingOK) mRefused = true;
    return status;
}

OSStatus OSLAudio_ConvertedInputCapture::Fetch(const AudioTimeStamp* time, UInt32 frames,
                                               AudioBufferList* list) CORVANE_REALTIME
{
    const OSStatus status = FetchFromRing(time->mSampleTime, frames, list);
    if (status == RingOK) mFetchTime.mSampleTime += frames;
    return status;
}

OSStatus OSLAudio_ConvertedInputCapture::SkipFrames(double frames)
{
    mFetchTime.mSampleTime += double(int64_t(SourceFrames(frames)));
    return 0;
}

/// As many frames of the output in frames of the source; 0 where a rate is not known.
double OSLAudio_ConvertedInputCapture::SourceFrames(double frames) const noexcept
{
    AudioStreamBasicDescription source{}, output{};
    mSource->GetAudioDesc(&source);
    GetOutputDesc(&output);
    const double converted = source.mSampleRate / output.mSampleRate * frames;
    return std::isfinite(converted) ? converted : 0;
}

void OSLAudio_ConvertedInputCapture::NoteSilence(UInt32 frames) noexcept
{
    mSilenceFrames += SourceFrames(frames);
}

void OSLAudio_ConvertedInputCapture::ResetGraph() noexcept
{
    const Graph& graph = *Current();
    for (const AudioUnit unit : {graph.mConverterUnit, graph.mVarispeedUnit})
        AudioUnitReset(unit, kAudioUnitScope_Global, 0);  // one that is not initialized holds no sound
}

void OSLAudio_ConvertedInputCapture::NoteCycle(bool readable, UInt32 frames) noexcept
{
    mSilentFrames.store(readable ? 0 : GetSilentFrames() + frames, std::memory_order_relaxed);
}
