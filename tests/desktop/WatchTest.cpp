// Virtual devices between processes: commands edit the list, another process has the devices.
#include "support/ChildProcess.h"
#include "support/CommandRun.h"
#include "support/FolderTree.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <signal.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <set>

namespace {

using support::ChildProcess;
using support::CommandRun;

/// A user with nothing of his own: no preferences, no audio server.
class VirtualDevices : public ::testing::Test {
protected:
    VirtualDevices()
    {
        setenv("XDG_CONFIG_HOME", mFolders.Path("config/").c_str(), 1);
        setenv("XDG_RUNTIME_DIR", mFolders.Path("run/").c_str(), 1);
    }

    /// What it prints.
    static std::string Corvane(const std::vector<std::string>& words)
    {
        CommandRun run(words);
        EXPECT_EQ(run.Wait(), 0) << ::testing::PrintToString(words) << run.Errors();
        return run.Output();
    }

    static std::set<std::string> ListedNames()
    {
        std::set<std::string> names;
        const auto list = nlohmann::json::parse(Corvane({"list", "devices", "--json"}));
        for (const auto& device : list["devices"]) names.insert(device["published_name"]);
        return names;
    }

    support::FolderTree mFolders;
};

/// The list as it should be, and edits of it at random.
struct Model {
    struct Device {
        std::string mName;
        unsigned mChannels, mRateHz;
        bool mEnabled = true;
    };

    std::vector<Device> mDevices;
    bool mOn = true;
    int mMade = 0;
    std::mt19937 mRandom{4};

    unsigned Below(size_t count) { return unsigned(mRandom() % count); }
    std::string NewName() { return "Device " + std::to_string(++mMade); }

    /// What another process has: "Device 3 1 ch 44100 Hz".
    std::multiset<std::string> Published() const
    {
        std::multiset<std::string> published;
        for (const Device& device : mDevices)
            if (mOn && device.mEnabled)
                published.insert(device.mName + " " + std::to_string(device.mChannels) + " ch " +
                                 std::to_string(device.mRateHz) + " Hz");
        return published;
    }

