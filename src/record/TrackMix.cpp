#include "record/TrackMix.h"

namespace record {

void TrackMix::Add(const float* source, size_t frames, float* file) const noexcept
{
    const float gain = mTrackChannels == 1 ? 1.0F / float(mSourceChannels) : 1.0F;
    const bool toBoth = mSourceChannels == 1 && mTrackChannels > 1;
    for (unsigned c = 0; c < mSourceChannels; ++c) {
        const float* in = source + c;
        float* out = file + mFirstChannel + c % mTrackChannels;
        for (size_t f = 0; f < frames; ++f) out[f * mFileChannels] += gain * in[f * mSourceChannels];
        if (!toBoth) continue;
        ++out;
        for (size_t f = 0; f < frames; ++f) out[f * mFileChannels] += in[f];
    }
}

}  // namespace record
