// The list goes through random edits, each made as the companion makes them; after each, what a host sees is compared
// with a model that knows only what people were promised.
#include "cli/DeviceList.h"
#include "cli/PreferenceFile.h"
#include "cli/RouteCommand.h"
#include "plugin/PlugInRig.h"
#include "plugin/settings/SharedPreferences.h"
#include "support/Forked.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <random>

namespace {

using namespace std::chrono_literals;
using namespace support;
using cf::Ref;

constexpr unsigned kInputChannels = 6;

/// What a person asked of a device.
struct Wish {
    int32_t mUID;
    std::string mName;
    double mRateHz = 48000;
    int32_t mChannels = 2;  // 0: as many as the sources have
    bool mSystem = true, mMicrophone = false;
    bool mEnabled = true;

    UInt32 Width() const { return mChannels != 0 ? UInt32(mChannels) : 2 * mSystem + kInputChannels * mMicrophone; }
    bool operator==(const Wish&) const = default;
};

struct State {
    std::vector<Wish> mWishes;
    bool mOn = true;
    std::string mRoute;  // empty: none
};

/// What a host should see: who stays keeps number and place, who is new or changed comes last, in the list's order.
class Model {
public:
    void Follow(const State& state)
    {
        const bool allGo = state.mRoute != mRoute || !state.mOn;
        mRoute = state.mRoute;
        std::erase_if(mPublished, [&](const Published& one) {
            return allGo || std::ranges::find(state.mWishes, one.mWish) == state.mWishes.end();
        });
        for (const Wish& wish : state.mWishes)
            if (state.mOn && wish.mEnabled && wish.Width() != 0 &&
                std::ranges::find(mPublished, wish, &Published::mWish) == mPublished.end())
                mPublished.push_back({wish, 0});
    }

    /// New devices take their numbers from what is seen, where these were nobody's before.
    void ExpectSeen(const std::vector<SeenDevice>& seen)
    {
        ASSERT_EQ(seen.size(), mPublished.size());
        for (size_t i = 0; i < seen.size(); ++i) {
            auto& [wish, number] = mPublished[i];
            if (number == 0 && seen[i].mNumber > mHighest) number = mHighest = seen[i].mNumber;
            const SeenDevice expected{number,
                                      "com.ostrel.audio.corvane.halplugin.device." + std::to_string(wish.mUID),
                                      "Corvane: " + wish.mName,
                                      wish.mRateHz == 0 ? 44100 : wish.mRateHz,
                                      wish.Width(),
                                      !mRoute.empty()};
            ASSERT_EQ(seen[i], expected) << i;
        }
    }

private:
    struct Published {
        Wish mWish;
        AudioDeviceID mNumber;  // 0: not seen yet
    };

    std::vector<Published> mPublished;
    std::string mRoute;
    AudioDeviceID mHighest = 0;
};

class Editor {
public:
    explicit Editor(unsigned seed) : mRandom(seed) {}

    unsigned Pick(unsigned count) { return unsigned(mRandom() % count); }

    /// Anything that a person does; often nothing. Numbers are never used twice.
    void Edit(State& state)
    {
        std::vector<Wish>& wishes = state.mWishes;
        const unsigned what = Pick(13);
        if (wishes.size() < 8 && (wishes.empty() || what < 2)) return Add(wishes);
        if (wishes.empty()) return;
        Wish& wish = wishes[Pick(unsigned(wishes.size()))];
        switch (what) {
            case 2:
                wish.mName = "Renamed " + std::to_string(Pick(1000));
                break;
            case 3:
                wish.mRateHz = std::array{0.0, 44100.0, 48000.0, 96000.0}[Pick(4)];
                break;
            case 4:
                wish.mChannels = int32_t(Pick(3));
                break;
            case 5:
                wish.mSystem = Pick(2);
                break;
            case 6:
                wish.mMicrophone = Pick(2);
                break;
            case 7:
            case 8:
                wish.mEnabled = !wish.mEnabled;
                break;
            case 9:
                wishes.erase(wishes.begin() + (&wish - wishes.data()));
                break;
            case 10:
                std::swap(wish, wishes[Pick(unsigned(wishes.size()))]);
                break;
            case 11:
                state.mOn = Pick(4) != 0;
                break;
            case 12:
                state.mRoute = std::array{"", "speakers", "desk"}[Pick(3)];
                break;
            default:
                break;
        }
    }

private:
    void Add(std::vector<Wish>& wishes)
    {
        wishes.push_back({mNext, "Device " + std::to_string(mNext)});
        ++mNext;
    }

