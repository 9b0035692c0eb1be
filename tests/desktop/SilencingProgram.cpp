// corvane-test-silencer NAME: captures and silences the application of that name until it is killed.
// Prints a line when the sound comes in.
#include "desktop/CaptureRecorder.h"
#include "desktop/ServerWatch.h"
#include "platform/machine/linux/pipewire/PipeWireServer.h"

#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2) return 2;
    const auto server = platform::machine::MakePipeWireServer();
    desktop::ServerWatch watch(*server);
    uint32_t stream = 0;
    watch.Sees([&](const desktop::ServerSnapshot& snapshot) {
        const auto* found = desktop::FindStream(snapshot, argv[1]);
        stream = found == nullptr ? 0 : found->mID;
        return stream != 0;
    });
    desktop::CaptureRecorder recorder;
    const auto capture = server->OpenCapture("speakers", "test-silencer", recorder);
    capture->SetStreams({&stream, 1});
    capture->SetSilenced(true);
    if (!recorder.Records(4800)) return 1;
    std::puts("capturing");
    std::fflush(stdout);
    pause();
}
