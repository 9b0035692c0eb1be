#include "platform/process/ProcessManager.h"

#include "platform/foundation/CFBundle.h"
#include "platform/machine/linux/LinuxFiles.h"
#include "platform/machine/linux/LinuxIdentity.h"
#include "support/FakeMachine.h"
#include "support/FolderTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using platform::machine::LinuxIdentity;
using platform::machine::ProcessRecord;
using testing::ElementsAre;

namespace {

/// What the walk says of an application: "PID identifier name location".
std::string Describe(const ProcessSerialNumber& process)
{
    const auto information = cf::Ref<cf::Dictionary>::Adopt(ProcessInformationCopyDictionary(&process, 0xFFFFFFFF));
    if (!information) return "gone";
    const auto text = [&](CFStringRef key) {
        return cf::ToStdString(cf::As<cf::String>(CFDictionaryGetValue(information.Get(), key)));
    };
    int32_t pid = 0;
    CFNumberGetValue(cf::As<cf::Number>(information.Get()->Find("pid")), kCFNumberSInt32Type, &pid);
    EXPECT_EQ(pid, int32_t(process.lowLongOfPSN));
    FSRef location{"nowhere"};
    GetProcessBundleLocation(&process, &location);
    return std::to_string(pid) + " " + text(kCFBundleIdentifierKey) + " " + text(kCFBundleNameKey) + " " +
           location.mPath;
}

class ProcessManager : public testing::Test {
protected:
    support::FakeMachine& mMachine = support::FakeMachine::Installed();

    ProcessRecord& Process(pid_t pid, pid_t parent, const std::string& executable, uint64_t start)
    {
        const std::string name = executable.substr(executable.rfind('/') + 1);
        return mMachine.mProcesses.mTable[pid] = {pid, parent, start, name, executable, "", ""};
    }

