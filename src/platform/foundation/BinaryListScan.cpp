// The layout: "bplist00", objects, a table of their offsets, and a trailer of 32 bytes: 6 unused, the width
// of an offset, the width of a reference, then the count of objects, the number of the outermost one and
// the offset of the table, each of 64 bits. All numbers are big-endian. An object starts with a byte of
// kind and count; count 15 says that a whole number follows that holds the count.
#include "platform/foundation/PropertyList.h"
#include "platform/foundation/PropertyListScan.h"

#include <cstdint>

namespace cf {

namespace {

constexpr size_t kTrailerBytes = 32;

class BinaryScan {
public:
    explicit BinaryScan(std::string_view bytes) : mBytes(bytes) {}

    bool Run()
    {
        if (mBytes.size() < kBinaryListMagic.size() + 2 + kTrailerBytes) return false;
        const size_t trailer = mBytes.size() - kTrailerBytes;
        mOffsetWidth = Byte(trailer + 6);
        mReferenceWidth = Byte(trailer + 7);
        mObjects = Read(trailer + 8, 8);
        mTable = Read(trailer + 24, 8);
        if (!IsWidth(mOffsetWidth) || !IsWidth(mReferenceWidth) || mTable > trailer) return false;
        mEnd = trailer;
        return mObjects <= (trailer - mTable) / mOffsetWidth && Visit(Read(trailer + 16, 8), 1);
    }

private:
    static bool IsWidth(size_t width) { return width >= 1 && width <= 8; }
    uint8_t Byte(size_t at) const { return static_cast<uint8_t>(mBytes[at]); }

    uint64_t Read(size_t at, size_t width) const
    {
        uint64_t value = 0;
        for (size_t byte = 0; byte < width; ++byte) value = value << 8 | Byte(at + byte);
        return value;
    }

    // Counts an object with all that it holds, anew at each mention. Reached twice on one path, it exceeds the depth.
    bool Visit(uint64_t object, size_t depth)
    {
        if (object >= mObjects || depth > kPropertyListMaxDepth || ++mVisits > kPropertyListMaxObjects) return false;
        uint64_t at = Read(mTable + object * mOffsetWidth, mOffsetWidth);
        if (at >= mEnd) return false;
        const unsigned kind = Byte(at) >> 4;
        uint64_t count = Byte(at) & 15;
        ++at;
        const bool counted = kind == 0x4 || kind == 0x5 || kind == 0x6 || kind == 0xA || kind == 0xC || kind == 0xD;
        if (!counted) return true;
        if (count == 15 && !ReadCount(at, count)) return false;
        switch (kind) {
            case 0xA:
            case 0xC:
                return VisitReferences(at, count, depth);
            case 0xD:
                return count <= mEnd && VisitReferences(at, 2 * count, depth);
            case 0x4:
                return CountText(at, count, 1);
            default:
                return CountText(at, count, kind == 0x6 ? 2 : 1) && !HasNul(at, count, kind == 0x6 ? 2 : 1);
        }
    }

    bool ReadCount(uint64_t& at, uint64_t& count) const
    {
        if (at >= mEnd || Byte(at) >> 4 != 0x1 || (Byte(at) & 15) > 3) return false;
        const size_t width = size_t(1) << (Byte(at) & 15);
        ++at;
        if (width > mEnd - at) return false;
        count = Read(at, width);
        at += width;
        return true;
    }

    bool VisitReferences(uint64_t at, uint64_t count, size_t depth)
    {
        if (count > (mEnd - at) / mReferenceWidth) return false;
        for (uint64_t index = 0; index < count; ++index) {
            if (!Visit(Read(at + index * mReferenceWidth, mReferenceWidth), depth + 1)) return false;
        }
        return true;
    }

    bool CountText(uint64_t at, uint64_t count, size_t width)
    {
        if (count > (mEnd - at) / width || count * width > kPropertyListMaxStringBytes) return false;
        mTextBytes += count * width;
        return mTextBytes <= kPropertyListMaxBytes;
    }

    // The parser takes text for what ends at a NUL in one place and not in the next, and stops the process
    // where the two differ.
    bool HasNul(uint64_t at, uint64_t count, size_t width) const
    {
        for (uint64_t character = 0; character < count; ++character) {
            if (Read(at + character * width, width) == 0) return true;
        }
        return false;
    }

    const std::string_view mBytes;
    size_t mEnd = 0;
    size_t mOffsetWidth = 0;
    size_t mReferenceWidth = 0;
    uint64_t mObjects = 0;
    uint64_t mTable = 0;
    size_t mVisits = 0;
    uint64_t mTextBytes = 0;
};

}  // namespace

bool BinaryListIsWithinLimits(std::string_view bytes)
{
    return BinaryScan(bytes).Run();
}

}  // namespace cf
