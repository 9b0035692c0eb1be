#include "platform/machine/simulated/Trace.h"

#include "platform/machine/simulated/Gate.h"
#include "platform/machine/simulated/Unseen.h"

#include <cinttypes>
#include <cstdio>

namespace platform::machine::simulated {

void Trace::Add(std::string_view text)
{
    const Unseen unseen;
    const uint64_t since = mGate.NowNanos() - kStartNanos;
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%" PRIu64 ".%09" PRIu64 " %s: ", since / 1'000'000'000, since % 1'000'000'000,
                  mGate.Self().mName);
    mText.append(stamp).append(text).push_back('\n');
}

}  // namespace platform::machine::simulated
