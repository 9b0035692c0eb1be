#include "tap/Membership.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

using platform::machine::ServerSnapshot;
using testing::ElementsAre;

namespace {

/// Processes by number: parent and start time.
class Family final : public tap::Ancestry {
public:
    struct Process {
        pid_t mParent;
        uint64_t mStart;
    };
    std::map<pid_t, Process> mProcesses;

    bool Descends(pid_t pid, pid_t ancestor) override
    {
        for (; pid > 1; pid = mProcesses[pid].mParent) {
            if (pid == ancestor) return true;
            if (!mProcesses.count(pid)) return false;
        }
        return false;
    }
    std::optional<uint64_t> StartTime(pid_t pid) override
    {
        const auto found = mProcesses.find(pid);
        return found == mProcesses.end() ? std::nullopt : std::optional(found->second.mStart);
    }
};

struct MembershipTest : testing::Test {
    MembershipTest()
    {
        // A browser 100 with a helper 101, which has one of its own; a player 200; ourselves 300.
        mFamily.mProcesses = {{100, {1, 10}}, {101, {100, 11}}, {102, {101, 12}}, {200, {1, 20}}, {300, {1, 30}}};
        mConfiguration.mDevices = {{"speakers", {}}, {"headset", {}}};
        mSnapshot.mOutputs = {
            {.mID = 1, .mUID = "other"}, {.mID = 2, .mUID = "headset"}, {.mID = 3, .mUID = "speakers"}};
    }
    void Stream(uint32_t id, pid_t pid, std::vector<uint32_t> outputs)
    {
        mSnapshot.mStreams.push_back({.mID = id, .mPID = pid, .mOutputs = std::move(outputs)});
    }
    tap::Configuration mConfiguration;
    Family mFamily;
    ServerSnapshot mSnapshot;
};

}  // namespace

TEST_F(MembershipTest, ListsSayWhichProcessesAreHeard)
{
    Stream(1, 102, {3});
    Stream(2, 200, {3});
    Stream(3, 300, {3});
    Stream(4, 0, {3});  // the server does not know whose
    struct Row {
        std::vector<pid_t> mList;
        std::vector<uint32_t> mStreams;
    };
    const Row rows[] = {{{}, {1, 2, 3, 4}},   {{100}, {1}},       {{-300}, {1, 2, 4}},
                        {{100, 200}, {1, 2}}, {{-100, 200}, {2}}, {{999}, {}}};
    for (const Row& row : rows) {
        mConfiguration.mProcesses = row.mList;
        tap::Membership membership(mConfiguration, mFamily);
        EXPECT_EQ(membership.Assign(mSnapshot)[0], row.mStreams) << testing::PrintToString(row.mList);
    }
}

TEST_F(MembershipTest, AStreamIsFollowedAmongTheDevicesAskedForAndTakenOnce)
{
    tap::Membership membership(mConfiguration, mFamily);
    Stream(1, 200, {3});
    EXPECT_THAT(membership.Assign(mSnapshot), ElementsAre(ElementsAre(1), ElementsAre()));
    mSnapshot.mStreams[0].mOutputs = {2};
    EXPECT_THAT(membership.Assign(mSnapshot), ElementsAre(ElementsAre(), ElementsAre(1)));
    mSnapshot.mStreams[0].mOutputs = {2, 3};
    EXPECT_THAT(membership.Assign(mSnapshot), ElementsAre(ElementsAre(1), ElementsAre()));
    for (const std::vector<uint32_t>& elsewhere : {std::vector<uint32_t>{1}, {}, {77}}) {
        mSnapshot.mStreams[0].mOutputs = elsewhere;
        EXPECT_THAT(membership.Assign(mSnapshot), ElementsAre(ElementsAre(), ElementsAre()));
    }
    // The device went and came back under another number.
    mSnapshot.mOutputs = {{.mID = 9, .mUID = "speakers"}};
    mSnapshot.mStreams[0].mOutputs = {9};
    EXPECT_THAT(membership.Assign(mSnapshot), ElementsAre(ElementsAre(1), ElementsAre()));
}

TEST_F(MembershipTest, AHelperStaysItsApplicationsAfterItsParentsAreGoneButANumberUsedAgainDoesNot)
{
    mConfiguration.mProcesses = {100};
    tap::Membership membership(mConfiguration, mFamily);
    Stream(1, 102, {1});  // not yet on a device that was asked for
    membership.Assign(mSnapshot);

    mFamily.mProcesses.erase(101);
    mFamily.mProcesses[102].mParent = 1;
    mSnapshot.mStreams[0] = {.mID = 2, .mPID = 102, .mOutputs = {3}};
    EXPECT_THAT(membership.Assign(mSnapshot)[0], ElementsAre(2));
    mFamily.mProcesses.erase(102);  // ended; its last sounds still play
    EXPECT_THAT(membership.Assign(mSnapshot)[0], ElementsAre(2));
    mFamily.mProcesses[102] = {1, 99};
    EXPECT_THAT(membership.Assign(mSnapshot)[0], ElementsAre());
}

TEST_F(MembershipTest, AStreamOnItsWayBetweenDevicesIsNotLetGo)
{
    tap::Membership membership(mConfiguration, mFamily);
    Stream(1, 200, {3});
    EXPECT_THAT(membership.Assign(mSnapshot), ElementsAre(ElementsAre(1), ElementsAre()));
    mSnapshot.mStreams[0].mOutputs = {};
    EXPECT_THAT(membership.Assign(mSnapshot), ElementsAre(ElementsAre(1), ElementsAre()));
    mSnapshot.mStreams[0].mOutputs = {2};
    EXPECT_THAT(membership.Assign(mSnapshot), ElementsAre(ElementsAre(), ElementsAre(1)));
    mSnapshot.mStreams[0].mOutputs = {1};
    EXPECT_THAT(membership.Assign(mSnapshot), ElementsAre(ElementsAre(), ElementsAre())) << "it plays elsewhere";

    mSnapshot.mStreams[0].mOutputs = {2};
    membership.Assign(mSnapshot);
    mSnapshot.mStreams[0].mOutputs = {};
    std::erase_if(mSnapshot.mOutputs, [](const auto& output) { return output.mUID == "headset"; });
    EXPECT_THAT(membership.Assign(mSnapshot), ElementsAre(ElementsAre(), ElementsAre())) << "its device is unplugged";
}
