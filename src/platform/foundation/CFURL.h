// CFURL: where a file or a folder lies. Only local paths exist here, absolute and as the system writes them.
#pragma once

#include "platform/foundation/CFObjects.h"

namespace cf {

/// A path.
class URL final : public Object {
public:
    static constexpr CFTypeID kTypeID = kURLType;
    explicit URL(Ref<String> path) : mPath(std::move(path)) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override { return ToStdString(mPath.Get()); }

    CFStringRef Path() const { return mPath.Get(); }

private:
    const Ref<String> mPath;
};

}  // namespace cf

enum CFURLPathStyle : CFIndex { kCFURLPOSIXPathStyle = 0 };

/// A URL of a path, which the caller releases.
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path, CFURLPathStyle style, bool isFolder);
/// The path of a URL, which the caller releases.
CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style);
