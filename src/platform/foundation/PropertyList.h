// PropertyList: property-list files, XML and binary, turned into objects under limits, and back.
// Why: the parser allocates what a file claims and counts nothing, and recursion and shared references make
// small files large. Every file is therefore scanned against the limits below before the parser sees it.
// Start at CFPropertyListCreateFromStream. Nothing of a list is lost between reading and writing.
#pragma once

#include "platform/foundation/CFURL.h"

#include <cstddef>
#include <string>
#include <vector>

namespace cf {
class ReadStream;
}
using CFReadStreamRef = cf::ReadStream*;

enum CFPropertyListFormat : CFIndex { kCFPropertyListXMLFormat_v1_0 = 100, kCFPropertyListBinaryFormat_v1_0 = 200 };
constexpr CFOptionFlags kCFPropertyListMutableContainers = 1;

/// A file to be read, which the caller releases. Opening refuses what is no regular file, is a link, belongs neither to
/// the user nor to root, may be written by others, or is longer than a property list may be.
CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef allocator, CFURLRef file);
bool CFReadStreamOpen(CFReadStreamRef stream);
void CFReadStreamClose(CFReadStreamRef stream);

/// The tree of a whole open stream.
///
/// @param length  0: to the end
/// @param error   set to one sentence for a person, which the caller releases, where null is returned
/// @return        an object that the caller releases, or null; its containers are mutable where `options` say so
CFTypeRef CFPropertyListCreateFromStream(CFAllocatorRef allocator, CFReadStreamRef stream, CFIndex length,
                                         CFOptionFlags options, CFPropertyListFormat* format, CFStringRef* error);

namespace cf {

constexpr size_t kPropertyListMaxBytes = size_t(1) << 20;

/// The tree that the bytes of a property list describe.
///
/// @param bytes  the whole file, from anyone
/// @param error  one sentence for a person where null is returned, if not null
/// @return       an object that the caller releases; null for bytes that are no property list, that exceed
///               the limits (1 MiB, depth 32, 65,536 objects counted at each mention, strings and data of
///               256 KiB each and 1 MiB together), or that are XML with declarations of its own
CFTypeRef CreatePropertyList(const void* bytes, size_t count, bool mutableContainers = false,
                             std::string* error = nullptr);

/// The bytes of a tree of property-list objects. Empty where it holds anything else, or exceeds the limits above.
std::vector<uint8_t> PropertyListBytes(CFTypeRef tree, CFPropertyListFormat format);

}  // namespace cf
