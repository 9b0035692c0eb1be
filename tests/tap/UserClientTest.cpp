#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/IOKit.h"
#include "support/FakeMachine.h"
#include "tap/RingWriter.h"
#include "tap/Service.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>

namespace {

using cf::Ref;
using support::FakeMachine;
using Value = Ref<cf::Object>;

Value Number(int64_t value)
{
    return Value::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}
Value Text(const char* text)
{
    return Value::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}
Value List(const std::vector<Value>& values)
{
    std::vector<CFTypeRef> objects;
    for (const Value& value : values) objects.push_back(value.Get());
    return Value::Adopt(CFArrayCreate(kCFAllocatorDefault, objects.data(), CFIndex(objects.size())));
}
Value Repeated(CFIndex count, const std::function<Value(int64_t)>& make)
{
    std::vector<Value> values;
    for (int64_t i = 0; i < count; ++i) values.push_back(make(i));
    return List(values);
}

/// The dictionary of a client, each value replaceable; an empty one is left out.
struct Properties {
    Value mRate = List({Number(48000), Number(0)});
    Value mChannels = Number(2);
    Value mDevices = List({Text("speakers")});
    Value mProcesses;

    Value Dictionary() const
    {
        std::vector<CFStringRef> keys;
        std::vector<CFTypeRef> values;
        const auto add = [&](CFStringRef key, const Value& value) {
            if (!value) return;
            keys.push_back(key);
            values.push_back(value.Get());
        };
        add(CFSTR("IOAudioSampleRate"), mRate);
        add(CFSTR("IOAudioNumChannels"), mChannels);
        add(CFSTR("IOAudioDevices"), mDevices);
        add(CFSTR("IOAudioProcesses"), mProcesses);
        return Value::Adopt(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), CFIndex(keys.size())));
    }
};

/// A connection to the service, as a client opens it.
class Connection {
public:
    Connection()
    {
        platform::kernel::PublishService(std::make_shared<tap::Service>());
        io_iterator_t iterator = 0;
        EXPECT_EQ(
            IOServiceGetMatchingServices(kIOMasterPortDefault, IOServiceMatching("com_Ostrel_AudioSupport"), &iterator),
            kIOReturnSuccess);
        mService = IOIteratorNext(iterator);
        IOObjectRelease(iterator);
        EXPECT_EQ(IOServiceOpen(mService, mach_task_self(), 0, &mConnect), kIOReturnSuccess);
    }
    ~Connection()
    {
        Close();
        IOObjectRelease(mService);
        platform::kernel::WithdrawServices();
    }
    void Close()
    {
        if (mConnect) IOServiceClose(mConnect);
        mConnect = 0;
    }
    kern_return_t Set(const Properties& properties)
    {
        return IOConnectSetCFProperties(mConnect, properties.Dictionary().Get());
    }
    kern_return_t Call(uint32_t selector, std::vector<uint64_t> in, std::vector<uint64_t>* out = nullptr)
    {
        uint32_t count = out ? uint32_t(out->size()) : 0;
        const kern_return_t status = IOConnectCallScalarMethod(mConnect, selector, in.data(), uint32_t(in.size()),
                                                               out ? out->data() : nullptr, &count);
        if (out && status == kIOReturnSuccess) out->resize(count);
        return status;
    }

    io_service_t mService = 0;
    io_connect_t mConnect = 0;
};

/// Two regions of the sizes that the service announced, and the six scalars that name them.
struct NamedRegions {
    explicit NamedRegions(Connection& connection)
    {
        std::vector<uint64_t> sizes(2);
        EXPECT_EQ(connection.Call(0, {}, &sizes), kIOReturnSuccess);
        EXPECT_EQ(sizes.size(), 2u);
        mAudio.resize(sizes[0] / 8);
        mStatus.resize(sizes[1] / 8);
    }
    std::vector<uint64_t> Scalars() const
    {
        const auto audio = uint64_t(mAudio.data()), status = uint64_t(mStatus.data());
        return {mAudio.size() * 8, audio >> 32, uint32_t(audio), mStatus.size() * 8, status >> 32, uint32_t(status)};
    }
    std::vector<uint64_t> mAudio, mStatus;
};

}  // namespace

