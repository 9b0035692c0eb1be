#include "record/OutputTarget.h"

#include "platform/kernel/HostTime.h"
#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

namespace record {

static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler stores one");

namespace {

constexpr uint64_t kWaitNanos = 50'000'000;   // between two looks at mInterrupted
constexpr uint64_t kGraceNanos = 40'000'000;  // for a reader that is only slow, from the first look that saw it
constexpr int kMostTemporaries = 100;
constexpr mode_t kMode = 0600;

struct SplitPath {
    std::string mFolder, mName;
};

SplitPath Split(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return {".", path};
    return {path.substr(0, slash + 1), path.substr(slash + 1)};
}

int OpenFolder(const std::string& path)
{
    return ::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

int CheckAccess(int folder, const char* name, int access)
{
    return ::faccessat(folder, name, access, AT_EACCESS) == 0 ? 0 : errno;
}

bool IsStream(mode_t mode)
{
    return S_ISFIFO(mode) || S_ISCHR(mode);
}

struct Existing {
    bool mIs = false;
    mode_t mMode = 0;
};

// Whether a recording can be written by this name, and what has it now.
int CheckName(int folder, const std::string& name, bool replace, Existing& existing)
{
    if (name.empty() || name == "." || name == "..") return EISDIR;
    struct stat status;
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? CheckAccess(folder, ".", W_OK | X_OK) : errno;
    existing = {true, status.st_mode};
    if (S_ISLNK(status.st_mode)) return ELOOP;
    if (S_ISDIR(status.st_mode)) return EISDIR;
    if (IsStream(status.st_mode)) return CheckAccess(folder, name.c_str(), W_OK);
    if (!S_ISREG(status.st_mode)) return ENOTSUP;
    if (!replace) return EEXIST;
    // A rename needs no permission of the old file: one that is write-protected is to stay.
    if (const int error = CheckAccess(folder, name.c_str(), W_OK)) return error;
    return CheckAccess(folder, ".", W_OK | X_OK);
}

int CheckStandardOutput()
{
    const int flags = ::fcntl(STDOUT_FILENO, F_GETFL);
    if (flags < 0) return errno;
    if ((flags & O_ACCMODE) == O_RDONLY) return EBADF;
    return ::isatty(STDOUT_FILENO) ? ENOTTY : 0;
}

bool IsSame(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Where standard output is closed, the first file opened would take its number, and with it what is printed.
int KeepOffStandardStreams(int descriptor)
{
    if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
    const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    ::close(descriptor);
    return moved;
}

// Another way to the file of a descriptor that can only append. @return -1: there is none
int ReopenForOverwriting(int descriptor, const struct stat& status)
{
    const int other = ::open("/dev/stdout", O_WRONLY | O_CLOEXEC);
    struct stat reopened;
    if (other >= 0 && (::fstat(other, &reopened) != 0 || !IsSame(status, reopened))) return ::close(other), -1;
    return descriptor == other ? -1 : other;
}

}  // namespace

int OutputTarget::Check(const std::string& path, bool replace)
{
    if (path == "-") return CheckStandardOutput();
    const SplitPath split = Split(path);
    const int folder = OpenFolder(split.mFolder);
    if (folder < 0) return errno;
    Existing existing;
    const int error = CheckName(folder, split.mName, replace, existing);
    ::close(folder);
    return error;
}

int OutputTarget::Open(const std::string& path, bool replace)
{
    Close();
    mPath = path;
    mStart = mLength = 0;
    mTemporary.clear();
    mHasReplaced = false;
    if (path == "-") return OpenStandardOutput();
    const SplitPath split = Split(path);
    mName = split.mName;
    mFolder = OpenFolder(split.mFolder);
    if (mFolder < 0) return errno;
    Existing existing;
    int error = CheckName(mFolder, mName, replace, existing);
    if (error == 0) error = existing.mIs && IsStream(existing.mMode) ? OpenStream() : CreateFile(existing.mIs);
    if (error != 0) Close();
    return error;
}

int OutputTarget::OpenStandardOutput()
{
    if (const int error = CheckStandardOutput()) return error;
    mDescriptor = STDOUT_FILENO;
    mKind = Kind::Stream;
    struct stat status;
    if (::fstat(mDescriptor, &status) != 0) return errno;
    if (!S_ISREG(status.st_mode)) return 0;
    const bool appends = ::fcntl(mDescriptor, F_GETFL) & O_APPEND;
    const off_t start = appends ? status.st_size : ::lseek(mDescriptor, 0, SEEK_CUR);
    mOverwriting = appends ? ReopenForOverwriting(mDescriptor, status) : mDescriptor;
    if (start < 0 || mOverwriting < 0) return 0;
    mKind = Kind::SharedFile;
    return 0;
}

int OutputTarget::OpenStream()
{
    // Without O_NONBLOCK this would wait for a reader of the pipe.
    mDescriptor = KeepOffStandardStreams(
        ::openat(mFolder, mName.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
    if (mDescriptor < 0) return errno;
    mKind = Kind::Stream;
    struct stat status;
    if (::fstat(mDescriptor, &status) != 0) return errno;
    if (!IsStream(status.st_mode)) return EEXIST;
    return ::isatty(mDescriptor) ? ENOTTY : 0;
}

int OutputTarget::CreateFile(bool beside)
{
    std::string name = mName;
    for (int attempt = 0; attempt < kMostTemporaries; ++attempt) {
        if (beside) name = ".corvane-" + std::to_string(::getpid()) + "-" + std::to_string(attempt) + ".part";
        mDescriptor = ::openat(mFolder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode);
        if (mDescriptor >= 0 || !beside || errno != EEXIST) break;
    }
    mDescriptor = KeepOffStandardStreams(mDescriptor);
    if (mDescriptor < 0) return errno;
    mOverwriting = mDescriptor;
    mKind = Kind::File;
    if (beside) mTemporary = name;
    return 0;
}

int OutputTarget::WriteSome(const uint8_t* bytes, size_t count, size_t& written)
{
    written = 0;
    if (mKind == Kind::Stream) return WriteSomeToStream(bytes, count, written);
    const ssize_t result = ::write(mDescriptor, bytes, count);
    if (result < 0) return errno == EINTR ? 0 : errno;
    written = size_t(result);
    // Only now is it known where an append has begun: others may write there as well.
    if (mKind == Kind::SharedFile && mLength == 0) mStart = uint64_t(::lseek(mDescriptor, 0, SEEK_CUR)) - written;
    return written == 0 ? ENOSPC : 0;
}

int OutputTarget::WriteSomeToStream(const uint8_t* bytes, size_t count, size_t& written)
{
    uint64_t wait = kWaitNanos;
    if (mInterrupted.load(std::memory_order_relaxed)) {
        const uint64_t now = mach_absolute_time();
        if (mGivesUpAt == 0) mGivesUpAt = now + kGraceNanos;
        wait = now < mGivesUpAt ? mGivesUpAt - now : 0;
    }
    auto& files = platform::machine::Machine::Current().GetFiles();
    const int64_t result = files.WriteToStream(mDescriptor, bytes, count, wait);
    if (result < 0) return int(-result);
    written = size_t(result);
    return written == 0 && mGivesUpAt != 0 && mach_absolute_time() >= mGivesUpAt ? EINTR : 0;
}

int OutputTarget::Append(const uint8_t* bytes, size_t count, size_t& written)
{
    int error = 0;
    for (written = 0; written < count && error == 0;) {
        size_t now = 0;
        error = WriteSome(bytes + written, count - written, now);
        written += now;
        mLength += now;
    }
    return error;
}

int OutputTarget::Overwrite(uint64_t offset, const uint8_t* bytes, size_t count)
{
    while (count > 0) {
        const ssize_t written = ::pwrite(mOverwriting, bytes, count, off_t(mStart + offset));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return errno;
        if (written == 0) return ENOSPC;
        offset += uint64_t(written);
        bytes += written;
        count -= size_t(written);
    }
    return 0;
}

int OutputTarget::EndAt(uint64_t length)
{
    if (mKind == Kind::File) return ::ftruncate(mDescriptor, off_t(length)) == 0 ? 0 : errno;
    if (mKind != Kind::SharedFile || length == mLength) return 0;
    if (length > mLength) {
        const std::vector<uint8_t> zeros(size_t(length - mLength));
        size_t written = 0;
        return Append(zeros.data(), zeros.size(), written);
    }
    // What another program wrote after us is not ours to cut.
    struct stat status;
    if (::fstat(mDescriptor, &status) != 0) return errno;
    if (uint64_t(status.st_size) != mStart + mLength) return 0;
    if (::ftruncate(mDescriptor, off_t(mStart + length)) != 0) return errno;
    mLength = length;
    return ::lseek(mDescriptor, off_t(mStart + length), SEEK_SET) < 0 ? errno : 0;
}

int OutputTarget::TakeName()
{
    if (mTemporary.empty()) return 0;
    // Some file systems have nothing to sync.
    if (::fsync(mDescriptor) != 0 && errno != EINVAL && errno != ENOSYS) return errno;
    if (::renameat(mFolder, mTemporary.c_str(), mFolder, mName.c_str()) != 0) return errno;
    mTemporary.clear();
    mHasReplaced = true;
    return 0;
}

bool OutputTarget::IsStillOurs(const std::string& name) const
{
    struct stat open, named;
    return ::fstat(mDescriptor, &open) == 0 && ::fstatat(mFolder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           IsSame(open, named);
}

void OutputTarget::Remove()
{
    const std::string& name = mTemporary.empty() ? mName : mTemporary;
    if (mKind == Kind::File && IsStillOurs(name)) ::unlinkat(mFolder, name.c_str(), 0);
    if (mKind == Kind::SharedFile) EndAt(0);
    Close();
}

int OutputTarget::Close()
{
    int error = 0;
    if (mOverwriting >= 0 && mOverwriting != mDescriptor) ::close(mOverwriting);
    if (mDescriptor >= 0 && mDescriptor != STDOUT_FILENO && ::close(mDescriptor) != 0) error = errno;
    if (mFolder >= 0) ::close(mFolder);
    mDescriptor = mOverwriting = mFolder = -1;
    mKind = Kind::None;
    return error;
}

std::string OutputTarget::Path() const
{
    const SplitPath split = Split(mPath);
    if (mTemporary.empty()) return mPath;
    return (split.mFolder == "." ? "" : split.mFolder) + mTemporary;
}

}  // namespace record
