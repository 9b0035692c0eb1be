#include "cli/DeviceWords.h"

#include "cli/Devices.h"
#include "cli/ExitCodes.h"
#include "cli/ReadNumber.h"
#include "cli/RecordWords.h"
#include "cli/Sources.h"
#include "platform/process/Applications.h"
#include "plugin/settings/SharedPreferences.h"
#include "record/Lists.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace cli {

namespace {

using cf::As;
using cf::Ref;
using platform::process::Application;
using platform::process::IdentifierSource;

constexpr int32_t kWidestMix = 2;
constexpr size_t kLongestNameBytes = 200;

std::string TextOf(CFDictionaryRef dictionary, const char* key)
{
    return cf::ToStdString(As<cf::String>(dictionary->Find(key)));
}

Ref<cf::Dictionary> MakeSource(std::initializer_list<std::pair<const char*, std::string>> entries)
{
    const CFMutableDictionaryRef source = CFDictionaryCreateMutable(kCFAllocatorDefault, 0);
    for (const auto& [key, text] : entries) {
        const auto value =
            Ref<cf::String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
        if (value && !text.empty()) CFDictionarySetValue(source, CFSTR(key), value.Get());
    }
    return Ref<cf::Dictionary>::Adopt(source);
}

Ref<cf::Dictionary> MakeApplication(const std::string& identifier, const std::string& path)
{
    return MakeSource({{settings::kApplicationIdentifier, identifier}, {settings::kApplicationPath, path}});
}

// As a process that has the device finds it: by the process table, which may know it by another identifier than the
// audio server does.
Ref<cf::Dictionary> MakeApplication(const Application& found, const std::vector<Application>& running)
{
    const auto same = std::ranges::find_if(running, [&](const Application& one) {
        return one.mPID == found.mPID || std::ranges::find(one.mHelpers, found.mPID) != one.mHelpers.end();
    });
    const Application& known = same == running.end() ? found : *same;
    return MakeApplication(known.mIdentifier, known.mExecutable);
}

// A name is compared with the applications that have a stream, then with those that the desktop knows, then with all.
int FindRunning(const Source& source, Ref<cf::Dictionary>& application, std::string& problem)
{
    const auto playing = ServerAnswersAtOnce() ? platform::process::CopyApplications() : std::vector<Application>();
    const auto running = platform::process::CopyRunningApplications();
    std::vector<Application> known = running;
    std::erase_if(known, [](const Application& one) { return one.mIdentifierSource == IdentifierSource::Executable; });
    for (const auto* list : {&playing, &std::as_const(known), &running}) {
        const auto found = FindApplications(source.mValue, *list);
        if (found.empty()) continue;
        application = MakeApplication(*found.front(), running);
        const bool differ = std::ranges::any_of(found, [&](const Application* one) {
            return !CFEqual(MakeApplication(*one, running).Get(), application.Get());
        });
        if (!differ) return kExitDone;
        problem = TellApart(source, found);
        return kExitNotFound;
    }
    problem = TellNoMatch(source, playing) + " For an application that does not run: id:IDENTIFIER or path:EXECUTABLE.";
    return kExitNotFound;
}

int FindInput(const std::string& words, std::string& uid, std::string& problem)
{
    if (const auto why = WhyNoServer()) {
        problem = *why;
        return kExitNoServer;
    }
    const std::vector<Device> inputs = CopyDevices(Side::Input);
    const DeviceMatch match = MatchDevice(inputs, Side::Input, words);
    problem = match.mError;
    if (!match.mDevice) return kExitNotFound;
    uid = match.mDevice->mUID;
    return kExitDone;
}

int MakeSource(const std::string& words, Ref<cf::Dictionary>& made, std::string& problem)
{
    Source source;
    problem = ParseSource(words, source);
    if (!problem.empty()) return kExitUsage;
    switch (source.mKind) {
        case Source::Kind::System:
            made = MakeApplication(CVNDevice::kAllSystemAudio, {});
            return kExitDone;
        case Source::Kind::Process:
            problem = fmt::format("'{}' names a process, which a device outlives; for example app:firefox", words);
            return kExitUsage;
        case Source::Kind::AllBut:
        case Source::Kind::Output:
            problem = fmt::format("'{}' is a source for corvane record only; for example app:firefox", words);
            return kExitUsage;
        case Source::Kind::Input: {
            std::string uid;
            const int code = FindInput(source.mValue, uid, problem);
            if (code == kExitDone) made = MakeSource({{CVNDevice::kSourceDeviceUID, uid}});
            return code;
        }
        default:
            return FindApplication(words, made, problem);
    }
}

int ReadSources(const std::vector<std::string>& words, CVNDevice& settings, std::string& problem)
{
    const auto sources = Ref<cf::Array>::Adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0));
    for (const std::string& one : words) {
        Ref<cf::Dictionary> source;
        if (const int code = MakeSource(one, source, problem)) return code;
        if (!CFArrayContainsValue(sources.Get(), source.Get()))
            CFArrayAppendValue(const_cast<CFMutableArrayRef>(sources.Get()), source.Get());
    }
    settings.mCaptureSources = sources;
    return kExitDone;
}

