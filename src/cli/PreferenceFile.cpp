#include "cli/PreferenceFile.h"

#include "cli/ExitCodes.h"
#include "cli/Output.h"
#include "platform/foundation/CFNotificationCenter.h"
#include "platform/foundation/PropertyList.h"
#include "platform/kernel/System.h"
#include "platform/kernel/Threads.h"
#include "plugin/settings/SharedPreferences.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace cli {

namespace {

namespace fs = std::filesystem;

constexpr unsigned kQuietTries = 1000;  // of a second together: most commands take milliseconds
constexpr uint32_t kTryMicroseconds = 1'000;

constexpr const char* kTemporaryPrefix = ".com.ostrel.corvane.sharedsource.";

std::string Failed(const std::string& path)
{
    return fmt::format("{}: {}", path, std::strerror(errno));
}

/// Whether all went to the disk; errno says why not.
bool WriteAll(int file, const std::vector<uint8_t>& bytes)
{
    for (size_t written = 0; written < bytes.size();) {
        const ssize_t now = ::write(file, bytes.data() + written, bytes.size() - written);
        if (now < 0 && errno == EINTR) continue;
        if (now <= 0) return false;
        written += size_t(now);
    }
    return fsync(file) == 0;
}

/// So that the new name outlives a loss of power.
bool SyncFolder(const std::string& path)
{
    const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = folder >= 0 && fsync(folder) == 0;
    if (folder >= 0) ::close(folder);
    return synced;
}

void Post(CFNotificationCenterRef center, const char* name)
{
    CFNotificationCenterPostNotificationWithOptions(center, CFSTR(name), CFSTR(name), nullptr,
                                                    kCFNotificationDeliverImmediately);
}

}  // namespace

PreferenceFile::~PreferenceFile()
{
    if (mLock >= 0) ::close(mLock);
}

int PreferenceFile::Open(std::string& problem)
{
    errno = 0;
    mPath = settings::PreferencePath(settings::kFileName, true);
    if (mPath.empty()) {
        problem = fmt::format("the folder for preferences cannot be made{}; XDG_CONFIG_HOME or HOME says where it is",
                              errno != 0 ? std::string(": ") + std::strerror(errno) : "");
        return kExitFailed;
    }
    mFolder = fs::path(mPath).parent_path();
    if (const int failed = TakeLock(problem)) return failed;
    RemoveLeftovers();
    mRoot = settings::ReadPreferences(settings::kFileName, problem);
    if (problem.empty()) return kExitDone;
    problem = fmt::format("{} {}; nothing was changed (see corvane doctor)", mPath, problem);
    return kExitPreferences;
}

int PreferenceFile::TakeLock(std::string& problem)
{
    const std::string path = mPath + ".lock";
    mLock = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (mLock < 0) {
        problem = Failed(path);
        return kExitFailed;
    }
    for (unsigned tries = 0; flock(mLock, tries < kQuietTries ? LOCK_EX | LOCK_NB : LOCK_EX) != 0; ++tries) {
        if (errno != EINTR && errno != EWOULDBLOCK) {
            problem = Failed(path);
            return kExitFailed;
        }
        if (tries + 1 == kQuietTries) Complain("waiting for another corvane command that changes the devices", 0);
        if (tries < kQuietTries) platform::kernel::usleep(kTryMicroseconds);
    }
    return kExitDone;
}

/// What companions that died in the midst of a write left: nobody else writes now.
void PreferenceFile::RemoveLeftovers() const
{
    std::error_code error;
    for (fs::directory_iterator entry(mFolder, error), end; entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (name.starts_with(kTemporaryPrefix)) ::unlink(entry->path().c_str());
    }
}

bool PreferenceFile::WriteBeside(const std::string& temporary, const std::vector<uint8_t>& bytes,
                                 std::string& problem) const
{
    const int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    bool done = file >= 0 && WriteAll(file, bytes);
    if (!done) problem = Failed(temporary);
    if (file >= 0 && ::close(file) != 0 && done) {
        problem = Failed(temporary);
        done = false;
    }
    if (done && ::rename(temporary.c_str(), mPath.c_str()) != 0) {
        problem = Failed(mPath);
        done = false;
    }
    if (!done && file >= 0) ::unlink(temporary.c_str());
    return done;
}

int PreferenceFile::Save(std::string& problem)
{
    const std::vector<uint8_t> bytes = cf::PropertyListBytes(mRoot.Get(), kCFPropertyListBinaryFormat_v1_0);
    if (bytes.empty()) {
        problem = "the list would be larger than any process reads (1 MiB, 65,536 values); nothing was changed";
        return kExitFailed;
    }
    const std::string temporary = fmt::format("{}/{}{}", mFolder, kTemporaryPrefix, platform::kernel::getpid());
    if (!WriteBeside(temporary, bytes, problem)) return kExitFailed;
    const bool synced = SyncFolder(mFolder);
    if (!synced) problem = Failed(mFolder) + "; the change is made, but might not outlive a loss of power";
    Post(CFNotificationCenterGetDistributedCenter(), settings::kChangedNotification);
    Post(CFNotificationCenterGetLocalCenter(), settings::kLocallyChangedNotification);
    return synced ? kExitDone : kExitFailed;
}

}  // namespace cli
