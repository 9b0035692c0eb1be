// CAAudioBufferList: making, clearing, combining and reshaping lists of audio buffers.
// Arithmetic is on 32-bit floats. Lists of unequal shape are the caller's fault; nothing here reports an error
// but Create, by null. All but Create, Destroy, Deallocate and DumpFloatSamples may run on real-time threads.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

class CAAudioBufferList {
public:
    /// A list without buffers: what a procedure is handed that has no input.
    static const AudioBufferList sEmptyBufferList;

    // ---- Making

    /// Bytes of a list of that many buffers, without their data.
    static UInt32 CalculateByteSize(UInt32 buffers) noexcept;

    /// A zeroed list, to be given to Destroy. @return null when out of memory
    static AudioBufferList* Create(UInt32 buffers);
    /// The same with `bytes` of silence a buffer, page-aligned and touched, to be given to Deallocate. A buffer whose
    /// memory was not to be had has null data, and its size still set.
    static AudioBufferList* Create(UInt32 buffers, UInt32 bytes);
    /// Buffers as a format wants them: one a channel where it is non-interleaved PCM, else one for all.
    /// @param frames  0 makes a list without data
    static AudioBufferList* Create(const AudioStreamBasicDescription* format, UInt32 frames);

    /// Frees the list alone.
    static void Destroy(AudioBufferList* list);
    /// Frees the data and the list, which may be null.
    static void Deallocate(AudioBufferList* list);

    // ---- Reading

    static UInt32 GetTotalNumberChannels(const AudioBufferList& list) noexcept;

    /// Finds a channel counted through the whole list. @return whether the list has it; else nothing is set
    static bool GetBufferForChannel(const AudioBufferList& list, UInt32 channel, UInt32& bufferIndex,
                                    UInt32& channelInBuffer) noexcept;

    /// Whether any bit is set: to this, -0.0 is data.
    static bool HasData(const AudioBufferList& list) noexcept;

    /// Prints `count` samples of each buffer from its sample `first` on, for diagnosis.
    static void DumpFloatSamples(const AudioBufferList* list, UInt32 first, UInt32 count);

    // ---- Writing

    static void Clear(AudioBufferList& list) noexcept;

    /// Copies one channel between buffers that may be interleaved differently, as many frames as both have.
    static void CopyChannel(const AudioBuffer& from, UInt32 fromChannel, AudioBuffer& to, UInt32 toChannel) noexcept;

    /// Copies as many frames as fit, from frame `fromFrame` of `from` to frame `toFrame` of `to`.
    static void Copy(const AudioBufferList& from, UInt32 fromFrame, AudioBufferList& to, UInt32 toFrame) noexcept;

    /// out = a + b, over the samples of `out`.
    static void Sum(const AudioBufferList& a, const AudioBufferList& b, AudioBufferList& out) noexcept;
    /// Adds `from` into `to`, channel by channel, however each is interleaved.
    static void Sum(const AudioBufferList& from, AudioBufferList& to) noexcept;
    /// out = a * scale + b, over the samples of `out`.
    static void MultipliedSum(float scale, const AudioBufferList& a, const AudioBufferList& b,
                              AudioBufferList& out) noexcept;

    /// Limits the samples of `from` to [low, high], over the samples of `to`: `to` may be the shorter one.
    /// @return samples that were cut; what is not a number passes
    static uint64_t Clip(float low, float high, const AudioBufferList& from, AudioBufferList& to) noexcept;

    /// Weaves the mono buffers of `from` into the first buffer of `to`. As many frames as the first of them has.
    static void Interleave(const AudioBufferList* from, AudioBufferList* to) noexcept;
    /// The reverse, into the mono buffers of `to`. As many frames as the first of them has.
    static void Deinterleave(const AudioBufferList* from, AudioBufferList* to) noexcept;
};
