// SpeakerProbe: hears what a sink of the test's server plays.
#pragma once

#include "platform/machine/linux/pipewire/Context.h"
#include "platform/machine/linux/pipewire/Loop.h"

#include <pipewire/pipewire.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace support {

class SpeakerProbe {
public:
    /// Records the monitor of the sink of that name, in stereo at the graph's rate.
    explicit SpeakerProbe(const std::string& sink);
    ~SpeakerProbe();

    /// The left channel of the next `frames` frames; throws where they do not come within ten seconds.
    std::vector<float> Next(size_t frames);

    /// Whether, within ten seconds, 50 ms on end were mostly sound, or nothing but silence.
    bool BecomesAudible() { return Becomes(true); }
    bool BecomesSilent() { return Becomes(false); }

private:
    bool Becomes(bool audible);
    void Process();

    static const pw_stream_events kEvents;

    platform::machine::pipewire::Loop mLoop;
    platform::machine::pipewire::Context mContext{mLoop};
    pw_core* mCore = nullptr;
    pw_stream* mStream = nullptr;
    spa_hook mHook{};
    std::mutex mMutex;
    std::condition_variable mCondition;
    std::vector<float> mHeard;  // the left channel
};

}  // namespace support
