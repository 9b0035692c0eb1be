#include "platform/foundation/PropertyListNodes.h"

namespace cf {

namespace {

// The list of one object: its offset's byte and the trailer follow it.
constexpr char kHead[] = "bplist00";
constexpr size_t kHeadBytes = sizeof kHead - 1, kTailBytes = 1 + 32;

}  // namespace

std::string ObjectBytes(plist_t node)
{
    char* list = nullptr;
    uint32_t bytes = 0;
    plist_to_bin(node, &list, &bytes);
    const LibraryText owner(list);
    return bytes < kHeadBytes + kTailBytes ? "" : std::string(list + kHeadBytes, bytes - kHeadBytes - kTailBytes);
}

Node NodeOfObject(const std::string& object)
{
    const std::string list = kHead + object + BigEndian(kHeadBytes, 1) + BigEndian(0, 6) + BigEndian(1, 1) +
                             BigEndian(1, 1) + BigEndian(1, 8) + BigEndian(0, 8) +
                             BigEndian(kHeadBytes + object.size(), 8);
    plist_t node = nullptr;
    plist_from_bin(list.data(), static_cast<uint32_t>(list.size()), &node);
    return Node(node, &plist_free);
}

std::string BigEndian(uint64_t value, size_t width)
{
    std::string bytes(width, '\0');
    for (size_t byte = width; byte-- > 0; value >>= 8) bytes[byte] = static_cast<char>(value & 255);
    return bytes;
}

uint64_t LastNumber(const std::string& bytes)
{
    uint64_t value = 0;
    for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

}  // namespace cf
