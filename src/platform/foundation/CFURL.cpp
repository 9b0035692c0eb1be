#include "platform/foundation/CFURL.h"

namespace cf {

bool URL::IsEqual(const Object& other) const
{
    return CFEqual(Path(), static_cast<const URL&>(other).Path());
}

CFHashCode URL::Hash() const
{
    return CFHash(Path());
}

}  // namespace cf

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef path, CFURLPathStyle, bool)
{
    return new cf::URL(cf::Ref<cf::String>::Share(path));
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle)
{
    return cf::Ref<cf::String>::Share(url->Path()).Detach();
}
