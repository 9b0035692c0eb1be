// OSLAudio_ConvertedInputCapture: a buffered input in the format and at the speed of the mix.
// Why: a source has its own rate, its own way to lay out samples, and a crystal that is off. A small graph behind the
// ring takes all three out: converter, then varispeed, then an output that the mixer pulls.
// Start at SetOutputDesc and Start; the mixer pulls Render.
#pragma once

#include "capture/OSLAudio_BufferedInputCapture.h"

#include <utility>
#include <vector>

class OSLAudio_ConvertedInputCapture final : public OSLAudio_BufferedInputCapture {
public:
    OSLAudio_ConvertedInputCapture();
    ~OSLAudio_ConvertedInputCapture() override;

    /// What SetOutputDesc set.
    OSStatus GetRenderDesc(AudioStreamBasicDescription* desc) override;
    OSStatus SetMaxRenderSlice(UInt32 frames) override;
    OSStatus GetMaxRenderSlice(UInt32* frames) override;
    /// Sets the speed by the source's rate scalar, which is an earlier one after silent cycles, and pulls.
    OSStatus Render(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                    AudioBufferList* data) CORVANE_REALTIME override;
    /// @param frames  of the output; the head moves by the source's, a fraction left out
    OSStatus SkipFrames(double frames) override;
    /// Moves the head by what it gave. @param frames  the source's
    OSStatus Fetch(const AudioTimeStamp* time, UInt32 frames, AudioBufferList* list) CORVANE_REALTIME override;

    /// Starts the graph, and then the source.
    virtual OSStatus Start();

    /// Builds a graph that ends in `desc`. One that was there is replaced as it runs, and kept until this object ends:
    /// a cycle may be inside it. The new one gives nothing before Start.
    ///
    /// @param desc  non-interleaved floats
    /// @return      the first failing step's status
    OSStatus SetOutputDesc(AudioStreamBasicDescription* desc);
    OSStatus GetOutputDesc(AudioStreamBasicDescription* desc) const;

    /// What the converter pulls: frames from the head. Its time is the head, not `time`. @thread the I/O thread
    OSStatus InputRenderCallback(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                 AudioBufferList* list) CORVANE_REALTIME;
    /// There is nothing to prime. @return 0
    OSStatus Prime() { return 0; }

    /// Forgets the sound on its way through the graph. @thread the I/O thread @realtime yes
    void ResetGraph() noexcept;
    /// Whether a fetch was refused since the last call. @thread the I/O thread
    bool TakeRefusal() noexcept { return std::exchange(mRefused, false); }
    /// Notes whether a cycle found this input readable. @thread the I/O thread
    void NoteCycle(bool readable, UInt32 frames) noexcept;
    /// Notes a cycle that plays nothing: what comes is played that much later, and at the speeds that were meant for
    /// it.
    /// @param frames  of the output @thread the I/O thread
    void NoteSilence(UInt32 frames) noexcept;
    /// Forgets such cycles, where the head has been placed. @thread the I/O thread
    void ForgetSilence() noexcept { mSilenceFrames = 0; }
    /// Frames of cycles in a row that did not, up to now. @thread any
    UInt32 GetSilentFrames() const noexcept { return mSilentFrames.load(std::memory_order_relaxed); }
    /// Seconds from the read head to the output.
    OSStatus GetGraphLatency(double* seconds);

private:
    struct Graph;
    double SourceFrames(double frames) const noexcept;
    OSStatus BuildGraph(Graph& graph, const AudioStreamBasicDescription& desc);
    OSStatus SetFormats(const Graph& graph, const AudioStreamBasicDescription& desc);
    Graph* Current() const noexcept { return mGraph.load(std::memory_order_acquire); }

    std::vector<std::unique_ptr<Graph>> mGraphs;  // all that were built, the current one last
    std::atomic<Graph*> mGraph{nullptr};  // stored by control threads (release), loaded by the I/O thread too (acquire)
    bool mRefused = false;                // the I/O thread's
    double mSilenceFrames = 0;            // the I/O thread's, of the source
    std::atomic<UInt32> mSilentFrames{0};  // stored by the I/O thread, loaded by any (relaxed)
};
