// DataThread: the thread that runs a node's cycles, as control code sees it.
// Why: the library's own wait for that thread ends at the first signal, and each later wait then ends too early.
// Start at FinishCycle.
#pragma once

#include <functional>

struct pw_loop;

namespace platform::machine::pipewire {

class DataThread {
public:
    /// @param cycles   the loop that runs the cycles; may be null or `control` itself
    /// @param control  the loop whose lock control code holds
    DataThread(pw_loop* cycles, pw_loop* control) : mCycles(cycles == control ? nullptr : cycles) {}

    /// Returns when every cycle that had begun at the time of the call is over.
    ///
    /// @thread any but the data thread, under the control loop's lock, as below
    void FinishCycle() const;

    /// Runs `action` on the calling thread while the data thread waits between two cycles.
    void RunBetweenCycles(const std::function<void()>& action) const;

private:
    pw_loop* const mCycles;  // null where the lock already keeps cycles out
};

}  // namespace platform::machine::pipewire
