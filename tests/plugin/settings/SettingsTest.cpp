#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/PropertyList.h"
#include "platform/kernel/System.h"
#include "plugin/settings/CVNDevice.h"
#include "plugin/settings/RunningApplications.h"
#include "plugin/settings/SharedPreferences.h"
#include "support/FakeMachine.h"
#include "support/FolderTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

using cf::Ref;
using platform::machine::ChannelPosition;
using testing::ElementsAre;

template <class T = cf::Dictionary>
Ref<T> Parse(const std::string& xml)
{
    const std::string text = "<plist>" + xml + "</plist>";
    const auto tree = Ref<cf::Object>::Adopt(cf::CreatePropertyList(text.data(), text.size()));
    EXPECT_TRUE(cf::As<T>(tree.Get())) << text;
    return Ref<T>::Share(cf::As<T>(tree.Get()));
}

std::string String(const std::string& key, const std::string& value)
{
    return "<key>" + key + "</key><string>" + value + "</string>";
}

std::string Application(const std::string& identifier, const std::string& path = {})
{
    return "<dict>" + String("NSApplicationBundleIdentifier", identifier) +
           (path.empty() ? "" : String("NSApplicationPath", path)) + "</dict>";
}

std::vector<std::string> Texts(CFArrayRef adopted)
{
    const auto array = Ref<cf::Array>::Adopt(adopted);
    std::vector<std::string> texts;
    for (const auto& item : array.Get()->Get()) texts.push_back(item.Get()->Describe());
    return texts;
}

/// Two outputs, an input of six channels, a player that runs twice, a host and its helper.
class Settings : public testing::Test {
protected:
    Settings()
    {
        using P = ChannelPosition;
        auto& snapshot = mMachine.mServer.mSnapshot;
        snapshot.mConnected = true;
        snapshot.mOutputs = {{70, "speakers", "Speakers", 96000, {P::FrontLeft, P::FrontRight}},
                             {71, "desk", "Desk", 48000, {P::Mono}}};
        snapshot.mInputs = {{72, "mic", "Microphone", 44100, std::vector<P>(6)}};
        snapshot.mDefaultOutput = 71;
        snapshot.mDefaultInput = 72;
        mMachine.mFiles.mRoot = mFolder.Root();
        mMachine.mIdentity.mMainBundle = {"org.test.host", "/opt/host"};
        Run(mMachine.mProcesses.mSelf, "/opt/host", "org.test.host");
        Run(501, "/opt/player", "org.test.player");
        Run(502, "/opt/editor", "");
    }

    void Run(pid_t pid, const std::string& executable, const std::string& sandbox)
    {
        mMachine.mProcesses.mTable[pid] = {pid, 1, uint64_t(pid), executable.substr(5), executable, sandbox, ""};
    }
    void Write(const std::string& name, const std::string& keys)
    {
        chmod(mFolder.Write("preferences/" + name, "<plist><dict>" + keys + "</dict></plist>").c_str(), 0600);
    }

    support::FakeMachine& mMachine = support::FakeMachine::Installed();
    const support::FolderTree mFolder;
};

}  // namespace

TEST_F(Settings, OfADictionaryAreItsValuesAndForWhatIsMissingOrOfAWrongTypeTheDefaults)
{
    struct Row {
        const char* mKeys;
        const char* mText;  // name, enabled, rate, uid, mix, count, muted, cached
    };
    const Row rows[] = {
        {"", "untitled 1 0 -1 1 2 0 0"},
        {"<key>name</key><string/><key>uid</key><integer>3</integer>", " 1 0 3 1 2 0 0"},
        {"<key>outputChannelCount</key><integer>3</integer>", "untitled 1 0 -1 0 0 0 0"},
        {"<key>outputChannelCount</key><integer>2</integer><key>downMix</key><integer>0</integer>",
         "untitled 1 0 -1 1 2 0 0"},
        {"<key>outputChannelCount</key><integer>1</integer>", "untitled 1 0 -1 0 1 0 0"},
        {"<key>downMix</key><integer>0</integer>", "untitled 1 0 -1 0 0 0 0"},
        {"<key>downMix</key><integer>1</integer><key>outputChannelCount</key><string>0</string>",
         "untitled 1 0 -1 1 2 0 0"},
        {"<key>name</key><integer>5</integer><key>uid</key><string>5</string><key>enabled</key><true/>"
         "<key>sampleRate</key><string>44100</string>",
         "untitled 1 0 -1 1 2 0 0"},
        {"<key>enabled</key><integer>0</integer><key>softwareSourcesMuted</key><integer>1</integer>"
         "<key>cachedChannelCount</key><integer>6</integer><key>sampleRate</key><integer>48000</integer>",
         "untitled 0 48000 -1 1 2 1 6"},
        {"<key>uid</key><integer>5000000000</integer><key>sampleRate</key><real>44100.5</real>",
         "untitled 1 44100.5 2147483647 1 2 0 0"},
    };
    for (const Row& row : rows) {
        const CVNDevice device(Parse("<dict>" + std::string(row.mKeys) + "</dict>").Get());
        std::ostringstream text;
        text << device.mName.Get()->Text() << ' ' << int(device.mEnabled) << ' ' << device.mSampleRate << ' '
             << device.mUID << ' ' << int(device.mDownMix) << ' ' << device.mOutputChannelCount << ' '
             << int(device.mSoftwareSourcesMuted) << ' ' << device.mCachedChannelCount;
        EXPECT_EQ(text.str(), row.mText) << row.mKeys;
        const auto written = Ref<cf::Dictionary>::Adopt(device.CopyDictionaryRepresentation());
        EXPECT_EQ(CFDictionaryGetCount(written.Get()), 10);
        EXPECT_EQ(Texts(device.CopyTransformedCaptureDevices()), std::vector<std::string>{"desk"});
    }
    EXPECT_EQ(CVNDevice().mCachedChannelCount, 2);
}

