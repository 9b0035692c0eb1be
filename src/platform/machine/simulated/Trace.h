// Trace: what happened, in order, as lines that are the same on every run.
// Why: "same scenario, same trace, byte for byte" is how determinism is proved, and how a fault is retold.
// A line is the virtual time since the start, the thread, and a text that must hold no pointer and no handle.
#pragma once

#include <string>
#include <string_view>

namespace platform::machine::simulated {

class Gate;

class Trace {
public:
    explicit Trace(Gate& gate) : mGate(gate) {}

    /// @thread any that the machine started; gives no order to the race detector
    void Add(std::string_view text);

    /// All lines so far, each with its end.
    const std::string& Text() const { return mText; }

private:
    Gate& mGate;
    std::string mText;
};

}  // namespace platform::machine::simulated
