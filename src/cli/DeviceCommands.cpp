#include "cli/DeviceCommands.h"

#include "cli/Devices.h"
#include "cli/ExitCodes.h"
#include "cli/NameMatching.h"
#include "cli/Output.h"
#include "cli/PreferenceFile.h"
#include "cli/Table.h"
#include "plugin/settings/SharedPreferences.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>
#include <utility>

namespace cli {

namespace {

using cf::As;
using cf::Ref;

constexpr size_t kMostDevices = 1000;  // far more than anybody's, and the file stays readable

std::vector<std::string> Written(const Ref<cf::Array>& list, const std::function<std::string(CFTypeRef)>& write)
{
    std::vector<std::string> texts;
    for (CFIndex i = 0; list && i < CFArrayGetCount(list.Get()); ++i)
        texts.push_back(write(CFArrayGetValueAtIndex(list.Get(), i)));
    return texts;
}

std::vector<std::string> WrittenSources(const CVNDevice& settings)
{
    return Written(settings.mCaptureSources, [](CFTypeRef source) {
        const auto* entry = As<cf::Dictionary>(source);
        return entry ? WrittenSource(entry) : std::string("?");
    });
}

std::vector<std::string> WrittenOutputs(const CVNDevice& settings)
{
    return Written(settings.mCaptureDevices,
                   [](CFTypeRef uid) { return WrittenOutput(cf::ToStdString(As<cf::String>(uid))); });
}

nlohmann::json ToJSON(const ListedDevice& device)
{
    const CVNDevice& settings = device.mSettings;
    return {{"name", NameOf(device)},
            {"uid", CVNDevice::PublishedUID(settings.mUID)},
            {"published_name", CVNDevice::PublishedName(settings.mName.Get(), settings.mUID)},
            {"enabled", device.mEnabled},
            {"muted", device.mMuted},
            {"sources", WrittenSources(settings)},
            {"outputs", WrittenOutputs(settings)},
            {"channels", settings.mOutputChannelCount},
            {"rate", settings.mSampleRate}};
}

std::string Joined(const std::vector<std::string>& texts)
{
    return Printable(fmt::format("{}", fmt::join(texts, ", ")));
}

std::string Channels(const CVNDevice& settings)
{
    return settings.mOutputChannelCount == 0 ? "every source's own" : std::to_string(settings.mOutputChannelCount);
}

std::string Rate(const CVNDevice& settings)
{
    return settings.mSampleRate == 0 ? "automatic" : fmt::format("{:.0f} Hz", settings.mSampleRate);
}

int TellNotFound(const DeviceList& list, const std::string& words, size_t found)
{
    if (found > 1)
        return Complain(
            fmt::format("'{}' matches {} devices. Name one by its number. See: corvane list devices.", words, found),
            kExitNotFound);
    const std::string names = ListClosest(words, list.Names());
    const std::string there = names.empty()
                                  ? "There are none yet; corvane add makes one."
                                  : fmt::format("There are: {}. See: corvane list devices.", Printable(names));
    return Complain(fmt::format("No virtual device matches '{}'. {}", words, there), kExitNotFound);
}

/// @param place  of the device in the list, where the result is kExitDone
int FindOne(const DeviceList& list, const std::string& words, size_t& place)
{
    const std::vector<size_t> found = list.Find(words);
    if (found.size() != 1) return TellNotFound(list, words, found.size());
    place = found.front();
    return kExitDone;
}

/// Changes the list while no other process writes it. What `change` refuses changes nothing.
///
/// @param done  for a person, once it is done; empty: nothing to say
int Change(const std::string& done, const std::function<int(DeviceList&)>& change)
{
    PreferenceFile file;
    std::string problem;
    if (const int code = file.Open(problem)) return Complain(problem, code);
    DeviceList list(file.Root());
    if (const int code = change(list)) return code;
    list.Store(file.Root());
    const int code = file.Save(problem);
    if (code != kExitDone) return Complain(problem, code);
    if (!done.empty()) fmt::print("{}.\n", done);
    return kExitDone;
}

/// The list as it is now; other processes may write it meanwhile.
int ReadList(std::unique_ptr<DeviceList>& list)
{
    Ref<cf::Dictionary> root;
    if (const int code = ReadPreferenceRoot(root)) return code;
    list = std::make_unique<DeviceList>(root.Get());
    return kExitDone;
}

/// @param renamed  the device that gets the name; null for a new one
int CheckNewName(const DeviceList& list, const std::string& name, const ListedDevice* renamed)
{
    if (const std::string wrong = CheckName(name); !wrong.empty()) return Complain(wrong, kExitUsage);
    const bool taken = std::ranges::any_of(list.mDevices, [&](const ListedDevice& other) {
        return &other != renamed && Folded(NameOf(other)) == Folded(name);
    });
    return taken ? Complain(fmt::format("there is a device '{}' already; give another name", name), kExitUsage)
                 : kExitDone;
}

void SetName(CVNDevice& settings, const std::string& name)
{
    settings.mName =
        Ref<cf::String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, name.c_str(), kCFStringEncodingUTF8));
}

