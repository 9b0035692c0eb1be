#include "cli/RouteCommand.h"

#include "cli/DeviceCommands.h"
#include "cli/DeviceWords.h"
#include "cli/ExitCodes.h"
#include "cli/Output.h"
#include "cli/PreferenceFile.h"
#include "cli/Table.h"
#include "plugin/settings/SharedPreferences.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace cli {

namespace {

using cf::As;
using cf::Ref;
using settings::ValueOf;

bool IsSameApplication(CFDictionaryRef route, CFDictionaryRef application)
{
    for (const char* key : {settings::kApplicationIdentifier, settings::kApplicationPath}) {
        const CFTypeRef a = route->Find(key), b = application->Find(key);
        if (a && b) return CFEqual(a, b);
    }
    return false;
}

/// The routes without those of an application, which there may be several of.
Ref<cf::Array> Without(CFArrayRef routes, CFDictionaryRef application, bool& found)
{
    const CFMutableArrayRef kept = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    for (CFIndex i = 0; routes && i < CFArrayGetCount(routes); ++i) {
        const CFTypeRef item = CFArrayGetValueAtIndex(routes, i);
        const auto* route = As<cf::Dictionary>(item);
        const bool same = route && IsSameApplication(route, application);
        found |= same;
        if (!same) CFArrayAppendValue(kept, item);
    }
    return Ref<cf::Array>::Adopt(kept);
}

Ref<cf::Dictionary> MakeRoute(CFDictionaryRef application, const std::string& uid)
{
    const CFMutableDictionaryRef route = CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, application);
    CFDictionarySetValue(route, CFSTR(settings::kOutputDeviceUID), CFSTR(uid.c_str()));
    return Ref<cf::Dictionary>::Adopt(route);
}

void StoreRoutes(CFMutableDictionaryRef root, const Ref<cf::Array>& routes)
{
    const auto* there = ValueOf<cf::Dictionary>(root, settings::kDeviceSettings);
    const CFMutableDictionaryRef list = there ? CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, there)
                                              : CFDictionaryCreateMutable(kCFAllocatorDefault, 0);
    const auto owner = Ref<cf::Dictionary>::Adopt(list);
    CFDictionarySetValue(list, CFSTR(settings::kOutputApplications), routes.Get());
    CFDictionarySetValue(root, CFSTR(settings::kDeviceSettings), list);
}

}  // namespace

int ListRoutes(bool json)
{
    Ref<cf::Dictionary> root;
    if (const int code = ReadPreferenceRoot(root)) return code;
    const auto* section = ValueOf<cf::Dictionary>(root.Get(), settings::kDeviceSettings);
    const auto* routes = ValueOf<cf::Array>(section, settings::kOutputApplications);
    Table table({"APPLICATION", "OUTPUT"});
    nlohmann::json list = nlohmann::json::array();
    for (CFIndex i = 0; routes && i < CFArrayGetCount(routes); ++i) {
        const auto* route = As<cf::Dictionary>(CFArrayGetValueAtIndex(routes, i));
        if (!route) continue;
        const std::string output =
            WrittenOutput(cf::ToStdString(ValueOf<cf::String>(route, settings::kOutputDeviceUID)));
        list.push_back({{"application", WrittenSource(route)}, {"output", output}});
        table.Add({WrittenSource(route), output});
    }
    if (json)
        Print({{"routes", list}});
    else if (list.empty())
        fmt::print("No application is routed; for example corvane route app:firefox default\n");
    else
        table.Print();
    return kExitDone;
}

int RouteApplication(const std::string& words, const std::string& output)
{
    Ref<cf::Dictionary> application;
    std::string problem, uid;
    if (const int code = FindApplication(words, application, problem)) return Complain(problem, code);
    if (!output.empty())
        if (const int code = FindOutput(output, uid, problem)) return Complain(problem, code);

    PreferenceFile file;
    if (const int code = file.Open(problem)) return Complain(problem, code);
    const auto* list = ValueOf<cf::Dictionary>(file.Root(), settings::kDeviceSettings);
    bool found = false;
    const auto routes = Without(ValueOf<cf::Array>(list, settings::kOutputApplications), application.Get(), found);
    if (output.empty() && !found)
        return Complain(fmt::format("'{}' has no output of its own; see corvane route", words), kExitNotFound);
    if (!output.empty())
        CFArrayAppendValue(const_cast<CFMutableArrayRef>(routes.Get()), MakeRoute(application.Get(), uid).Get());
    StoreRoutes(file.Root(), routes);
    const int code = file.Save(problem);
    return code == kExitDone ? kExitDone : Complain(problem, code);
}

}  // namespace cli
