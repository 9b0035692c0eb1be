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
constexpr const char* kBeyondTheEnd = "has an object that is longer than the file";

class BinaryScan {
public:
    explicit BinaryScan(std::string_view bytes) : mBytes(bytes) {}

    ScanFault Run()
    {
        if (mBytes.size() < kBinaryListMagic.size() + 2 + kTrailerBytes) return {"is cut", mBytes.size()};
        const size_t trailer = mBytes.size() - kTrailerBytes;
        mOffsetWidth = Byte(trailer + 6);
        mReferenceWidth = Byte(trailer + 7);
        mObjects = Read(trailer + 8, 8);
        mTable = Read(trailer + 24, 8);
        const bool plausible = IsWidth(mOffsetWidth) && IsWidth(mReferenceWidth) && mTable <= trailer &&
                               mObjects <= (trailer - mTable) / mOffsetWidth;
        if (!plausible) return {"is cut, or has a trailer that does not fit it", trailer};
        mEnd = trailer;
        Visit(Read(trailer + 16, 8), 1, trailer + 16);
        return mFault;
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
    bool Visit(uint64_t object, size_t depth, uint64_t mention)
    {
        if (object >= mObjects) return mFault.Set("names an object that it does not have", mention);
        if (depth > kPropertyListMaxDepth) return mFault.Set(kTooDeep, mention);
        if (++mVisits > kPropertyListMaxObjects) return mFault.Set(kTooManyObjects, mention);
        const uint64_t entry = mTable + object * mOffsetWidth, at = Read(entry, mOffsetWidth);
        return at < mEnd ? VisitAt(at, depth) : mFault.Set("has an object outside the file", entry);
    }

    bool VisitAt(uint64_t at, size_t depth)
    {
        const uint64_t start = at;
        const unsigned kind = Byte(at) >> 4;
        uint64_t count = Byte(at) & 15;
        ++at;
        const bool counted = kind == 0x4 || kind == 0x5 || kind == 0x6 || kind == 0xA || kind == 0xC || kind == 0xD;
        if (!counted) return true;
        if (count == 15 && !ReadCount(at, count)) return mFault.Set("has an object whose length is no number", start);
        switch (kind) {
            case 0xA:
            case 0xC:
                return VisitReferences(at, count, depth);
            case 0xD:
                return VisitReferences(at, count <= mEnd ? 2 * count : count, depth);
            case 0x4:
                return CountText(at, count, 1);
            default:
                return CountText(at, count, kind == 0x6 ? 2 : 1) && HasNoNul(at, count, kind == 0x6 ? 2 : 1);
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
        if (count > (mEnd - at) / mReferenceWidth) return mFault.Set(kBeyondTheEnd, at);
        for (uint64_t end = at + count * mReferenceWidth; at < end; at += mReferenceWidth) {
            if (!Visit(Read(at, mReferenceWidth), depth + 1, at)) return false;
        }
        return true;
    }

    bool CountText(uint64_t at, uint64_t count, size_t width)
    {
        if (count > (mEnd - at) / width) return mFault.Set(kBeyondTheEnd, at);
        if (count * width > kPropertyListMaxStringBytes) return mFault.Set(kTextTooLong, at);
        mTextBytes += count * width;
        return mTextBytes <= kPropertyListMaxBytes || mFault.Set("has texts and data of more than 1 MiB together", at);
    }

    // The parser takes text for what ends at a NUL in one place and not in the next, and stops the process
    // where the two differ.
    bool HasNoNul(uint64_t at, uint64_t count, size_t width)
    {
        for (uint64_t end = at + count * width; at < end; at += width) {
            if (Read(at, width) == 0) return mFault.Set(kTextHasNul, at);
        }
        return true;
    }

    const std::string_view mBytes;
    size_t mEnd = 0;
    size_t mOffsetWidth = 0;
    size_t mReferenceWidth = 0;
    uint64_t mObjects = 0;
    uint64_t mTable = 0;
    size_t mVisits = 0;
    uint64_t mTextBytes = 0;
    ScanFault mFault;
};

}  // namespace

std::string FaultOfBinaryList(std::string_view bytes)
{
    return BinaryScan(bytes).Run().Sentence();
}

}  // namespace cf
