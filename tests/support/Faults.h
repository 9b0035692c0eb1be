// Faults: makes the K-th of a row of calls fail, whoever makes them.
// Why: a loop over K proves of every call at once that its failure is reported and leaves nothing behind.
#pragma once

namespace support {

struct Faults {
    int mFailing = -1;  // the call that fails, counted from 0; -1: none
    int mCalls = 0;

    bool FailsNow() { return mCalls++ == mFailing; }
};

}  // namespace support
