#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

namespace support {

namespace {

constexpr int kLinePatienceMillis = 10'000;

}  // namespace

pid_t StartProcess(const std::vector<std::string>& arguments, int output, int errors, int inherited)
{
    const pid_t parent = getpid(), child = fork();
    if (child != 0) return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);  // it died before we asked to follow it
    dup2(output, STDOUT_FILENO);
    if (errors >= 0) dup2(errors, STDERR_FILENO);
    if (inherited >= 0) fcntl(inherited, F_SETFD, 0);
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    execvp(pointers[0], pointers.data());
    _exit(127);
}

std::string CompanionFolder()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

std::string ReadLine(int descriptor)
{
    std::string line;
    for (char character = 0;; line += character) {
        pollfd waiting{descriptor, POLLIN, 0};
        if (poll(&waiting, 1, kLinePatienceMillis) <= 0 || read(descriptor, &character, 1) != 1)
            throw std::runtime_error("a child process printed nothing, after: " + line);
        if (character == '\n') return line;
    }
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, int inherited)
{
    std::vector<std::string> found = arguments;
    if (found.front().starts_with("./")) found.front() = CompanionFolder() + found.front().substr(1);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    mID = StartProcess(found, ends[1], -1, inherited);
    close(ends[1]);
    mOutput = ends[0];
    if (mID < 0) throw std::runtime_error("no process");
}

ChildProcess::~ChildProcess()
{
    End(SIGKILL);
    if (mOutput >= 0) close(mOutput);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : mID(std::exchange(other.mID, 0)), mOutput(std::exchange(other.mOutput, -1))
{
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept
{
    std::swap(mID, other.mID);
    std::swap(mOutput, other.mOutput);
    return *this;
}

std::string ChildProcess::ReadLine()
{
    return support::ReadLine(mOutput);
}

void ChildProcess::End(int signal)
{
    if (mID <= 0) return;
    kill(mID, signal);
    waitpid(mID, nullptr, 0);
    mID = 0;
}

}  // namespace support
