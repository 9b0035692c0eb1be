// TrackMix: how a source's channels go into a track's.
// Why: a source keeps its own width up to here, so that one channel stays one channel and nothing gets louder by being
// copied first and summed then.
#pragma once

#include <cstddef>

namespace record {

/// A track of one channel takes the mean of a source's channels. A source of one channel goes to the first two channels
/// of a wider track, and to the only one of a track of one. Else channel n goes to channel n modulo the track's count,
/// at its own level.
class TrackMix {
public:
    /// @param sourceChannels, trackChannels  at least 1
    /// @param firstChannel, fileChannels     where the track lies in the file's frames
    TrackMix(unsigned sourceChannels, unsigned trackChannels, unsigned firstChannel, unsigned fileChannels)
        : mSourceChannels(sourceChannels),
          mTrackChannels(trackChannels),
          mFirstChannel(firstChannel),
          mFileChannels(fileChannels)
    {
    }

    unsigned SourceChannels() const { return mSourceChannels; }

    /// Whether the source's channels are the file's, one by one.
    bool IsIdentity() const { return mSourceChannels == mTrackChannels && mTrackChannels == mFileChannels; }

    /// Adds a source's interleaved frames to the file's. @realtime yes
    void Add(const float* source, size_t frames, float* file) const noexcept;

private:
    unsigned mSourceChannels, mTrackChannels, mFirstChannel, mFileChannels;
};

}  // namespace record
