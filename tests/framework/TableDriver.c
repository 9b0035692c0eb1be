/* A client of the function table written in C, where anything thrown past an entry would end the process.
 *     table-driver BUNDLE-LIBRARY
 * Each entry is called as it should be; without its reference, without each of its pointers, for objects that are not
 * there or of another kind, with everything that can be thrown below it. Each property is got and set in every size
 * from none to twice the right one. What is otherwise than published is told, a line each. */
#include "framework/PublishedTable.h"

#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define COUNT(array) (sizeof(array) / sizeof *(array))

typedef const struct PublishedTable* Table;

enum { kPlugIn = 5, kDevice = 7, kStream = 8, kNobody = 99, kWildcard = -1, kKindsThrown = 5 };

static int sFailures = 0;
static int* sThrown = NULL;                        /* of the bundle */
static void (*sReleaseObject)(const void*) = NULL; /* of the bundle */

static uint32_t Code(const char* text)
{
    return (uint32_t)(uint8_t)text[0] << 24 | (uint32_t)(uint8_t)text[1] << 16 | (uint32_t)(uint8_t)text[2] << 8 |
           (uint8_t)text[3];
}

/* A number that is no code is told as it is. */
static const char* Told(int32_t status, char (*room)[16])
{
    const uint32_t code = (uint32_t)status;
    if (code > 0xFFFF && code < 0x7F000000)
        snprintf(*room, sizeof *room, "%c%c%c%c", code >> 24, code >> 16 & 255, code >> 8 & 255, code & 255);
    else
        snprintf(*room, sizeof *room, "%d", status);
    return *room;
}

static void Expect(const char* entry, const char* when, int32_t status, const char* wanted)
{
    char told[16];
    if (strcmp(Told(status, &told), wanted) == 0) return;
    ++sFailures;
    fprintf(stderr, "%s, %s: '%s' and not '%s'\n", entry, when, told, wanted);
}

/* ---- The entries */

/* What an entry is given; each pointer leads to room of its own. */
struct Call {
    PublishedRef mSelf;
    uint32_t mNumber;
    void *mAddress, *mSize, *mData, *mStamp;
};

static int32_t Procedure(uint32_t device, const void* now, const void* input, const void* inputTime, void* output,
                         const void* outputTime, void* clientData)
{
    (void)device, (void)now, (void)input, (void)inputTime, (void)output, (void)outputTime, (void)clientData;
    return 0;
}

static const PublishedUUID kCurrent = {
    {0xE9, 0x6C, 0x3E, 0x92, 0xE7, 0x45, 0x4C, 0xB7, 0xBA, 0x91, 0xB3, 0x3C, 0x68, 0xF2, 0xF0, 0x26}};

/* References are as many afterwards as before. */
static int32_t Query(Table t, PublishedRef self, void** interface)
{
    const int32_t status = t->QueryInterface(self, kCurrent, interface);
    if (status == 0) t->Release(self);
    return status;
}

static int32_t CountUp(Table t, PublishedRef self)
{
    const uint32_t count = t->AddRef(self);
    if (count != 0) t->Release(self);
    return (int32_t)count;
}

static int32_t CountDown(Table t, PublishedRef self)
{
    t->AddRef(self);
    return (int32_t)t->Release(self);
}

static uint32_t Size(const struct Call* c)
{
    return c->mSize ? *(uint32_t*)c->mSize : 8;
}

/* X(entry, kind of object, what it says to a device or a stream without I/O, what it reaches first, the pointers that
 * it needs (a: address, s: size, d: data, t: time), whether it tells failures, the call) */
