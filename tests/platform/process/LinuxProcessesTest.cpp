#include "platform/machine/linux/LinuxProcesses.h"

#include "support/FolderTree.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using platform::machine::ApplicationOfControlGroup;
using platform::machine::DesktopEntries;
using platform::machine::LinuxProcesses;
using platform::machine::ProgramOfExecLine;

namespace {

const std::string kFields = " S 41 7 7 0 -1 4194560 1 2 3 4 5 6 7 8 20 0 1 0 123456789 4096 12 18446744073709551615\n";

class LinuxProcessesTest : public testing::Test {
protected:
    support::FolderTree mTree;
    LinuxProcesses mProcesses{mTree.Root(), DesktopEntries({}, {})};
};

class DesktopEntriesTest : public testing::Test {
protected:
    support::FolderTree mTree;
    DesktopEntries mEntries{{mTree.Root() + "/own", mTree.Root() + "/all"}, {mTree.Root() + "/bin"}};

    void Enter(const std::string& file, const std::string& name, const std::string& program,
               const std::string& more = "")
    {
        mTree.Write(file, "# made by hand\n[Desktop Entry]\nType=Application\nName=" + name +
                              "\nName[de]=Anders\nExec = " + program + "\n" + more +
                              "[Desktop Action new]\nName=New Window\nExec=other\n");
    }
    std::string Identifier(const std::string& executable)
    {
        const auto entry = mEntries.Find(executable);
        return entry ? entry->mIdentifier + "/" + entry->mName : "";
    }
};

}  // namespace

TEST(LinuxProcesses, FindsThisProcess)
{
    LinuxProcesses processes;
    const auto self = processes.Find(processes.Self());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->mParent, getppid());
    EXPECT_EQ(self->mExecutable, std::filesystem::canonical("/proc/self/exe"));
    EXPECT_GT(self->mStartTime, 0u);
    const auto brief = processes.FindBriefly(processes.Self());
    ASSERT_TRUE(brief);
    EXPECT_EQ(std::tuple(brief->mPID, brief->mParent, brief->mStartTime, brief->mExecutable),
              std::tuple(self->mPID, self->mParent, self->mStartTime, ""));
}

TEST_F(LinuxProcessesTest, NamesMayHoldWhateverAProcessLikes)
{
    for (const std::string name : {"plain", "x) R 1 1 (y", "a (b) c) ", "", "\n\x1b[2J", "))))"}) {
        mTree.Write("7/stat", "7 (" + name + ")" + kFields);
        const auto record = mProcesses.Find(7);
        ASSERT_TRUE(record) << name;
        EXPECT_EQ(record->mName, name);
        EXPECT_EQ(record->mParent, 41);
        EXPECT_EQ(record->mStartTime, 123456789u);
    }
}

TEST_F(LinuxProcessesTest, ARowCutAnywhereIsWholeOrNothing)
{
    const std::string row = "7 (a) b)" + kFields;
    for (size_t bytes = 0; bytes <= row.size(); ++bytes) {
        mTree.Write("7/stat", row.substr(0, bytes));
        const auto record = mProcesses.Find(7);
        if (record) {
            EXPECT_EQ(record->mStartTime, 123456789u) << bytes;
        }
        EXPECT_EQ(record.has_value(), bytes > row.find("123456789") + 9) << bytes;
    }
    for (const pid_t pid : {0, -1, 8}) EXPECT_FALSE(mProcesses.Find(pid));
    for (const char* name : {"12", "self", "0", "-3", "9x", "99999999999"})
        mTree.Write(std::string(name) + "/stat", row);
    EXPECT_EQ(mProcesses.List(), std::vector<pid_t>({7, 12}));
}

TEST_F(LinuxProcessesTest, AProgramThatWasReplacedKeepsItsPath)
{
    mTree.Write("7/stat", "7 (player)" + kFields);
    mTree.Link("7/exe", "/opt/player (deleted)");
    EXPECT_EQ(mProcesses.Find(7)->mExecutable, "/opt/player");
}

TEST_F(LinuxProcessesTest, ASandboxIsBelievedOnlyInAPlainFileOfItsOwn)
{
    mTree.Write("7/stat", "7 (player)" + kFields);
    const std::string info = "7/root/.flatpak-info";
    mTree.Write(info, "[Instance]\nname=wrong\n[Application]\nname=org.example.Player\n[Context]\nname=wrong\n");
    EXPECT_EQ(mProcesses.Find(7)->mSandboxID, "org.example.Player");

    mTree.Write("elsewhere", "[Application]\nname=org.example.Player\n");
    mTree.Link(info, mTree.Path("elsewhere"));
    EXPECT_EQ(mProcesses.Find(7)->mSandboxID, "");

    std::filesystem::remove(mTree.Path(info));
    ASSERT_EQ(mkfifo(mTree.Path(info).c_str(), 0600), 0);
    EXPECT_EQ(mProcesses.Find(7)->mSandboxID, "");  // and does not wait for a writer

    std::filesystem::remove(mTree.Path(info));
    mTree.Write(info, "[Application]\nname=org.example.Player\n" + std::string(1 << 20, '#'));
    EXPECT_EQ(mProcesses.Find(7)->mSandboxID, "");
}

