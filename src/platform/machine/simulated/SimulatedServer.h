// SimulatedServer: the AudioServer port on the simulated World.
//
// Render runs on the thread "data" at the host time of the cycle's stamp exactly; a real server is there 20 to
// 130 us after it. A render that would block ends the process with a report. OnServerChanged runs on the thread
// "control" at the time of the change. No call here orders the program's threads for the race detector, except:
// what was done before a control call is seen by the renders after it, and a render by the destructor.
//
// A capture takes what plays on one clock: while one of its streams is silenced, by it or by another capture,
// that is the hole's, and streams of the output's own clock are not in it.
#pragma once

#include "platform/machine/AudioServer.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>

namespace platform::machine::simulated {

class Driver;
class Gate;
class Input;
class Output;
class SimulatedCapture;
class SimulatedInput;
class SimulatedOutput;
class SimulatedThreads;
class Stream;
class World;
template <class D>
class DeviceList;

class SimulatedServer final : public AudioServer {
public:
    SimulatedServer(Gate& gate, SimulatedThreads& threads, World& world);
    ~SimulatedServer() override;

    void Start();
    void Stop();

    ServerSnapshot Snapshot() override;
    bool WaitUntilReady(uint64_t deadlineNanos) override;
    std::string Describe() override;
    void AddListener(ServerListener* listener) override;
    void RemoveListener(ServerListener* listener) override;
    std::unique_ptr<CaptureNode> OpenCapture(const std::string& uid, const std::string& name,
                                             CaptureClient& client) override;
    std::unique_ptr<InputNode> OpenInput(const std::string& uid, const std::string& name,
                                         CaptureClient& client) override;
    std::unique_ptr<OutputNode> OpenOutput(const std::string& uid, const std::string& name,
                                           PlaybackClient& client) override;
    uint64_t LongestCycleNanos() override { return mLongestCycleNanos; }

    /// What LongestCycleNanos answers; 2,048 frames at 48 kHz unless set.
    void SetLongestCycle(uint64_t nanos) { mLongestCycleNanos = nanos; }

    /// All clocks stood still for so long.
    void Shift(uint64_t nanos);

    // ---- For the nodes

    World& GetWorld() { return mWorld; }
    void Add(SimulatedCapture* capture);
    void Remove(SimulatedCapture* capture);
    void Add(SimulatedInput* input) { mInputs.push_back(input); }
    void Remove(SimulatedInput* input) { std::erase(mInputs, input); }
    void Add(SimulatedOutput* output) { mOutputs.push_back(output); }
    void Remove(SimulatedOutput* output) { std::erase(mOutputs, output); }
    /// An output has a format to announce. @thread data
    void WantAnnouncement();
    /// Brings streams, holes and their clocks in line with what the captures want.
    void Settle();
    /// @thread data
    void OnCycle(Driver& driver);
    /// @thread data
    void OnDelivery(const Input& device, const CaptureCycle& cycle);

private:
    struct Listening {
        ServerListener* mListener;
        std::atomic<uint32_t> mAdded{1};  // stored by AddListener (release), read before a call (acquire)
        std::atomic<uint32_t> mTold{0};   // stored after a call (release), read by RemoveListener (acquire)
    };

    static void* RunControl(void* self);
    bool WaitForWork();
    bool HasChanged();
    void Tell();
    void Announce();
    std::vector<std::shared_ptr<Listening>> CopyListeners();
    void OnWorldChanged();
    template <class D>
    static void ListDevices(const DeviceList<D>& from, std::vector<Device>& devices, uint32_t& defaultDevice);
    void PlaceStreams();
    void RunHoles();
    Driver* DriverOf(const SimulatedCapture& capture) const;
    void PlayStreams(Driver& driver);
    void PlayOutputs(const Driver& driver);
    Output* PlaceOf(const SimulatedOutput& output) const;
    void LetHear(Stream& stream, const Driver& driver);

    Gate& mGate;
    SimulatedThreads& mThreads;
    World& mWorld;
    std::vector<SimulatedCapture*> mCaptures;
    std::vector<SimulatedInput*> mInputs;
    std::vector<SimulatedOutput*> mOutputs;
    std::vector<std::shared_ptr<Listening>> mListeners;
    const Listening* mTelling = nullptr;
    uint64_t mGeneration = 1;
    uint64_t mToldGeneration = 1;
    uint64_t mLongestCycleNanos = 2048 * 1'000'000'000ull / 48'000;
    pthread_t mControl{};
    bool mAnnouncing = false;  // an output has a format to announce
    bool mStarted = false;
    bool mStop = false;
};

}  // namespace platform::machine::simulated
