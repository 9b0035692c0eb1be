// What AI does with buffer lists and samples. What it asks of devices is in AIDevices.cpp.
#include "capture/buffers/AI.h"

#include "capture/buffers/CAAudioBufferList.h"
#include "platform/kernel/Memory.h"
#include "platform/vector/VectorKernels.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr float kInt16Scale = 32768.0F;

void Scale(float* samples, size_t count)
{
    for (size_t index = 0; index < count; ++index) samples[index] *= kInt16Scale;
}

}  // namespace

UInt32 AI_CalculateByteSize(UInt32 buffers)
{
    return UInt32(sizeof(AudioBufferList) + buffers * sizeof(AudioBuffer));  // the record holds one buffer already
}

AudioBufferList* AI_CreateBufferList(UInt32 buffers)
{
    const size_t page = platform::kernel::vm_page_size();
    const size_t bytes = (AI_CalculateByteSize(buffers) + page - 1) / page * page;
    auto* const list = static_cast<AudioBufferList*>(std::aligned_alloc(page, bytes));
    if (!list) return nullptr;
    std::memset(list, 0, bytes);
    list->mNumberBuffers = buffers;
    return list;
}

AudioBufferList* AI_CreateAllocedBufferList(UInt32 buffers, UInt32 channelsPerBuffer, UInt32 bytes)
{
    AudioBufferList* const list = AI_CreateBufferList(buffers);
    if (!list) return nullptr;
    AudioBuffer* const all = list->mBuffers;
    for (UInt32 index = 0; index < buffers; ++index) {
        all[index] = {channelsPerBuffer, bytes, std::calloc(bytes, 1)};
        if (all[index].mData || bytes == 0) continue;
        AI_DestroyBufferList(list);
        return nullptr;
    }
    return list;
}

AudioBufferList* AI_WrapInterleavedDataInBufferList(void* data, UInt32 bytes, UInt32 channels)
{
    AudioBufferList* const list = AI_CreateBufferList(1);
    if (list) list->mBuffers[0] = {channels, bytes, data};
    return list;
}

void AI_DestroyBufferList(AudioBufferList* list)
{
    CAAudioBufferList::Deallocate(list);
}

OSStatus AI_InterleaveFloat(const float* left, const float* right, int byteCount, float* out)
{
    if (byteCount <= 0) return 0;
    const float* const channels[] = {left, right};
    platform::vector::Interleave(channels, 2, out, 2, size_t(byteCount) / sizeof(float));
    return 0;
}

OSStatus AI_DeinterleaveFloat(const float* in, UInt32 byteCount, float* left, float* right)
{
    if (byteCount % 2 != 0) return 1;
    float* const channels[] = {left, right};
    platform::vector::Deinterleave(in, 2, channels, 2, byteCount / (2 * sizeof(float)));
    return 0;
}

OSStatus AI_DeinterleaveFloatAndLamify(const float* in, UInt32 byteCount, float* left, float* right)
{
    if (const OSStatus error = AI_DeinterleaveFloat(in, byteCount, left, right)) return error;
    Scale(left, byteCount / (2 * sizeof(float)));
    Scale(right, byteCount / (2 * sizeof(float)));
    return 0;
}

OSStatus AI_LimitFloat(float* samples, UInt32 byteCount, float limit)
{
    if (byteCount % sizeof(float) != 0) return 1;
    const float low = -limit;
    vDSP_vclip(samples, 1, &low, &limit, samples, 1, byteCount / sizeof(float));
    return 0;
}
