#include "platform/foundation/CFBundle.h"
#include "platform/kernel/MutexGuard.h"
#include "platform/machine/Identity.h"
#include "platform/machine/Machine.h"

namespace {

cf::Ref<cf::Bundle> MakeMainBundle(const platform::machine::MainBundle& main)
{
    cf::Dictionary::Entries info;
    const CFStringRef identifier =
        CFStringCreateWithCString(kCFAllocatorDefault, main.mIdentifier.c_str(), kCFStringEncodingUTF8);
    auto owned = cf::Ref<cf::Object>::Adopt(identifier);
    if (owned && !main.mIdentifier.empty()) info[cf::kBundleIdentifier] = std::move(owned);
    auto dictionary = cf::Ref<cf::Dictionary>::Adopt(new cf::Dictionary(std::move(info)));
    return cf::Ref<cf::Bundle>::Adopt(new cf::Bundle(main.mPath, std::move(dictionary)));
}

}  // namespace

CFBundleRef CFBundleGetMainBundle()
{
    // Neither is ever destroyed, so that nobody has to retain it. One for each that the process was: scripts change it.
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    static auto& bundles = *new std::map<std::pair<std::string, std::string>, cf::Ref<cf::Bundle>>;
    const auto main = platform::machine::Machine::Current().GetIdentity().GetMainBundle();
    if (!main) return nullptr;
    const platform::kernel::MutexGuard guard(mutex);
    cf::Ref<cf::Bundle>& bundle = bundles[{main->mIdentifier, main->mPath}];
    if (!bundle) bundle = MakeMainBundle(*main);
    return bundle.Get();
}