#define ENTRIES(X)                                                                                                     \
    X(QueryInterface, 'P', "0", "reta", "d", 1, Query(t, c->mSelf, c->mData))                                          \
    X(AddRef, 'P', "2", "reta", "", 0, CountUp(t, c->mSelf))                                                           \
    X(Release, 'P', "1", "rele", "", 0, CountDown(t, c->mSelf))                                                        \
    X(Initialize, 'P', "0", "init", "", 1, t->Initialize(c->mSelf))                                                    \
    X(InitializeWithObjectID, 'P', "0", "iwid", "", 1, t->InitializeWithObjectID(c->mSelf, kPlugIn))                   \
    X(Teardown, 'P', "0", "tear", "", 1, t->Teardown(c->mSelf))                                                        \
    X(DeviceAddIOProc, 'D', "unop", "addp", "", 1, t->DeviceAddIOProc(c->mSelf, c->mNumber, Procedure, c->mData))      \
    X(DeviceRemoveIOProc, 'D', "unop", "remp", "", 1, t->DeviceRemoveIOProc(c->mSelf, c->mNumber, Procedure))          \
    X(DeviceCreateIOProcID, 'D', "unop", "crea", "d", 1,                                                               \
      t->DeviceCreateIOProcID(c->mSelf, c->mNumber, Procedure, c->mStamp, c->mData))                                   \
    X(DeviceDestroyIOProcID, 'D', "unop", "dest", "", 1, t->DeviceDestroyIOProcID(c->mSelf, c->mNumber, Procedure))    \
    X(DeviceStart, 'D', "unop", "strt", "", 1, t->DeviceStart(c->mSelf, c->mNumber, Procedure))                        \
    X(DeviceStartAtTime, 'D', "unop", "stat", "", 1,                                                                   \
      t->DeviceStartAtTime(c->mSelf, c->mNumber, Procedure, c->mStamp, 0))                                             \
    X(DeviceStartAtNoTime, 'D', "unop", "strt", "", 1, t->DeviceStartAtTime(c->mSelf, c->mNumber, Procedure, NULL, 0)) \
    X(DeviceStartNothingAtTime, 'D', "unop", "strt", "", 1,                                                            \
      t->DeviceStartAtTime(c->mSelf, c->mNumber, NULL, c->mStamp, 0))                                                  \
    X(DeviceStop, 'D', "unop", "stop", "", 1, t->DeviceStop(c->mSelf, c->mNumber, Procedure))                          \
    X(DeviceRead, 'D', "unop", "read", "td", 1, t->DeviceRead(c->mSelf, c->mNumber, c->mStamp, c->mData))              \
    X(DeviceGetCurrentTime, 'D', "0", "time", "t", 1, t->DeviceGetCurrentTime(c->mSelf, c->mNumber, c->mStamp))        \
    X(DeviceTranslateTime, 'D', "0", "tran", "td", 1,                                                                  \
      t->DeviceTranslateTime(c->mSelf, c->mNumber, c->mStamp, c->mData))                                               \
    X(DeviceGetNearestStartTime, 'D', "0", "near", "t", 1,                                                             \
      t->DeviceGetNearestStartTime(c->mSelf, c->mNumber, c->mStamp, 0))                                                \
    X(DeviceGetPropertyInfo, 'D', "0", "hasp", "", 1,                                                                  \
      t->DeviceGetPropertyInfo(c->mSelf, c->mNumber, 0, 1, Code("nsrt"), c->mSize, c->mData))                          \
    X(DeviceGetInfoOfNoProperty, 'D', "who?", "hasp", "", 1,                                                           \
      t->DeviceGetPropertyInfo(c->mSelf, c->mNumber, 0, 1, Code("zzzz"), NULL, NULL))                                  \
    X(DeviceGetProperty, 'D', "0", "getd", "sd", 1,                                                                    \
      t->DeviceGetProperty(c->mSelf, c->mNumber, 0, 1, Code("nsrt"), c->mSize, c->mData))                              \
    X(DeviceSetProperty, 'D', "0", "setd", "d", 1,                                                                     \
      t->DeviceSetProperty(c->mSelf, c->mNumber, c->mStamp, 0, 1, Code("nsrt"), Size(c), c->mData))                    \
    X(StreamGetPropertyInfo, 'S', "0", "hasp", "", 1,                                                                  \
      t->StreamGetPropertyInfo(c->mSelf, c->mNumber, 0, Code("nsrt"), c->mSize, c->mData))                             \
    X(StreamGetInfoOfNoProperty, 'S', "who?", "hasp", "", 1,                                                           \
      t->StreamGetPropertyInfo(c->mSelf, c->mNumber, 0, Code("zzzz"), NULL, NULL))                                     \
    X(StreamGetProperty, 'S', "0", "getd", "sd", 1,                                                                    \
      t->StreamGetProperty(c->mSelf, c->mNumber, 0, Code("nsrt"), c->mSize, c->mData))                                 \
    X(StreamSetProperty, 'S', "0", "setd", "d", 1,                                                                     \
      t->StreamSetProperty(c->mSelf, c->mNumber, c->mStamp, 0, Code("nsrt"), Size(c), c->mData))                       \
    X(ObjectShow, 'O', "0", "show", "", 0, (t->ObjectShow(c->mSelf, c->mNumber), 0))                                   \
    X(ObjectHasProperty, 'O', "1", "hasp", "a", 0, t->ObjectHasProperty(c->mSelf, c->mNumber, c->mAddress))            \
    X(ObjectIsPropertySettable, 'O', "0", "sett", "ad", 1,                                                             \
      t->ObjectIsPropertySettable(c->mSelf, c->mNumber, c->mAddress, c->mData))                                        \
    X(ObjectGetPropertyDataSize, 'O', "0", "size", "as", 1,                                                            \
      t->ObjectGetPropertyDataSize(c->mSelf, c->mNumber, c->mAddress, 4, c->mStamp, c->mSize))                         \
    X(ObjectGetPropertyData, 'O', "0", "getd", "asd", 1,                                                               \
      t->ObjectGetPropertyData(c->mSelf, c->mNumber, c->mAddress, 4, c->mStamp, c->mSize, c->mData))                   \
    X(ObjectSetPropertyData, 'O', "0", "setd", "ad", 1,                                                                \
      t->ObjectSetPropertyData(c->mSelf, c->mNumber, c->mAddress, 4, c->mStamp, Size(c), c->mData))

