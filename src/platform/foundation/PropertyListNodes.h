// PropertyListNodes: handling the library's nodes, for reading and for writing alike.
#pragma once

#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace cf {

using Node = std::unique_ptr<void, decltype(&plist_free)>;

/// What the library allocated.
struct FreeText {
    void operator()(char* text) const { std::free(text); }
};
using LibraryText = std::unique_ptr<char, FreeText>;

/// The node's object as it stands in a binary list: a byte of kind and what follows it. For what the library's own
/// calls do not tell: whether a large number has a sign, and the moments beyond 68 years from 2001. Of nodes that hold
/// no others.
std::string ObjectBytes(plist_t node);
/// The node of such an object.
Node NodeOfObject(const std::string& object);

/// `value` as the `width` bytes of a binary list's number.
std::string BigEndian(uint64_t value, size_t width);
/// The number in the last 8 bytes.
uint64_t LastNumber(const std::string& bytes);

constexpr char kUnsignedObject = 0x14;  // 16 bytes follow, of which 8 are zero
constexpr char kDateObject = 0x33;      // the bits of a double follow

}  // namespace cf
