#include "support/CommandRun.h"

#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace support {

namespace {

constexpr int kPatienceMillis = 20'000;

// False at the end of the stream.
bool Append(int from, std::string& to)
{
    std::array<char, 4096> room;
    const ssize_t count = read(from, room.data(), room.size());
    if (count > 0) to.append(room.data(), size_t(count));
    return count > 0;
}

}  // namespace

CommandRun::CommandRun(const std::vector<std::string>& arguments, const std::string& before)
{
    int output[2], errors[2];
    if (pipe2(output, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const std::string script = before.empty() ? "exec \"$@\"" : before + "; exec \"$@\"";
    std::vector<std::string> words = {"sh", "-c", script, "sh", CompanionFolder() + "/../corvane"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    mID = StartProcess(words, output[1], errors[1]);
    close(output[1]);
    close(errors[1]);
    mOutputEnd = output[0];
    mErrorsEnd = errors[0];
}

CommandRun::~CommandRun()
{
    if (mID > 0) {
        kill(mID, SIGKILL);
        waitpid(mID, nullptr, 0);
    }
    if (mOutputEnd >= 0) close(mOutputEnd);
    if (mErrorsEnd >= 0) close(mErrorsEnd);
}

void CommandRun::Signal(int number)
{
    kill(mID, number);
}

bool CommandRun::ReadSome(int millis)
{
    pollfd ends[] = {{mOutputEnd, POLLIN, 0}, {mErrorsEnd, POLLIN, 0}};
    if (poll(ends, 2, millis) <= 0) throw std::runtime_error("corvane neither printed nor ended; it said: " + mErrors);
    if (ends[0].revents && !Append(mOutputEnd, mOutput)) close(std::exchange(mOutputEnd, -1));
    if (ends[1].revents && !Append(mErrorsEnd, mErrors)) close(std::exchange(mErrorsEnd, -1));
    return mOutputEnd >= 0 || mErrorsEnd >= 0;
}

int CommandRun::Wait()
{
    while (ReadSome(180'000)) {
    }
    int status = 0;
    waitpid(std::exchange(mID, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void CommandRun::WaitForError(const std::string& text)
{
    while (mErrors.find(text) == mErrors.npos)
        if (!ReadSome(kPatienceMillis)) throw std::runtime_error("corvane ended; it said: " + mErrors);
}

void WaitForSize(const std::filesystem::path& file, uintmax_t bytes)
{
    const int watch = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(watch, file.parent_path().c_str(), IN_MODIFY | IN_CREATE);
    std::error_code absent;
    for (uintmax_t size = 0; size == uintmax_t(-1) || size < bytes; size = std::filesystem::file_size(file, absent)) {
        pollfd waiting{watch, POLLIN, 0};
        std::array<char, 4096> events;
        if (poll(&waiting, 1, kPatienceMillis) <= 0 || read(watch, events.data(), events.size()) <= 0) {
            close(watch);
            throw std::runtime_error("the file does not grow: " + file.string());
        }
    }
    close(watch);
}

}  // namespace support
