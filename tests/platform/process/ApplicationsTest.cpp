#include "platform/process/Applications.h"

#include "platform/process/PlainText.h"
#include "support/FakeMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using platform::machine::PlaybackStream;
using platform::machine::ProcessRecord;
using platform::process::Application;
using platform::process::CopyApplications;
using platform::process::CopyLineage;
using platform::process::IdentifierSource;
using testing::Contains;
using testing::ElementsAre;

namespace {

class Applications : public testing::Test {
protected:
    support::FakeMachine& mMachine = support::FakeMachine::Installed();

    ProcessRecord& Process(pid_t pid, pid_t parent, const std::string& executable)
    {
        const std::string name = executable.substr(executable.rfind('/') + 1);
        return mMachine.mProcesses.mTable[pid] = {pid, parent, uint64_t(pid), name, executable, "", ""};
    }
    PlaybackStream& Stream(pid_t pid, bool playing = true)
    {
        PlaybackStream stream;
        stream.mID = uint32_t(mMachine.mServer.mSnapshot.mStreams.size() + 1);
        stream.mPID = pid;
        stream.mPlaying = playing;
        return mMachine.mServer.mSnapshot.mStreams.emplace_back(stream);
    }
};

}  // namespace

TEST_F(Applications, HelpersFoldIntoTheTopmostProcessOfTheirProgram)
{
    Process(1, 0, "/sbin/init");
    Process(10, 1, "/bin/bash");
    Process(20, 10, "/opt/browser");
    Process(30, 20, "/bin/sh");
    Process(31, 30, "/opt/browser");
    Process(32, 20, "/opt/browser");
    Process(40, 10, "/opt/browser");
    Stream(31, false).mApplicationName = "Browser";
    mMachine.mServer.mSnapshot.mOutputs = {{7, "speakers", "", 0, {}}, {8, "headset", "", 0, {}}};
    Stream(32).mOutputs = {8, 99};
    Stream(40, false);
    const std::vector<Application> found = CopyApplications();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].mPID, 20);
    EXPECT_EQ(found[0].mName, "Browser");
    EXPECT_EQ(found[0].mServerName, "Browser");
    EXPECT_THAT(found[0].mOutputs, ElementsAre("headset"));
    EXPECT_TRUE(found[0].mPlaying);
    EXPECT_THAT(found[0].mHelpers, ElementsAre(31, 32));
    EXPECT_EQ(found[1].mPID, 40);
    EXPECT_FALSE(found[1].mPlaying);
    EXPECT_THAT(found[1].mHelpers, ElementsAre());
}

TEST_F(Applications, ASandboxOrAScopeIsOneApplicationWhateverRunsInIt)
{
    Process(1, 0, "/sbin/init");
    for (const pid_t pid : {50, 20}) {  // two trees: the one that was started first stands for both
        Process(pid, 1, "/usr/bin/wrapper").mSandboxID = "org.example.Player";
        Process(pid + 1, pid, "/app/player").mSandboxID = "org.example.Player";
        Stream(pid + 1);
    }
    Process(30, 1, "/bin/sh").mDesktopScope = "game";
    Process(31, 30, "/opt/game").mDesktopScope = "game";
    Process(32, 30, "/opt/sound").mDesktopScope = "game";
    for (const pid_t pid : {31, 32, 31}) Stream(pid);
    const std::vector<Application> found = CopyApplications();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].mPID, 30);
    EXPECT_EQ(found[0].mExecutable, "/opt/game");
    EXPECT_THAT(found[0].mHelpers, ElementsAre(31, 32));
    EXPECT_EQ(found[1].mPID, 20);
    EXPECT_EQ(found[1].mExecutable, "/app/player");
    EXPECT_THAT(found[1].mHelpers, ElementsAre(21, 51));
}

TEST_F(Applications, TheBestIdentifierIsTakenAndSaysWhereItCameFrom)
{
    ProcessRecord& process = Process(20, 1, "/opt/player");
    PlaybackStream& stream = Stream(20);
    const auto identified = [] {
        const Application application = CopyApplications().at(0);
        return std::pair(application.mIdentifierSource, application.mIdentifier);
    };
    EXPECT_EQ(identified(), std::pair(IdentifierSource::Executable, std::string("player")));
    stream.mApplicationID = "org.server";
    EXPECT_EQ(identified(), std::pair(IdentifierSource::ServerProperty, std::string("org.server")));
    mMachine.mProcesses.mEntries["/opt/player"] = {"org.entry", "The Player"};
    EXPECT_EQ(identified(), std::pair(IdentifierSource::DesktopEntry, std::string("org.entry")));
    process.mDesktopScope = "org.scope";
    EXPECT_EQ(identified(), std::pair(IdentifierSource::DesktopScope, std::string("org.scope")));
    stream.mSandboxID = "org.sandbox";
    EXPECT_EQ(identified(), std::pair(IdentifierSource::SandboxID, std::string("org.sandbox")));
    stream.mApplicationName = "from the server";
    EXPECT_EQ(CopyApplications().at(0).mName, "The Player");
}

TEST_F(Applications, ThisProcessAndProcessesThatAreGoneAreLeftOut)
{
    Process(mMachine.mProcesses.mSelf, 1, "/usr/bin/corvane");
    Stream(mMachine.mProcesses.mSelf);
    Stream(77);
    Stream(0);
    EXPECT_TRUE(CopyApplications().empty());
}

TEST_F(Applications, DescentEndsAtANumberThatWasGivenOutAgain)
{
    Process(10, 1, "/a");
    Process(20, 10, "/b");
    Process(30, 20, "/c");
    EXPECT_THAT(CopyLineage(30), ElementsAre(30, 20, 10));
    EXPECT_THAT(CopyLineage(31), ElementsAre());
    mMachine.mProcesses.mTable[20].mStartTime = 31;  // younger than its child
    EXPECT_THAT(CopyLineage(30), ElementsAre(30));
    Process(40, 41, "/d");
    Process(41, 40, "/d").mStartTime = 40;
    EXPECT_THAT(CopyLineage(40), testing::Not(Contains(10)));  // a circle ends too
}

TEST(PlainText, LeavesNothingThatATerminalWouldObey)
{
    using platform::process::PlainText;
    const std::string mark = "\xEF\xBF\xBD";
    EXPECT_EQ(PlainText("Müller – 音"), "Müller – 音");
    EXPECT_EQ(PlainText("a\x1b[2J\nb\x7f"), "a" + mark + "[2J" + mark + "b" + mark);
    EXPECT_EQ(PlainText("\xC2\x9B"), mark);                               // a control character of two bytes
    EXPECT_EQ(PlainText("\xC0\x80"), mark + mark);                        // NUL in a longer form
    EXPECT_EQ(PlainText("\xED\xA0\x80"), mark + mark + mark);             // half a pair
    EXPECT_EQ(PlainText("\xF4\x90\x80\x80"), mark + mark + mark + mark);  // beyond the last code
    EXPECT_EQ(PlainText("x\xE2\x82"), "x" + mark + mark);                 // cut
}
