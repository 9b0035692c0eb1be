// FileFaults: makes the K-th of the calls by which code above the platform writes files fail, and notes their order.
// Why: what a full disk or a crash leaves depends on that order. Link corvane-file-faults, which wraps the calls.
#pragma once

#include "support/Faults.h"

#include <cstddef>
#include <string>

namespace support {

struct FileFaults : Faults {
    int mError = 28;          // ENOSPC
    bool mDies = false;       // the process ends where a call would fail
    size_t mMostBytes = 100;  // that one write takes
    /// The calls made: o open, w write, p overwrite, t truncate, f sync a file, d sync a folder, r rename, c close.
    std::string mOrder;

    static inline FileFaults* sCurrent = nullptr;  // null: calls are as ever

    explicit FileFaults(int failing = -1) : Faults{failing} {}
    FileFaults(const FileFaults&) = delete;
    FileFaults& operator=(const FileFaults&) = delete;
    ~FileFaults() { Stop(); }
    void Start() { sCurrent = this; }
    void Stop() { sCurrent = nullptr; }
};

}  // namespace support
