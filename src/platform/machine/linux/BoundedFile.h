// BoundedFile: reading small text files that others wrote, of which nothing is taken for granted.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace platform::machine {

enum class Links { Follow, Refuse };

/// The content of a regular file, never waiting for a pipe or a device behind the name.
///
/// @return nothing where the file cannot be opened or read, is not a regular file, or is longer than
///         `mostBytes`
std::optional<std::string> ReadBoundedFile(const std::string& path, size_t mostBytes, Links links = Links::Follow);

/// The value of `key` in the group `[group]` of a text of groups, keys and values; "" where there is none.
std::string FindInKeyFile(const std::string& text, const std::string& group, const std::string& key);

}  // namespace platform::machine
