#include "platform/kernel/IOKit.h"
#include "platform/kernel/Threads.h"

#include <gtest/gtest.h>

#include <sched.h>

#include <algorithm>
#include <atomic>

namespace {

using namespace platform::kernel;

/// What happened to the clients of a service.
struct Events {
    std::atomic<int> mInside{0};  // raised and lowered by callers
    std::atomic<int> mCalls{0};
    std::atomic<int> mOverlaps{0};
    std::atomic<int> mEnds{0};
};

/// Negates scalars and reverses the structure; selector 9 is unsupported.
class Client final : public IOUserClient {
public:
    explicit Client(Events& events) : mEvents(events) {}
    ~Client() override
    {
        mEvents.mOverlaps += mEvents.mInside;
        ++mEvents.mEnds;
    }
    kern_return_t SetProperties(CFTypeRef properties) override
    {
        return cf::As<cf::Dictionary>(properties) ? kIOReturnSuccess : kIOReturnUnsupported;
    }
    kern_return_t Call(MethodCall& call) override
    {
        mEvents.mOverlaps += mEvents.mInside++;
        ++mEvents.mCalls;
        sched_yield();  // lets a call of another thread in, if anything does
        if (call.mScalarsOutCount >= call.mScalarsInCount) {
            std::transform(call.mScalarsIn, call.mScalarsIn + call.mScalarsInCount, call.mScalarsOut, std::negate<>());
            call.mScalarsOutCount = call.mScalarsInCount;
        }
        if (call.mStructureOutBytes >= call.mStructureInBytes) {
            const char* bytes = static_cast<const char*>(call.mStructureIn);
            std::reverse_copy(bytes, bytes + call.mStructureInBytes, static_cast<char*>(call.mStructureOut));
            call.mStructureOutBytes = call.mStructureInBytes;
        }
        --mEvents.mInside;
        return call.mSelector == 9 ? kIOReturnUnsupported : kIOReturnSuccess;
    }

private:
    Events& mEvents;
};

class Service final : public IOService {
public:
    Service(const char* name, Events& events) : mName(name), mEvents(events) {}
    const char* GetClass() const override { return mName; }
    CFTypeRef CopyProperty(CFStringRef key) override
    {
        return CFEqual(key, CFSTR("name")) ? CFRetain(CFStringMakeConstant(mName)) : nullptr;
    }
    kern_return_t Open(uint32_t type, std::unique_ptr<IOUserClient>& client) override
    {
        if (type != 0) return kIOReturnUnsupported;
        client = std::make_unique<Client>(mEvents);
        return kIOReturnSuccess;
    }

private:
    const char* const mName;
    Events& mEvents;
};

class UserClients : public testing::Test {
protected:
    void SetUp() override { PublishService(std::make_shared<Service>("Negator", mEvents)); }
    void TearDown() override { WithdrawServices(); }

    io_service_t Find(const char* serviceClass)
    {
        io_iterator_t iterator = IO_OBJECT_NULL;
        EXPECT_EQ(IOServiceGetMatchingServices(kIOMasterPortDefault, IOServiceMatching(serviceClass), &iterator), 0);
        const io_service_t service = IOIteratorNext(iterator);
        EXPECT_EQ(IOObjectRelease(iterator), kIOReturnSuccess);
        return service;
    }

    io_connect_t Open()
    {
        const io_service_t service = Find("Negator");
        io_connect_t connect = IO_OBJECT_NULL;
        EXPECT_EQ(IOServiceOpen(service, mach_task_self(), 0, &connect), kIOReturnSuccess);
        EXPECT_EQ(IOObjectRelease(service), kIOReturnSuccess);
        return connect;
    }

