// PropertyListScan: whether a property list keeps the limits, found out by reading alone.
// Why: see PropertyList.h. The scans need no memory but the stack and take time in proportion to the limits,
// whatever a file claims. They judge size and shape; whether the content is valid is the parser's to say.
#pragma once

#include <cstddef>
#include <string_view>

namespace cf {

constexpr size_t kPropertyListMaxDepth = 32;             // the outermost object has depth 1
constexpr size_t kPropertyListMaxObjects = 65'536;       // at each mention: shared ones are copied by the parser
constexpr size_t kPropertyListMaxStringBytes = 262'144;  // of one string or data

constexpr std::string_view kBinaryListMagic = "bplist";

bool BinaryListIsWithinLimits(std::string_view bytes);

/// Refuses what two readers could take for different things as well: a quote that is open where a tag ends,
/// a section of character data, a NUL.
bool XMLListIsWithinLimits(std::string_view text);

}  // namespace cf
