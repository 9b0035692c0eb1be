#include "record/RecordingState.h"

namespace record {

std::string_view NameOf(SilenceCause cause)
{
    constexpr std::array<std::string_view, kSilenceCauses.size()> kNames{"not_playing", "not_delivered", "server_away",
                                                                         "stopped", "too_slow"};
    return kNames[size_t(cause)];
}

}  // namespace record
