#include "avcapture/SymbolLookup.h"

#include "TapFixture.h"
#include "support/FolderTree.h"

#include <algorithm>
#include <bit>
#include <filesystem>

using namespace avcapture;

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kThisCPU = 7;

class Words {
public:
    explicit Words(std::initializer_list<uint32_t> words) { Add(words); }
    Words& Add(std::initializer_list<uint32_t> words)
    {
        for (const uint32_t word : words) {
            const auto bytes = std::bit_cast<std::array<uint8_t, 4>>(word);
            mBytes.insert(mBytes.end(), bytes.begin(), bytes.end());
        }
        return *this;
    }
    Bytes mBytes;
};

struct Symbol {
    std::string mName;
    uint32_t mValue;
};

constexpr uint32_t kSymbolTableAt = 28 + 16 + 24;  // header, a command of no interest, the symbol table's

/// A 32-bit image whose table begins with an entry without a name.
Bytes MakeImage(const std::vector<Symbol>& symbols)
{
    const auto count = uint32_t(symbols.size() + 1);
    const uint32_t stringsAt = kSymbolTableAt + count * 12;
    std::string strings(1, '\0');
    Words image{0xFEEDFACE, kThisCPU, 3, 2, 2, 40, 0};
    image.Add({1, 16, 0, 0}).Add({2, 24, kSymbolTableAt, count, stringsAt, 0}).Add({0, 0, 0xBAD});
    for (const Symbol& symbol : symbols) {
        image.Add({uint32_t(strings.size()), 0, symbol.mValue});
        strings += symbol.mName + '\0';
    }
    image.mBytes.insert(image.mBytes.end(), strings.begin(), strings.end());
    return image.mBytes;
}

Bytes Patched(Bytes bytes, size_t offset, uint32_t word)
{
    std::memcpy(bytes.data() + offset, &word, 4);
    return bytes;
}

/// A universal file: an image of another processor, then this one's, then a second of this one's.
Bytes MakeFat(const Bytes& image, bool swapped)
{
    Words header{0xCAFEBABE, 3, 18, 0, 8, 4, 0, kThisCPU, 3, 100, uint32_t(image.size()), 0, kThisCPU, 3, 9, 1, 0};
    Bytes file = header.mBytes;
    if (swapped)
        for (size_t i = 0; i < file.size(); i += 4) std::reverse(file.begin() + i, file.begin() + i + 4);
    file.resize(100);
    file.insert(file.end(), image.begin(), image.end());
    return file;
}

uint32_t FindIn(const Bytes& file, std::string_view name)
{
    return FindSymbol(GetNativeArch(file, kThisCPU), name);
}

const std::vector<Symbol> kSymbols{
    {"_start", 0x1000}, {"_kern", 0x2000}, {"_kernel_map", 0x3000}, {"_kern", 0x4000}, {"_zero", 0}};

TEST(SymbolLookup, TheFirstExactNameInPlainAndUniversalFilesOfBothByteOrdersIsFound)
{
    const Bytes image = MakeImage(kSymbols);
    for (const Bytes& file : {image, MakeFat(image, false), MakeFat(image, true)}) {
        EXPECT_EQ(FindIn(file, "_kernel_map"), 0x3000u);
        EXPECT_EQ(FindIn(file, "_kern"), 0x2000u);
        for (const char* missing : {"_ker", "kern", "_kernel_map_", "_zero", "_none"})
            EXPECT_EQ(FindIn(file, missing), 0u);
    }
}

TEST(SymbolLookup, ImagesThatAreNotForThisProcessorsThirtyTwoBitKernelAreRefused)
{
    const Bytes image = MakeImage(kSymbols);
    EXPECT_TRUE(GetNativeArch(Patched(image, 0, 0xFEEDFACF), kThisCPU).empty());
    EXPECT_TRUE(GetNativeArch(Patched(image, 0, 0xCEFAEDFE), kThisCPU).empty());
    EXPECT_TRUE(GetNativeArch(MakeFat(image, true), 12).empty());
    EXPECT_EQ(FindIn(Patched(image, 28 + 16, 3), "_start"), 0u) << "no symbol table";
}