#define DEFINE_CALL(entry, kind, plain, reached, needs, tells, call) \
    static int32_t Call##entry(Table t, const struct Call* c)        \
    {                                                                \
        return call;                                                 \
    }
ENTRIES(DEFINE_CALL)

static const struct Entry {
    const char* mName;
    char mKind;
    const char *mPlain, *mReached, *mNeeds;
    int mTells; /* 0: a failure is 0, or nothing */
    int32_t (*mCall)(Table, const struct Call*);
} kEntries[] = {
#define ROW(entry, kind, plain, reached, needs, tells, call) {#entry, kind, plain, reached, needs, tells, Call##entry},
    ENTRIES(ROW)};

/* Without the pointer of this letter, 0: with all. */
static int32_t Make(const struct Entry* entry, PublishedRef plugIn, PublishedRef self, uint32_t number, char without)
{
    struct PublishedAddress address = {Code("nsrt"), Code("glob"), 0};
    uint32_t size = 8;
    double data[32] = {44100}, stamp[32] = {0};
    const struct Call call = {self,
                              number,
                              without == 'a' ? NULL : &address,
                              without == 's' ? NULL : &size,
                              without == 'd' ? NULL : data,
                              without == 't' ? NULL : stamp};
    return entry->mCall(*plugIn, &call);
}

static void DriveEntry(const struct Entry* entry, PublishedRef plugIn)
{
    static const uint32_t kOthers[][5] = {{kPlugIn, kStream, kNobody, 0, UINT32_MAX}, /* than devices */
                                          {kPlugIn, kDevice, kNobody, 0, UINT32_MAX}, /* than streams */
                                          {kNobody, kNobody + 1, 6, 0, UINT32_MAX}};  /* than objects */
    const uint32_t right = entry->mKind == 'S' ? kStream : kDevice;
    for (const char* pointer = "-asdt"; *pointer; ++pointer) {
        const int isNeeded = strchr(entry->mNeeds, *pointer) != NULL;
        const char when[] = {'w', 'i', 't', 'h', 'o', 'u', 't', ' ', *pointer, 0};
        Expect(entry->mName, when, Make(entry, plugIn, plugIn, right, *pointer),
               !isNeeded       ? entry->mPlain
               : entry->mTells ? "nope"
                               : "0");
    }
    Expect(entry->mName, "without a reference", Make(entry, plugIn, NULL, right, 0), entry->mTells ? "nope" : "0");
    const char kinds[] = "DSO", *kind = strchr(kinds, entry->mKind);
    for (size_t other = 0; kind && other < COUNT(kOthers[0]); ++other)
        Expect(entry->mName, "for another object", Make(entry, plugIn, plugIn, kOthers[kind - kinds][other], 0),
               !entry->mTells ? "0"
               : *kind == 'D' ? "!dev"
               : *kind == 'S' ? "!str"
                              : "!obj");
}

