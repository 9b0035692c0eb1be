// LinuxMessenger: messages over datagram sockets, one a process, in a folder of the user's own.
// Why: the kernel keeps each listener's queue and says who sent what, so that no daemon has to.
// The folder and the message, byte by byte: docs/formats/messages.md. Start at Broadcast.
#pragma once

#include "platform/machine/Messenger.h"
#include "platform/machine/linux/Descriptor.h"
#include "platform/machine/linux/MessageFolder.h"

#include <pthread.h>

#include <atomic>

namespace platform::machine {

class LinuxMessenger final : public Messenger {
public:
    /// In the user's runtime folder, $XDG_RUNTIME_DIR.
    LinuxMessenger();
    /// In another runtime folder; empty: there is none.
    explicit LinuxMessenger(std::string runtimeFolder) : mRuntimeFolder(std::move(runtimeFolder)) {}
    /// Ends the listening. A process's own messenger lives as long as the process, and leaves its name to the next who
    /// sends.
    ~LinuxMessenger() override;
    LinuxMessenger(const LinuxMessenger&) = delete;
    LinuxMessenger& operator=(const LinuxMessenger&) = delete;

    bool Listen(std::function<void(std::string_view message)> receive) override;
    int Broadcast(std::string_view message) override;
    std::string Describe() override;

private:
    static void* Run(void* self);
    void ReceiveAll();
    bool ReceiveNext(std::string& message);

    const std::string mRuntimeFolder;
    const std::string mName = NewListenerName();
    Descriptor mFolder;    // where the name stands
    Descriptor mListener;  // what it stands for
    std::function<void(std::string_view message)> mReceive;
    pthread_t mThread{};
    std::atomic<bool> mEnding{
        false};  // stored by the destructor and the thread, read by the thread; guards nothing else
};

}  // namespace platform::machine
