#include "platform/machine/linux/MessageFolder.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace platform::machine {

namespace {

constexpr char kFolderName[] = "corvane";
constexpr size_t kRandomDigits = 16;

OpenedMessageFolder Refused(int error, std::string why)
{
    return {{}, error, std::move(why)};
}

bool IsOurs(const struct stat& status)
{
    return status.st_uid == geteuid();
}

Descriptor OpenFolder(int above, const char* name, int flags)
{
    return Descriptor(openat(above, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags));
}

OpenedMessageFolder OpenInside(const Descriptor& above, const std::string& path)
{
    Descriptor folder = OpenFolder(above.Get(), kFolderName, O_NOFOLLOW);
    if (!folder && errno == ENOENT) return {};  // nobody has listened yet
    if (!folder) return Refused(errno, path + " is not a folder that can be opened: " + std::strerror(errno));
    struct stat status;
    if (fstat(folder.Get(), &status) != 0) return Refused(errno, path + ": " + std::strerror(errno));
    if (!IsOurs(status)) return Refused(EPERM, path + " belongs to another user");
    if ((status.st_mode & 07777) != 0700) return Refused(EPERM, path + " is open to others: set its mode to 0700");
    return {std::move(folder), 0, {}};
}

/// Through the open folder, whatever its path has become; short enough for an address, however long that path is.
sockaddr_un AddressOf(const Descriptor& folder, const std::string& name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder.Get(), name.c_str());
    return address;
}

Descriptor NewSocket()
{
    return Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

}  // namespace

std::string MessageFolderPath(const std::string& runtimeFolder)
{
    return runtimeFolder + "/" + kFolderName;
}

OpenedMessageFolder OpenMessageFolder(const std::string& runtimeFolder, IfMissing ifMissing)
{
    if (runtimeFolder.empty()) return Refused(ENOENT, "XDG_RUNTIME_DIR is not set");
    if (runtimeFolder[0] != '/') return Refused(EINVAL, "XDG_RUNTIME_DIR is not an absolute path");
    const Descriptor above = OpenFolder(AT_FDCWD, runtimeFolder.c_str(), 0);
    struct stat status;
    if (!above || fstat(above.Get(), &status) != 0)
        return Refused(errno, runtimeFolder + " cannot be opened: " + std::strerror(errno));
    // Else a folder of ours could be left in somebody else's, and keep him out of it.
    if (!IsOurs(status)) return Refused(EPERM, runtimeFolder + " belongs to another user");
    // Why it could not be made shows when it is opened.
    if (ifMissing == IfMissing::Make) static_cast<void>(mkdirat(above.Get(), kFolderName, 0700));
    return OpenInside(above, MessageFolderPath(runtimeFolder));
}

std::string NewListenerName()
{
    uint64_t random = 0;
    // Not waiting for the system's first entropy: the process's number alone is unique among the living.
    static_cast<void>(getrandom(&random, sizeof random, GRND_NONBLOCK));
    char name[40];
    std::snprintf(name, sizeof name, "%d-%016" PRIx64, int(getpid()), random);
    return name;
}

bool IsListenerName(std::string_view name)
{
    const size_t dash = name.find('-');
    return dash != 0 && dash != std::string_view::npos && dash <= 10 && name.size() == dash + 1 + kRandomDigits &&
           name.find_first_not_of("0123456789") == dash &&
           name.find_first_not_of("0123456789abcdef", dash + 1) == std::string_view::npos;
}

Descriptor BindListener(const Descriptor& folder, const std::string& name)
{
    Descriptor listener = NewSocket();
    // Bound under a name that no sender looks at: between the name's coming and the listening one would be taken for
    // dead.
    const std::string first = "." + name;
    const sockaddr_un address = AddressOf(folder, first);
    const int on = 1;
    // The mode is the socket's before it has a name, so that the process's umask, which all its threads share, is left
    // alone.
    const bool made = listener && setsockopt(listener.Get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == 0 &&
                      fchmod(listener.Get(), 0600) == 0 &&
                      bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                      renameat(folder.Get(), first.c_str(), folder.Get(), name.c_str()) == 0;
    return made ? std::move(listener) : Descriptor();
}

int SendToListener(const Descriptor& folder, const std::string& name, std::string_view message)
{
    // A socket for each: what one listener leaves unread fills the sender's buffer, and would keep from the next ones
    // what they have room for.
    const Descriptor sender = NewSocket();
    if (!sender) return errno;
    const sockaddr_un address = AddressOf(folder, name);
    const ssize_t sent = sendto(sender.Get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (sent < 0 && errno == ECONNREFUSED) unlinkat(folder.Get(), name.c_str(), 0);
    return 0;
}

}  // namespace platform::machine
