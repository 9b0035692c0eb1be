#include "platform/machine/linux/LinuxFiles.h"

#include <dlfcn.h>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace platform::machine {

namespace {

const char sInThisLibrary = 0;

/// A folder that the environment names; "" for a relative path, which would be another one for each caller.
std::string EnvironmentFolder(const char* name)
{
    const char* value = std::getenv(name);
    return value && *value == '/' ? value : std::string();
}

/// The user's home in the user database; "" where he is not in it.
std::string DatabaseHome()
{
    char texts[16 * 1024];
    passwd entry, *found = nullptr;
    if (getpwuid_r(getuid(), &entry, texts, sizeof texts, &found) != 0 || !found || !found->pw_dir) return {};
    return found->pw_dir;
}

}  // namespace

std::string LinuxFiles::Resolve(const std::string& wellKnownPath)
{
    return wellKnownPath;
}

std::string LinuxFiles::BundleFolder()
{
    Dl_info info{};
    if (dladdr(&sInThisLibrary, &info) == 0 || !info.dli_fname) return {};
    // The loader may have found the library through a relative path or a link.
    std::error_code error;
    const std::filesystem::path library = std::filesystem::canonical(info.dli_fname, error);
    return error ? std::string() : (library.parent_path() / "corvane").string();
}

std::string LinuxFiles::PreferencesFolder()
{
    if (const std::string folder = EnvironmentFolder("XDG_CONFIG_HOME"); !folder.empty()) return folder + "/corvane";
    std::string home = EnvironmentFolder("HOME");
    if (home.empty()) home = DatabaseHome();
    return home.empty() ? home : home + "/.config/corvane";
}

int64_t LinuxFiles::WriteToStream(int descriptor, const void* bytes, size_t count, uint64_t waitNanos)
{
    pollfd stream = {descriptor, POLLOUT, 0};
    const int ready = poll(&stream, 1, int((waitNanos + 999'999) / 1'000'000));
    if (ready == 0 || (ready < 0 && errno == EINTR)) return 0;
    if (ready < 0) return -errno;
    ssize_t written = send(descriptor, bytes, count, MSG_DONTWAIT | MSG_NOSIGNAL);
    // A pipe that is ready takes as much as this at once; more would wait for its reader.
    if (written < 0 && errno == ENOTSOCK) written = write(descriptor, bytes, std::min<size_t>(count, PIPE_BUF));
    if (written >= 0) return written;
    return errno == EAGAIN || errno == EINTR ? 0 : -errno;
}

}  // namespace platform::machine
