#include "cli/GuardedMain.h"

#include "cli/ExitCodes.h"
#include "cli/Output.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <exception>
#include <new>

namespace cli {

namespace {

// Opened the wrong way round, so that reading and writing fail as they do on a closed one.
void HoldStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) < 0) open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

// Each source of a recording takes descriptors on each output; the usual limit of 1024 is for programs that use select.
void RaiseLimitOfDescriptors()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);  // refused: the limit stays as it is
}

int RunGuarded(int (*body)(int, char**), int argc, char** argv)
{
    try {
        return body(argc, argv);
    } catch (const std::bad_alloc&) {
        return Complain("out of memory", kExitFailed);
    } catch (const std::exception& error) {
        return Complain(error.what(), kExitFailed);
    } catch (...) {
        return Complain("failed for an unknown reason", kExitFailed);
    }
}

}  // namespace

int GuardedMain(int (*body)(int, char**), int argc, char** argv)
{
    HoldStandardDescriptors();
    RaiseLimitOfDescriptors();
    return FlushOutput(RunGuarded(body, argc, argv));
}

}  // namespace cli