TEST(ControlGroups, NameTheApplicationOfTheirInnermostUnit)
{
    const std::pair<const char*, const char*> kUnits[] = {
        {"app-gnome-org.gnome.Music-4711.scope", "org.gnome.Music"},
        {"app-gnome-firefox\\x2desr-4711.scope", "firefox-esr"},
        {"app-flatpak-org.example.Player-12.scope", "org.example.Player"},
        {"app-org.kde.elisa-0b5e2f1a.scope", "org.kde.elisa"},
        {"app-firefox.scope", "firefox"},
        {"app-gnome-firefox.scope", "firefox"},
        {"app-org.kde.elisa@d34c.service", "org.kde.elisa"},
        {"app-gnome-org.gnome.Music@autostart.service", "org.gnome.Music"},
        {"app-cut\\x2", "cut\\x2"},
        {"app-.scope", ""},
        {"app-org.gnome.Terminal.slice", ""},
        {"app-org.kde.konsole@1.service/tab(99).scope", ""},
        {"session-2.scope", ""},
        {"", ""},
    };
    for (const auto& [unit, application] : kUnits) {
        const bool cut = std::string(unit) == "app-cut\\x2";
        const std::string path = "/user.slice/app.slice/" + std::string(unit) + (cut ? ".scope" : "");
        EXPECT_EQ(ApplicationOfControlGroup("3:cpu:/x\n0::" + path + "\n"), application) << unit;
        EXPECT_EQ(ApplicationOfControlGroup("1:name=systemd:" + path + "\n0::/\n"), application) << unit;
    }
    EXPECT_EQ(ApplicationOfControlGroup("5:cpu:/app-firefox.scope\n\n:::\n0::"), "");
}

TEST(ExecLines, NameTheProgramThatRunsInTheEnd)
{
    const std::pair<const char*, const char*> kLines[] = {
        {"player %U", "player"},
        {"\"/opt/my player/bin\" --new %U", "/opt/my player/bin"},
        {"\"/opt/a\\\"b\"", "/opt/a\"b"},
        {"env LANG=C GTK=1 /usr/bin/player", "/usr/bin/player"},
        {"/usr/bin/env A=1", ""},
        {"/usr/bin/flatpak run org.example.Player", ""},
        {"python3.11 /usr/bin/player", ""},
        {"\"unclosed", "unclosed"},
        {"", ""},
        {"\\", "\\"},
    };
    for (const auto& [line, program] : kLines) EXPECT_EQ(ProgramOfExecLine(line), program) << line;
}

TEST_F(DesktopEntriesTest, AreFoundByTheFileThatRunsThenByItsName)
{
    mTree.Write("bin/player", "");
    Enter("all/applications/org.example.Player.desktop", "Player", "player %U");
    Enter("all/applications/org.example.Player-private.desktop", "Player (private)", "player --private");
    const std::string installed = std::filesystem::canonical(mTree.Path("bin/player"));
    EXPECT_EQ(Identifier(installed), "org.example.Player/Player");
    EXPECT_EQ(Identifier("/usr/lib/player/player"), "org.example.Player/Player");
    EXPECT_EQ(Identifier("/usr/lib/player/helper"), "");
    EXPECT_EQ(Identifier(""), "");
}

TEST_F(DesktopEntriesTest, TheUsersOwnEntryHidesTheSystemsEvenToHideTheApplication)
{
    Enter("all/applications/a.desktop", "Shipped", "/opt/a");
    Enter("own/applications/a.desktop", "Renamed", "/opt/a");
    Enter("all/applications/b.desktop", "Shipped", "/opt/b");
    Enter("own/applications/b.desktop", "Gone", "/opt/b", "Hidden=true\n");
    EXPECT_EQ(Identifier("/opt/a"), "a/Renamed");
    EXPECT_EQ(Identifier("/opt/b"), "");
    // An application that is installed while we run is found.
    Enter("own/applications/c.desktop", "New", "/opt/c");
    std::filesystem::last_write_time(mTree.Path("own/applications"), {});
    EXPECT_EQ(Identifier("/opt/c"), "c/New");
}