int ReadOutputs(const std::vector<std::string>& words, CVNDevice& settings, std::string& problem)
{
    std::vector<std::string> uids;
    for (const std::string& one : words) {
        std::string uid;
        const int code = one == "all" ? (uid = CVNDevice::kAllDevices, kExitDone) : FindOutput(one, uid, problem);
        if (code != kExitDone) return code;
        if (std::ranges::find(uids, uid) == uids.end()) uids.push_back(uid);
    }
    settings.mCaptureDevices = record::ArrayOf(uids);
    return kExitDone;
}

}  // namespace

int ApplyWords(const DeviceOptions& options, CVNDevice& settings, std::string& problem)
{
    int32_t channels = settings.mOutputChannelCount;
    if (options.mChannels && (!ReadNumber(*options.mChannels, channels) || channels < 0 || channels > kWidestMix)) {
        problem = fmt::format("'{}' is not 1 or 2 channels, or 0 for every source's own; for example -c 2",
                              *options.mChannels);
        return kExitUsage;
    }
    unsigned rateHz = 0;
    if (options.mRate)
        if (problem = ReadRate(*options.mRate, rateHz); !problem.empty()) return kExitUsage;
    if (!options.mSources.empty())
        if (const int code = ReadSources(options.mSources, settings, problem)) return code;
    if (!options.mFrom.empty())
        if (const int code = ReadOutputs(options.mFrom, settings, problem)) return code;
    settings.SetOutputChannelCount(channels);
    if (rateHz != 0) settings.mSampleRate = rateHz;
    return kExitDone;
}

int ReadOutputRate(const CVNDevice& settings, double& rateHz, std::string& problem)
{
    const std::vector<Device> outputs = WhyNoServer() ? std::vector<Device>() : CopyDevices(Side::Output);
    const auto uids = Ref<cf::Array>::Adopt(outputs.empty() ? nullptr : settings.CopyTransformedCaptureDevices());
    const std::string uid = uids && CFArrayGetCount(uids.Get()) != 0
                                ? cf::ToStdString(As<cf::String>(CFArrayGetValueAtIndex(uids.Get(), 0)))
                                : "";
    const Device* output = FindDevice(outputs, uid);
    if (output) {
        rateHz = output->mRateHz;
        return kExitDone;
    }
    problem = "the rate of the output cannot be asked for: " + WhyNoServer().value_or("there is no such output now") +
              "; give one, for example -r 48000";
    return kExitNoServer;
}

int FindApplication(const std::string& words, Ref<cf::Dictionary>& application, std::string& problem)
{
    Source source;
    problem = ParseSource(words, source);
    if (!problem.empty()) return kExitUsage;
    switch (source.mKind) {
        case Source::Kind::Application:
            return FindRunning(source, application, problem);
        case Source::Kind::Identifier:
            application = MakeApplication(source.mValue, {});
            return kExitDone;
        case Source::Kind::Path:
            application = MakeApplication({}, source.mValue);
            return kExitDone;
        default:
            problem = fmt::format("'{}' is no application; for example app:firefox", words);
            return kExitUsage;
    }
}

int FindOutput(const std::string& words, std::string& uid, std::string& problem)
{
    if (words == "default") {
        uid = CVNDevice::kDefaultOutput;
        return kExitDone;
    }
    if (const auto why = WhyNoServer()) {
        problem = *why;
        return kExitNoServer;
    }
    const std::vector<Device> outputs = CopyDevices(Side::Output);
    const DeviceMatch match = MatchDevice(outputs, Side::Output, words);
    problem = match.mError;
    if (!match.mDevice) return kExitNotFound;
    uid = match.mDevice->mUID;
    return kExitDone;
}

std::string CheckName(const std::string& name)
{
    const auto text =
        Ref<cf::String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, name.c_str(), kCFStringEncodingUTF8));
    if (!text) return "the name is not UTF-8; for example 'Podcast'";
    const bool hasControls = std::ranges::any_of(name, [](unsigned char c) { return c < 0x20 || c == 0x7F; });
    const bool isBlank = name.find_first_not_of(' ') == name.npos;
    if (isBlank || hasControls) return fmt::format("'{}' is no name; for example 'Podcast'", name);
    if (name.size() > kLongestNameBytes)
        return fmt::format("the name has {} bytes and may have {}; give a shorter one", name.size(), kLongestNameBytes);
    return {};
}

std::string WrittenSource(CFDictionaryRef source)
{
    const std::string uid = TextOf(source, CVNDevice::kSourceDeviceUID);
    const std::string identifier = TextOf(source, settings::kApplicationIdentifier);
    const std::string path = TextOf(source, settings::kApplicationPath);
    if (!uid.empty()) return "input:" + uid;
    if (identifier == CVNDevice::kAllSystemAudio) return "system";
    return identifier.empty() ? "path:" + path : "id:" + identifier;
}

std::string WrittenOutput(const std::string& uid)
{
    if (uid == CVNDevice::kDefaultOutput) return "default";
    return uid == CVNDevice::kAllDevices ? "all" : uid;
}

}  // namespace cli
