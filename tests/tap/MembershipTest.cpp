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

    std::vector<pid_t> Lineage(pid_t pid) override
    {
        std::vector<pid_t> line;
        for (; mProcesses.count(pid); pid = mProcesses[pid].mParent) line.push_back(pid);
        return line;
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

TEST_F(MembershipTest, AStreamIsFollowedAmongTheDevicesAskedForTakenOnceAndNotLetGoOnItsWay)
{
    tap::Membership membership(mConfiguration, mFamily);
    Stream(1, 200, {});
    const auto place = [&](std::vector<uint32_t> outputs) {
        mSnapshot.mStreams[0].mOutputs = std::move(outputs);
        const auto streams = membership.Assign(mSnapshot);
        EXPECT_LE(streams[0].size() + streams[1].size(), 1u);
        return !streams[0].empty() ? "speakers" : !streams[1].empty() ? "headset" : "elsewhere";
    };
    const std::pair<std::vector<uint32_t>, std::string> steps[] = {
        {{3}, "speakers"}, {{2}, "headset"},    {{2, 3}, "speakers"}, {{}, "speakers"},
        {{2}, "headset"},  {{}, "headset"},     {{1}, "elsewhere"},   {{}, "elsewhere"},
        {{2}, "headset"},  {{77}, "elsewhere"}, {{2}, "headset"}};
    for (const auto& [outputs, expected] : steps) EXPECT_EQ(place(outputs), expected);
    // Its device is unplugged, and then comes back under another number.
    std::erase_if(mSnapshot.mOutputs, [](const auto& output) { return output.mUID == "headset"; });
    EXPECT_EQ(place({}), std::string("elsewhere"));
    mSnapshot.mOutputs.push_back({.mID = 9, .mUID = "headset"});
    EXPECT_EQ(place({9}), std::string("headset"));
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
