#include "support/ScriptedTapService.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>

namespace support {

using platform::kernel::IOUserClient;
using platform::kernel::MethodCall;

static_assert(offsetof(StatusWords, mTailFrame) == 68 && offsetof(StatusWords, mOutputFrames) == 96);

class ScriptedTapService::Client final : public IOUserClient {
public:
    explicit Client(std::shared_ptr<ScriptedTapService> service) : mService(std::move(service)) {}
    ~Client() override
    {
        mService->mSteps.push_back("close");
        --mService->mClients;
    }
    kern_return_t SetProperties(CFTypeRef properties) override
    {
        mService->mSteps.push_back("properties");
        mService->mProperties = cf::Ref<cf::Dictionary>::Share(CFDictionaryRef(properties));
        return mService->FailsNow() ? kFailure : 0;
    }
    kern_return_t Call(MethodCall& call) override { return mService->Call(call); }

private:
    std::shared_ptr<ScriptedTapService> mService;
};

std::shared_ptr<ScriptedTapService> ScriptedTapService::Publish()
{
    auto service = std::make_shared<ScriptedTapService>();
    platform::kernel::WithdrawServices();
    platform::kernel::PublishService(service);
    return service;
}

CFTypeRef ScriptedTapService::CopyProperty(CFStringRef key)
{
    return mVersion && cf::ToStdString(key) == "version" ? CFRetain(mVersion.Get()) : nullptr;
}

kern_return_t ScriptedTapService::Open(uint32_t type, std::unique_ptr<IOUserClient>& client)
{
    mSteps.push_back("open");
    if (type != 0 || FailsNow()) return kFailure;
    client = std::make_unique<Client>(shared_from_this());
    ++mClients;
    return 0;
}

kern_return_t ScriptedTapService::Call(MethodCall& call)
{
    std::string step = std::to_string(call.mSelector);
    if (call.mSelector != 5)
        for (uint32_t i = 0; i < call.mScalarsInCount; ++i) step += " " + std::to_string(call.mScalarsIn[i]);
    mSteps.push_back(step);
    if (FailsNow()) return kFailure;
    if (call.mSelector == 0) {
        call.mScalarsOutCount = uint32_t(std::min<size_t>(call.mScalarsOutCount, mSizes.size()));
        std::copy_n(mSizes.begin(), call.mScalarsOutCount, call.mScalarsOut);
    }
    if (call.mSelector == 2) AnswerSymbolRequest(call);
    if (call.mSelector == 3) {
        const auto* bytes = static_cast<const uint8_t*>(call.mStructureIn);
        mSymbolReply.assign(bytes, bytes + call.mStructureInBytes);
    }
    if (call.mSelector == 5 && call.mScalarsInCount == 6) TakeRegions(call.mScalarsIn);
    return 0;
}

void ScriptedTapService::AnswerSymbolRequest(MethodCall& call) const
{
    const uint32_t bytes = mSymbolRequest ? uint32_t(mSymbolRequest->size()) : 0;
    if (call.mStructureOutBytes == sizeof bytes)
        std::memcpy(call.mStructureOut, &bytes, sizeof bytes);
    else if (mSymbolRequest)
        std::memcpy(call.mStructureOut, mSymbolRequest->data(), std::min<size_t>(bytes, call.mStructureOutBytes));
}

void ScriptedTapService::TakeRegions(const uint64_t* scalars)
{
    mAudioAddress = uintptr_t(scalars[1] << 32 | scalars[2]);
    mStatusAddress = uintptr_t(scalars[4] << 32 | scalars[5]);
    const auto store = [this, bytes = reinterpret_cast<const char*>(&mStatus)](auto word, size_t offset) {
        std::memcpy(&word, bytes + offset, sizeof word);
        Store(offset, word);
    };
    for (size_t offset = 0; offset < 100; offset += 4) store(uint32_t(), offset);
    for (const size_t offset : {8, 24, 40}) store(uint64_t(), offset);  // one swap each, not two
}

template <class Word>
Word ScriptedTapService::Ordered(Word value) const
{
    if (!mSwapped) return value;
    return sizeof(Word) == 8 ? Word(__builtin_bswap64(value)) : Word(__builtin_bswap32(uint32_t(value)));
}

template <class Word>
void ScriptedTapService::Store(size_t offset, Word value) const
{
    std::atomic_ref(*reinterpret_cast<Word*>(mStatusAddress + offset)).store(Ordered(value), std::memory_order_release);
}

void ScriptedTapService::StorePosition()
{
    const std::array<uint32_t, 2> halves{Ordered(mStatus.mLoopCount), Ordered(mStatus.mHeadFrame)};
    std::atomic_ref(*reinterpret_cast<uint64_t*>(mStatusAddress + 72))
        .store(std::bit_cast<uint64_t>(halves), std::memory_order_release);
}

void ScriptedTapService::Poke(size_t offset, uint32_t value)
{
    Store<uint32_t>(offset, value);
}

void ScriptedTapService::WriteBlocks(int count)
{
    while (count-- > 0) WriteBlock();
}

// The block at the head lies before the tail already; the next one is given up before the head moves to it.
void ScriptedTapService::WriteBlock()
{
    const size_t samples = size_t(mStatus.mBlockFrames) * mStatus.mChannelCount;
    auto* const to = reinterpret_cast<uint32_t*>(Ring() + size_t(mStatus.mHeadFrame) * mStatus.mChannelCount);
    for (size_t i = 0; i < samples; ++i) {
        const float sample = SampleAt(mFramesWritten + i / mStatus.mChannelCount, uint32_t(i % mStatus.mChannelCount));
        std::atomic_ref(to[i]).store(Ordered(std::bit_cast<uint32_t>(sample)), std::memory_order_release);
    }
    mFramesWritten += mStatus.mBlockFrames;
    mStatus.mTailFrame = (mStatus.mTailFrame + mStatus.mBlockFrames) % mStatus.mLoopFrames;
    Store<uint32_t>(68, mStatus.mTailFrame);
    mStatus.mHeadFrame += mStatus.mBlockFrames;
    if (mStatus.mHeadFrame == mStatus.mLoopFrames) {
        mStatus.mHeadFrame = 0;
        ++mStatus.mLoopCount;
    }
    StorePosition();
}

}  // namespace support
