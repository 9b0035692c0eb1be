#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/PropertyList.h"
#include "platform/foundation/PropertyListScan.h"

#include <algorithm>

namespace {

CFPropertyListFormat FormatOf(const std::string& bytes)
{
    return bytes.starts_with(cf::kBinaryListMagic) ? kCFPropertyListBinaryFormat_v1_0 : kCFPropertyListXMLFormat_v1_0;
}

}  // namespace

namespace cf {

bool ReadStream::Open()
{
    mFile = std::make_unique<SmallFile>(mPath, TakenFrom::UserOrRoot);
    return mFile->Refusal().empty();
}

std::optional<std::string> ReadStream::ReadToEnd(std::string& error)
{
    if (!mFile) {
        error = "is not open";
        return {};
    }
    std::optional<std::string> bytes = mFile->ReadToEnd();
    if (!bytes) error = mFile->Refusal();
    return bytes;
}

}  // namespace cf

CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef, CFURLRef file)
{
    return new cf::ReadStream(file->Path()->Text());
}

bool CFReadStreamOpen(CFReadStreamRef stream)
{
    return stream->Open();
}

void CFReadStreamClose(CFReadStreamRef stream)
{
    stream->Close();
}

CFTypeRef CFPropertyListCreateFromStream(CFAllocatorRef, CFReadStreamRef stream, CFIndex length, CFOptionFlags,
                                         CFPropertyListFormat* format, CFStringRef* error)
{
    std::string fault;
    CFTypeRef tree = nullptr;
    if (std::optional<std::string> bytes = stream->ReadToEnd(fault)) {
        if (length > 0) bytes->resize(std::min(bytes->size(), static_cast<size_t>(length)));
        if (format) *format = FormatOf(*bytes);
        tree = cf::CreatePropertyList(bytes->data(), bytes->size(), &fault);
    }
    if (!tree && error) *error = new cf::String(fault);
    return tree;
}
