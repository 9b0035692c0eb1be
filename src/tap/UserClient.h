// UserClient: one client's connection to the service: configuration, sizes, regions, play-through, in that order.
// Why: calls come as numbers and addresses from outside; every one is judged here before anything acts on it.
// Start at Call; the client's side of it is told in docs/formats/tap-status.md.
#pragma once

#include "platform/kernel/IOKit.h"
#include "tap/Configuration.h"
#include "tap/Tap.h"

#include <memory>

namespace tap {

enum Selector : uint32_t {
    kSelectorSizes = 0,         // out: bytes of the audio and of the status region
    kSelectorSymbols = 2,       // out: size of the list of symbols needed, which is 0
    kSelectorSymbolValues = 3,  // refused: none were asked for
    kSelectorPlayThrough = 4,   // in: 0 or 1
    kSelectorRegions = 5,       // in: audio bytes, address (upper, lower half), status bytes, address (both halves)
};

class UserClient final : public platform::kernel::IOUserClient {
public:
    /// Takes the configuration, before anything but the symbol request. Later calls, once the regions are shared, take
    /// other devices and processes.
    /// @return kIOReturnBadArgument for values out of range, kIOReturnError the second time before the regions are
    ///         shared, kIOReturnNoMemory where the tap has no lane left for a device
    kern_return_t SetProperties(CFTypeRef properties) override;

    /// @return kIOReturnNotOpen for a call before its turn, kIOReturnError for one after it,
    ///         kIOReturnBadArgument for counts or values out of range, kIOReturnUnsupported for other selectors
    kern_return_t Call(platform::kernel::MethodCall& call) override;

private:
    kern_return_t Retarget(CFTypeRef properties);
    kern_return_t AnswerSizes(platform::kernel::MethodCall& call) const;
    kern_return_t AnswerSymbols(platform::kernel::MethodCall& call) const;
    kern_return_t SetPlayThrough(const platform::kernel::MethodCall& call);
    kern_return_t TakeRegions(const platform::kernel::MethodCall& call);

    Configuration mConfiguration;
    bool mConfigured = false;
    bool mPlayThrough = true;
    std::unique_ptr<Tap> mTap;
};

}  // namespace tap
