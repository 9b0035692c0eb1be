// ScriptedServer: an audio server that does what it is told and remembers what it was asked, on the machine that
// the test runs on.
// Start at ScriptedServer::Installed.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/Machine.h"
#include "platform/machine/linux/LinuxMachine.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <map>
#include <mutex>

class ScriptedServer final : public platform::machine::AudioServer {
public:
    struct Capture {
        std::vector<uint32_t> mStreams;
        bool mSilenced = false;
    };

    /// The server of this process, with nothing on it.
    static ScriptedServer& Installed();

    /// Says that the snapshot is another one now.
    void Change(platform::machine::ServerSnapshot snapshot)
    {
        const std::lock_guard lock(mMutex);
        mSnapshot = std::move(snapshot);
        for (auto* listener : mListeners) listener->OnServerChanged();
    }
    /// Open captures by device.
    std::map<std::string, Capture> Captures()
    {
        const std::lock_guard lock(mMutex);
        return mCaptures;
    }
    /// What Captures will say once streams are set on `uid` for the next time.
    std::future<std::vector<uint32_t>> NextStreams()
    {
        const std::lock_guard lock(mMutex);
        mNext = std::promise<std::vector<uint32_t>>();
        return mNext.get_future();
    }
    bool IsListenedTo()
    {
        const std::lock_guard lock(mMutex);
        return !mListeners.empty();
    }

    platform::machine::ServerSnapshot Snapshot() override
    {
        const std::lock_guard lock(mMutex);
        return mSnapshot;
    }
    bool WaitUntilReady(uint64_t) override { return true; }
    std::string Describe() override { return "A scripted audio server."; }
    void AddListener(platform::machine::ServerListener* listener) override
    {
        const std::lock_guard lock(mMutex);
        mListeners.push_back(listener);
    }
    void RemoveListener(platform::machine::ServerListener* listener) override
    {
        const std::lock_guard lock(mMutex);
        std::erase(mListeners, listener);
    }
    std::unique_ptr<platform::machine::CaptureNode> OpenCapture(const std::string& uid, const std::string&,
                                                                platform::machine::CaptureClient&) override
    {
        return std::make_unique<Node>(*this, uid);
    }
    uint64_t LongestCycleNanos() override { return 42'666'666; }

private:
    class Node final : public platform::machine::CaptureNode {
    public:
        Node(ScriptedServer& server, std::string uid) : mServer(server), mUID(std::move(uid))
        {
            const std::lock_guard lock(mServer.mMutex);
            mServer.mCaptures[mUID] = {};
        }
        ~Node() override
        {
            const std::lock_guard lock(mServer.mMutex);
            mServer.mCaptures.erase(mUID);
        }
        void SetStreams(std::span<const uint32_t> streams) override
        {
            const std::lock_guard lock(mServer.mMutex);
            mServer.mCaptures[mUID].mStreams.assign(streams.begin(), streams.end());
            mServer.mNext.set_value(mServer.mCaptures[mUID].mStreams);
            mServer.mNext = {};
        }
        void SetSilenced(bool silenced) override
        {
            const std::lock_guard lock(mServer.mMutex);
            mServer.mCaptures[mUID].mSilenced = silenced;
        }

    private:
        ScriptedServer& mServer;
        const std::string mUID;
    };

    std::mutex mMutex;
    platform::machine::ServerSnapshot mSnapshot;
    std::vector<platform::machine::ServerListener*> mListeners;
    std::map<std::string, Capture> mCaptures;
    std::promise<std::vector<uint32_t>> mNext;
};

class ScriptedServerMachine final : public platform::machine::Machine {
public:
    platform::machine::Clock& GetClock() override { return mReal->GetClock(); }
    platform::machine::Threads& GetThreads() override { return mReal->GetThreads(); }
    platform::machine::Memory& GetMemory() override { return mReal->GetMemory(); }
    platform::machine::Files& GetFiles() override { return mReal->GetFiles(); }
    platform::machine::Processes& GetProcesses() override { return mReal->GetProcesses(); }
    ScriptedServer& GetAudioServer() override { return mServer; }

private:
    std::unique_ptr<Machine> mReal = platform::machine::MakeLinuxMachine();
    ScriptedServer mServer;
};

inline ScriptedServer& ScriptedServer::Installed()
{
    static ScriptedServer& sServer = [&]() -> ScriptedServer& {
        auto machine = std::make_unique<ScriptedServerMachine>();
        ScriptedServer& server = machine->GetAudioServer();
        platform::machine::Machine::Install(std::move(machine));
        return server;
    }();
    sServer.Change({});
    return sServer;
}
