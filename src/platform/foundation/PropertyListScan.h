// PropertyListScan: whether a property list keeps the limits, found out by reading alone.
// Why: see PropertyList.h. The scans need no memory but the stack and take time in proportion to the limits,
// whatever a file claims. They judge size and shape; whether the content is valid is the parser's to say.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cf {

constexpr size_t kPropertyListMaxDepth = 32;             // the outermost object has depth 1
constexpr size_t kPropertyListMaxObjects = 65'536;       // at each mention: shared ones are copied by the parser
constexpr size_t kPropertyListMaxStringBytes = 262'144;  // of one string or data

/// The first thing that a scan refused.
struct ScanFault {
    const char* mWhat = nullptr;
    size_t mByte = 0;  // from the start of the file

    /// Notes a fault. @return false, so that a scan can end with it
    bool Set(const char* what, size_t byte)
    {
        *this = {what, byte};
        return false;
    }
    std::string Sentence() const { return mWhat ? mWhat + (", at byte " + std::to_string(mByte)) : std::string(); }
};

constexpr const char* kTooDeep = "is nested more than 32 deep";
constexpr const char* kTooManyObjects = "has more than 65,536 objects, shared ones counted wherever they stand";
constexpr const char* kTextTooLong = "has a text or data of more than 256 KiB";
constexpr const char* kTextHasNul = "has a text with a NUL in it";

constexpr std::string_view kBinaryListMagic = "bplist";

/// What keeps a list from being read, as the end of a sentence that begins with it; "" where nothing does.
std::string FaultOfBinaryList(std::string_view bytes);

/// Refuses what two readers could take for different things as well: a quote that is open where a tag ends,
/// a section of character data, a NUL.
std::string FaultOfXMLList(std::string_view text);

}  // namespace cf
