// The store of the preferences under faults, with several writers, and through the commands.
#include "cli/Commands.h"
#include "cli/DeviceList.h"
#include "cli/DoctorCommand.h"
#include "cli/ExitCodes.h"
#include "cli/PreferenceFile.h"
#include "cli/RouteCommand.h"
#include "cli/WatchCommand.h"
#include "plugin/settings/SharedPreferences.h"
#include "support/FakeMachine.h"
#include "support/FileFaults.h"
#include "support/FolderTree.h"
#include "support/Forked.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <CLI/CLI.hpp>

#include <iterator>

namespace {

namespace fs = std::filesystem;
using cf::Ref;
using testing::ContainsRegex;
using testing::HasSubstr;

class Preferences : public testing::Test {
protected:
    Preferences() { mMachine.mFiles.mRoot = mFolder.Root(); }

    /// Puts XML in the file's place.
    void Write(const std::string& keys) { WriteBytes("<plist><dict>" + keys + "</dict></plist>"); }
    void WriteBytes(const std::string& bytes)
    {
        fs::remove(mPath);
        mFolder.Write("preferences/com.ostrel.corvane.sharedsource.plist", bytes);
        chmod(mPath.c_str(), 0600);
    }
    std::string Bytes() const
    {
        std::ifstream file(mPath, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::vector<std::string> Files() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(fs::path(mPath).parent_path()))
            names.push_back(entry.path().filename().string().substr(0, 30));
        std::ranges::sort(names);
        return names;
    }

    /// Adds a device, as the command does, less its words. @return the exit code
    static int Add(const std::string& name, std::string& problem)
    {
        cli::PreferenceFile file;
        if (const int code = file.Open(problem)) return code;
        cli::DeviceList list(file.Root());
        cli::ListedDevice device;
        device.mSettings.mName = Ref<cf::String>::Adopt(new cf::String(name));
        device.mSettings.mUID = list.TakeUID();
        list.mDevices.push_back(device);
        list.Store(file.Root());
        return file.Save(problem);
    }
    static Ref<cf::Dictionary> Tree() { return Ref<cf::Dictionary>::Adopt(CopySharedPList()); }
    static std::vector<std::string> Names() { return cli::DeviceList(Tree().Get()).Names(); }
    static Ref<cf::Array> Entries() { return Ref<cf::Array>::Adopt(CopyDeviceSettings()); }

    support::FakeMachine& mMachine = support::FakeMachine::Installed();
    const support::FolderTree mFolder;
    const std::string mPath = mFolder.Path("preferences/com.ostrel.corvane.sharedsource.plist");
};

TEST_F(Preferences, TheDoctorNamesWhatStopsARecordingAndWhatMendsTheFile)
{
    const auto answer = [] {
        testing::internal::CaptureStdout();
        EXPECT_NE(cli::RunDoctor(false), cli::kExitDone);
        return testing::internal::GetCapturedStdout();
    };
    Write("");
    std::string problem;
    ASSERT_EQ(Add("Talk", problem), cli::kExitDone) << problem;
    EXPECT_THAT(answer(),
                testing::AllOf(ContainsRegex("note .*: 1 device, all off"), ContainsRegex("wrong .*tap's bundle"),
                               ContainsRegex("wrong .*no output device")));
    ASSERT_EQ(chmod(mPath.c_str(), 0620), 0);
    EXPECT_THAT(answer(), ContainsRegex("wrong .*chmod go-w"));
}

}  // namespace

TEST_F(Preferences, AreTheOldOnesOrTheNewOnesWholeWhicheverCallFailsOrIsTheLast)
{
    int calls = 1000;  // until the first round, in which they only fail, has come to one that is not made
    for (const bool dies : {false, true}) {
        for (int failing = 0; failing < calls; ++failing) {
            SCOPED_TRACE((dies ? "dies at call " : "fails at call ") + std::to_string(failing));
            fs::remove(mPath);
            std::string problem;
            ASSERT_EQ(Add("Old", problem), cli::kExitDone) << problem;
            const std::string old = Bytes();
            support::FileFaults faults(failing);
            faults.mDies = dies;
            int code = cli::kExitDone;
            const auto add = [&] {
                faults.Start();
                code = Add("New", problem);
                faults.Stop();
            };
            EXPECT_TRUE(!dies || support::RunForked(add).mPassed);
            if (!dies) add();
            if (!dies && faults.mCalls <= failing) {
                calls = failing;
                EXPECT_THAT(faults.mOrder, ContainsRegex("wf[^w]*r[^w]*d"))
                    << "the content is on the disk before it has the name, and the name before it is said to be done";
            }
            const bool isNew = Bytes() != old;
            if (!dies) {
                EXPECT_EQ(code == cli::kExitDone, problem.empty());
                EXPECT_TRUE(isNew || code != cli::kExitDone);
                EXPECT_EQ(Files().size(), 2u) << "the list and its lock";
            }
            ASSERT_EQ(Names(), isNew ? (std::vector<std::string>{"Old", "New"}) : std::vector<std::string>{"Old"});
            ASSERT_EQ(Add("After", problem), cli::kExitDone) << problem;
            EXPECT_EQ(Names().back(), "After");
            EXPECT_EQ(Files().size(), 2u) << "whoever comes next takes the leftovers away";
        }
    }
    EXPECT_GT(calls, 10);
    EXPECT_LT(calls, 1000);
}

