// Real processes, real sockets: each listener is a copy of this program that writes a byte into a pipe for every
// message it hears.
#include "platform/machine/linux/LinuxMessenger.h"
#include "support/FolderTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <utility>

namespace {

using namespace platform::machine;
using support::FolderTree;
using testing::ElementsAre;
using testing::HasSubstr;

struct Pipe {
    Pipe()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) abort();
        mRead = Descriptor(ends[0]);
        mWrite = Descriptor(ends[1]);
    }
    void Put(char byte) const { static_cast<void>(!write(mWrite.Get(), &byte, 1)); }
    char Get() const
    {
        char byte = 0;
        return read(mRead.Get(), &byte, 1) == 1 ? byte : '\0';
    }

    Descriptor mRead, mWrite;
};

/// A process that listens until it is killed.
class ListeningProcess {
public:
    ListeningProcess(const std::string& folder, char sign, uid_t user = geteuid())
    {
        mProcess = fork();
        if (mProcess == 0) Live(folder, sign, user);
        mHeard.mWrite = {};
        EXPECT_EQ(mHeard.Get(), 'L') << "does not listen";
    }
    ListeningProcess(ListeningProcess&&) = delete;
    ~ListeningProcess() { Kill(); }

    char Heard() const { return mHeard.Get(); }
    void Signal(int signal) const { kill(mProcess, signal); }
    void AwaitStop() const { waitpid(mProcess, nullptr, WUNTRACED); }
    void Kill()
    {
        if (mProcess <= 0) return;
        Signal(SIGKILL);
        waitpid(std::exchange(mProcess, 0), nullptr, 0);
    }

private:
    [[noreturn]] void Live(const std::string& folder, char sign, uid_t user) const
    {
        if (setresuid(user, user, user) != 0) _exit(1);
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // nor longer than a test that is killed
        LinuxMessenger messenger(folder);
        const bool listens =
            messenger.Listen([&](std::string_view message) { mHeard.Put(message == "who" ? sign : message[0]); });
        mHeard.Put(listens ? 'L' : '-');
        for (;;) pause();
    }

    Pipe mHeard;
    pid_t mProcess = 0;
};

std::vector<std::string> NamesIn(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& each : std::filesystem::directory_iterator(folder)) names.push_back(each.path().filename());
    return names;
}

/// A datagram as anybody may send it who gets at the socket.
ssize_t SendRaw(const std::string& path, const std::string& bytes, bool withDescriptor = false)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    iovec text{const_cast<char*>(bytes.data()), bytes.size()};
    msghdr header{&address, sizeof address, &text, 1, nullptr, 0, 0};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> room{};
    const Descriptor sender(socket(AF_UNIX, SOCK_DGRAM, 0));
    if (withDescriptor) {
        header.msg_control = room.data();
        header.msg_controllen = room.size();
        cmsghdr* const item = CMSG_FIRSTHDR(&header);
        *item = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        const int passed = sender.Get();
        std::memcpy(CMSG_DATA(item), &passed, sizeof passed);
    }
    return sendmsg(sender.Get(), &header, MSG_NOSIGNAL);
}

}  // namespace

TEST(LinuxMessenger, AMessageReachesEveryLivingListenerAndTheNamesOfTheDeadGo)
{
    const FolderTree tree;
    std::deque<ListeningProcess> living, dead;
    for (int each = 0; each < 100; ++each) living.emplace_back(tree.Root(), 'a');
    for (int each = 0; each < 20; ++each) dead.emplace_back(tree.Root(), 'd').Kill();
    const std::string folder = tree.Root() + "/corvane";
    std::ofstream(folder + "/4711-notes");
    EXPECT_EQ(NamesIn(folder).size(), 121u);

    LinuxMessenger self(tree.Root());
    EXPECT_TRUE(self.Listen([](std::string_view) { ADD_FAILURE() << "hears itself"; }));
    EXPECT_EQ(self.Broadcast("who"), 0);
    for (const ListeningProcess& each : living) EXPECT_EQ(each.Heard(), 'a');
    EXPECT_EQ(NamesIn(folder).size(), 102u);
}

TEST(LinuxMessenger, StoppedListenersKeepNothingFromTheOthersAndLoseWhatTheirQueuesCannotHold)
{
    const FolderTree tree;
    int queue = 0;
    std::ifstream("/proc/sys/net/unix/max_dgram_qlen") >> queue;
    ASSERT_GT(queue, 0);
    const ListeningProcess living(tree.Root(), 'l');
    std::deque<ListeningProcess> stopped;  // so many that their queues hold more than one socket's buffer
    for (int each = 0; each < 8; ++each) {
        stopped.emplace_back(tree.Root(), 's').Signal(SIGSTOP);
        stopped.back().AwaitStop();
    }
    LinuxMessenger sender(tree.Root());
    for (int sent = 0; sent < queue + 50; ++sent) {
        ASSERT_EQ(sender.Broadcast(std::string(kMessageMaxBytes, 'm')), 0);
        ASSERT_EQ(living.Heard(), 'm') << "after " << sent;
    }
    const ListeningProcess& woken = stopped.front();
    woken.Signal(SIGCONT);
    int kept = 0;
    char heard = woken.Heard();
    EXPECT_EQ(sender.Broadcast("who"), 0);  // there is room again
    for (; heard == 'm'; heard = woken.Heard()) ++kept;
    EXPECT_EQ(heard, 's');
    EXPECT_LT(kept, queue + 50);
}