TEST(UserClient, EveryHostileConfigurationIsRefusedAndTheNextOneTaken)
{
    FakeMachine::Installed();
    Connection connection;
    const Value text = Text("48000");
    const auto many = [](CFIndex count) { return Repeated(count, [](int64_t i) { return Number(i + 1); }); };
    const auto rate = [](int64_t whole, int64_t fraction) { return List({Number(whole), Number(fraction)}); };
    const auto pair = [](const Value& uid, int64_t right) { return List({List({uid, Number(0), Number(right)})}); };
    using P = Properties;
    const std::pair<Value P::*, Value> spoils[] = {
        {&P::mRate, {}},
        {&P::mRate, text},
        {&P::mRate, List({Number(48000)})},
        {&P::mRate, List({Number(48000), text})},
        {&P::mRate, rate(999, 0xFFFFFFFF)},
        {&P::mRate, rate(768000, 1)},
        {&P::mRate, rate(-1, 0)},
        {&P::mRate, rate(48000, -(1ll << 31) - 1)},
        {&P::mRate, rate(1ll << 40, 0)},
        {&P::mRate, Number(48000)},  // 16.16: under one frame a second
        {&P::mChannels, {}},
        {&P::mChannels, Number(0)},
        {&P::mChannels, Number(3)},
        {&P::mChannels, Number((1ll << 32) + 2)},
        {&P::mDevices, {}},
        {&P::mDevices, List({})},
        {&P::mDevices, List({Text("")})},
        {&P::mDevices, List({Number(1)})},
        {&P::mDevices, List({List({})})},
        {&P::mDevices, List({List({Text("speakers"), Number(0)})})},
        {&P::mDevices, pair(Text("speakers"), -2)},
        {&P::mDevices, pair(List({Text("speakers")}), 1)},
        {&P::mDevices, Repeated(65, [](int64_t) { return Text("speakers"); })},
        {&P::mProcesses, Number(7)},
        {&P::mProcesses, List({Number(0)})},
        {&P::mProcesses, List({Text("7")})},
        {&P::mProcesses, List({Number(-(1ll << 31))})},
        {&P::mProcesses, List({Number(1ll << 31)})},
        {&P::mProcesses, many(4097)},
    };
    for (const auto& [property, value] : spoils) {
        Properties properties;
        properties.*property = value;
        EXPECT_EQ(connection.Set(properties), kIOReturnBadArgument)
            << testing::PrintToString(value ? value.Get()->Describe() : "none");
    }
    EXPECT_EQ(IOConnectSetCFProperties(connection.mConnect, text.Get()), kIOReturnBadArgument);

    Properties good;
    good.mRate = List({Number(44100), Number(int32_t(1u << 31))});  // as a signed word holds one half
    good.mDevices = List({Text("speakers"), List({Text("headset"), Number(2), Number(3)})});
    good.mProcesses = many(4096);
    EXPECT_EQ(connection.Set(good), kIOReturnSuccess);
    EXPECT_EQ(connection.Set(good), kIOReturnError);
}

TEST(UserClient, RatesOfBothVersionsAreUnderstood)
{
    FakeMachine::Installed();
    struct Row {
        Value mRate;
        uint64_t mNanosPerBlock;
    };
    const Row rows[] = {{List({Number(44100), Number(0x80000000)}), 2902461},  // 44100.5
                        {Number(int32_t(44100u << 16)), 2902494},              // 16.16 in a signed word
                        {Number(44100ll << 16 | 0x8000), 2902461}};
    for (const Row& row : rows) {
        Connection connection;
        Properties properties;
        properties.mRate = row.mRate;
        ASSERT_EQ(connection.Set(properties), kIOReturnSuccess);
        NamedRegions regions(connection);
        ASSERT_EQ(connection.Call(5, regions.Scalars()), kIOReturnSuccess);
        connection.Close();
        EXPECT_EQ(regions.mStatus[5], row.mNanosPerBlock);
    }
}