TEST_F(Settings, GiveTheChannelsThatTheSourcesHaveWhereTheirNumberIsLeftOpen)
{
    const std::string all = Application("com.ostrel.corvane.all_system_audio"),
                      mic = "<dict>" + String("AudioDeviceUID", "mic"),
                      absent = "<dict>" + String("AudioDeviceUID", "absent") + "</dict>",
                      player = Application("org.test.player"), none = Application("org.test.none");
    struct Row {
        int mCount;
        std::string mSources;
        UInt32 mChannels;
    };
    const Row rows[] = {
        {2, player + none + all + absent + none, 2},
        {1, mic + "</dict>", 1},
        {0, "", 0},
        {0, all, 2},
        {0, all + player + mic + "</dict>", 8},
        {0, mic + String("NSApplicationBundleIdentifier", "org.test.player") + "</dict>", 6},
        {0, none + none + none, 2},
        {0, player + none + Application("org.other", "/opt/editor"), 4},
        {0, Application("org.test.host"), 2},
        {0, player + Application("org.test.host"), 2},
        {0, absent, 0},
        {0, "<dict/><string>no source</string>", 0},
    };
    for (const Row& row : rows) {
        CVNDevice device;
        device.SetOutputChannelCount(row.mCount);
        device.mCaptureSources = Parse<cf::Array>("<array>" + row.mSources + "</array>");
        UInt32 channels = 99;
        EXPECT_EQ(device.GetChannelCount(&channels), 0);
        EXPECT_EQ(channels, row.mChannels) << row.mSources;
    }
    mMachine.mServer.mSnapshot.mDefaultOutput = 0;
    CVNDevice device;
    device.SetOutputChannelCount(0);
    UInt32 channels = 99;
    EXPECT_EQ(device.GetChannelCount(&channels), 0) << "no default output is no failure";
}

TEST_F(Settings, NameProcessesAndOutputsAsTheyAreNow)
{
    const auto pids = [](const std::string& sources, bool includeSelf) {
        return Texts(CVNDevice::CopyPIDsFromIDs(Parse<cf::Array>("<array>" + sources + "</array>").Get(), includeSelf));
    };
    const std::string self = std::to_string(platform::kernel::getpid());
    const std::string both = Application("org.test.player") + Application("org.test.host", "/opt/editor");
    EXPECT_THAT(pids(both, true), ElementsAre("501", self));
    EXPECT_THAT(pids(both, false), ElementsAre("501"));
    EXPECT_THAT(pids(Application("org.none", "/opt/host"), true), ElementsAre(self)) << "by its path";
    EXPECT_THAT(pids(Application("org.test.host"), false), ElementsAre("-" + self));
    EXPECT_THAT(pids("", true), ElementsAre());

    const auto outputs = [](const std::string& names) {
        return Texts(CVNDevice::CopyTransformedAudioDevices(Parse<cf::Array>("<array>" + names + "</array>").Get()));
    };
    const std::string standard = "<string>com.ostrel.corvane.default_output</string>";
    EXPECT_THAT(outputs("<string>x</string><string>com.ostrel.corvane.all_devices</string><string>x</string>"),
                ElementsAre("x", "speakers", "desk"));
    EXPECT_THAT(outputs(standard + "<integer>1</integer><string>com.ostrel.corvane.default_input</string>" + standard),
                ElementsAre("desk", "mic"));
    mMachine.mServer.mSnapshot.mDefaultOutput = 0;
    EXPECT_THAT(outputs(standard + "<string>y</string>"), ElementsAre("y")) << "none is left out";
}

