#include "platform/audio/PlugIn.h"

#include "platform/foundation/CFBundle.h"

#include <string>

namespace platform::audio {

namespace {

using Factory = void* (*)(CFAllocatorRef allocator, CFUUIDRef type);

/// F8BB1C28-BAE8-11D6-9C31-00039315CD46, a plug-in of the audio system.
CFUUIDRef PlugInType()
{
    return CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0xF8, 0xBB, 0x1C, 0x28, 0xBA, 0xE8, 0x11, 0xD6, 0x9C,
                                          0x31, 0x00, 0x03, 0x93, 0x15, 0xCD, 0x46);
}

constexpr const char* kPlugInTypeText = "F8BB1C28-BAE8-11D6-9C31-00039315CD46";

/// The names of the functions that make plug-ins of the audio system, as a bundle's Info.plist lists them.
std::vector<cf::Ref<cf::String>> FactoryNames(CFBundleRef bundle)
{
    const auto* types = cf::As<cf::Dictionary>(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CFPlugInTypes")));
    const auto* factories =
        cf::As<cf::Dictionary>(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CFPlugInFactories")));
    const auto* listed = types ? cf::As<cf::Array>(types->Find(kPlugInTypeText)) : nullptr;
    std::vector<cf::Ref<cf::String>> names;
    if (!listed || !factories) return names;
    for (const auto& factory : listed->Get()) {
        const auto* identifier = cf::As<cf::String>(factory.Get());
        const auto* name = identifier ? cf::As<cf::String>(factories->Find(identifier->Text())) : nullptr;
        if (name) names.push_back(cf::Ref<cf::String>::Share(name));
    }
    return names;
}

}  // namespace

std::vector<std::shared_ptr<PlugIn>> MakePlugIns()
{
    std::vector<std::shared_ptr<PlugIn>> made;
    for (const auto& bundle : cf::InstalledBundles()) {
        for (const auto& name : FactoryNames(bundle.Get())) {
            const auto factory = reinterpret_cast<Factory>(CFBundleGetFunctionPointerForName(bundle.Get(), name.Get()));
            void* reference = factory ? factory(kCFAllocatorDefault, PlugInType()) : nullptr;
            if (reference) made.push_back(std::make_shared<PlugIn>(static_cast<AudioHardwarePlugInRef>(reference)));
        }
    }
    return made;
}

}  // namespace platform::audio
