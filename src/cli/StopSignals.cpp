#include "cli/StopSignals.h"

#include <csignal>

namespace cli {

namespace {

volatile std::sig_atomic_t sStopSignal = 0;  // stored by the handler, read by the main thread

}  // namespace

void CatchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler = [](int number) { sStopSignal = number; };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int StopSignal()
{
    return sStopSignal;
}

}  // namespace cli
