// Machine: everything outside the process that Corvane stands on, behind one seam.
// Why: the real machine and the simulated one are exchanged here and nowhere else, so that a whole system
// runs in virtual time, deterministically, with scripted devices and faults.
// Start at Machine; each port has a header of its own.
#pragma once

#include <memory>

namespace platform::machine {

class Clock;
class Threads;
class Memory;
class Files;
class Processes;
class Identity;
class Messenger;
class AudioServer;

/// What a process stands on. Exactly one is current, from the first use to the end of the process.
class Machine {
public:
    virtual ~Machine() = default;

    virtual Clock& GetClock() = 0;
    virtual Threads& GetThreads() = 0;
    virtual Memory& GetMemory() = 0;
    virtual Files& GetFiles() = 0;
    virtual Processes& GetProcesses() = 0;
    virtual Identity& GetIdentity() = 0;
    virtual Messenger& GetMessenger() = 0;

    /// The connection to the audio server, made on first use. Calls on it never fail because the server is
    /// away: they answer "nothing there" until it is back.
    virtual AudioServer& GetAudioServer() = 0;

    /// The current machine; a LinuxMachine is made where none was installed.
    ///
    /// @thread any
    /// @realtime after the first call: yes
    static Machine& Current();

    /// Makes `machine` the current one. Once a process at most, before anything asked for the current one.
    /// Our own bug otherwise: an assertion.
    static void Install(std::unique_ptr<Machine> machine);
};

}  // namespace platform::machine
