#include "cli/DoctorCommand.h"

#include "cli/DeviceList.h"
#include "cli/Devices.h"
#include "cli/ExitCodes.h"
#include "cli/Output.h"
#include "platform/foundation/CFBundle.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Messenger.h"
#include "platform/machine/Threads.h"
#include "plugin/settings/SharedPreferences.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <nlohmann/json.hpp>

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
                            fmt::format("{} {}; every program reads it as empty. Mend it, or move it away: corvane add "
                                        "makes a new one",
                                        path, problem),
                            kExitPreferences});
    } else if (lstat(path.c_str(), &status) != 0) {
        findings.push_back({Verdict::Fine, fmt::format("{} is not there yet; corvane add makes it", path)});
    } else {
        const DeviceList list(root.Get());
        findings.push_back({Verdict::Fine, fmt::format("{}: {} devices, {}", path, list.mDevices.size(),
                                                       list.mIsOn ? "on" : "all off (corvane enable --all)")});
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

void CheckMachine(Findings& findings)
{
    Machine& machine = Machine::Current();
    if (const auto why = WhyNoServer())
        findings.push_back({Verdict::Wrong, *why, kExitNoServer});
    else
        findings.push_back({Verdict::Fine, machine.GetAudioServer().Describe()});
    findings.push_back({Verdict::Note, machine.GetMessenger().Describe()});
    findings.push_back({Verdict::Note, machine.GetThreads().DescribeScheduling()});
}

}  // namespace

int RunDoctor(bool json)
{
    Findings findings;
    CheckPreferences(findings);
    CheckUser(findings);
    CheckPlugIn(findings);
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