    std::vector<std::string> Walk()
    {
        std::vector<std::string> applications;
        ProcessSerialNumber process{0, kNoProcess};
        while (GetNextProcess(&process) == 0) applications.push_back(Describe(process));
        EXPECT_EQ(process.lowLongOfPSN, kNoProcess);
        return applications;
    }
};

TEST_F(ProcessManager, AnApplicationIsOneEntryInTheOrderOfStartingWithItsHelpersFoldedIn)
{
    Process(1, 0, "/sbin/init", 1);
    Process(2, 0, "", 1);  // the kernel's own
    Process(900, 1, "/opt/browser", 10);
    Process(901, 900, "/opt/browser", 11);
    Process(902, 900, "/bin/sh", 12);
    Process(903, 902, "/opt/browser", 13);
    Process(40, 1, "/opt/browser", 20);  // started twice, after the numbers began anew
    Process(50, 1, "/app/player", 15).mSandboxID = "org.example.Player";
    Process(51, 50, "/app/decoder", 16).mSandboxID = "org.example.Player";
    Process(60, 1, "", 30).mSandboxID = "org.example.Closed";
    mMachine.mProcesses.mEntries["/opt/browser"] = {"org.entry", "The Browser"};
    EXPECT_THAT(Walk(), ElementsAre("1 init init /sbin/init", "900 org.entry The Browser /opt/browser",
                                    "902 sh sh /bin/sh", "50 org.example.Player player /app/player",
                                    "40 org.entry The Browser /opt/browser", "60 org.example.Closed  nowhere"));
}

TEST_F(ProcessManager, AWalkGoesOnAsItBeganWhateverComesAndGoes)
{
    for (const pid_t pid : {10, 20, 30}) Process(pid, 1, "/opt/p" + std::to_string(pid), uint64_t(pid));
    ProcessSerialNumber process{0, kNoProcess};
    ASSERT_EQ(GetNextProcess(&process), 0);
    const ProcessSerialNumber first = process;
    mMachine.mProcesses.mTable.erase(20);
    Process(25, 1, "/opt/late", 25);
    ASSERT_EQ(GetNextProcess(&process), 0);
    EXPECT_EQ(process.lowLongOfPSN, 20u);
    EXPECT_EQ(Describe(process), "gone");
    ASSERT_EQ(GetNextProcess(&process), 0);
    EXPECT_EQ(process.lowLongOfPSN, 30u);
    EXPECT_THAT(Walk(), ElementsAre("10 p10 p10 /opt/p10", "25 late late /opt/late", "30 p30 p30 /opt/p30"));

    mMachine.mProcesses.mTable.clear();
    Process(10, 1, "/opt/other", 99);  // the number of one that is gone
    EXPECT_THAT(Walk(), ElementsAre("10 other other /opt/other"));
    EXPECT_EQ(Describe(first), "gone");
    FSRef location;
    EXPECT_EQ(GetProcessBundleLocation(&first, &location), procNotFound);
}

TEST_F(ProcessManager, WhomNoDesktopKnowsIsInTheBackgroundAndWhoStandsInNoMenuSaysSo)
{
    Process(10, 1, "/opt/daemon", 10);
    Process(20, 1, "/opt/applet", 20);
    Process(30, 1, "/opt/player", 30).mDesktopScope = "player";
    mMachine.mProcesses.mEntries["/opt/applet"] = {"org.applet", "Applet", true};
    std::vector<std::pair<bool, bool>> faces;
    for (ProcessSerialNumber process{0, kNoProcess}; GetNextProcess(&process) == 0;) {
        const auto information = cf::Ref<cf::Dictionary>::Adopt(ProcessInformationCopyDictionary(&process, 0));
        faces.emplace_back(information.Get()->Find("LSBackgroundOnly") == kCFBooleanTrue,
                           information.Get()->Find("LSUIElement") == kCFBooleanTrue);
    }
    EXPECT_THAT(faces, ElementsAre(std::pair(true, false), std::pair(false, true), std::pair(false, false)));
}

TEST_F(ProcessManager, TheMainBundleIsTheApplicationThatTheListHasForThisProcess)
{
    Process(10, 1, "/opt/browser", 10);
    Process(mMachine.mProcesses.mSelf, 10, "/opt/browser", 20);
    mMachine.mProcesses.mEntries["/opt/browser"] = {"org.entry", "The Browser"};
    LinuxIdentity identity(mMachine.mProcesses);
    mMachine.mIdentity.mMainBundle = identity.GetMainBundle();
    const CFBundleRef bundle = CFBundleGetMainBundle();
    ASSERT_NE(bundle, nullptr);
    EXPECT_EQ(cf::ToStdString(CFBundleGetIdentifier(bundle)), "org.entry");
    EXPECT_EQ(cf::Ref<cf::URL>::Adopt(CFBundleCopyBundleURL(bundle)).Get()->Describe(), "/opt/browser");
    EXPECT_EQ(CFBundleGetMainBundle(), bundle);

    mMachine.mIdentity.mMainBundle = platform::machine::MainBundle{};
    const CFBundleRef nameless = CFBundleGetMainBundle();
    EXPECT_EQ(CFBundleGetIdentifier(nameless), nullptr);
    EXPECT_EQ(CFBundleCopyBundleURL(nameless), nullptr);
    mMachine.mIdentity.mMainBundle.reset();
    EXPECT_EQ(CFBundleGetMainBundle(), nullptr);
}

TEST_F(ProcessManager, FoldersAndFilesAreFoundWhereTheyAre)
{
    const support::FolderTree tree;
    mMachine.mFiles.mRoot = tree.Root();
    FSRef folder, file;
    EXPECT_EQ(FSFindFolder(kUserDomain, kPreferencesFolderType, false, &folder), fnfErr);
    const std::string path = tree.Write("preferences/settings", "");
    ASSERT_EQ(FSFindFolder(kUserDomain, kPreferencesFolderType, false, &folder), 0);
    EXPECT_EQ(folder.mPath, tree.Root() + "/preferences");
    tree.Link("preferences/dangling", "/nonexistent");
    for (const auto& [name, isThere, isFolder] :
         {std::tuple("settings", true, false), std::tuple("", true, true), std::tuple("dangling", true, false),
          std::tuple("absent", false, false)}) {
        bool answer = false;
        const std::string wanted = folder.mPath + "/" + name;
        EXPECT_EQ(FSPathMakeRef(reinterpret_cast<const uint8_t*>(wanted.c_str()), &file, &answer) == 0, isThere)
            << name;
        EXPECT_EQ(answer, isFolder) << name;
    }
    uint8_t room[4096];
    const auto bytes = UInt32(path.size());
    file.mPath = path;
    EXPECT_EQ(FSRefMakePath(&file, room, bytes), fnfErr);
    EXPECT_EQ(FSRefMakePath(&file, room, bytes + 1), 0);
    EXPECT_EQ(reinterpret_cast<const char*>(room), path);
}

TEST(LinuxFiles, SettingsLieWhereTheEnvironmentSaysInAbsoluteWords)
{
    const char* const kNames[] = {"XDG_CONFIG_HOME", "HOME"};
    std::optional<std::string> before[2];
    for (int i = 0; i < 2; ++i) {
        if (const char* value = getenv(kNames[i])) before[i] = value;
    }
    const auto folder = [&](const char* configuration, const char* home) {
        setenv(kNames[0], configuration, 1);
        setenv(kNames[1], home, 1);
        return platform::machine::LinuxFiles().PreferencesFolder();
    };
    EXPECT_EQ(folder("/config", "/home/me"), "/config/corvane");
    for (const char* none : {"", "config", "~/.config"})
        EXPECT_EQ(folder(none, "/home/me"), "/home/me/.config/corvane");
    EXPECT_TRUE(folder("", "").ends_with("/.config/corvane")) << "of the user database";
    for (int i = 0; i < 2; ++i) before[i] ? setenv(kNames[i], before[i]->c_str(), 1) : unsetenv(kNames[i]);
}

}  // namespace
