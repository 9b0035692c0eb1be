// ScriptedTapService: the other side of the tap's wire, with every answer and every byte in a test's hand.
// It writes down what its client asks for, and writes the two regions as a service does.
// Start at Publish, then WriteBlocks.
#pragma once

#include "platform/kernel/IOKit.h"
#include "support/Faults.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace support {

/// Offsets of the status region, and what stands there at first: 16 blocks of 128 stereo frames at 8 us.
struct StatusWords {
    uint32_t mLegacyOutputFrames = 2048u << 16;  // 0
    uint32_t mChannelCount = 2;                  // 4
    uint64_t mNSPerFrame = 8'000;                // 8
    uint32_t mUnread16 = 0xFFFFFFFF;             // 16
    uint32_t mLoopFrames = 16 * 128;             // 20
    uint64_t mNSPerLoop = 16 * 128 * 8'000;      // 24
    uint32_t mUnread32 = 0xFFFFFFFF;             // 32
    uint32_t mBlockFrames = 128;                 // 36
    uint64_t mNSPerBlock = 128 * 8'000;          // 40
    uint32_t mUnread48[5] = {};                  // 48
    uint32_t mTailFrame = 128;                   // 68
    uint32_t mLoopCount = 1;                     // 72
    uint32_t mHeadFrame = 0;                     // 76
    uint32_t mUnread80[4] = {};                  // 80
    uint32_t mOutputFrames = 2048;               // 96
};

class ScriptedTapService final : public platform::kernel::IOService,
                                 public std::enable_shared_from_this<ScriptedTapService> {
public:
    /// A new service, the only one there is until the next.
    static std::shared_ptr<ScriptedTapService> Publish();

    // ---- The script, before a client comes.
    cf::Ref<cf::Object> mVersion;  // the property "version"; empty: none
    std::vector<uint64_t> mSizes{16 * 128 * 8, 4096};
    std::optional<std::string> mSymbolRequest;  // empty: a size of 0
    StatusWords mStatus;
    bool mSwapped = false;  // the other byte order
    Faults* mFaults = nullptr;
    static constexpr kern_return_t kFailure = kern_return_t(0xE00002DE);

    // ---- The record.
    std::vector<std::string> mSteps;  // "open", "properties", "close", or a selector with its scalars
    cf::Ref<cf::Dictionary> mProperties;
    std::vector<uint8_t> mSymbolReply;
    int mClients = 0;  // open now

    // ---- The writer. Every sample is the number of its frame, counted from the service's start, times the
    // channels, plus its channel, divided by 2^24.
    void WriteBlocks(int count);
    /// Changes a 32-bit field of the region now.
    void Poke(size_t offset, uint32_t value);
    float SampleAt(uint64_t frame, uint32_t channel) const
    {
        return float((frame * mStatus.mChannelCount + channel) % (1u << 24)) / (1u << 24);
    }
    float* Ring() const { return reinterpret_cast<float*>(mAudioAddress); }

    // ---- What the registry asks.
    const char* GetClass() const override { return "com_Ostrel_AudioSupport"; }
    CFTypeRef CopyProperty(CFStringRef key) override;
    kern_return_t Open(uint32_t type, std::unique_ptr<platform::kernel::IOUserClient>& client) override;

private:
    class Client;
    kern_return_t Call(platform::kernel::MethodCall& call);
    void AnswerSymbolRequest(platform::kernel::MethodCall& call) const;
    void TakeRegions(const uint64_t* scalars);
    void WriteBlock();
    void StorePosition();
    template <class Word>
    void Store(size_t offset, Word value) const;
    template <class Word>
    Word Ordered(Word value) const;
    bool FailsNow() { return mFaults && mFaults->FailsNow(); }

    uintptr_t mAudioAddress = 0;
    uintptr_t mStatusAddress = 0;
    uint64_t mFramesWritten = 0;
};

}  // namespace support
