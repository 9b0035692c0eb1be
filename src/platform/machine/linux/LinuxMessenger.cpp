#include "platform/machine/linux/LinuxMessenger.h"

#include "platform/machine/linux/LinuxThreads.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <array>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace platform::machine {

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

std::string EnvironmentText(const char* name)
{
    const char* const text = std::getenv(name);
    return text ? text : "";
}

/// All of them at once: names come and go while one sends.
std::vector<std::string> ListenersIn(const Descriptor& folder)
{
    std::vector<std::string> names;
    const int walked = openat(folder.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, CloseFolder> walk(walked < 0 ? nullptr : fdopendir(walked));
    if (!walk) return names;
    while (const dirent* entry = readdir(walk.get()))
        if (IsListenerName(entry->d_name)) names.push_back(entry->d_name);
    return names;
}

/// Whether the kernel says that this user sent it.
bool IsFromThisUser(msghdr& header)
{
    const cmsghdr* const item = CMSG_FIRSTHDR(&header);
    if (!item || item->cmsg_level != SOL_SOCKET || item->cmsg_type != SCM_CREDENTIALS) return false;
    ucred sender;
    std::memcpy(&sender, CMSG_DATA(item), sizeof sender);
    return sender.uid == geteuid();
}

/// Whether an error of receiving is one of the moment. Waits a little where memory is short.
bool Passes(int error)
{
    const bool isShortage = error == ENOMEM || error == ENOBUFS;
    if (isShortage) poll(nullptr, 0, 10);
    return isShortage || error == EINTR;
}

}  // namespace

LinuxMessenger::LinuxMessenger() : LinuxMessenger(EnvironmentText("XDG_RUNTIME_DIR")) {}

LinuxMessenger::~LinuxMessenger()
{
    if (!mListener) return;
    mEnding.store(true, std::memory_order_relaxed);
    shutdown(mListener.Get(), SHUT_RD);
    pthread_join(mThread, nullptr);
    unlinkat(mFolder.Get(), mName.c_str(), 0);
}

bool LinuxMessenger::Listen(std::function<void(std::string_view message)> receive)
{
    assert(!mListener);
    OpenedMessageFolder opened = OpenMessageFolder(mRuntimeFolder, IfMissing::Make);
    if (!opened.mFolder) return false;
    Descriptor listener = BindListener(opened.mFolder, mName);
    if (!listener) return false;

    mFolder = std::move(opened.mFolder);
    mListener = std::move(listener);
    mReceive = std::move(receive);
    if (LinuxThreads().Create(&mThread, false, "messenger", Run, this) == 0) return true;
    mListener = {};
    return false;
}

int LinuxMessenger::Broadcast(std::string_view message)
{
    if (message.empty() || message.size() > kMessageMaxBytes) return EMSGSIZE;
    const OpenedMessageFolder opened = OpenMessageFolder(mRuntimeFolder, IfMissing::Leave);
    if (!opened.mFolder) return opened.mError;
    for (const std::string& name : ListenersIn(opened.mFolder)) {
        if (name == mName) continue;
        if (const int error = SendToListener(opened.mFolder, name, message)) return error;
    }
    return 0;
}

std::string LinuxMessenger::Describe()
{
    const OpenedMessageFolder opened = OpenMessageFolder(mRuntimeFolder, IfMissing::Leave);
    if (opened.mError) return "Changes are not told to other processes: " + opened.mWhy + ".";
    return "Changes are told to other processes through " + MessageFolderPath(mRuntimeFolder) + ".";
}

void* LinuxMessenger::Run(void* self)
{
    static_cast<LinuxMessenger*>(self)->ReceiveAll();
    return nullptr;
}

void LinuxMessenger::ReceiveAll()
{
    std::string message;
    while (!mEnding.load(std::memory_order_relaxed))
        if (ReceiveNext(message)) mReceive(message);
}

/// @return whether `message` is one that counts
bool LinuxMessenger::ReceiveNext(std::string& message)
{
    message.resize(kMessageMaxBytes);
    iovec place{message.data(), message.size()};
    // Room for the sender's identity alone: what else a message carries, such as open files, the kernel then drops.
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> identity{};
    msghdr header{};
    header.msg_iov = &place;
    header.msg_iovlen = 1;
    header.msg_control = identity.data();
    header.msg_controllen = identity.size();
    const ssize_t bytes = recvmsg(mListener.Get(), &header, MSG_CMSG_CLOEXEC);
    if (bytes < 0 && !Passes(errno)) mEnding.store(true, std::memory_order_relaxed);
    if (bytes <= 0 || (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 || !IsFromThisUser(header)) return false;
    message.resize(size_t(bytes));
    return true;
}

}  // namespace platform::machine
