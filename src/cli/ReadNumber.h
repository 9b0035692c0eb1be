// ReadNumber: a number from the command line.
#pragma once

#include <charconv>
#include <string_view>
#include <system_error>

namespace cli {

/// Reads the whole of `text`. @return false where it is no number, has more behind it, or does not fit; `value` is
/// then not to be used
template <class T>
bool ReadNumber(std::string_view text, T& value)
{
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc{} && result.ptr == end;
}

}  // namespace cli
