#include "cli/DoctorCommand.h"

#include "avcapture/TapService.h"
#include "cli/DeviceList.h"
#include "cli/Devices.h"
#include "cli/ExitCodes.h"
#include "cli/Output.h"
#include "platform/foundation/CFBundle.h"
#include "platform/kernel/Threads.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Messenger.h"
#include "platform/machine/Threads.h"
#include "plugin/settings/SharedPreferences.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>
#include <vector>

namespace cli {

using platform::machine::Machine;

namespace {

enum class Verdict { Fine, Note, Wrong };

struct Finding {
    Verdict mVerdict;
    std::string mText;
    int mCode = kExitDone;  // of something wrong
};

using Findings = std::vector<Finding>;

const char* NameOf(Verdict verdict)
{
    return verdict == Verdict::Fine ? "ok" : verdict == Verdict::Note ? "note" : "wrong";
}

/// What is wrong inside a list that can be read.
void CheckEntries(const DeviceList& list, Findings& findings)
{
    std::set<int32_t> uids;
    for (const ListedDevice& device : list.mDevices) {
        const CVNDevice& settings = device.mSettings;
        const std::string name = Printable(cf::ToStdString(settings.mName.Get()));
        const auto tell = [&](const std::string& text) {
            findings.push_back({Verdict::Wrong, fmt::format("device '{}': {}", name, text), kExitPreferences});
        };
        if (!uids.insert(settings.mUID).second)
            tell(fmt::format("its number {} is another device's too; remove one and add it again", settings.mUID));
        if (settings.mSampleRate != 0 && !CVNDevice::IsUsableRate(settings.mSampleRate))
            tell("its sample rate cannot be; corvane set -r 48000 gives it one");
        if (settings.mOutputChannelCount < 0 || settings.mCachedChannelCount < 0 || settings.mCachedChannelCount > 64)
            tell("its channels cannot be; corvane set -c 2 gives it some");
        if (device.mExtras)
            findings.push_back({Verdict::Note, fmt::format("device '{}': keys that are not known, or of another type, "
                                                           "are kept and not used: {}",
                                                           name, Printable(device.mExtras.Get()->Describe()))});
    }
}

/// What to do about a file that is refused.
std::string HowToMend(const std::string& path)
{
    struct stat status;
    const bool found = lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return found && (status.st_mode & 022) != 0 ? fmt::format("Mend it (chmod go-w '{}')", path) : "Mend it";
}

Finding DescribeList(const std::string& path, const DeviceList& list)
{
    const size_t count = list.mDevices.size();
    const auto off = std::ranges::count(list.mDevices, false, &ListedDevice::mEnabled);
    const std::string text = fmt::format("{}: {} device{}", path, count, count == 1 ? "" : "s");
    if (count != 0 && !list.mIsOn) return {Verdict::Note, text + ", all off; corvane enable --all turns them on"};
    if (off != 0) return {Verdict::Note, fmt::format("{}, {} of them off; corvane enable turns one on", text, off)};
    return {Verdict::Fine, text};
}

void CheckPreferences(Findings& findings)
{
    const std::string path = settings::PreferencePath(settings::kFileName);
    std::string problem;
    const auto root = settings::ReadPreferences(settings::kFileName, problem);
    struct stat status;
    if (path.empty()) {
        findings.push_back({Verdict::Fine, "there are no virtual devices yet; corvane add makes one"});
    } else if (!problem.empty()) {
        findings.push_back({Verdict::Wrong,
                            fmt::format("{} {}; every program reads it as empty. {}, or move it away: corvane add "
                                        "makes a new one",
                                        path, problem, HowToMend(path)),
                            kExitPreferences});
    } else if (lstat(path.c_str(), &status) != 0) {
        findings.push_back({Verdict::Fine, fmt::format("{} is not there yet; corvane add makes it", path)});
    } else {
        const DeviceList list(root.Get());
        findings.push_back(DescribeList(path, list));
        CheckEntries(list, findings);
    }
}

void CheckUser(Findings& findings)
{
    if (const auto why = WhyNoVirtualDevices()) findings.push_back({Verdict::Note, *why});
}

void CheckPlugIn(Findings& findings)
{
    if (CFBundleGetBundleWithIdentifier(CFSTR(CVNDevice::kPlugInIdentifier)))
        findings.push_back({Verdict::Fine, "the plug-in is installed"});
    else
        findings.push_back({Verdict::Wrong,
                            fmt::format("the plug-in's bundle is missing from {}; install Corvane again",
                                        Machine::Current().GetFiles().BundleFolder()),
                            kExitFailed});
}

void CheckTap(Findings& findings)
{
    if (avcapture::FindTapService())
        findings.push_back({Verdict::Fine, "the tap is installed"});
    else
        findings.push_back({Verdict::Wrong,
                            fmt::format("the tap's bundle (AudioSupport) is missing from {}, and without it no "
                                        "application can be recorded; install Corvane again",
                                        Machine::Current().GetFiles().BundleFolder()),
                            kExitFailed});
}

void CheckServer(Findings& findings)
{
    if (const auto why = WhyNoServer()) {
        findings.push_back({Verdict::Wrong, *why, kExitNoServer});
        return;
    }
    findings.push_back({Verdict::Fine, Machine::Current().GetAudioServer().Describe()});
    if (CopyDevices(Side::Output).empty())
        findings.push_back({Verdict::Wrong,
                            "there is no output device, and without one applications do not play; connect one, or see "
                            "what the server has: wpctl status",
                            kExitNoServer});
}

/// Asks for what a recording's threads ask for: before a thread has asked, the answer is not known.
void CheckScheduling(Findings& findings)
{
    using platform::machine::SchedulingWish;
    platform::machine::Threads& threads = Machine::Current().GetThreads();
    const bool granted = threads.Schedule(pthread_self(), {SchedulingWish::Kind::Fixed, 1}) == 0;
    threads.Schedule(pthread_self(), {});
    findings.push_back({granted ? Verdict::Fine : Verdict::Note, threads.DescribeScheduling()});
}

void CheckMachine(Findings& findings)
{
    CheckServer(findings);
    findings.push_back({Verdict::Note, Machine::Current().GetMessenger().Describe()});
    CheckScheduling(findings);
}

}  // namespace

int RunDoctor(bool json)
{
    Findings findings;
    CheckPreferences(findings);
    CheckUser(findings);
    CheckPlugIn(findings);
    CheckTap(findings);
    CheckMachine(findings);

    nlohmann::json list = nlohmann::json::array();
    int code = kExitDone;
    for (const Finding& finding : findings) {
        if (json)
            list.push_back({{"verdict", NameOf(finding.mVerdict)}, {"text", finding.mText}});
        else
            fmt::print("{:<6}  {}\n", NameOf(finding.mVerdict), finding.mText);
        if (code == kExitDone) code = finding.mCode;
    }
    if (json) Print({{"findings", list}});
    return code;
}

}  // namespace cli