static void ThrowBelow(const struct Entry* entry, PublishedRef plugIn)
{
    for (*sThrown = 1; *sThrown <= kKindsThrown; ++*sThrown)
        Expect(entry->mName, "with something thrown below it",
               Make(entry, plugIn, plugIn, entry->mKind == 'S' ? kStream : kDevice, 0),
               !entry->mTells  ? "0"
               : *sThrown <= 3 ? entry->mReached
                               : "what");
    *sThrown = 0;
}

/* ---- Sizes */

/* Of a device and of a stream; the first nine give objects away, and none knows the last. */
static const char kSelectors[] =
    "lnam lmak lchn lccn lcnn capp uid  muid icon "
    "name makr chnm ccnm cnnm akin tran clkd livn diff hidn dflt sflt oink stm# slay ltnc saft goin gone over asrt "
    "fsiz "
    "fsz# bsiz bsz# nsrt nsr# sfmt sfma sfm# sfm? sfmm pft  pfta pft# pft? pftm mix? schn sdir term lisa lisr zzzz";
static const char kScopes[] = "glob inpt outp ptru ****";
enum { kLetters = 5, kObjects = 9, kEdge = 64, kRoom = 2048, kMostUnknown = 16 };

/* The ways to get and to set a property: by address, and the older ones. */
struct Property {
    PublishedRef mPlugIn;
    uint32_t mNumber;
    struct PublishedAddress mAddress;
};

static int32_t GetByAddress(const struct Property* p, uint32_t* size, void* data)
{
    return (*p->mPlugIn)->ObjectGetPropertyData(p->mPlugIn, p->mNumber, &p->mAddress, 0, NULL, size, data);
}

static int32_t SetByAddress(const struct Property* p, uint32_t size, const void* data)
{
    return (*p->mPlugIn)->ObjectSetPropertyData(p->mPlugIn, p->mNumber, &p->mAddress, 0, NULL, size, data);
}

static int32_t GetInTheOldWay(const struct Property* p, uint32_t* size, void* data)
{
    const struct PublishedAddress* a = &p->mAddress;
    if (p->mNumber == kStream)
        return (*p->mPlugIn)->StreamGetProperty(p->mPlugIn, kStream, 0, a->mSelector, size, data);
    return (*p->mPlugIn)
        ->DeviceGetProperty(p->mPlugIn, kDevice, a->mElement, a->mScope == Code("inpt"), a->mSelector, size, data);
}

static int32_t SetInTheOldWay(const struct Property* p, uint32_t size, const void* data)
{
    const struct PublishedAddress* a = &p->mAddress;
    if (p->mNumber == kStream)
        return (*p->mPlugIn)->StreamSetProperty(p->mPlugIn, kStream, NULL, 0, a->mSelector, size, data);
    return (*p->mPlugIn)
        ->DeviceSetProperty(p->mPlugIn, kDevice, NULL, a->mElement, a->mScope == Code("inpt"), a->mSelector, size,
                            data);
}

static int IsAnyOf(const char* statuses, int32_t status)
{
    char told[16];
    return strstr(statuses, Told(status, &told)) != NULL;
}

static void ExpectOfProperty(int isSo, const struct Property* p, uint32_t size, int32_t status, const char* wanted)
{
    if (isSo) return;
    ++sFailures;
    char selector[16], scope[16], told[16];
    fprintf(stderr, "'%s' '%s' %d of %u, %u bytes ('%s'): %s\n", Told((int32_t)p->mAddress.mSelector, &selector),
            Told((int32_t)p->mAddress.mScope, &scope), (int)p->mAddress.mElement, p->mNumber, size, Told(status, &told),
            wanted);
}

/* @param data  at an odd place, as a client may have it */
static void GetSize(const struct Property* p, int32_t (*get)(const struct Property*, uint32_t*, void*), uint32_t size,
                    int isObject)
{
    static uint8_t sBlank[kRoom], sRoom[kRoom];
    memset(sBlank, 0xA5, kRoom);
    memset(sRoom, 0xA5, kRoom);
    uint8_t* const data = sRoom + kEdge + 1;
    uint32_t used = size;
    const int32_t status = get(p, &used, data);
    const uint32_t written = status == 0 ? used : 0;
    ExpectOfProperty(IsAnyOf("0 !siz !dat nope who?", status), p, size, status, "no status of a property");
    ExpectOfProperty(used <= size, p, size, status, "more used than there is");
    ExpectOfProperty(
        memcmp(sRoom, sBlank, kEdge + 1) == 0 && memcmp(data + written, sBlank, kRoom - kEdge - 1 - written) == 0, p,
        size, status, "written where nothing was to be");
    if (status != 0 || !isObject) return;
    const void* object;
    memcpy(&object, data, sizeof object);
    sReleaseObject(object);
}

