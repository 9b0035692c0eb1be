// RB: a plain byte ring with a write head and a read head, for the direct capture path.
// Why: its readers compare the amounts with the ring's own arithmetic, so that every amount here is kept just so.
// Nothing but RB_Lock and RB_Unlock takes the mutex; callers hold it around everything else.
// Every function returns 0 unless it says otherwise.
#pragma once

#include "platform/kernel/Threads.h"

#include <cstdint>

struct RB_Record {
    char* mBase;
    char* mEnd;  // mBase + mSize
    char* mWriteHead;
    char* mReadHead;
    uint32_t mSize;    // bytes
    uint32_t mAmount;  // bytes held; compared as signed, like the two below
    uint32_t mAmountWritten;
    uint32_t mAmountRead;
    pthread_mutex_t mMutex;
    pthread_mutexattr_t mMutexAttributes;
};

/// Makes an empty ring of `size` silent bytes. @return -7004 when out of memory, or the lock's error number,
/// with *record null
int RB_Create(RB_Record** record, uint32_t size);
/// Frees the ring and sets *record to null; there may be no ring, nor a place for one. @return the error of the
/// lock's attributes, or else the lock's
int RB_Destroy(RB_Record** record);

/// Empties the ring and clears its bytes.
int RB_Reset(RB_Record* record);
/// Heads to the base and the two running amounts to 0. What is held, and the bytes, stay.
int RB_ResetNoClear(RB_Record* record);
/// Heads to the base, and those running amounts to 0 that are asked for. What is held, and the bytes, stay.
int RB_ResetNoClearAmounts(RB_Record* record, bool clearRead, bool clearWritten);
/// Both heads to the base, though the name speaks of one: a reader that starts over has nothing to read yet.
int RB_ResetReadHead(RB_Record* record);

/// @return -50 for a null record
int RB_GetAmount(const RB_Record* record, uint32_t* amount);
int RB_GetSize(const RB_Record* record, uint32_t* size);
/// @return 1 for a null record
int RB_GetAmountWritten(const RB_Record* record, uint32_t* amount);
int RB_GetAmountRead(const RB_Record* record, uint32_t* amount);
/// Bytes that can be written before one is lost. The record may not be null.
int RB_GetSpace(const RB_Record* record, uint32_t* space);

/// @return the lock's error number
int RB_Lock(RB_Record* record);
int RB_Unlock(RB_Record* record);

/// Writes `length` bytes, over unread ones where there is no room: the read head stays, and only the amount, which
/// ends at the size, shows it. Of a write around the end the amount written counts the part after the end alone.
/// @return 1 for more than the size, with nothing written
int RB_Write(RB_Record* record, const void* data, int length);
/// Reads *length bytes, which stays as given. Beyond what is held it reads stale bytes.
int RB_Read(RB_Record* record, void* data, const uint32_t* length);
/// Drops up to `length` bytes of what is held at the read side.
int RB_Burn(RB_Record* record, uint32_t length);
/// Takes up to `length` bytes of what is held back at the write side. The amount written stays.
int RB_BurnTail(RB_Record* record, uint32_t length);
