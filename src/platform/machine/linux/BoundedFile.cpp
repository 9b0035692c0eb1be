#include "platform/machine/linux/BoundedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <string_view>

namespace platform::machine {

namespace {

/// Reads to the end; nothing on an error or when there is more than `mostBytes`.
std::optional<std::string> ReadAll(int descriptor, size_t mostBytes)
{
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t bytes = read(descriptor, buffer, sizeof buffer);
        if (bytes < 0 && errno == EINTR) continue;
        if (bytes < 0) return std::nullopt;
        if (bytes == 0) return text;
        if (size_t(bytes) > mostBytes - text.size()) return std::nullopt;
        text.append(buffer, size_t(bytes));
    }
}

std::string_view Trimmed(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

}  // namespace

std::optional<std::string> ReadBoundedFile(const std::string& path, size_t mostBytes, Links links)
{
    const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (links == Links::Refuse ? O_NOFOLLOW : 0);
    const int descriptor = open(path.c_str(), flags);
    if (descriptor < 0) return std::nullopt;
    struct stat status;
    std::optional<std::string> text;
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) text = ReadAll(descriptor, mostBytes);
    close(descriptor);
    return text;
}

std::string FindInKeyFile(const std::string& text, const std::string& group, const std::string& key)
{
    bool inside = false;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        const std::string_view line = Trimmed(std::string_view(text).substr(start, end - start));
        start = end + 1;
        if (line.starts_with('[')) inside = line == "[" + group + "]";
        const size_t equals = line.find('=');
        if (!inside || equals == std::string_view::npos) continue;
        if (Trimmed(line.substr(0, equals)) == key) return std::string(Trimmed(line.substr(equals + 1)));
    }
    return {};
}

}  // namespace platform::machine
