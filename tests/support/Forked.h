// Forked: runs a test's body in a process of its own, for what a process can do only once: be a scenario, or die.
#pragma once

#include <functional>
#include <string>

namespace support {

struct Forked {
    std::string mOutput;   // all that it printed, on either stream
    bool mPassed = false;  // it ended by itself, and no expectation of gtest failed in it
    int mSignal = 0;       // what killed it, or 0
    int mExitCode = 0;
};

/// Runs `body` in a copy of this process and waits for its end. The caller must be the only thread.
Forked RunForked(const std::function<void()>& body);

/// The same, as a test: what the body expected is what this test expects.
void ExpectForked(const std::function<void()>& body);

}  // namespace support