TEST_F(Preferences, LoseNoEditOfTwoWhoWriteAtOnce)
{
    constexpr int kEdits = 200;
    const auto edit = [](const char* who) {
        std::string problem;
        for (int i = 0; i < kEdits; ++i) ASSERT_EQ(Add(who + std::to_string(i), problem), cli::kExitDone) << problem;
    };
    const pid_t other = fork();
    if (other == 0) {
        edit("B");
        _exit(HasFailure());
    }
    edit("A");
    int status = -1;
    waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
    const cli::DeviceList list(Tree().Get());
    std::set<int32_t> uids;
    std::set<std::string> names;
    for (const auto& device : list.mDevices) uids.insert(device.mSettings.mUID);
    for (const std::string& name : list.Names()) names.insert(name);
    EXPECT_EQ(uids.size(), 2u * kEdits);
    EXPECT_EQ(names.size(), 2u * kEdits);
    EXPECT_EQ(*uids.rbegin(), 2 * kEdits - 1);
}

TEST_F(Preferences, OfAFileThatCannotBeUsedAreLeftAsTheyAreAndReadAsEmpty)
{
    const std::string damaged[] = {
        "", "garbage", "bplist00", "<plist><array/></plist>", "<plist><dict>", std::string((1 << 20) + 1, ' ')};
    for (const std::string& bytes : damaged) {
        WriteBytes(bytes);
        std::string problem;
        EXPECT_EQ(Add("New", problem), cli::kExitPreferences) << bytes.substr(0, 30);
        EXPECT_THAT(problem, HasSubstr(mPath));
        EXPECT_EQ(cli::ListRoutes(true), cli::kExitPreferences);
        EXPECT_EQ(cli::RunWatch(true, false), cli::kExitPreferences);
        EXPECT_EQ(Bytes(), bytes);
        EXPECT_EQ(CFDictionaryGetCount(Tree().Get()), 0);
    }
    Write("");
    std::string problem;
    chmod(mPath.c_str(), 0666);
    EXPECT_EQ(Add("New", problem), cli::kExitPreferences);
    fs::rename(mPath, mPath + ".real");
    fs::create_symlink(mPath + ".real", mPath);
    EXPECT_EQ(Add("New", problem), cli::kExitPreferences);
    EXPECT_TRUE(fs::is_symlink(mPath));
}