TEST(LinuxMessenger, OnlyAFolderThatIsThisUsersAloneIsUsed)
{
    const FolderTree tree;
    const auto folder = [&](const std::string& runtime, mode_t mode) {
        const std::string path = tree.Path(runtime + "/corvane");
        mkdir(path.c_str(), mode);
        chmod(path.c_str(), mode);
        return tree.Root() + "/" + runtime;
    };
    folder("elsewhere", 0700);
    tree.Link("link/corvane", tree.Root() + "/elsewhere/corvane");
    tree.Write("file/corvane", "");
    struct Case {
        std::string mRuntime, mWhy;
    };
    std::vector<Case> cases = {{"", "XDG_RUNTIME_DIR is not set"},
                               {"relative", "not an absolute path"},
                               {tree.Root() + "/missing", "cannot be opened"},
                               {tree.Root() + "/link", "not a folder that can be opened"},
                               {tree.Root() + "/file", "not a folder that can be opened"},
                               {folder("read", 0750), "open to others"},
                               {folder("shared", 01777), "open to others"},
                               {folder("sticky", 01700), "open to others"}};
    if (geteuid() == 0) {  // nobody else can give a folder away
        cases.push_back({folder("foreign", 0700), "belongs to another user"});
        ASSERT_EQ(chown((tree.Root() + "/foreign/corvane").c_str(), 65534, 65534), 0);
        cases.push_back({tree.Root() + "/theirs", "belongs to another user"});
        ASSERT_EQ(mkdir((tree.Root() + "/theirs").c_str(), 0700), 0);
        ASSERT_EQ(chown((tree.Root() + "/theirs").c_str(), 65534, 65534), 0);
    }
    for (const Case& each : cases) {
        LinuxMessenger messenger(each.mRuntime);
        EXPECT_FALSE(messenger.Listen([](std::string_view) {})) << each.mRuntime;
        EXPECT_NE(messenger.Broadcast("change"), 0) << each.mRuntime;
        EXPECT_THAT(messenger.Describe(), HasSubstr(each.mWhy)) << each.mRuntime;
    }
    EXPECT_FALSE(std::filesystem::exists(tree.Root() + "/theirs/corvane"));
    EXPECT_EQ(LinuxMessenger(tree.Root()).Broadcast("change"), 0) << "nobody has listened yet";
    EXPECT_EQ(LinuxMessenger(tree.Root()).Broadcast(""), EMSGSIZE);
    EXPECT_EQ(LinuxMessenger(tree.Root()).Broadcast(std::string(kMessageMaxBytes + 1, 'm')), EMSGSIZE);
}

TEST(LinuxMessenger, WhatIsNoMessageIsDroppedAndTheSocketIsTheUsersAloneWhateverHisUmask)
{
    const FolderTree tree;
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<std::string> heard;
    LinuxMessenger messenger(tree.Root());
    const mode_t umaskBefore = umask(0);
    EXPECT_TRUE(messenger.Listen([&](std::string_view message) {
        const std::lock_guard lock(mutex);
        heard.emplace_back(message);
        arrived.notify_one();
    }));
    umask(umaskBefore);
    const std::string socket = tree.Root() + "/corvane/" + NamesIn(tree.Root() + "/corvane").at(0);
    struct stat status;
    ASSERT_EQ(stat(socket.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t(S_IFSOCK | 0600));

    EXPECT_EQ(SendRaw(socket, ""), 0);
    EXPECT_EQ(SendRaw(socket, std::string(kMessageMaxBytes + 1, 'm')), ssize_t(kMessageMaxBytes) + 1);
    const size_t openFiles = NamesIn("/proc/self/fd").size();
    EXPECT_EQ(SendRaw(socket, "with a file", true), 11);
    EXPECT_EQ(SendRaw(socket, "change"), 6);
    std::unique_lock lock(mutex);
    arrived.wait(lock, [&] { return !heard.empty(); });
    EXPECT_THAT(heard, ElementsAre("change"));
    EXPECT_EQ(NamesIn("/proc/self/fd").size(), openFiles);
}

TEST(LinuxMessenger, AnotherUserWhoGetsAtTheSocketIsNotHeard)
{
    const FolderTree tree;
    const bool maySwitch = geteuid() == 0;  // else there is no other user to be
    const uid_t user = maySwitch ? 65534 : geteuid();
    ASSERT_EQ(chown(tree.Root().c_str(), user, gid_t(-1)), 0);
    const ListeningProcess listener(tree.Root(), 'l', user);
    const std::string socket = tree.Root() + "/corvane/" + NamesIn(tree.Root() + "/corvane").at(0);
    EXPECT_EQ(maySwitch ? SendRaw(socket, "root") : 4, 4);
    const pid_t own = fork();
    if (own == 0) _exit(setresuid(user, user, user) == 0 && LinuxMessenger(tree.Root()).Broadcast("own") == 0 ? 0 : 1);
    int status = 1;
    waitpid(own, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(listener.Heard(), 'o');
}