void TellAdded(const CVNDevice& device, bool othersWereOn)
{
    fmt::print("Added virtual device {}, \"{}\".\n", device.mUID,
               Printable(CVNDevice::PublishedName(device.mName.Get(), device.mUID)));
    if (const auto why = WhyNoVirtualDevices()) {
        fmt::print("But {}.\n", *why);
        return;
    }
    fmt::print("Only programs that load Corvane's plug-in see it; PipeWire's own lists do not show it yet.\n");
    if (!othersWereOn)
        fmt::print("Programs that started while virtual devices were off see it after they are started again.\n");
}

/// A device as it is asked for, its rate the one of what it captures where none is named.
int MakeSettings(const DeviceOptions& options, CVNDevice& settings)
{
    DeviceOptions wanted = options;
    if (wanted.mSources.empty()) wanted.mSources = {"system"};
    std::string problem;
    if (const int code = ApplyWords(wanted, settings, problem)) return Complain(problem, code);
    if (settings.mSampleRate != 0) return kExitDone;
    const int code = ReadOutputRate(settings, settings.mSampleRate, problem);
    return code == kExitDone ? kExitDone : Complain(problem, code);
}

}  // namespace

int ReadPreferenceRoot(Ref<cf::Dictionary>& root)
{
    std::string problem;
    root = settings::ReadPreferences(settings::kFileName, problem);
    if (problem.empty()) return kExitDone;
    return Complain(fmt::format("{} {} (see corvane doctor)", settings::PreferencePath(settings::kFileName), problem),
                    kExitPreferences);
}

int ListVirtualDevices(bool json)
{
    std::unique_ptr<DeviceList> list;
    if (const int code = ReadList(list)) return code;
    if (json) {
        nlohmann::json devices = nlohmann::json::array();
        for (const ListedDevice& device : list->mDevices) devices.push_back(ToJSON(device));
        Print({{"on", list->mIsOn}, {"devices", devices}});
        return kExitDone;
    }
    if (list->mDevices.empty()) fmt::print("There are no virtual devices; corvane add makes one.\n");
    Table table({"NUMBER", "NAME", "STATE", "RATE", "CHANNELS", "SOURCES", "FROM", "UID"});
    for (const ListedDevice& device : list->mDevices) {
        const CVNDevice& settings = device.mSettings;
        table.Add({std::to_string(settings.mUID), NameOf(device), device.mEnabled ? "enabled" : "disabled",
                   Rate(settings), settings.mOutputChannelCount == 0 ? "own" : Channels(settings) + " ch",
                   Joined(WrittenSources(settings)), Joined(WrittenOutputs(settings)),
                   CVNDevice::PublishedUID(settings.mUID)});
    }
    if (!list->mDevices.empty()) table.Print();
    if (!list->mIsOn && !list->mDevices.empty()) fmt::print("All are off: corvane enable --all turns them on.\n");
    return kExitDone;
}

std::vector<std::string> VirtualDeviceNames()
{
    std::string problem;
    const auto root = settings::ReadPreferences(settings::kFileName, problem);
    return problem.empty() ? DeviceList(root.Get()).Names() : std::vector<std::string>();
}