TEST_F(Preferences, KeepWhatIsUnknownAndComeToTheSameWhenTheyAreSavedAgain)
{
    Write(
        "<key>Theirs</key><array><true/></array><key>Enabled</key><integer>1</integer>"
        "<key>Companion</key><dict><key>Later</key><string>kept</string><key>NextUID</key><string>?</string>"
        "<key>Extras</key><dict><key>7</key><dict><key>remembered</key><string>1</string></dict></dict></dict>"
        "<key>DeviceSettings</key><dict><key>Also</key><real>1.5</real><key>Devices</key><array>"
        "<string>no entry</string>"
        "<dict><key>uid</key><integer>7</integer><key>name</key><integer>3</integer><key>color</key><string>red"
        "</string><key>softwareSourcesMuted</key><integer>1</integer></dict>"
        "<dict><key>uid</key><integer>7</integer><key>outputChannelCount</key><integer>7</integer></dict>"
        "<dict><key>uid</key><integer>2147483647</integer><key>sampleRate</key><string>48000</string></dict>"
        "</array></dict>");
    const auto save = [] {
        cli::PreferenceFile file;
        std::string problem;
        ASSERT_EQ(file.Open(problem), 0) << problem;
        cli::DeviceList(file.Root()).Store(file.Root());
        ASSERT_EQ(file.Save(problem), 0) << problem;
    };
    save();
    const auto first = Tree();
    save();
    EXPECT_TRUE(CFEqual(first.Get(), Tree().Get())) << first.Get()->Describe() << "\n" << Tree().Get()->Describe();
    const std::string text = first.Get()->Describe();
    for (const char* kept : {"Theirs", "Later", "Also", "no entry", "red", "remembered"})
        EXPECT_THAT(text, HasSubstr(kept));
    EXPECT_EQ(Bytes().substr(0, 8), "bplist00");
    EXPECT_EQ(fs::status(mPath).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(fs::status(mPath + ".lock").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    cli::DeviceList list(first.Get());
    EXPECT_EQ(list.TakeUID(), 0) << "the last number there is was taken";
}

TEST_F(Preferences, AreWrittenByEachCommandAsADeviceWouldSayThem)
{
    auto& snapshot = mMachine.mServer.mSnapshot;
    using P = platform::machine::ChannelPosition;
    snapshot.mConnected = true;
    snapshot.mOutputs = {{70, "speakers", "Speakers", 96000, {P::FrontLeft, P::FrontRight}}};
    snapshot.mInputs = {{71, "mic", "Microphone", 44100, {P::Mono}}};
    snapshot.mDefaultOutput = 70;
    snapshot.mDefaultInput = 71;
    mMachine.mProcesses.mTable[500] = {500, 1, 5, "player", "/opt/player", "", ""};
    struct Row {
        std::string mWords;
        int mCode;
        const char* mNames;
    };
    const Row rows[] = {
        {"add Podcast --source app:player --source input:default", cli::kExitDone, "Podcast"},
        {"add podcast", cli::kExitUsage, "Podcast"},
        {"add Other --source pid:500", cli::kExitUsage, "Podcast"},
        {"add Other --source app:absent", cli::kExitNotFound, "Podcast"},
        {"add Wide -c 0 --from all --source input:mic --source system", cli::kExitDone, "Podcast Wide"},
        {"add Third -c 3", cli::kExitUsage, "Podcast Wide"},
        {"add Mono -c 1 -r 22050 --from speakers", cli::kExitDone, "Podcast Wide Mono"},
        {"disable Wide", cli::kExitDone, "Podcast Wide Mono"},
        {"set Wide -r 48000", cli::kExitDone, "Podcast Wide Mono"},
        {"set Wide", cli::kExitUsage, "Podcast Wide Mono"},
        {"rename 0 Talk", cli::kExitDone, "Talk Wide Mono"},
        {"rename Wide Wide", cli::kExitDone, "Talk Wide Mono"},
        {"rename Wide talk", cli::kExitUsage, "Talk Wide Mono"},
        {"add '  '", cli::kExitUsage, "Talk Wide Mono"},
        {"add " + std::string(201, 'x'), cli::kExitUsage, "Talk Wide Mono"},
        {"add Other --source path:mpv", cli::kExitUsage, "Talk Wide Mono"},
        {"add Other --source app-inverse:player", cli::kExitUsage, "Talk Wide Mono"},
        {"enable Wide", cli::kExitDone, "Talk Wide Mono"},
        {"disable --all", cli::kExitDone, "Talk Wide Mono"},
        {"remove Talk Absent", cli::kExitNotFound, "Talk Wide Mono"},
        {"remove com.ostrel.audio.corvane.halplugin.device.2 Talk", cli::kExitDone, "Wide"},
        {"add Next", cli::kExitDone, "Wide Next"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.mWords);
        CLI::App app("", "corvane");
        cli::Words words;
        cli::AddDeviceCommands(app, words);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        app.parse(row.mWords);
        const std::string said = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
        EXPECT_EQ(words.mResult, row.mCode) << said;
        std::string names;
        for (const std::string& name : Names()) names += (names.empty() ? "" : " ") + name;
        EXPECT_EQ(names, row.mNames);
        const auto entries = Entries();
        for (const auto& item : entries.Get()->Get()) {
            const auto* entry = cf::As<cf::Dictionary>(item.Get());
            ASSERT_TRUE(entry);
            CVNDevice settings(entry);
            settings.mEnabled = 1;
            settings.mSoftwareSourcesMuted = 0;
            const auto again = Ref<cf::Dictionary>::Adopt(settings.CopyDictionaryRepresentation());
            EXPECT_EQ(CFDictionaryGetCount(entry), 10);
            EXPECT_TRUE(CFEqual(entry, again.Get())) << entry->Describe();
        }
    }
    const cli::DeviceList list(Tree().Get());
    EXPECT_TRUE(list.mIsOn) << "to add a device turns all on";
    EXPECT_EQ(list.mDevices[0].mSettings.mSampleRate, 48000);
    EXPECT_EQ(list.mDevices[1].mSettings.mSampleRate, 96000) << "the output's own";
    EXPECT_EQ(list.mDevices[1].mSettings.mUID, 3) << "no number comes back";
    EXPECT_THAT(list.mDevices[0].mSettings.mCaptureSources.Get()->Describe(), HasSubstr("mic"));
    EXPECT_THAT(mMachine.mMessenger.mSent, testing::Each(HasSubstr("com.ostrel.corvane.prefschanged")));
    EXPECT_EQ(mMachine.mMessenger.mSent.size(), 11u);
}