// Each in memory of exactly its size, for the address sanitizer to watch.
TEST(SymbolLookup, AFileCutAtAnyByteOrWithAnyHostileWordIsReadInsideItsBounds)
{
    const Bytes image = MakeImage(kSymbols);
    for (const Bytes& file : {image, MakeFat(image, false), MakeFat(image, true)}) {
        for (size_t size = 0; size < file.size(); ++size) {
            const Bytes cut(file.begin(), file.begin() + long(size));
            EXPECT_EQ(FindIn(cut, "_zero"), 0u);
            const uint32_t found = FindIn(cut, "_kernel_map");
            EXPECT_TRUE(found == 0 || found == 0x3000) << size;
        }
        for (size_t offset = 0; offset + 4 <= file.size(); ++offset)
            for (const uint32_t word :
                 {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF0u, 0xFFFFFFFFu, uint32_t(file.size())})
                FindIn(Patched(file, offset, word), "_kernel_map");
    }
    EXPECT_EQ(FindIn(Patched(image, kSymbolTableAt - 24 + 12, 0x15555556), "_start"), 0u) << "a count whose bytes wrap";
}

// ---- The exchange, through a tap.

class SymbolExchange : public TapFixture {
protected:
    SymbolExchange() { mMachine.mFiles.mRoot = mFolder.Root(); }
    void Write(const char* path, const Bytes& bytes, int ageSeconds)
    {
        const std::string file = mFolder.Write(path, std::string(bytes.begin(), bytes.end()));
        fs::last_write_time(file, mNow - std::chrono::seconds(ageSeconds));
    }
    int32_t Ask(const std::string& request)
    {
        mService->mSymbolRequest = request;
        mService->mSymbolReply.clear();
        return Create();
    }

    const support::FolderTree mFolder;
    const fs::file_time_type mNow = fs::file_time_type::clock::now();
};

TEST_F(SymbolExchange, TheReplyHoldsNamesAByteApartAndTheTableThatTheyRunInto)
{
    Write("mach_kernel", MakeImage(kSymbols), 0);
    for (const uint32_t count : {0, 1, 9}) {
        std::string request;
        for (uint32_t i = 0; i < count; ++i) request.append("_kern", 6);
        ASSERT_EQ(Ask(request + '\0'), 0);
        const uint32_t table = (4 + 6 * count + 4) / 4 * 4, value = 0x2000;  // its place is rounded down
        Bytes expected(table + 4 * count);
        std::memcpy(&expected[0], &table, 4);
        for (uint32_t i = 0; i < count; ++i) {
            std::memcpy(&expected[table + 4 * i], &value, 4);
            std::memcpy(&expected[4 + 7 * i], "_kern", 6);  // the ninth lies on the table
        }
        EXPECT_EQ(mService->mSymbolReply, expected) << count;
    }
}

TEST_F(SymbolExchange, RequestsThatCannotBeAnsweredAreRefusedWithoutAReply)
{
    Write("mach_kernel", MakeImage(kSymbols), 0);
    for (const std::string& request :
         {std::string("_none\0\0", 7), std::string("_zero\0\0", 7), std::string("_kern\0", 6), std::string("_start"),
          std::string("_kern\0_none\0\0", 13), std::string((64 << 10) + 1, '\0')}) {
        EXPECT_EQ(Ask(request), kIOReturnNotFound) << request.substr(0, 20);
        EXPECT_TRUE(mService->mSymbolReply.empty());
        EXPECT_EQ(mService->mSteps.back(), "close");
    }
}

TEST_F(SymbolExchange, TheSymbolFileIsTakenUnlessItIsOlderThanTheKernel)
{
    const std::string request("_kern\0\0", 7);
    const auto value = [&] { return Bytes(mService->mSymbolReply.end() - 4, mService->mSymbolReply.end()); };
    EXPECT_EQ(Ask(request), kIOReturnNotFound);
    Write("var/run/mach.sym", MakeImage({{"_kern", 0x7777}}), 10);
    EXPECT_EQ(Ask(request), ENOENT) << "no kernel beside it";
    Write("mach_kernel", MakeImage(kSymbols), 10);
    ASSERT_EQ(Ask(request), 0);
    EXPECT_EQ(value(), Words{0x7777}.mBytes) << "as old";
    Write("mach_kernel", MakeImage(kSymbols), 9);
    ASSERT_EQ(Ask(request), 0);
    EXPECT_EQ(value(), Words{0x2000}.mBytes) << "older";
    Write("mach_kernel", {}, 0);
    EXPECT_EQ(Ask(request), kIOReturnNotFound) << "an empty file";
}

}  // namespace
