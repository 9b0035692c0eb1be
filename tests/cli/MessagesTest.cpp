#include "cli/Messages.h"

#include "cli/GuardedMain.h"
#include "cli/Output.h"
#include "cli/StopSignals.h"
#include "platform/machine/linux/LinuxFiles.h"
#include "support/FakeMachine.h"
#include "support/Forked.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <tuple>

namespace cli {
namespace {

class Pipe {
public:
    Pipe() { EXPECT_EQ(pipe2(mEnds, O_CLOEXEC), 0); }
    ~Pipe() { close(mEnds[0]), close(mEnds[1]); }
    int Input() const { return mEnds[1]; }
    std::string TakeAll()
    {
        fcntl(mEnds[0], F_SETFL, O_NONBLOCK);
        std::string all;
        char piece[4096];
        for (ssize_t bytes; (bytes = read(mEnds[0], piece, sizeof piece)) > 0;) all.append(piece, size_t(bytes));
        return all;
    }

private:
    int mEnds[2] = {};
};

TEST(Messages, ALineStandsBelowThemAndNothingInThemMovesTheCursor)
{
    platform::machine::LinuxFiles files;
    Pipe pipe;
    Messages messages(pipe.Input(), files);
    messages.ShowLine("0:01");
    messages.Tell("now \033[31mred\n  and\tmore");
    messages.ShowLine("");
    messages.Tell("done");
    EXPECT_EQ(pipe.TakeAll(),
              "0:01\033[J\r\033[Jcorvane: now \uFFFD[31mred\n  and\uFFFDmore\n0:01\033[J\r\033[J\rcorvane: done\n");
    messages.SetStyle(Messages::Style::JSONLines);
    messages.ShowLine("0:01");
    messages.Tell("bad \xFF");
    EXPECT_EQ(nlohmann::json::parse(pipe.TakeAll()), nlohmann::json({{"type", "message"}, {"text", "bad \uFFFD"}}));
}

TEST(Messages, AReaderThatStallsHoldsNothingAndLearnsOfWhatItMissed)
{
    platform::machine::LinuxFiles files;
    Pipe pipe;
    Messages messages(pipe.Input(), files);
    const std::string longText(1000, 'x');
    while (messages.Dropped() < 3) messages.Tell(longText);
    pipe.TakeAll();
    messages.Tell("back");
    EXPECT_TRUE(pipe.TakeAll().ends_with("corvane: 3 messages could not be shown\ncorvane: back\n"));
    Messages nowhere(-1, files);
    nowhere.Tell("lost");
    EXPECT_EQ(nowhere.Dropped(), 1u);
}

TEST(GuardedMain, AnExceptionAndAFullOutputAreASentenceAndAnExitCode)
{
    const std::tuple<int (*)(int, char**), const char*, int> cases[] = {
        {[](int, char**) { return 4; }, "/dev/null", 4},
        {[](int, char**) -> int { throw std::runtime_error("broken"); }, "/dev/null", 1},
        {[](int, char**) { return PrintText("a"), 0; }, "/dev/full", 1},
        {[](int, char**) {
             return PrintLine({{"a", 1}}), 0;
         },
         "/dev/full", 1},
        {[](int, char**) { return PrintText("a"), 0; }, "", 1},
    };
    for (const auto& [body, output, code] : cases) {
        const support::Forked run = support::RunForked([&, body = body, output = output] {
            close(STDOUT_FILENO);
            if (*output) open(output, O_WRONLY);
            _exit(GuardedMain(body, 0, nullptr));
        });
        EXPECT_EQ(run.mExitCode, code) << output;
        EXPECT_EQ(run.mOutput.starts_with("corvane: "), code == 1) << run.mOutput;
    }
}

TEST(StopSignals, ASecondOneAsksToLeaveUnlessItComesAtOnceOrIsAHangUp)
{
    support::ExpectForked([] {
        auto& machine = support::FakeMachine::Installed();
        std::signal(SIGHUP, SIG_DFL);
        CatchStopSignals();
        const std::tuple<int, uint64_t, int> cases[] = {
            {SIGHUP, 0, 1}, {SIGHUP, 1000, 1}, {SIGTERM, 1000, 2}, {SIGTERM, 1, 2}, {SIGINT, 300, 3}};
        for (const auto& [number, millis, count] : cases) {
            machine.mClock.mAheadNanos += millis * 1'000'000;
            raise(number);
            EXPECT_EQ(StopSignalCount(), count) << number;
        }
        EXPECT_EQ(StopSignal(), SIGHUP);
        std::signal(SIGHUP, SIG_IGN);
        CatchStopSignals();
        raise(SIGHUP);
        EXPECT_EQ(StopSignalCount(), 0) << "a hang-up that was ignored before";
    });
}

}  // namespace
}  // namespace cli
