// PropertyList: the bytes of a property-list file turned into objects, under limits.
// Why: the parser allocates what a file claims and counts nothing, and recursion and shared references make
// small files large. Every file is therefore scanned against the limits below before the parser sees it.
// Start at CreatePropertyList.
#pragma once

#include "platform/foundation/CFBase.h"

#include <cstddef>

namespace cf {

constexpr size_t kPropertyListMaxBytes = size_t(1) << 20;

/// The tree that a property list, XML or binary, describes. Truth values become the numbers 1 and 0; dates,
/// data and identifiers, which nothing here reads, are left out.
///
/// @param bytes  the whole file, from anyone
/// @return       an object that the caller releases; null for bytes that are no property list, that exceed
///               the limits (1 MiB, depth 32, 65,536 objects counted at each mention, strings and data of
///               256 KiB each and 1 MiB together), or that are XML with declarations of its own
CFTypeRef CreatePropertyList(const void* bytes, size_t count);

}  // namespace cf
