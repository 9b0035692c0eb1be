#include "support/Forked.h"

#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

namespace {

[[noreturn]] void RunBody(const std::function<void()>& body, const int (&pipe)[2])
{
    dup2(pipe[1], STDOUT_FILENO);
    dup2(pipe[1], STDERR_FILENO);
    close(pipe[0]);
    close(pipe[1]);
    body();
    fflush(nullptr);
    // Not _exit: the sanitizers report at exit.
    exit(testing::Test::HasFailure() ? 1 : 0);
}

std::string ReadAll(int descriptor)
{
    std::string all;
    char piece[4096];
    for (ssize_t got; (got = read(descriptor, piece, sizeof piece)) > 0;) all.append(piece, static_cast<size_t>(got));
    return all;
}

}  // namespace

Forked RunForked(const std::function<void()>& body)
{
    int ends[2];
    if (pipe(ends) != 0) abort();
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) RunBody(body, ends);
    close(ends[1]);

    Forked forked;
    forked.mOutput = ReadAll(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    forked.mSignal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    forked.mExitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    forked.mPassed = WIFEXITED(status) && forked.mExitCode == 0;
    return forked;
}

void ExpectForked(const std::function<void()>& body)
{
    const Forked forked = RunForked(body);
    EXPECT_TRUE(forked.mPassed) << "signal " << forked.mSignal << ", exit code " << forked.mExitCode << "\n"
                                << forked.mOutput;
}

}  // namespace support