    Events mEvents;
};

TEST_F(UserClients, AreReachedThroughTheClassOfTheirService)
{
    EXPECT_EQ(Find("Nobody"), IO_OBJECT_NULL);
    PublishService(std::make_shared<Service>("Other", mEvents));
    const io_service_t service = Find("Other");
    const auto name = cf::Ref<cf::Object>::Adopt(IORegistryEntryCreateCFProperty(service, CFSTR("name"), nullptr, 0));
    EXPECT_EQ(name.Get(), CFSTR("Other"));
    EXPECT_EQ(IORegistryEntryCreateCFProperty(service, CFSTR("absent"), nullptr, 0), nullptr);
    WithdrawServices();
    EXPECT_EQ(Find("Other"), IO_OBJECT_NULL);
    io_connect_t connect = IO_OBJECT_NULL;
    EXPECT_EQ(IOServiceOpen(service, mach_task_self(), 1, &connect), kIOReturnUnsupported);
    EXPECT_EQ(connect, IO_OBJECT_NULL);
    EXPECT_EQ(IOServiceOpen(service, mach_task_self(), 0, &connect), kIOReturnSuccess) << "a found one stays";
    EXPECT_EQ(IOServiceClose(connect), kIOReturnSuccess);
    EXPECT_EQ(IOObjectRelease(service), kIOReturnSuccess);
}

TEST_F(UserClients, CallsCarryScalarsAndStructuresBothWaysAndTheStatus)
{
    const io_connect_t connect = Open();
    const uint64_t in[] = {1, 2};
    uint64_t out[3] = {7, 7, 7};
    uint32_t outCount = 3;
    char reversed[4] = {};
    size_t bytes = sizeof reversed;
    EXPECT_EQ(IOConnectCallMethod(connect, 0, in, 2, "abc", 3, out, &outCount, reversed, &bytes), kIOReturnSuccess);
    EXPECT_EQ(outCount, 2u);
    EXPECT_EQ(out[1], uint64_t(-2));
    EXPECT_EQ(out[2], 7u);
    EXPECT_EQ(std::string(reversed, bytes), "cba");
    EXPECT_EQ(IOConnectCallScalarMethod(connect, 9, in, 2, nullptr, nullptr), kIOReturnUnsupported);
    EXPECT_EQ(IOConnectCallScalarMethod(connect, 0, nullptr, 2, nullptr, nullptr), kIOReturnBadArgument);
    const auto properties = cf::Ref<cf::Dictionary>::Adopt(IOServiceMatching("any"));
    EXPECT_EQ(IOConnectSetCFProperties(connect, properties.Get()), kIOReturnSuccess);
    EXPECT_EQ(IOConnectSetCFProperties(connect, CFSTR("text")), kIOReturnUnsupported);
    EXPECT_EQ(mEvents.mEnds, 0);
    EXPECT_EQ(IOServiceClose(connect), kIOReturnSuccess);
    EXPECT_EQ(mEvents.mEnds, 1);
}

TEST_F(UserClients, NumbersThatStandForNothingOrForSomethingElseAreRefused)
{
    const io_connect_t open = Open(), closed = Open();
    const io_service_t service = Find("Negator"), released = Find("Negator");
    ASSERT_EQ(IOServiceClose(closed), kIOReturnSuccess);
    ASSERT_EQ(IOObjectRelease(released), kIOReturnSuccess);
    for (const io_connect_t connect : {IO_OBJECT_NULL, ~io_connect_t(0), closed, service, released}) {
        EXPECT_EQ(IOServiceClose(connect), kIOReturnBadArgument);
        EXPECT_EQ(IOConnectCallScalarMethod(connect, 0, nullptr, 0, nullptr, nullptr), kIOReturnBadArgument);
        EXPECT_EQ(IOConnectSetCFProperties(connect, CFSTR("text")), kIOReturnBadArgument);
    }
    for (const io_service_t object : {IO_OBJECT_NULL, ~io_service_t(0), open, closed, released}) {
        io_connect_t connect = 5;
        EXPECT_EQ(IOServiceOpen(object, mach_task_self(), 0, &connect), kIOReturnNoDevice);
        EXPECT_EQ(connect, IO_OBJECT_NULL);
        EXPECT_EQ(IOObjectRelease(object), kIOReturnBadArgument);
        EXPECT_EQ(IOIteratorNext(object), IO_OBJECT_NULL);
        EXPECT_EQ(IORegistryEntryCreateCFProperty(object, CFSTR("name"), nullptr, 0), nullptr);
    }
    io_iterator_t iterator = IO_OBJECT_NULL;
    EXPECT_EQ(IOServiceGetMatchingServices(kIOMasterPortDefault, nullptr, &iterator), kIOReturnBadArgument);
    EXPECT_EQ(IOServiceClose(open), kIOReturnSuccess);
    EXPECT_EQ(IOObjectRelease(service), kIOReturnSuccess);
}

TEST_F(UserClients, CallsComeOneAtATimeAndCloseWaitsForTheOneUnderWay)
{
    struct Caller {
        pthread_t mThread;
        io_connect_t mConnect;
        kern_return_t mLast;
        static void* Run(void* argument)
        {
            auto& caller = *static_cast<Caller*>(argument);
            do {
                caller.mLast = IOConnectCallScalarMethod(caller.mConnect, 0, nullptr, 0, nullptr, nullptr);
            } while (caller.mLast == kIOReturnSuccess);
            return nullptr;
        }
    };
    for (int round = 1; round <= 100; ++round) {
        mEvents.mCalls = 0;
        Caller callers[2];
        const io_connect_t connect = Open();
        for (Caller& caller : callers) {
            caller.mConnect = connect;
            ASSERT_EQ(platform::kernel::pthread_create(&caller.mThread, nullptr, &Caller::Run, &caller), 0);
        }
        while (mEvents.mCalls == 0) sched_yield();
        EXPECT_EQ(IOServiceClose(connect), kIOReturnSuccess);
        EXPECT_EQ(mEvents.mEnds, round) << "gone when the close returns";
        for (Caller& caller : callers) {
            platform::kernel::pthread_join(caller.mThread, nullptr);
            EXPECT_EQ(caller.mLast, kIOReturnBadArgument);
        }
    }
    EXPECT_EQ(mEvents.mOverlaps, 0);
}

}  // namespace
