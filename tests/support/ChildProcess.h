// ChildProcess: a program that a test starts, and that never outlives it.
#pragma once

#include <sys/types.h>
#include <string>
#include <vector>

namespace support {

/// A program found in the path, or beside the test itself where the name begins with "./".
class ChildProcess {
public:
    /// @param arguments  the program and its arguments
    /// @param inherited  a descriptor that it keeps, or -1
    explicit ChildProcess(const std::vector<std::string>& arguments, int inherited = -1);
    /// Kills it where it still runs.
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept;

    pid_t ID() const { return mID; }

    /// The next line that it prints, without its end; throws where none comes within ten seconds.
    std::string ReadLine();

    /// Sends `signal` and waits for its end; what it printed can still be read. Harmless where it has ended.
    void End(int signal);

private:
    pid_t mID = 0;
    int mOutput = -1;
};

/// Starts a program that is killed when the caller's process ends. @return its number, or below 0
/// @param errors     its standard error; -1: ours
/// @param inherited  another descriptor that it keeps, or -1
pid_t StartProcess(const std::vector<std::string>& arguments, int output, int errors = -1, int inherited = -1);

/// The next line of `descriptor`, without its end; throws where none comes within ten seconds.
std::string ReadLine(int descriptor);

/// The folder of the running test program, where its companions and their configurations lie.
std::string CompanionFolder();

}  // namespace support
