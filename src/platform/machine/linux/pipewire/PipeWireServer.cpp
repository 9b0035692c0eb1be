#include "platform/machine/linux/pipewire/PipeWireServer.h"

#include "platform/machine/linux/LinuxThreads.h"
#include "platform/machine/linux/pipewire/Capture.h"
#include "platform/machine/linux/pipewire/Connection.h"
#include "platform/machine/linux/pipewire/Input.h"
#include "platform/machine/linux/pipewire/OpenNode.h"
#include "platform/machine/linux/pipewire/Output.h"
#include "platform/machine/linux/pipewire/Registry.h"
#include "platform/machine/linux/pipewire/Silencer.h"
#include "platform/machine/linux/pipewire/Snapshot.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

namespace platform::machine {

namespace {

using namespace pipewire;

/// A yes or no that threads can wait for.
class Readiness {
public:
    void Set(bool ready)
    {
        {
            const std::lock_guard guard(mMutex);
            mReady = ready;
        }
        mCondition.notify_all();
    }

    bool WaitUntil(uint64_t deadlineNanos)
    {
        const std::chrono::steady_clock::time_point deadline{std::chrono::nanoseconds(deadlineNanos)};
        std::unique_lock guard(mMutex);
        return mCondition.wait_until(guard, deadline, [this] { return mReady; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mCondition;
    bool mReady = false;
};

class PipeWireServer final : public AudioServer, private Connection::Owner, private SchedulingBroker {
public:
    explicit PipeWireServer(LinuxThreads* threads);
    ~PipeWireServer();

    ServerSnapshot Snapshot() override;
    bool WaitUntilReady(uint64_t deadlineNanos) override { return mReadiness.WaitUntil(deadlineNanos); }
    std::string Describe() override;
    void AddListener(ServerListener* listener) override;
    void RemoveListener(ServerListener* listener) override;
    std::unique_ptr<CaptureNode> OpenCapture(const std::string& uid, const std::string& name,
                                             CaptureClient& client) override;
    std::unique_ptr<InputNode> OpenInput(const std::string& uid, const std::string& name,
                                         CaptureClient& client) override;
    std::unique_ptr<OutputNode> OpenOutput(const std::string& uid, const std::string& name,
                                           PlaybackClient& client) override;
    uint64_t LongestCycleNanos() override;

private:
    bool RequestPriority(int priority) override { return mContext.RequestPriority(priority); }
    void OnConnected(pw_core* core) override { mRegistry.Attach(core); }
    void OnSettled() override;
    void OnDisconnected() override;
    void OnChanged();
    void Refresh();
    OpenNode::Surroundings Around() { return {mLoop, mContext, mRegistry, mNodes, mChanged}; }

    LinuxThreads* const mThreads;
    Loop mLoop;
    Context mContext{mLoop};
    LoopEvent mChanged{mLoop, [this] { OnChanged(); }};
    Registry mRegistry{[this] { mChanged.Signal(); }};
    OpenNodes mNodes;
    Connection mConnection{mLoop, mContext, *this};
    Readiness mReadiness;
    ServerSnapshot mSnapshot;
    uint64_t mToldGeneration = 0;  // what the listeners know of
    std::vector<ServerListener*> mListeners;
};

PipeWireServer::PipeWireServer(LinuxThreads* threads) : mThreads(threads)
{
    const Loop::Guard guard(mLoop);
    mConnection.Open();
    mLoop.Start();
    if (mThreads != nullptr) mThreads->SetBroker(this);
}

PipeWireServer::~PipeWireServer()
{
    if (mThreads != nullptr) mThreads->SetBroker(nullptr);
    mLoop.Stop();
    const Loop::Guard guard(mLoop);
    mConnection.Close();
}

ServerSnapshot PipeWireServer::Snapshot()
{
    const Loop::Guard guard(mLoop);
    Refresh();
    return mSnapshot;
}

std::string PipeWireServer::Describe()
{
    const Loop::Guard guard(mLoop);
    if (!mNodes.IsConnected() && !EnvironmentNamesTheSocket())
        return "no PipeWire server is found, because XDG_RUNTIME_DIR is not set: "
               "export XDG_RUNTIME_DIR=/run/user/$(id -u)";
    if (!mNodes.IsConnected())
        return "no PipeWire server at " + mConnection.Path() +
               ": start it with `systemctl --user start pipewire` or run `pipewire`";
    std::string text = "connected to the PipeWire server at " + mConnection.Path();
    if (mRegistry.Defaults() == nullptr)
        text += "; no session manager: start it with `systemctl --user start wireplumber` or run `wireplumber`";
    if (!mContext.Shortcoming().empty()) text += "; " + mContext.Shortcoming();
    return text;
}

void PipeWireServer::AddListener(ServerListener* listener)
{
    const Loop::Guard guard(mLoop);
    mListeners.push_back(listener);
}

void PipeWireServer::RemoveListener(ServerListener* listener)
{
    const Loop::Guard guard(mLoop);
    std::erase(mListeners, listener);
}

std::unique_ptr<CaptureNode> PipeWireServer::OpenCapture(const std::string& uid, const std::string& name,
                                                         CaptureClient& client)
{
    return std::make_unique<Capture>(Around(), uid, name, client);
}

std::unique_ptr<InputNode> PipeWireServer::OpenInput(const std::string& uid, const std::string& name,
                                                     CaptureClient& client)
{
    return std::make_unique<Input>(Around(), uid, name, client);
}

std::unique_ptr<OutputNode> PipeWireServer::OpenOutput(const std::string& uid, const std::string& name,
                                                       PlaybackClient& client)
{
    return std::make_unique<Output>(Around(), uid, name, client);
}

uint64_t PipeWireServer::LongestCycleNanos()
{
    const Loop::Guard guard(mLoop);
    return pipewire::LongestCycleNanos(mRegistry);
}

void PipeWireServer::OnSettled()
{
    ForgetLostHoles(mRegistry);
    mNodes.SetConnected(true);
    OnChanged();
    mReadiness.Set(true);
}

void PipeWireServer::OnDisconnected()
{
    mReadiness.Set(false);
    mNodes.SetConnected(false);
    mRegistry.Detach();
    mChanged.Signal();
}

// Captures come first: a stream that has just appeared is linked before anything else is done about it.
void PipeWireServer::OnChanged()
{
    SettleHomes(mRegistry);
    mNodes.Update();
    Refresh();
    if (std::exchange(mToldGeneration, mSnapshot.mGeneration) == mSnapshot.mGeneration) return;
    for (ServerListener* listener : mListeners) listener->OnServerChanged();
}

void PipeWireServer::Refresh()
{
    ServerSnapshot next = mNodes.IsConnected() ? TakeSnapshot(mRegistry) : ServerSnapshot{};
    next.mGeneration = mSnapshot.mGeneration;
    if (next == mSnapshot) return;
    ++next.mGeneration;
    mSnapshot = std::move(next);
}

}  // namespace

std::unique_ptr<AudioServer> MakePipeWireServer(LinuxThreads* threads)
{
    return std::make_unique<PipeWireServer>(threads);
}

}  // namespace platform::machine