TEST(UserClient, CallsOutOfTurnAndRegionsThatCannotBeAreRefused)
{
    FakeMachine::Installed();
    Connection connection;
    std::vector<uint64_t> sizes(2), one(1);
    EXPECT_EQ(connection.Call(0, {}, &sizes), kIOReturnNotOpen);
    EXPECT_EQ(connection.Call(5, {8, 0, 8, 8, 0, 16}), kIOReturnNotOpen);
    EXPECT_EQ(connection.Call(1, {}), kIOReturnUnsupported);
    EXPECT_EQ(connection.Call(3, {0x1058}), kIOReturnUnsupported);
    EXPECT_EQ(connection.Call(6, {}), kIOReturnUnsupported);

    uint32_t symbols = 99;
    size_t bytes = sizeof symbols;
    const uint64_t version = 0x1058;
    EXPECT_EQ(IOConnectCallMethod(connection.mConnect, 2, &version, 1, nullptr, 0, nullptr, nullptr, &symbols, &bytes),
              kIOReturnSuccess);
    EXPECT_EQ(symbols, 0u);
    bytes = 3;
    EXPECT_EQ(IOConnectCallMethod(connection.mConnect, 2, &version, 1, nullptr, 0, nullptr, nullptr, &symbols, &bytes),
              kIOReturnBadArgument);

    ASSERT_EQ(connection.Set({}), kIOReturnSuccess);
    EXPECT_EQ(connection.Call(0, {}, &one), kIOReturnBadArgument);
    EXPECT_EQ(connection.Call(4, {}), kIOReturnBadArgument);
    EXPECT_EQ(connection.Call(4, {2}), kIOReturnBadArgument);

    const NamedRegions regions(connection);
    const std::vector<uint64_t> good = regions.Scalars();
    const auto spoiled = [&](size_t index, uint64_t value) {
        auto scalars = good;
        scalars[index] = value;
        return connection.Call(5, scalars);
    };
    for (const size_t region : {0, 3}) {
        EXPECT_EQ(spoiled(region, good[region] - 1), kIOReturnBadArgument) << "too small";
        EXPECT_EQ(spoiled(region, UINT64_MAX), kIOReturnBadArgument) << "beyond the address space";
        EXPECT_EQ(spoiled(region + 1, 1ull << 32), kIOReturnBadArgument) << "more than half an address";
        EXPECT_EQ(spoiled(region + 2, good[region + 2] + 4), kIOReturnBadArgument) << "misaligned";
    }
    EXPECT_EQ(connection.Call(5, {good[0], 0, 0, good[3], good[4], good[5]}), kIOReturnBadArgument) << "nowhere";
    EXPECT_EQ(connection.Call(5, {good[0], good[1], good[2], good[3], good[1], good[2]}), kIOReturnBadArgument)
        << "one in the other";
    EXPECT_EQ(connection.Call(5, {good[0], good[1], good[2], good[3], good[4]}), kIOReturnBadArgument);
    EXPECT_TRUE(FakeMachine::Installed().mServer.Captures().empty());
}

TEST(UserClient, ATapCapturesWhatItWasAskedForUntilItIsClosed)
{
    support::FakeAudioServer& server = FakeMachine::Installed().mServer;
    Connection connection;
    Properties properties;
    properties.mDevices = List({Text("speakers"), Text("headset"), Text("speakers")});
    ASSERT_EQ(connection.Set(properties), kIOReturnSuccess);
    NamedRegions regions(connection);
    ASSERT_EQ(connection.Call(4, {0}), kIOReturnSuccess);  // before there is anything to silence
    ASSERT_EQ(connection.Call(5, regions.Scalars()), kIOReturnSuccess);
    EXPECT_EQ(uint32_t(regions.mStatus[0] >> 32), 2u) << "channels, in place at once";
    EXPECT_EQ(connection.Call(5, regions.Scalars()), kIOReturnError);

    auto captures = server.Captures();
    ASSERT_EQ(captures.size(), 2u);
    EXPECT_TRUE(captures["speakers"].mSilenced && captures["headset"].mSilenced);
    ASSERT_EQ(connection.Call(4, {1}), kIOReturnSuccess);
    EXPECT_FALSE(server.Captures()["headset"].mSilenced);

    for (const std::vector<uint32_t>& playing : {std::vector<uint32_t>{7}, {7, 8}, {8}}) {
        auto next = server.NextStreams();
        platform::machine::ServerSnapshot snapshot{.mOutputs = {{.mID = 1, .mUID = "headset"}}};
        for (const uint32_t stream : playing) snapshot.mStreams.push_back({.mID = stream, .mPID = 5, .mOutputs = {1}});
        server.Change(snapshot);
        EXPECT_EQ(next.get(), playing);
    }
    connection.Close();
    EXPECT_TRUE(server.Captures().empty());
    EXPECT_FALSE(server.IsListenedTo());
}

TEST(Service, SaysItsVersionAndOpensOnlyOneKindOfConnection)
{
    FakeMachine::Installed();
    Connection connection;
    const auto version =
        Value::Adopt(IORegistryEntryCreateCFProperty(connection.mService, CFSTR("version"), nullptr, 0));
    EXPECT_TRUE(CFEqual(version.Get(), Number(2).Get()));
    EXPECT_EQ(IORegistryEntryCreateCFProperty(connection.mService, CFSTR("other"), nullptr, 0), nullptr);
    io_connect_t other = 0;
    EXPECT_EQ(IOServiceOpen(connection.mService, mach_task_self(), 1, &other), kIOReturnUnsupported);
}
