#include "platform/process/PlainText.h"

#include <bit>
#include <cstdint>

namespace platform::process {

namespace {

/// Bytes of the well-formed character that `text` begins with; 0 where it begins with none. `code` is set
/// to its code point.
size_t CharacterBytes(std::string_view text, uint32_t& code)
{
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};  // a shorter form of the same code is refused
    const uint8_t first = uint8_t(text[0]);
    const size_t ones = size_t(std::countl_one(first));
    const size_t bytes = ones == 0 ? 1 : ones;
    if (ones == 1 || bytes > 4 || bytes > text.size()) return 0;
    code = bytes == 1 ? first : first & (0x7Fu >> bytes);
    for (size_t i = 1; i < bytes; ++i) {
        const uint8_t next = uint8_t(text[i]);
        if (next >> 6 != 2) return 0;
        code = code << 6 | (next & 0x3F);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < kLeast[bytes] || code > 0x10FFFF || surrogate ? 0 : bytes;
}

bool IsControl(uint32_t code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

}  // namespace

std::string PlainText(std::string_view text)
{
    std::string plain;
    while (!text.empty()) {
        uint32_t code = 0;
        const size_t bytes = CharacterBytes(text, code);
        plain += bytes == 0 || IsControl(code) ? std::string_view("\xEF\xBF\xBD") : text.substr(0, bytes);
        text.remove_prefix(bytes == 0 ? 1 : bytes);
    }
    return plain;
}

}  // namespace platform::process
