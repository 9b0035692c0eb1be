// corvane-bench-devices: what an edit of the list costs a process that has 32 virtual devices: from the rename of the
// file to the device there again, and one pass over all devices that finds nothing changed.
//
// Prints a table. The device's process is this program again ("host"), so that list and devices are two processes'
// and the clock is one. It needs an ordinary user, who alone has virtual devices, and keeps to a folder of its own.
#include "cli/DeviceList.h"
#include "cli/PreferenceFile.h"
#include "platform/audio/AudioObject.h"
#include "platform/foundation/CFNotificationCenter.h"
#include "platform/foundation/CFRunLoop.h"
#include "plugin/settings/SharedPreferences.h"
#include "support/ChildProcess.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <thread>

namespace {

using cf::Ref;
using support::ChildProcess;

constexpr int kDevices = 32, kRenames = 50, kPasses = 50, kPassesThatFollow = 9;
constexpr long kProcesses = 300;

int64_t sRenamedNanos = 0;

int64_t NowNanos()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

Ref<cf::String> Text(const std::string& text)
{
    return Ref<cf::String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
}

}  // namespace

// Stands before the C library's (see the linker's words in demo/CMakeLists.txt), and says when the file is the new one.
extern "C" int __real_rename(const char* from, const char* to);
extern "C" int __wrap_rename(const char* from, const char* to)
{
    sRenamedNanos = NowNanos();
    return __real_rename(from, to);
}

namespace {

// ---- The process that has the devices

std::string NameOf(AudioDeviceID device)
{
    CFStringRef name = nullptr;
    UInt32 size = sizeof name;
    AudioDeviceGetProperty(device, 0, true, kAudioDevicePropertyDeviceNameCFString, &size, &name);
    return cf::ToStdString(Ref<cf::String>::Adopt(name).Get());
}

std::string NameOfLastDevice()
{
    AudioDeviceID devices[256];
    UInt32 size = sizeof devices;
    AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, devices);
    return size == 0 ? "" : NameOf(devices[size / sizeof *devices - 1]);
}

void OnPassDone(CFNotificationCenterRef, void*, CFNotificationName, const void*, CFDictionaryRef)
{
    std::printf("%lld pass\n", static_cast<long long>(NowNanos()));
    std::fflush(stdout);
}

/// Says when which device is there, and, being told on the same run loop behind the plug-in, when a pass was done.
OSStatus OnDevices(AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void*)
{
    const long long now = NowNanos();
    std::printf("%lld %s\n", now, NameOfLastDevice().c_str());
    std::fflush(stdout);
    static const bool observes = [] {
        const CFStringRef changed = CFSTR(settings::kChangedNotification);
        CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), &sRenamedNanos, &OnPassDone,
                                        changed, changed, CFNotificationSuspensionBehaviorDeliverImmediately);
        return CFRunLoopGetCurrent() != nullptr;
    }();
    static_cast<void>(observes);
    return 0;
}

int RunHost()
{
    const AudioObjectPropertyAddress devices{kAudioHardwarePropertyDevices, kAudioObjectPropertyScopeGlobal,
                                             kAudioObjectPropertyElementMaster};
    AudioObjectAddPropertyListener(kAudioObjectSystemObject, &devices, &OnDevices, nullptr);
    const std::string last = NameOfLastDevice();  // by which the plug-ins are loaded
    std::printf("%lld %s\n", static_cast<long long>(NowNanos()), last.c_str());
    std::fflush(stdout);
    for (;;) pause();
}

// ---- The process that edits the list

void Edit(const std::function<void(cli::DeviceList&)>& change)
{
    cli::PreferenceFile file;
    std::string problem;
    if (file.Open(problem) != 0) throw std::runtime_error(problem);
    cli::DeviceList list(file.Root());
    change(list);
    list.Store(file.Root());
    if (file.Save(problem) != 0) throw std::runtime_error(problem);
}

