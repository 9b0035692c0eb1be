// PropertyList: property-list files, XML and binary, turned into objects under limits, and back.
// Why: the parser allocates what a file claims and counts nothing, and recursion and shared references make
// small files large. Every file is therefore scanned against the limits below before the parser sees it.
// Start at CFPropertyListCreateFromStream. Nothing of a list is lost between reading and writing.
#pragma once

#include "platform/foundation/CFURL.h"
#include "platform/foundation/SmallFile.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cf {

/// A file that is read once it is open. One thread at a time.
class ReadStream final : public Object {
public:
    static constexpr CFTypeID kTypeID = kReadStreamType;
    explicit ReadStream(std::string path) : mPath(std::move(path)) {}

    CFTypeID TypeID() const override { return kTypeID; }
    std::string Describe() const override { return mPath; }

    bool Open();
    void Close() { mFile.reset(); }
    /// The bytes that are left; nothing, and why, as the end of a sentence that begins with the file, where they cannot
    /// be had.
    std::optional<std::string> ReadToEnd(std::string& error);

private:
    const std::string mPath;
    std::unique_ptr<SmallFile> mFile;
};

}  // namespace cf

using CFReadStreamRef = cf::ReadStream*;

enum CFPropertyListFormat : CFIndex { kCFPropertyListXMLFormat_v1_0 = 100, kCFPropertyListBinaryFormat_v1_0 = 200 };
constexpr CFOptionFlags kCFPropertyListMutableContainers = 1;

/// A file to be read, which the caller releases. Opening refuses what is no regular file, is a link, belongs neither to
/// the user nor to root, may be written by others, or is longer than a property list may be.
CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef allocator, CFURLRef file);
bool CFReadStreamOpen(CFReadStreamRef stream);
void CFReadStreamClose(CFReadStreamRef stream);

/// The tree of a whole open stream. Of one that could not be opened, the error alone.
///
/// @param length   bytes; 0: to the end
/// @param options  containers can be changed in any case: a tree belongs to who asked for it
/// @param format   set to the form of what was read, if not null
/// @param error    set as CreatePropertyList's, to a string that the caller releases, if not null
/// @return         an object that the caller releases, or null
CFTypeRef CFPropertyListCreateFromStream(CFAllocatorRef allocator, CFReadStreamRef stream, CFIndex length,
                                         CFOptionFlags options, CFPropertyListFormat* format, CFStringRef* error);

namespace cf {

constexpr size_t kPropertyListMaxBytes = size_t(1) << 20;

/// The tree that the bytes of a property list describe.
///
/// @param bytes  the whole file, from anyone
/// @param error  set to what is wrong and where, for a person, as the end of a sentence that begins with the file's
///               name ("is nested more than 32 deep, at byte 812"), where null is returned, if not null
/// @return       an object that the caller releases; null for bytes that are no property list, that exceed
///               the limits (1 MiB, depth 32, 65,536 objects counted at each mention, strings and data of
///               256 KiB each and 1 MiB together), that are XML with declarations of its own, or where a text is not
///               UTF-8: what is read and written again has to be all that there was
CFTypeRef CreatePropertyList(const void* bytes, size_t count, std::string* error = nullptr);

/// The bytes of a tree of property-list objects. Empty where it holds anything else, or exceeds the limits above. XML
/// has whole seconds of the years 1 to 9999 and no UIDs: other dates are refused, and UIDs become dictionaries.
std::vector<uint8_t> PropertyListBytes(CFTypeRef tree, CFPropertyListFormat format);

}  // namespace cf