TEST_F(Settings, ComeFromTheFileAndAreNoneWhereItIsMissingOrDamaged)
{
    const auto expectNothing = [](const char* why) {
        EXPECT_EQ(CFDictionaryGetCount(Ref<cf::Dictionary>::Adopt(CopySharedPList()).Get()), 0) << why;
        EXPECT_FALSE(CorvaneIsEnabled() || CopyDeviceSettings() || CopyOutputApplications() || CopyOutputUIDForHost())
            << why;
    };
    expectNothing("no file");
    Write(settings::kFileName, "<broken");
    expectNothing("a damaged file");
    Write(settings::kFileName,
          "<key>Enabled</key><integer>-1</integer><key>DeviceSettings</key><dict><key>Devices</key>"
          "<array/><key>OutputApplications</key><dict/></dict>");
    EXPECT_TRUE(CorvaneIsEnabled());
    EXPECT_TRUE(Texts(CopyDeviceSettings()).empty());
    EXPECT_EQ(CopyOutputApplications(), nullptr);

    struct Row {
        const char* mWhat;
        std::string mRoutes, mUID;
    };
    const std::string toDesk = String("outputDeviceUID", "desk") + "</dict>",
                      toMic = String("outputDeviceUID", "mic") + "</dict>";
    const auto route = [](const std::string& identifier, const std::string& path) {
        return "<dict>" + String("NSApplicationBundleIdentifier", identifier) + String("NSApplicationPath", path);
    };
    const Row rows[] = {
        {"no route", "", "none"},
        {"its identifier", route("org.test.host", "") + toDesk, "desk"},
        {"its identifier in other letters", route("org.Test.host", "") + toDesk, "none"},
        {"its path", route("other", "/opt/host") + toDesk, "desk"},
        {"the first of two", route("", "/opt/host") + toMic + route("org.test.host", "") + toDesk, "mic"},
        {"one without an output first", route("org.test.host", "") + "</dict>" + route("org.test.host", "") + toDesk,
         "none"},
        {"what is no route", "<string>x</string><dict/>" + route("org.test.host", "") + toMic, "mic"},
    };
    for (const Row& row : rows) {
        Write(settings::kFileName,
              "<key>DeviceSettings</key><dict><key>OutputApplications</key><array>" + row.mRoutes + "</array></dict>");
        const auto uid = Ref<cf::String>::Adopt(CopyOutputUIDForHost());
        EXPECT_EQ(uid ? uid.Get()->Text() : "none", row.mUID) << row.mWhat;
    }
}

TEST_F(Settings, KnowTheSoundUtilityByAnyLettersAndByItsOwnFile)
{
    Write("com.ostrel.tollery.plist", "<key>lumenfeedEnabled</key><integer>1</integer>");
    EXPECT_FALSE(IsLumenfeedActive()) << "it does not run";
    Run(600, "/opt/tollery", "com.Ostrel.Tollery");
    EXPECT_TRUE(IsLumenfeedActive());
    Write("com.ostrel.tollery.plist", "<key>lumenfeedEnabled</key><integer>0</integer>");
    EXPECT_FALSE(IsLumenfeedActive());
}

TEST_F(Settings, FindTheLastOfEqualEntriesAndCompareListsByWhatIsInThem)
{
    const auto entries = Parse<cf::Array>(
        "<array><string>x</string><dict><key>uid</key><real>1</real></dict><dict><key>uid"
        "</key><integer>1</integer><key>last</key><true/></dict><dict/></array>");
    const auto one = Parse<cf::Number>("<integer>1</integer>"), two = Parse<cf::Number>("<integer>2</integer>");
    const CFDictionaryRef found = DictionaryThatContainsCFTypeForKey(entries.Get(), one.Get(), CFSTR("uid"));
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->Find("last"));
    EXPECT_FALSE(DictionaryThatContainsCFTypeForKey(entries.Get(), two.Get(), CFSTR("uid")));
    const auto array = [](const std::string& letters) {
        std::string items;
        for (const char letter : letters) items += std::string("<string>") + letter + "</string>";
        return Parse<cf::Array>("<array>" + items + "</array>");
    };
    const std::tuple<const char*, const char*, bool> rows[] = {
        {"", "", true}, {"ab", "ba", true}, {"aa", "ab", true}, {"ab", "aa", false}, {"a", "aa", false}};
    for (const auto& [a, b, same] : rows)
        EXPECT_EQ(CFArraysContainSameValues(array(a).Get(), array(b).Get()), same) << a << " " << b;
}
