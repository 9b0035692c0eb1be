#include "capture/buffers/RB.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace kernel = platform::kernel;

namespace {

constexpr int kBadArgument = -50;
constexpr int kNoRecord = 1;
constexpr int kTooLong = 1;
constexpr int kOutOfMemory = -7004;

int32_t Signed(uint32_t amount) noexcept
{
    return static_cast<int32_t>(amount);
}

int InitializeLock(RB_Record& record)
{
    if (const int error = kernel::pthread_mutexattr_init(&record.mMutexAttributes)) return error;
    const int error = kernel::pthread_mutex_init(&record.mMutex, &record.mMutexAttributes);
    if (error) kernel::pthread_mutexattr_destroy(&record.mMutexAttributes);  // the first error is the one to tell
    return error;
}

void RewindHeads(RB_Record& record) noexcept
{
    record.mWriteHead = record.mReadHead = record.mBase;
    record.mEnd = record.mBase + record.mSize;
}

void TakeFromAmount(RB_Record& record, uint32_t bytes) noexcept
{
    record.mAmount = static_cast<uint32_t>(std::max(Signed(record.mAmount) - Signed(bytes), 0));
}

// Moves the read head on, handing each piece out before it is passed.
template <typename Piece>
void AdvanceReadHead(RB_Record& record, uint32_t length, Piece piece)
{
    if (record.mSize == 0) return;
    while (length != 0) {
        const uint32_t chunk = std::min(length, static_cast<uint32_t>(record.mEnd - record.mReadHead));
        piece(record.mReadHead, chunk);
        record.mReadHead += chunk;
        if (record.mReadHead == record.mEnd) record.mReadHead = record.mBase;
        TakeFromAmount(record, chunk);
        record.mAmountRead += chunk;
        length -= chunk;
    }
}

int Tell(const RB_Record* record, uint32_t RB_Record::*field, uint32_t* value, int withoutRecord) noexcept
{
    if (!record) return withoutRecord;
    *value = record->*field;
    return 0;
}

}  // namespace

int RB_Create(RB_Record** record, uint32_t size)
{
    *record = nullptr;
    auto* const made = static_cast<RB_Record*>(std::calloc(1, sizeof(RB_Record)));
    if (!made) return kOutOfMemory;
    if (size != 0) made->mBase = static_cast<char*>(std::malloc(size));
    const bool haveStorage = size == 0 || made->mBase;
    if (const int error = haveStorage ? InitializeLock(*made) : kOutOfMemory) {
        std::free(made->mBase);
        std::free(made);
        return error;
    }
    made->mSize = size;
    RB_Reset(made);
    *record = made;
    return 0;
}

int RB_Destroy(RB_Record** record)
{
    RB_Record* const old = record ? *record : nullptr;
    if (!old) return 0;
    const int mutexError = kernel::pthread_mutex_destroy(&old->mMutex);
    const int attributesError = kernel::pthread_mutexattr_destroy(&old->mMutexAttributes);
    std::free(old->mBase);
    std::free(old);
    *record = nullptr;
    return attributesError ? attributesError : mutexError;
}

int RB_Reset(RB_Record* record)
{
    record->mAmount = 0;
    if (record->mSize != 0) std::memset(record->mBase, 0, record->mSize);
    return RB_ResetNoClear(record);
}

int RB_ResetNoClear(RB_Record* record)
{
    return RB_ResetNoClearAmounts(record, true, true);
}

int RB_ResetNoClearAmounts(RB_Record* record, bool clearRead, bool clearWritten)
{
    if (clearRead) record->mAmountRead = 0;
    if (clearWritten) record->mAmountWritten = 0;
    RewindHeads(*record);
    return 0;
}

int RB_ResetReadHead(RB_Record* record)
{
    record->mWriteHead = record->mReadHead = record->mBase;
    return 0;
}

int RB_GetAmount(const RB_Record* record, uint32_t* amount)
{
    return Tell(record, &RB_Record::mAmount, amount, kBadArgument);
}

int RB_GetSize(const RB_Record* record, uint32_t* size)
{
    return Tell(record, &RB_Record::mSize, size, kBadArgument);
}

int RB_GetAmountWritten(const RB_Record* record, uint32_t* amount)
{
    return Tell(record, &RB_Record::mAmountWritten, amount, kNoRecord);
}

int RB_GetAmountRead(const RB_Record* record, uint32_t* amount)
{
    return Tell(record, &RB_Record::mAmountRead, amount, kNoRecord);
}

int RB_GetSpace(const RB_Record* record, uint32_t* space)
{
    *space = record->mSize - record->mAmount;
    return 0;
}

int RB_Lock(RB_Record* record)
{
    return kernel::pthread_mutex_lock(&record->mMutex);
}

int RB_Unlock(RB_Record* record)
{
    return kernel::pthread_mutex_unlock(&record->mMutex);
}

int RB_Write(RB_Record* record, const void* data, int length)
{
    if (length > Signed(record->mSize)) return kTooLong;
    if (length <= 0) return 0;
    const char* from = static_cast<const char*>(data);
    auto count = static_cast<uint32_t>(length);
    const auto untilEnd = static_cast<uint32_t>(record->mEnd - record->mWriteHead);
    if (count > untilEnd) {
        std::memcpy(record->mWriteHead, from, untilEnd);
        record->mAmount += untilEnd;
        record->mWriteHead = record->mBase;
        from += untilEnd;
        count -= untilEnd;
    }
    std::memcpy(record->mWriteHead, from, count);
    record->mWriteHead += count;
    record->mAmount = static_cast<uint32_t>(std::min(Signed(record->mAmount + count), Signed(record->mSize)));
    record->mAmountWritten += count;  // without the part before the wrap: the readers reckon the same way
    return 0;
}

int RB_Read(RB_Record* record, void* data, const uint32_t* length)
{
    char* to = static_cast<char*>(data);
    AdvanceReadHead(*record, *length, [&to](const char* from, uint32_t bytes) {
        std::memcpy(to, from, bytes);
        to += bytes;
    });
    return 0;
}

int RB_Burn(RB_Record* record, uint32_t length)
{
    const uint32_t burnt = std::min(record ? record->mAmount : 0, length);
    if (burnt != 0) AdvanceReadHead(*record, burnt, [](const char*, uint32_t) {});
    return 0;
}

int RB_BurnTail(RB_Record* record, uint32_t length)
{
    uint32_t left = std::min(record ? record->mAmount : 0, length);
    while (left != 0) {
        const uint32_t chunk = std::min(left, static_cast<uint32_t>(record->mWriteHead - record->mBase));
        record->mWriteHead -= chunk;
        if (record->mWriteHead <= record->mBase) record->mWriteHead = record->mEnd;
        TakeFromAmount(*record, chunk);
        left -= chunk;
    }
    return 0;
}