    /// Makes one edit here. @return the command that makes it
    std::vector<std::string> Edit()
    {
        const std::string channels = std::to_string(1 + Below(2)), rate = Below(2) ? "44100" : "48000";
        const auto apply = [&](Device& device) {
            device.mChannels = unsigned(std::stoul(channels));
            device.mRateHz = unsigned(std::stoul(rate));
        };
        const unsigned kind = mDevices.empty() ? 0 : Below(10);
        if (kind < 3) {
            mDevices.push_back({NewName(), 0, 0});
            apply(mDevices.back());
            mOn = true;
            return {"add", mDevices.back().mName, "-c", channels, "-r", rate};
        }
        if (kind == 3) return {(mOn = !mOn) ? "enable" : "disable", "--all"};
        const size_t place = Below(mDevices.size());
        Device& device = mDevices[place];
        const std::string name = device.mName;
        switch (kind) {
            case 4:
            case 5:
                return {"rename", name, device.mName = NewName()};
            case 6:
                apply(device);
                return {"set", name, "-c", channels, "-r", rate};
            case 7:
                mDevices.erase(mDevices.begin() + long(place));
                return {"remove", name};
            default:
                return {(device.mEnabled = kind == 8) ? "enable" : "disable", name};
        }
    }
};

/// Another process that has the devices of the list as it was when it began, and hears of what changes.
struct Watcher {
    nlohmann::json Next() { return nlohmann::json::parse(mProcess.ReadLine()); }
    /// "gone Chat", "appeared Chat 1 ch 48000 Hz".
    std::string NextInShort()
    {
        const nlohmann::json event = Next();
        const std::string name = event["name"];
        std::string text = std::string(event["event"]) + name.substr(name.find(' '));
        if (event["event"] == "gone") return text;
        for (const auto& stream : event["streams"])
            text += " " + stream["channels"].dump() + " ch " + std::to_string(int(stream["rate"])) + " Hz";
        return text;
    }
    ChildProcess mProcess{{"./../corvane", "watch", "--json"}};
};

TEST_F(VirtualDevices, EachEditReachesAnotherProcessAsItsEventsInOrderAndNoneWhereNothingChanged)
{
    const struct {
        std::vector<std::string> mEdit, mEvents;
    } kSteps[] = {
        {{"add", "Talk", "-r", "48000"}, {"appeared Talk 2 ch 48000 Hz"}},
        {{"rename", "Talk", "Chat"}, {"gone Talk", "appeared Chat 2 ch 48000 Hz"}},
        {{"set", "Chat", "-c", "1", "-r", "44100"}, {"gone Chat", "appeared Chat 1 ch 44100 Hz"}},
        {{"set", "Chat", "-c", "1"}, {}},
        {{"disable", "Chat"}, {"gone Chat"}},
        {{"rename", "Chat", "Voices"}, {}},
        {{"enable", "Voices"}, {"appeared Voices 1 ch 44100 Hz"}},
        {{"enable", "Voices"}, {}},
        {{"disable", "--all"}, {"gone First", "gone Voices"}},
        {{"enable", "--all"}, {"appeared First 2 ch 48000 Hz", "appeared Voices 1 ch 44100 Hz"}},
        {{"remove", "Voices"}, {"gone Voices"}},
    };
    Corvane({"add", "First", "-r", "48000"});
    Watcher watcher;
    EXPECT_EQ(watcher.NextInShort(), "appeared First 2 ch 48000 Hz");
    for (const auto& [edit, events] : kSteps) {
        SCOPED_TRACE(::testing::PrintToString(edit));
        Corvane(edit);
        for (const std::string& event : events) EXPECT_EQ(watcher.NextInShort(), event);
    }
    watcher.mProcess.End(SIGTERM);
    EXPECT_THROW(watcher.Next(), std::runtime_error);  // it said no more than that
}

TEST_F(VirtualDevices, AfterEachOfManyEditsAnotherProcessHasTheDevicesOfTheListAndOnlyThoseThatDifferWereReplaced)
{
    Model model;
    Corvane(model.Edit());
    Watcher watcher;
    std::multiset<std::string> has;
    const auto hear = [&] {
        const std::string event = watcher.NextInShort(), device = event.substr(event.find(' ') + 1);
        if (event.starts_with("appeared"))
            has.insert(device);
        else  // it is told by its name alone
            has.erase(has.lower_bound(device + " "));
    };
    hear();
    for (int edit = 0; edit < 200 && !HasFailure(); ++edit) {
        const auto before = model.Published();
        const std::vector<std::string> words = model.Edit();
        SCOPED_TRACE(std::to_string(edit) + ": " + ::testing::PrintToString(words));
        const auto wanted = model.Published();
        std::vector<std::string> differing;
        std::ranges::set_symmetric_difference(before, wanted, std::back_inserter(differing));
        Corvane(words);
        for (size_t event = 0; event < differing.size(); ++event) hear();
        EXPECT_EQ(has, wanted);
    }
    watcher.mProcess.End(SIGTERM);
    EXPECT_THROW(watcher.Next(), std::runtime_error);
}

TEST_F(VirtualDevices, OfTwoWritersAtTheSameTimeNoneLosesAnEditAndAnotherProcessEndsWithTheSameDevices)
{
    const std::string corvane = support::CompanionFolder() + "/../corvane";
    const auto start = [&](const std::string& count, const std::string& edits) {
        return ChildProcess({"sh", "-c", "for n in $(seq " + count + "); do " + edits + "; echo $n; done", corvane});
    };
    Corvane({"add", "First", "-r", "48000"});
    Watcher watcher;
    std::set<std::string> seen = {watcher.Next()["name"]};
    ChildProcess adding = start("50", R"("$0" add "Made $n" -r 48000 >&2 || exit)");
    ChildProcess renaming = start("25", R"("$0" add "A$n" -r 48000 >&2 && "$0" rename "A$n" "Named $n" >&2 || exit)");
    for (int n = 1; n <= 25; ++n) EXPECT_EQ(renaming.ReadLine(), std::to_string(n));
    for (int n = 1; n <= 50; ++n) EXPECT_EQ(adding.ReadLine(), std::to_string(n));

    std::set<std::string> wanted = {"Corvane: First"};
    for (int n = 1; n <= 50; ++n) wanted.insert("Corvane: Made " + std::to_string(n));
    for (int n = 1; n <= 25; ++n) wanted.insert("Corvane: Named " + std::to_string(n));
    EXPECT_EQ(ListedNames(), wanted);
    while (seen != wanted) {  // or until nothing more is told
        const nlohmann::json event = watcher.Next();
        if (event["event"] == "gone")
            seen.erase(event["name"]);
        else
            seen.insert(event["name"]);
    }
}

}  // namespace