    std::minstd_rand mRandom;
    int32_t mNext = 0;
};

Ref<cf::Object> Text(const std::string& text)
{
    return Ref<cf::Object>::Adopt(new cf::String(text));
}

Ref<cf::Array> Sources(const Wish& wish)
{
    cf::Array::Values sources;
    const auto add = [&](const char* key, const char* value) {
        sources.push_back(Ref<cf::Object>::Adopt(new cf::Dictionary({{key, Text(value)}})));
    };
    if (wish.mSystem) add(settings::kApplicationIdentifier, CVNDevice::kAllSystemAudio);
    if (wish.mMicrophone) add(CVNDevice::kSourceDeviceUID, "mic");
    return Ref<cf::Array>::Adopt(new cf::Array(std::move(sources)));
}

/// Brings the file from what it is to the state, as the companion does.
void Save(const State& state)
{
    cli::PreferenceFile file;
    std::string problem;
    ASSERT_EQ(file.Open(problem), 0) << problem;
    cli::DeviceList list(file.Root());
    std::vector<cli::ListedDevice> devices;
    for (const Wish& wish : state.mWishes) {
        const auto found =
            std::ranges::find_if(list.mDevices, [&](const auto& d) { return d.mSettings.mUID == wish.mUID; });
        cli::ListedDevice device = found == list.mDevices.end() ? cli::ListedDevice{} : *found;
        if (found == list.mDevices.end()) device.mSettings.mUID = list.TakeUID();
        ASSERT_EQ(device.mSettings.mUID, wish.mUID) << "a number that was another's, or was left out";
        device.mSettings.mName = Ref<cf::String>::Adopt(new cf::String(wish.mName));
        device.mSettings.mSampleRate = wish.mRateHz;
        device.mSettings.SetOutputChannelCount(wish.mChannels);
        device.mSettings.mCaptureSources = Sources(wish);
        device.mEnabled = wish.mEnabled;
        devices.push_back(std::move(device));
    }
    list.mDevices = std::move(devices);
    list.mIsOn = state.mOn;
    list.Store(file.Root());
    ASSERT_EQ(file.Save(problem), 0) << problem;
}

OSStatus Count(AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void* count)
{
    ++*static_cast<std::atomic<unsigned>*>(count);
    return 0;
}

}  // namespace

TEST(PlugInDevices, AreWhatAModelSaysAfterEachOfManyRandomEdits)
{
    const char* const more = std::getenv("CORVANE_RANDOM_EDITS");
    const int edits = more ? std::atoi(more) : 300;
    ExpectForked([edits] {
        PlugInRig rig;
        rig.mScenario.output("speakers");
        rig.mScenario.output("desk");
        rig.mScenario.input("mic").channels(kInputChannels);
        Editor editor(7);
        State state;
        Model model;
        Save(state);
        constexpr AudioObjectPropertyAddress devices{kAudioHardwarePropertyDevices, kAudioObjectPropertyScopeGlobal,
                                                     kAudioObjectPropertyElementMaster};
        std::atomic<unsigned> told{0};  // counted by the system's thread
        ASSERT_EQ(AudioObjectAddPropertyListener(kAudioObjectSystemObject, &devices, &Count, &told), 0);
        rig.mScenario.runFor(1ms);
        for (int edit = 0; edit < edits; ++edit) {
            SCOPED_TRACE(edit);
            const auto before = rig.Devices();
            const std::string route = state.mRoute;
            editor.Edit(state);
            ASSERT_NO_FATAL_FAILURE(Save(state));
            ASSERT_TRUE(state.mRoute == route || cli::RouteApplication("path:/opt/host", state.mRoute) == 0);
            told = 0;
            rig.Tell();
            model.Follow(state);
            ASSERT_NO_FATAL_FAILURE(model.ExpectSeen(rig.Devices()));
            ASSERT_EQ(told != 0, rig.Devices() != before);
        }
        AudioObjectRemovePropertyListener(kAudioObjectSystemObject, &devices, &Count, &told);
    });
}
