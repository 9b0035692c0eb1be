// Memory: page allocation, protection and locking of the current machine.
// Results are the system's error numbers, 0 for success.
#pragma once

#include <cstddef>
#include <string>

namespace platform::machine {

class Memory {
public:
    virtual ~Memory() = default;

    virtual size_t PageBytes() = 0;

    /// Zeroed, page-aligned memory of whole pages; null when there is none.
    virtual void* Allocate(size_t bytes) = 0;
    virtual void Free(void* address, size_t bytes) = 0;

    /// Asks for readable, writable and executable pages and is content with what can be had: a hardened
    /// service may not map executable memory, and nothing is ever executed there.
    virtual int Protect(void* address, size_t bytes, bool read, bool write, bool execute) = 0;

    /// Touches every page, then locks them in memory as far as the process may: where the limit on locked
    /// memory is smaller, what fits is locked and the result is still 0.
    virtual int Lock(void* address, size_t bytes) = 0;

    /// One plain sentence: what Protect and Lock were asked for in this process, and what was had.
    virtual std::string Describe() = 0;
};

}  // namespace platform::machine
