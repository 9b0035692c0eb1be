#include "platform/machine/linux/pipewire/Socket.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace platform::machine::pipewire {

namespace {

std::string FirstOf(std::initializer_list<const char*> variables)
{
    for (const char* variable : variables) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != 0) return value;
    }
    return {};
}

}  // namespace

std::string SocketPath()
{
    std::string name = FirstOf({"PIPEWIRE_REMOTE"});
    if (name.empty()) name = "pipewire-0";
    if (name.front() == '/') return name;
    const std::string folder = FirstOf({"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR", "HOME"});
    return (folder.empty() ? "/run/user/" + std::to_string(getuid()) : folder) + "/" + name;
}

bool EnvironmentNamesTheSocket()
{
    return FirstOf({"PIPEWIRE_REMOTE"}).starts_with('/') ||
           !FirstOf({"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR"}).empty();
}

SocketWatch::SocketWatch(Loop& loop, std::string path, LoopSource::Action appeared)
    : mFolder(path.substr(0, path.rfind('/'))),
      mName(path.substr(path.rfind('/') + 1)),
      mAppeared(std::move(appeared)),
      mDescriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (mDescriptor >= 0) mReader = std::make_unique<LoopReader>(loop, mDescriptor, [this] { Read(); });
    Renew();
}

SocketWatch::~SocketWatch()
{
    mReader.reset();
    if (mDescriptor >= 0) close(mDescriptor);
}

void SocketWatch::Renew()
{
    if (mDescriptor >= 0) inotify_add_watch(mDescriptor, mFolder.c_str(), IN_CREATE | IN_MOVED_TO | IN_ONLYDIR);
}

void SocketWatch::Read()
{
    alignas(inotify_event) std::array<char, 4096> buffer;
    bool appeared = false;
    ssize_t bytes;
    while ((bytes = read(mDescriptor, buffer.data(), buffer.size())) > 0) {
        for (const char* at = buffer.data(); at < buffer.data() + bytes;) {
            const auto* event = reinterpret_cast<const inotify_event*>(at);
            appeared |= event->len > 0 && mName == event->name;
            at += sizeof(inotify_event) + event->len;
        }
    }
    if (appeared) mAppeared();
}

}  // namespace platform::machine::pipewire
