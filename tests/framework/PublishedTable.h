/* PublishedTable: the function table of a plug-in as a program written in C knows it, which a C++ header cannot tell
 * it. Why: who drives the table from C finds an entry that moved, or that takes its arguments otherwise. TestBundle.cpp
 * holds its order against the table of the platform. */
#pragma once

#include <stdint.h>

typedef struct {
    uint8_t mBytes[16];
} PublishedUUID;
typedef const struct PublishedTable* const* PublishedRef;
typedef int32_t (*PublishedProcedure)(uint32_t, const void*, const void*, const void*, void*, const void*, void*);

struct PublishedAddress {
    uint32_t mSelector, mScope, mElement;
};
typedef const struct PublishedAddress* PublishedAddressRef;

struct PublishedTable {
    void* mReserved;
    int32_t (*QueryInterface)(PublishedRef, PublishedUUID, void** interface);
    uint32_t (*AddRef)(PublishedRef);
    uint32_t (*Release)(PublishedRef);
    int32_t (*Initialize)(PublishedRef);
    int32_t (*Teardown)(PublishedRef);
    int32_t (*DeviceAddIOProc)(PublishedRef, uint32_t device, PublishedProcedure, void* clientData);
    int32_t (*DeviceRemoveIOProc)(PublishedRef, uint32_t device, PublishedProcedure);
    int32_t (*DeviceStart)(PublishedRef, uint32_t device, PublishedProcedure);
    int32_t (*DeviceStop)(PublishedRef, uint32_t device, PublishedProcedure);
    int32_t (*DeviceRead)(PublishedRef, uint32_t device, const void* start, void* data);
    int32_t (*DeviceGetCurrentTime)(PublishedRef, uint32_t device, void* time);
    int32_t (*DeviceTranslateTime)(PublishedRef, uint32_t device, const void* in, void* out);
    int32_t (*DeviceGetPropertyInfo)(PublishedRef, uint32_t device, uint32_t channel, uint8_t isInput,
                                     uint32_t selector, uint32_t* size, uint8_t* writable);
    int32_t (*DeviceGetProperty)(PublishedRef, uint32_t device, uint32_t channel, uint8_t isInput, uint32_t selector,
                                 uint32_t* size, void* data);
    int32_t (*DeviceSetProperty)(PublishedRef, uint32_t device, const void* when, uint32_t channel, uint8_t isInput,
                                 uint32_t selector, uint32_t size, const void* data);
    int32_t (*StreamGetPropertyInfo)(PublishedRef, uint32_t stream, uint32_t channel, uint32_t selector, uint32_t* size,
                                     uint8_t* writable);
    int32_t (*StreamGetProperty)(PublishedRef, uint32_t stream, uint32_t channel, uint32_t selector, uint32_t* size,
                                 void* data);
    int32_t (*StreamSetProperty)(PublishedRef, uint32_t stream, const void* when, uint32_t channel, uint32_t selector,
                                 uint32_t size, const void* data);
    int32_t (*DeviceStartAtTime)(PublishedRef, uint32_t device, PublishedProcedure, void* time, uint32_t flags);
    int32_t (*DeviceGetNearestStartTime)(PublishedRef, uint32_t device, void* time, uint32_t flags);
    int32_t (*InitializeWithObjectID)(PublishedRef, uint32_t object);
    void (*ObjectShow)(PublishedRef, uint32_t object);
    uint8_t (*ObjectHasProperty)(PublishedRef, uint32_t object, PublishedAddressRef);
    int32_t (*ObjectIsPropertySettable)(PublishedRef, uint32_t object, PublishedAddressRef, uint8_t* settable);
    int32_t (*ObjectGetPropertyDataSize)(PublishedRef, uint32_t object, PublishedAddressRef, uint32_t qualifierSize,
                                         const void* qualifier, uint32_t* size);
    int32_t (*ObjectGetPropertyData)(PublishedRef, uint32_t object, PublishedAddressRef, uint32_t qualifierSize,
                                     const void* qualifier, uint32_t* size, void* data);
    int32_t (*ObjectSetPropertyData)(PublishedRef, uint32_t object, PublishedAddressRef, uint32_t qualifierSize,
                                     const void* qualifier, uint32_t size, const void* data);
    int32_t (*DeviceCreateIOProcID)(PublishedRef, uint32_t device, PublishedProcedure, void* clientData,
                                    PublishedProcedure* id);
    int32_t (*DeviceDestroyIOProcID)(PublishedRef, uint32_t device, PublishedProcedure id);
};
