// RecordFixture: a private PipeWire, and the command recording on it.
#pragma once

#include "support/CommandRun.h"
#include "support/PrivatePipeWire.h"
#include "support/StallWitness.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <signal.h>

namespace desktop {

using support::ChildProcess;
using support::CommandRun;
using support::ReadRecording;
using support::Recording;

constexpr int kTries = 4;
constexpr unsigned kRateHz = 48000;
constexpr size_t kFrameBytes = 2 * sizeof(float);

class RecordFixture : public ::testing::Test {
protected:
    ChildProcess PlayCounter(const std::string& name, std::vector<std::string> more = {})
    {
        more.insert(more.end(), {"--name", name, "--counter"});
        return mPipeWire.Play(more);
    }
    // Runs to its end; every loss is a fault, but for those of a machine that was late or stood still: mMissed.
    Recording Finished(CommandRun& run)
    {
        EXPECT_EQ(run.Wait(), 0) << run.Errors();
        mResult = nlohmann::json::parse(run.Output());
        const Recording recording = ReadRecording(File());
        EXPECT_EQ(mResult["frames"], recording.Frames());
        for (const auto& source : mResult["sources"])
            for (const char* cause : {"server_away", "too_slow"})
                EXPECT_EQ(source["silent"][cause], 0) << source["source"] << ": " << cause;
        mMissed = mResult["frames_lost"];
        return recording;
    }
    Recording Record(std::vector<std::string> options)
    {
        options.insert(options.begin(), {"record", "--json", "--force"});
        options.push_back(File());
        CommandRun run(options);
        return Finished(run);
    }
    // How many frames the server did not ask for of an application that has ended.
    static uint64_t MissedBy(ChildProcess& application)
    {
        application.End(SIGTERM);
        return std::stoull(application.ReadLine().substr(std::string("missed ").size()));
    }
    std::string File(const char* name = "a.wav") const { return mPipeWire.Folder() + "/" + name; }

    support::PrivatePipeWire mPipeWire;
    support::StallWitness mWitness;
    nlohmann::json mResult;  // of the recorder that finished last
    uint64_t mMissed = 0;    // frames that the recorder that finished last lost by that
};

}  // namespace desktop
