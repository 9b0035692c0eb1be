// Descriptor: owns an open file of this process.
#pragma once

#include <unistd.h>

#include <utility>

namespace platform::machine {

class Descriptor {
public:
    Descriptor() = default;
    /// Below 0: none.
    explicit Descriptor(int number) : mNumber(number) {}
    Descriptor(Descriptor&& other) noexcept : mNumber(std::exchange(other.mNumber, -1)) {}
    Descriptor& operator=(Descriptor other) noexcept
    {
        std::swap(mNumber, other.mNumber);
        return *this;
    }
    ~Descriptor()
    {
        if (mNumber >= 0) close(mNumber);
    }

    int Get() const { return mNumber; }
    explicit operator bool() const { return mNumber >= 0; }

private:
    int mNumber = -1;
};

}  // namespace platform::machine
