#include "platform/foundation/SmallFile.h"

#include "platform/foundation/PropertyList.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

namespace cf {

namespace {

constexpr const char* kTooLong = "is longer than 1 MiB";

int Open(const std::string& path, TakenFrom from)
{
    const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    return open(path.c_str(), from == TakenFrom::UserOrRoot ? flags | O_NOFOLLOW : flags);
}

/// Why a file that is open is not to be read; "" where it is.
std::string RefusalOf(const struct stat& status, TakenFrom from)
{
    if (!S_ISREG(status.st_mode)) return "is not a regular file";
    if (static_cast<uint64_t>(status.st_size) > kPropertyListMaxBytes) return kTooLong;
    if (from == TakenFrom::Anyone) return {};
    if (status.st_uid != geteuid() && status.st_uid != 0) return "belongs to another user";
    if (status.st_mode & (S_IWGRP | S_IWOTH)) return "may be written by other users";
    return {};
}

std::string RefusalOf(int descriptor, TakenFrom from)
{
    struct stat status;
    if (descriptor < 0 && errno == ELOOP) return "is a link";
    if (descriptor < 0 || fstat(descriptor, &status) != 0) return std::string("cannot be opened: ") + strerror(errno);
    return RefusalOf(status, from);
}

}  // namespace

SmallFile::SmallFile(const std::string& path, TakenFrom from)
    : mDescriptor(Open(path, from)), mRefusal(RefusalOf(mDescriptor, from))
{
}

SmallFile::~SmallFile()
{
    if (mDescriptor >= 0) close(mDescriptor);
}

std::optional<std::string> SmallFile::ReadToEnd()
{
    std::string bytes;
    char piece[16 * 1024];
    while (mRefusal.empty()) {
        const ssize_t got = read(mDescriptor, piece, sizeof piece);
        if (got == 0) return bytes;
        if (got > 0) bytes.append(piece, static_cast<size_t>(got));
        if (got < 0 && errno != EINTR) mRefusal = std::string("cannot be read: ") + strerror(errno);
        if (bytes.size() > kPropertyListMaxBytes) mRefusal = kTooLong;
    }
    return {};
}

}  // namespace cf
