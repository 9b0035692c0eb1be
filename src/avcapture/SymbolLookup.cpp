#include "avcapture/SymbolLookup.h"

#include "avcapture/KernelFile.h"
#include "avcapture/StatusRegion.h"
#include "platform/kernel/IOKit.h"
#include "platform/kernel/System.h"

#include <cstring>
#include <optional>

namespace avcapture {
namespace {

constexpr uint32_t kFatMagic = 0xCAFEBABE;
constexpr uint32_t kFatMagicSwapped = 0xBEBAFECA;
constexpr uint32_t kThinMagic = 0xFEEDFACE;  // 32-bit images alone
constexpr uint32_t kPowerPC = 18;
constexpr uint32_t kSymbolTableCommand = 2;
constexpr size_t kFatHeaderBytes = 8, kFatEntryBytes = 20, kMachHeaderBytes = 28, kSymbolEntryBytes = 12;

/// The 32-bit word at an offset of untrusted bytes; nothing beyond their end.
std::optional<uint32_t> WordAt(std::span<const uint8_t> bytes, uint64_t offset)
{
    uint32_t word;
    if (bytes.size() < sizeof word || offset > bytes.size() - sizeof word) return std::nullopt;
    std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

struct SymbolTable {
    uint32_t mEntriesOffset;
    uint32_t mEntryCount;
    uint32_t mStringsOffset;
};

std::optional<SymbolTable> ReadSymbolTable(std::span<const uint8_t> image, uint64_t command)
{
    const auto entries = WordAt(image, command + 8), count = WordAt(image, command + 12);
    const auto strings = WordAt(image, command + 16);
    if (!entries || !count || !strings) return std::nullopt;
    if (*entries + uint64_t(*count) * kSymbolEntryBytes > image.size()) return std::nullopt;
    return SymbolTable{*entries, *count, *strings};
}

/// The first symbol table among the load commands.
std::optional<SymbolTable> FindSymbolTable(std::span<const uint8_t> image)
{
    const auto commands = WordAt(image, 16);
    uint64_t command = kMachHeaderBytes;
    for (uint32_t left = commands.value_or(0); left > 0; --left) {
        const auto kind = WordAt(image, command), bytes = WordAt(image, command + 4);
        if (!kind || !bytes || *bytes < 8) return std::nullopt;
        if (*kind == kSymbolTableCommand) return ReadSymbolTable(image, command);
        command += *bytes;
    }
    return std::nullopt;
}

/// Whether exactly `name` and its NUL stand at an offset.
bool IsNameAt(std::span<const uint8_t> image, uint64_t offset, std::string_view name)
{
    if (offset + name.size() >= image.size()) return false;
    return std::memcmp(image.data() + offset, name.data(), name.size()) == 0 && image[offset + name.size()] == 0;
}

uint32_t NativeCPUType()
{
    uint32_t type = 0;
    size_t bytes = sizeof type;
    return platform::kernel::sysctlbyname("hw.cputype", &type, &bytes) == 0 ? type : kPowerPC;
}

/// The names of a request; nothing where it does not end with an empty name inside the buffer.
std::optional<std::vector<std::string_view>> SplitNames(std::span<const char> request)
{
    std::vector<std::string_view> names;
    std::string_view rest(request.data(), request.size());
    for (size_t end; (end = rest.find('\0')) != std::string_view::npos; rest.remove_prefix(end + 1)) {
        if (end == 0) return names;
        names.push_back(rest.substr(0, end));
    }
    return std::nullopt;
}

/// Sized as if a name took its length and its NUL, with no bytes between names.
std::vector<uint8_t> MakeEmptyReply(const std::vector<std::string_view>& names, uint32_t& tableOffset)
{
    size_t namesBytes = 0;
    for (const auto name : names) namesBytes += name.size() + 1;
    tableOffset = uint32_t(4 + namesBytes + 4) & ~3u;
    std::vector<uint8_t> reply(tableOffset + 4 * names.size());
    std::memcpy(reply.data(), &tableOffset, sizeof tableOffset);
    return reply;
}

/// Fills a reply. The names' stride is a byte more than their sizing allows for, which is the format: late
/// names run on over the first entries of the table, though never over its end, where each name has four.
bool FillReply(std::span<const uint8_t> image, const std::vector<std::string_view>& names, uint32_t tableOffset,
               std::vector<uint8_t>& reply)
{
    uint8_t* nameSlot = reply.data() + 4;
    uint8_t* entry = reply.data() + tableOffset;
    for (const auto name : names) {
        std::memcpy(nameSlot, name.data(), name.size());
        nameSlot[name.size()] = 0;
        nameSlot += name.size() + 2;
        const uint32_t value = FindSymbol(image, name);
        if (value == 0) return false;
        std::memcpy(entry, &value, sizeof value);
        entry += sizeof value;
    }
    return true;
}

}  // namespace

std::span<const uint8_t> GetNativeArch(std::span<const uint8_t> file, uint32_t cpuType)
{
    const uint32_t magic = WordAt(file, 0).value_or(0);
    if (magic == kThinMagic) return file;
    if (magic != kFatMagic && magic != kFatMagicSwapped) return {};
    const auto field = [&](uint64_t offset) {
        const auto word = WordAt(file, offset);
        return word && magic == kFatMagicSwapped ? Swapped(*word) : word;
    };
    const uint32_t entries = field(4).value_or(0);
    for (uint64_t i = 0; i < entries; ++i) {
        const auto type = field(kFatHeaderBytes + i * kFatEntryBytes);
        const auto offset = field(kFatHeaderBytes + i * kFatEntryBytes + 8);
        if (!type || !offset) return {};
        if (*type == cpuType) return *offset < file.size() ? file.subspan(*offset) : std::span<const uint8_t>{};
    }
    return {};
}

uint32_t FindSymbol(std::span<const uint8_t> image, std::string_view name)
{
    const auto table = FindSymbolTable(image);
    if (!table) return 0;
    for (uint64_t i = 0; i < table->mEntryCount; ++i) {
        const uint64_t entry = table->mEntriesOffset + i * kSymbolEntryBytes;
        const uint32_t stringIndex = *WordAt(image, entry);
        if (stringIndex == 0 || !IsNameAt(image, uint64_t(table->mStringsOffset) + stringIndex, name)) continue;
        return *WordAt(image, entry + 8);
    }
    return 0;
}

int32_t AnswerSymbolRequest(uint32_t systemVersion, std::span<const char> names, std::vector<uint8_t>& reply)
{
    const auto split = SplitNames(names);
    if (!split) return kIOReturnNotFound;
    KernelFile file;
    if (const int32_t error = file.Open(systemVersion)) return error;
    const auto image = GetNativeArch(file.Bytes(), NativeCPUType());
    if (image.empty()) return kIOReturnNotFound;
    uint32_t tableOffset = 0;
    reply = MakeEmptyReply(*split, tableOffset);
    return FillReply(image, *split, tableOffset, reply) ? 0 : kIOReturnNotFound;
}

}  // namespace avcapture
