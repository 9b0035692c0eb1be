// CFURL: where a file or a folder lies. Only local paths exist here, absolute and as the system writes them.
#pragma once

#include "platform/foundation/CFBase.h"

enum CFURLPathStyle : CFIndex { kCFURLPOSIXPathStyle = 0 };

/// A URL of a path, which the caller releases.
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path, CFURLPathStyle style, bool isFolder);
/// The path of a URL, which the caller releases; both calls give the same.
CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style);
CFStringRef CFURLCopyPath(CFURLRef url);
