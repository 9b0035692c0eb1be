// AudioUnit: pull-model processing units under their published names, and graphs of them.
// Why: the capture graph is written against these calls; what each unit does with the samples is decided here.
// Components are found by their four-character description:
//
//     type  subtype  what it is
//     auou  ahal     input unit on a device: calls back when a buffer has arrived, which AudioUnitRender then gives
//     auou  def   output unit: the default output device, or the one it is given, pulls its input once a cycle
//     auou  genr     generic output: pulls its input and hands it out, the end of a chain
//     aufc  conv     converter: rate, and interleaved to one buffer a channel
//     aufc  vari     varispeed: plays at parameter 0 times the speed, a 32-bit float around 1
//     aumx  mxmx     matrix mixer: a gain an input channel, an output channel and a crosspoint, and one for all
//
// Rules that hold for all of them:
//   - A render is all or nothing: where a source refuses, its status is the result and nothing has changed. The mixer
//     keeps what earlier buses gave, hands it out first at the next render, and answers 0 with silence where a
//     bus's source said by a positive status that it is merely not ready yet.
//   - In sum a unit asks its source for exactly ratio x frames, never for look-ahead.
//   - A converter delays by kConverterDelaySeconds whatever its rates, also where they are equal; a varispeed by the
//     frames of its resampler, whatever its speed. Chains at one output rate therefore delay alike.
//   - Units allocate in AudioUnitInitialize and in property calls, never in AudioUnitRender; an output unit also on the
//     server's control thread, when its device comes to run at another rate.
//   - A unit that is uninitialized keeps its properties. A mixer's volumes last as long as it is initialized.
//   - An output unit whose source refuses plays silence meanwhile. What it pulls is stamped with the host time at which
//     it is heard, its converter's delay and the way to the hardware included.
//   - Samples are 32-bit floats, a buffer a channel; converters and output units take, and input units give,
//   interleaved
//     ones as well.
#pragma once

#include "platform/audio/AudioHardware.h"

using ComponentResult = OSStatus;
using AudioUnitRenderActionFlags = UInt32;

struct ComponentDescription {
    OSType componentType;
    OSType componentSubType;
    OSType componentManufacturer;
    UInt32 componentFlags;
    UInt32 componentFlagsMask;
};

using Component = const struct OpaqueComponent*;
using AudioUnit = struct OpaqueAudioUnit*;

/// Produces sound for an input element, or tells that a device has delivered (then without data).
///
/// @param flags   in and out; units pass it through
/// @param data    to fill, its byte sizes set for `frames`; unchanged where the result is not 0
/// @return        0, a positive status where it is merely not ready yet, else an error
/// @realtime      yes
using AURenderCallback = OSStatus (*)(void* refCon, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time,
                                      UInt32 bus, UInt32 frames, AudioBufferList* data);

struct AURenderCallbackStruct {
    AURenderCallback inputProc;
    void* inputProcRefCon;
};

constexpr OSStatus kAudioUnitErr_InvalidProperty = -10879;
constexpr OSStatus kAudioUnitErr_InvalidParameter = -10878;
constexpr OSStatus kAudioUnitErr_InvalidElement = -10877;
constexpr OSStatus kAudioUnitErr_NoConnection = -10876;
constexpr OSStatus kAudioUnitErr_FailedInitialization = -10875;
constexpr OSStatus kAudioUnitErr_TooManyFramesToProcess = -10874;
constexpr OSStatus kAudioUnitErr_FormatNotSupported = -10868;
constexpr OSStatus kAudioUnitErr_Uninitialized = -10867;
constexpr OSStatus kAudioUnitErr_InvalidScope = -10866;
constexpr OSStatus kAudioUnitErr_PropertyNotWritable = -10865;
constexpr OSStatus kAudioUnitErr_Initialized = -10849;
constexpr OSStatus kAudio_ParamError = -50;
constexpr OSStatus kAudio_MemFullError = -108;

constexpr UInt32 kAudioUnitScope_Global = 0;
constexpr UInt32 kAudioUnitScope_Input = 1;
constexpr UInt32 kAudioUnitScope_Output = 2;