/// @param channels  0: as many as an application has that does not run, which is looked for each time
void WriteDevices(int channels)
{
    Edit([&](cli::DeviceList& list) {
        list.mIsOn = true;
        list.mDevices.clear();
        const CFMutableDictionaryRef source = CFDictionaryCreateMutable(kCFAllocatorDefault, 0);
        const auto owner = Ref<cf::Dictionary>::Adopt(source);
        CFDictionarySetValue(source, CFSTR(settings::kApplicationIdentifier), CFSTR("org.example.player"));
        const CFMutableArrayRef sources = CFArrayCreateMutable(kCFAllocatorDefault, 0);
        const auto sourcesOwner = Ref<cf::Array>::Adopt(sources);
        CFArrayAppendValue(sources, source);
        for (int i = 0; i < kDevices; ++i) {
            cli::ListedDevice& device = list.mDevices.emplace_back();
            device.mSettings.mUID = list.TakeUID();
            device.mSettings.mName = Text("Device " + std::to_string(i));
            device.mSettings.mSampleRate = 48000;
            device.mSettings.mCaptureSources = sourcesOwner;
            device.mSettings.SetOutputChannelCount(channels);
        }
    });
}

/// Of a host's line: when, and what.
std::pair<int64_t, std::string> ReadTold(ChildProcess& host)
{
    const std::string line = host.ReadLine();
    const size_t space = line.find(' ');
    return {std::stoll(line.substr(0, space)), line.substr(space + 1)};
}

int64_t WaitUntilTold(ChildProcess& host, const std::string& what)
{
    for (;;)
        if (const auto [when, told] = ReadTold(host); told == what) return when;
}

struct Host {
    Host() { WaitUntilTold(mProcess, "Corvane: Device " + std::to_string(kDevices - 1)); }
    ChildProcess mProcess{{"./corvane-bench-devices", "host"}};
};

int64_t RenameFirst(Host& host, const std::string& name)
{
    Edit([&](cli::DeviceList& list) { list.mDevices.front().mSettings.mName = Text(name); });
    return WaitUntilTold(host.mProcess, "Corvane: " + name);
}

double Millis(int64_t nanos)
{
    return double(nanos) / 1e6;
}

std::vector<double> MillisToDevice()
{
    WriteDevices(2);
    Host host;
    std::vector<double> millis;
    for (int i = 0; i < kRenames; ++i) {
        const int64_t there = RenameFirst(host, "Renamed " + std::to_string(i));
        millis.push_back(Millis(there - sRenamedNanos));
    }
    return millis;
}

/// From the word that the list changed, which it did not, to the end of the pass.
std::vector<double> MillisOfPass(int channels, int passes)
{
    WriteDevices(channels);
    Host host;
    RenameFirst(host, "Renamed");  // from here on it tells of passes
    std::vector<double> millis;
    for (int i = 0; i < passes; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // what follows a pass a moment later is done
        const int64_t begin = NowNanos();
        CFNotificationCenterPostNotificationWithOptions(
            CFNotificationCenterGetDistributedCenter(), CFSTR(settings::kChangedNotification),
            CFSTR(settings::kChangedNotification), nullptr, kCFNotificationDeliverImmediately);
        millis.push_back(Millis(WaitUntilTold(host.mProcess, "pass") - begin));
    }
    return millis;
}

void PrintRow(const std::string& what, std::vector<double> millis)
{
    std::ranges::sort(millis);
    std::printf("| %s | %.1f | %.1f |\n", what.c_str(), millis[millis.size() / 2], millis.back());
    std::fflush(stdout);
}

/// As many processes as are wanted of the machine, each an application of its own.
std::vector<ChildProcess> FillMachine()
{
    const auto isNumber = [](const auto& entry) { return std::isdigit(entry.path().filename().string()[0]); };
    const auto there = std::ranges::count_if(std::filesystem::directory_iterator("/proc"), isNumber);
    std::vector<ChildProcess> sleepers;
    for (long i = there; i < kProcesses; ++i) sleepers.emplace_back(std::vector<std::string>{"sleep", "infinity"});
    return sleepers;
}

}  // namespace

int main(int count, char** words)
{
    if (count == 2 && std::string(words[1]) == "host") return RunHost();
    char pattern[] = "/tmp/corvane-bench-XXXXXX";
    const std::string folder = mkdtemp(pattern);
    setenv("XDG_CONFIG_HOME", (folder + "/config").c_str(), 1);
    setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);

    std::printf(
        "## Virtual devices: %d of them, in another process\n\n| What | ms, median | ms, most |\n|---|---|---|\n",
        kDevices);
    PrintRow("from the rename of the file to the device that differs there again, 50 times", MillisToDevice());
    PrintRow("a pass that finds nothing changed, told by another process, 50 times", MillisOfPass(2, kPasses));
    const auto sleepers = FillMachine();
    PrintRow("the same where channels follow an application, among 300 processes, 9 times",
             MillisOfPass(0, kPassesThatFollow));
    std::filesystem::remove_all(folder);
    return 0;
}