int ShowDevice(const std::string& words, bool json)
{
    std::unique_ptr<DeviceList> list;
    if (const int code = ReadList(list)) return code;
    size_t place = 0;
    if (const int code = FindOne(*list, words, place)) return code;
    const ListedDevice& device = list->mDevices[place];
    UInt32 channels = 0;
    const bool known = device.mSettings.GetChannelCount(&channels) == 0;
    if (json) {
        nlohmann::json shown = ToJSON(device);
        shown["channels_now"] = known ? nlohmann::json(channels) : nlohmann::json();
        Print(shown);
        return kExitDone;
    }
    fmt::print("{}\n", Printable(NameOf(device)));
    const auto line = [](const char* what, const std::string& value) { fmt::print("  {:<12}{}\n", what, value); };
    line("shown as", Printable(CVNDevice::PublishedName(device.mSettings.mName.Get(), device.mSettings.mUID)));
    line("number", std::to_string(device.mSettings.mUID));
    line("UID", CVNDevice::PublishedUID(device.mSettings.mUID));
    line("enabled", !device.mEnabled ? "no" : list->mIsOn ? "yes" : "yes, but all are off");
    line("sources", Joined(WrittenSources(device.mSettings)));
    line("outputs", Joined(WrittenOutputs(device.mSettings)));
    line("channels", Channels(device.mSettings) + (known ? fmt::format(", {} now", channels) : ", unknown now"));
    line("rate", Rate(device.mSettings));
    if (device.mMuted) line("muted", "yes");
    return kExitDone;
}

int AddDevice(const std::string& name, const DeviceOptions& options, bool json)
{
    ListedDevice added;
    bool wereOn = false;
    if (const int code = MakeSettings(options, added.mSettings)) return code;
    const int code = Change("", [&](DeviceList& list) {
        if (const int wrong = CheckNewName(list, name, nullptr)) return wrong;
        if (list.mDevices.size() >= kMostDevices)
            return Complain(fmt::format("there are {} devices already; remove some", kMostDevices), int(kExitFailed));
        SetName(added.mSettings, name);
        added.mSettings.mUID = list.TakeUID();
        wereOn = std::exchange(list.mIsOn, true);
        list.mDevices.push_back(added);
        return int(kExitDone);
    });
    if (code != kExitDone) return code;
    if (json)
        Print(ToJSON(added));
    else
        TellAdded(added.mSettings, wereOn);
    return kExitDone;
}

int SetDevice(const std::string& words, const DeviceOptions& options)
{
    if (options.mSources.empty() && options.mFrom.empty() && !options.mChannels && !options.mRate)
        return Complain("nothing to set; for example corvane set Podcast -c 0", kExitUsage);
    return Change(fmt::format("Changed '{}'", Printable(words)), [&](DeviceList& list) {
        size_t place = 0;
        if (const int code = FindOne(list, words, place)) return code;
        std::string problem;
        const int code = ApplyWords(options, list.mDevices[place].mSettings, problem);
        return code == kExitDone ? code : Complain(problem, code);
    });
}

int RenameDevice(const std::string& words, const std::string& name)
{
    return Change(fmt::format("Renamed '{}' to '{}'", Printable(words), Printable(name)), [&](DeviceList& list) {
        size_t place = 0;
        if (const int code = FindOne(list, words, place)) return code;
        if (const int code = CheckNewName(list, name, &list.mDevices[place])) return code;
        SetName(list.mDevices[place].mSettings, name);
        return int(kExitDone);
    });
}

int RemoveDevices(const std::vector<std::string>& devices)
{
    return Change("Removed " + Joined(devices), [&](DeviceList& list) {
        for (const std::string& words : devices) {
            size_t place = 0;
            if (const int code = FindOne(list, words, place)) return code;
            list.mDevices.erase(list.mDevices.begin() + long(place));
        }
        return int(kExitDone);
    });
}

int EnableDevices(const std::vector<std::string>& devices, bool all, bool enabled)
{
    if (devices.empty() != all)
        return Complain("name devices, or give --all for the switch of all; for example corvane disable Podcast",
                        kExitUsage);
    return Change(fmt::format("{} {}", enabled ? "Enabled" : "Disabled", all ? "virtual devices" : Joined(devices)),
                  [&](DeviceList& list) {
                      if (all) list.mIsOn = enabled;
                      for (const std::string& words : devices) {
                          size_t place = 0;
                          if (const int code = FindOne(list, words, place)) return code;
                          list.mDevices[place].mEnabled = enabled;
                      }
                      return int(kExitDone);
                  });
}

}  // namespace cli