constexpr UInt32 kAudioUnitProperty_StreamFormat = 8;               // AudioStreamBasicDescription
constexpr UInt32 kAudioUnitProperty_ElementCount = 11;              // UInt32
constexpr UInt32 kAudioUnitProperty_Latency = 12;                   // Float64, seconds
constexpr UInt32 kAudioUnitProperty_MaximumFramesPerSlice = 14;     // UInt32
constexpr UInt32 kAudioUnitProperty_SetRenderCallback = 23;         // AURenderCallbackStruct
constexpr UInt32 kAudioUnitProperty_RenderQuality = 26;             // UInt32, 0 .. 127; below 64 the low stage
constexpr UInt32 kAudioOutputUnitProperty_CurrentDevice = 2000;     // AudioDeviceID
constexpr UInt32 kAudioOutputUnitProperty_IsRunning = 2001;         // UInt32
constexpr UInt32 kAudioOutputUnitProperty_ChannelMap = 2002;        // SInt32 a client channel: a device channel, or -1
constexpr UInt32 kAudioOutputUnitProperty_EnableIO = 2003;          // UInt32
constexpr UInt32 kAudioOutputUnitProperty_SetInputCallback = 2005;  // AURenderCallbackStruct
constexpr UInt32 kAudioOutputUnitProperty_StartTimestampsAtZero = 2007;  // UInt32

/// What every converter delays, whatever its rates: a whole number of frames at all rates that hardware runs at.
constexpr double kConverterDelaySeconds = 0.01;

/// The first component after `after` (null: from the start) that fits; 0 in a description fits all. Null: none.
Component FindNextComponent(Component after, ComponentDescription* description);
/// @return 0, or kAudio_MemFullError
ComponentResult OpenAComponent(Component component, AudioUnit* unit);
ComponentResult CloseComponent(AudioUnit unit);

/// @thread control; one at a time for a unit. SetParameter of the mixer alone may run beside a render.
OSStatus AudioUnitInitialize(AudioUnit unit);
OSStatus AudioUnitUninitialize(AudioUnit unit);
/// Forgets sound that is on its way: histories, phases, blocks that were kept. Global scope. @thread as Render
/// @realtime yes
OSStatus AudioUnitReset(AudioUnit unit, UInt32 scope, UInt32 element);
OSStatus AudioUnitGetPropertyInfo(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, UInt32* size,
                                  Boolean* writable);
OSStatus AudioUnitGetProperty(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, void* data, UInt32* size);
OSStatus AudioUnitSetProperty(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, const void* data,
                              UInt32 size);
/// Sets the speed of a varispeed, 0.95 .. 1.05, or a volume of a mixer; heard from the next render on, without a step.
///
/// @param element  of a mixer: input channel << 16 | output channel, counted across buses; 0xFFFF for either: all
/// @param offset   frames into the next render; only 0 is used
/// @return         0, kAudioUnitErr_InvalidParameter, InvalidScope, InvalidElement, or Uninitialized for a volume
/// @realtime       yes
OSStatus AudioUnitSetParameter(AudioUnit unit, UInt32 parameter, UInt32 scope, UInt32 element, Float32 value,
                               UInt32 offset);
OSStatus AudioUnitGetParameter(AudioUnit unit, UInt32 parameter, UInt32 scope, UInt32 element, Float32* value);

/// Pulls `frames` frames of output element `bus` into `data`, whose buffers have room and byte sizes for them.
///
/// @return    0; the source's status, with nothing changed; kAudioUnitErr_Uninitialized;
///            kAudioUnitErr_TooManyFramesToProcess beyond the slice
/// @realtime  yes
OSStatus AudioUnitRender(AudioUnit unit, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                         UInt32 frames, AudioBufferList* data);

/// Starts and stops an input or output unit. After Stop no callback runs and none will. @thread control
OSStatus AudioOutputUnitStart(AudioUnit unit);
OSStatus AudioOutputUnitStop(AudioUnit unit);

// ---- Graphs: units that pull from each other, made and ended together

using AUGraph = struct OpaqueAUGraph*;
using AUNode = SInt32;

OSStatus NewAUGraph(AUGraph* graph);
OSStatus DisposeAUGraph(AUGraph graph);
OSStatus AUGraphNewNode(AUGraph graph, const ComponentDescription* description, UInt32 classDataSize,
                        const void* classData, AUNode* node);
/// Opens the unit of every node. Close gives them back, and leaves the nodes.
OSStatus AUGraphOpen(AUGraph graph);
OSStatus AUGraphClose(AUGraph graph);
OSStatus AUGraphGetNodeInfo(AUGraph graph, AUNode node, ComponentDescription* description, UInt32* classDataSize,
                            void** classData, AudioUnit* unit);
/// The source's output element feeds the destination's input element. @return 0, or kAudio_ParamError for no such node
OSStatus AUGraphConnectNodeInput(AUGraph graph, AUNode source, UInt32 sourceOutput, AUNode destination,
                                 UInt32 destinationInput);
/// Initializes every unit. @return the first error; what was initialized stays so until Uninitialize
OSStatus AUGraphInitialize(AUGraph graph);
OSStatus AUGraphUninitialize(AUGraph graph);
/// A graph without a device of its own only pulls: it is pulled by whoever renders its last unit.
OSStatus AUGraphStart(AUGraph graph);
