#include "plugin/settings/MainBundle.h"

#include "platform/foundation/CFBundle.h"

namespace settings {

cf::Ref<cf::String> CopyMainBundleIdentifier()
{
    const CFBundleRef main = CFBundleGetMainBundle();
    return cf::Ref<cf::String>::Share(main ? CFBundleGetIdentifier(main) : nullptr);
}

cf::Ref<cf::String> CopyMainBundlePath()
{
    const CFBundleRef main = CFBundleGetMainBundle();
    const auto url = cf::Ref<cf::URL>::Adopt(main ? CFBundleCopyBundleURL(main) : nullptr);
    return cf::Ref<cf::String>::Adopt(url ? CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle) : nullptr);
}

bool AreEqual(CFTypeRef a, CFTypeRef b)
{
    return a && b && CFEqual(a, b);
}

}  // namespace settings