static void SetSize(const struct Property* p, int32_t (*set)(const struct Property*, uint32_t, const void*),
                    uint32_t size, uint32_t right)
{
    void* const data = calloc(size ? size : 1, 1); /* so that a sanitizer sees a byte too many that is read */
    const int32_t status = set(p, size, data);
    ExpectOfProperty(IsAnyOf(size == right ? "0 !dat nope who? unop" : "!siz nope who?", status), p, size, status,
                     "no status for setting it");
    free(data);
}

static void DriveProperty(const struct Property* p, int isObject)
{
    const Table t = *p->mPlugIn;
    uint32_t right = 0;
    uint8_t isSettable;
    const int32_t known = t->ObjectGetPropertyDataSize(p->mPlugIn, p->mNumber, &p->mAddress, 0, NULL, &right);
    const int32_t settable = t->ObjectIsPropertySettable(p->mPlugIn, p->mNumber, &p->mAddress, &isSettable);
    const int has = t->ObjectHasProperty(p->mPlugIn, p->mNumber, &p->mAddress);
    /* A device has formats by scope, and says only when it is asked that no stream has such an element. */
    ExpectOfProperty(known == settable && IsAnyOf(has ? "0 who?" : "who?", known), p, 0, known,
                     "known to one entry and not to another");
    for (uint32_t size = 0; size <= 2 * right || size <= kMostUnknown; ++size) {
        GetSize(p, GetByAddress, size, isObject);
        GetSize(p, GetInTheOldWay, size, isObject);
        SetSize(p, SetByAddress, size, right);
        SetSize(p, SetInTheOldWay, size, right);
    }
}

static void DriveProperties(PublishedRef plugIn)
{
    static const uint32_t kNumbers[] = {kDevice, kStream}, kElements[] = {0, 1, 2, kNobody, UINT32_MAX};
    for (size_t number = 0; number < COUNT(kNumbers); ++number)
        for (size_t selector = 0; selector < sizeof kSelectors; selector += kLetters)
            for (size_t scope = 0; scope < sizeof kScopes; scope += kLetters)
                for (size_t element = 0; element < COUNT(kElements); ++element) {
                    const struct Property property = {
                        plugIn,
                        kNumbers[number],
                        {Code(kSelectors + selector), Code(kScopes + scope), kElements[element]}};
                    DriveProperty(&property, selector < kObjects * kLetters);
                }
}

/* ---- All of it */

/* On a thread of its own: a lock that an exception left taken would hold it up for ever. */
static void* DriveAnew(void* plugIn)
{
    for (size_t entry = 0; entry < COUNT(kEntries); ++entry) DriveEntry(&kEntries[entry], plugIn);
    DriveProperties(plugIn);
    return NULL;
}

static void* Find(void* library, const char* symbol)
{
    void* const found = library ? dlsym(library, symbol) : NULL;
    if (!found) {
        fprintf(stderr, "%s\n", dlerror());
        exit(2);
    }
    return found;
}

int main(int count, char** words)
{
    alarm(120);
    void* const library = count == 2 ? dlopen(words[1], RTLD_NOW) : NULL;
    void* (*make)(const void*, const void*);
    *(void**)&make = Find(library, "New_TestPlugIn");
    *(void**)&sReleaseObject = Find(library, "ReleaseObject");
    sThrown = Find(library, "gThrown");
    const PublishedRef plugIn = make(NULL, NULL);

    for (size_t entry = 0; entry < COUNT(kEntries); ++entry) DriveEntry(&kEntries[entry], plugIn);
    for (size_t entry = 0; entry < COUNT(kEntries); ++entry) ThrowBelow(&kEntries[entry], plugIn);
    pthread_t thread;
    if (pthread_create(&thread, NULL, DriveAnew, (void*)plugIn) != 0) return 2;
    pthread_join(thread, NULL);
    Expect("Release", "of the last reference", (int32_t)(*plugIn)->Release(plugIn), "0");
    printf("%zu entries driven, %d failures\n", COUNT(kEntries), sFailures);
    return sFailures != 0;
}
