// FakeAudioServer: an audio server that does what it is told and remembers what it was asked.
#pragma once

#include "platform/machine/AudioServer.h"

#include <algorithm>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace support {

class FakeAudioServer final : public platform::machine::AudioServer {
public:
    struct Capture {
        std::vector<uint32_t> mStreams;
        bool mSilenced = false;
    };

    /// What is on the server. A test changes it here only while no other thread looks; else by Change.
    platform::machine::ServerSnapshot mSnapshot;

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
    /// Brings a cycle to every open input of the device, in the order of opening. @return how many there are
    size_t Deliver(const std::string& uid, const platform::machine::CaptureCycle& cycle)
    {
        const std::lock_guard lock(mInputMutex);
        const auto [first, last] = mInputs.equal_range(uid);
        for (auto input = first; input != last; ++input) input->second->Render(cycle);
        return size_t(std::distance(first, last));
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
    std::unique_ptr<platform::machine::InputNode> OpenInput(const std::string& uid, const std::string&,
                                                            platform::machine::CaptureClient& client) override
    {
        return std::make_unique<Input>(*this, uid, client);
    }
    std::unique_ptr<platform::machine::OutputNode> OpenOutput(const std::string&, const std::string&,
                                                              platform::machine::PlaybackClient&) override
    {
        return std::make_unique<platform::machine::OutputNode>();  // which asks for nothing
    }
    uint64_t LongestCycleNanos() override { return 42'666'666; }

private:
    class Node final : public platform::machine::CaptureNode {
    public:
        Node(FakeAudioServer& server, std::string uid) : mServer(server), mUID(std::move(uid))
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
        FakeAudioServer& mServer;
        const std::string mUID;
    };

    class Input final : public platform::machine::InputNode {
    public:
        Input(FakeAudioServer& server, const std::string& uid, platform::machine::CaptureClient& client)
            : mServer(server)
        {
            const std::lock_guard lock(mServer.mInputMutex);
            mPlace = mServer.mInputs.emplace(uid, &client);
        }
        ~Input() override
        {
            const std::lock_guard lock(mServer.mInputMutex);
            mServer.mInputs.erase(mPlace);
        }

    private:
        FakeAudioServer& mServer;
        std::multimap<std::string, platform::machine::CaptureClient*>::iterator mPlace;
    };

    std::mutex mInputMutex;  // held while inputs are told of a cycle
    std::multimap<std::string, platform::machine::CaptureClient*> mInputs;
    std::mutex mMutex;
    std::vector<platform::machine::ServerListener*> mListeners;
    std::map<std::string, Capture> mCaptures;
    std::promise<std::vector<uint32_t>> mNext;
};

}  // namespace support
