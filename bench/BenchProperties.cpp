// A property got through the plug-in's function table (the barrier, two look-ups of the object, its lock, the class's
// table), beside the least that any such call costs: a look-up in a map and a virtual call. 32 devices of two streams.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <vector>

#include "framework/HP_Device.h"
#include "framework/HP_HardwarePlugIn.h"
#include "framework/HP_Stream.h"
#include "platform/audio/AudioObjectProperties.h"

namespace {

constexpr AudioObjectID kFirst = 100, kDevices = 32, kAsked = kFirst + 17;

struct Device {
    Device(AudioObjectID number, HP_HardwarePlugIn* plugIn) : mDevice(number, kAudioDeviceClassID, plugIn)
    {
        mDevice.Initialize();
        HP_Object::SetObjectStateMutexForID(number, mDevice.GetObjectStateMutex());
        for (const bool isInput : {true, false}) {
            auto& stream = mStreams.emplace_back(
                std::make_unique<HP_Stream>(number + (isInput ? 1000 : 2000), plugIn, &mDevice, isInput, 1));
            stream->Initialize();
            HP_FormatList& formats = stream->GetFormatList();
            const AudioStreamBasicDescription format{44100, kAudioFormatLinearPCM, 12, 4, 1, 4, 2, 16, 0};
            formats.AddPhysicalFormat({format, {44100, 44100}});
            formats.SetCurrentPhysicalFormat(format, false);
            mDevice.AddStream(stream.get());
        }
    }
    HP_Device mDevice;
    std::vector<std::unique_ptr<HP_Stream>> mStreams;
};

struct PlugIn {
    PlugIn()
    {
        for (AudioObjectID number = kFirst; number < kFirst + kDevices; ++number) {
            mDevices.push_back(std::make_unique<Device>(number, &mPlugIn));
            mByNumber[number] = &mDevices.back()->mDevice;
        }
    }
    HP_HardwarePlugIn mPlugIn{
        CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)};
    std::vector<std::unique_ptr<Device>> mDevices;
    std::map<AudioObjectID, HP_Device*> mByNumber;
};

void GetThroughTheTable(benchmark::State& state, AudioObjectPropertySelector selector, UInt32 bytes)
{
    PlugIn plugIn;
    const AudioHardwarePlugInRef ref = plugIn.mPlugIn.GetInterface();
    const AudioObjectPropertyAddress address{selector, kAudioObjectPropertyScopeGlobal, 0};
    AudioStreamBasicDescription value;
    for (auto _ : state) {
        UInt32 size = bytes;
        if ((*ref)->ObjectGetPropertyData(ref, kAsked, &address, 0, nullptr, &size, &value) != 0)
            state.SkipWithError("not got");
        benchmark::ClobberMemory();
    }
}

void LookUpAndCall(benchmark::State& state)
{
    PlugIn plugIn;
    for (auto _ : state) {
        AudioObjectID number = kAsked;
        benchmark::DoNotOptimize(number);
        benchmark::DoNotOptimize(plugIn.mByNumber.find(number)->second->IsHidden());
    }
}

BENCHMARK_CAPTURE(GetThroughTheTable, frames, kAudioDevicePropertyBufferFrameSize, 4);
BENCHMARK_CAPTURE(GetThroughTheTable, rate, kAudioDevicePropertyNominalSampleRate, 8);
BENCHMARK_CAPTURE(GetThroughTheTable, format, kAudioDevicePropertyStreamFormat, 40);
BENCHMARK(LookUpAndCall);

}  // namespace

BENCHMARK_MAIN();
