#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/CFUUID.h"
#include "platform/kernel/Threads.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using cf::Ref;

Ref<cf::String> String(const char* text)
{
    return Ref<cf::String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}

Ref<cf::Number> Whole(int64_t value)
{
    return Ref<cf::Number>::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

Ref<cf::Number> Real(double value)
{
    return Ref<cf::Number>::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value));
}

Ref<cf::Array> Array(std::initializer_list<CFTypeRef> values)
{
    return Ref<cf::Array>::Adopt(CFArrayCreate(kCFAllocatorDefault, values.begin(), CFIndex(values.size())));
}

/// Says when it is destroyed.
class Probe final : public cf::Object {
public:
    explicit Probe(int& ends) : mEnds(ends) {}
    ~Probe() override { ++mEnds; }
    CFTypeID TypeID() const override { return 1000; }
    std::string Describe() const override { return "probe"; }

private:
    int& mEnds;
};

TEST(CFString, AcceptsEveryFormOfUTF8AndNothingElse)
{
    for (const char* text : {"", "a", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                             "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA9z"}) {
        ASSERT_TRUE(String(text)) << text;
        EXPECT_EQ(cf::ToStdString(String(text).Get()), text);
    }
    for (const char* text :
         {"\x80", "\xBF", "\xC1\xBF", "\xC2", "\xC2z", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xE1\x80", "\xE1\x80z",
          "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "ok\xF1\x80\x80"}) {
        EXPECT_FALSE(String(text)) << testing::PrintToString(std::string(text));
    }
    EXPECT_FALSE(String(nullptr));
}

TEST(CFString, ConstantsAreOneObjectATextAndOutliveTheirUsers)
{
    const std::string text = "a constant";
    const CFStringRef constant = CFStringMakeConstant(text.c_str());
    {
        const auto user = Ref<cf::String>::Share(constant);
    }
    EXPECT_EQ(CFSTR("a constant"), constant);
    EXPECT_TRUE(CFEqual(constant, String("a constant").Get()));
    EXPECT_EQ(CFHash(constant), CFHash(String("a constant").Get()));
}

TEST(CFString, IsOrderedByCodePointsAndFoldsTheCaseOfASCIIAlone)
{
    struct {
        const char *mA, *mB;
        CFOptionFlags mOptions;
        CFComparisonResult mResult;
    } const cases[] = {
        {"a", "b", 0, kCFCompareLessThan},
        {"a", "B", 0, kCFCompareGreaterThan},
        {"a", "B", kCFCompareCaseInsensitive, kCFCompareLessThan},
        {"COM.Example", "com.eXAMPLE", kCFCompareCaseInsensitive, kCFCompareEqualTo},
        {"[", "A", kCFCompareCaseInsensitive, kCFCompareLessThan},  // folded downwards: [ lies between Z and a
        {"\xC3\x84", "\xC3\xA4", kCFCompareCaseInsensitive, kCFCompareLessThan},
        {"\xEF\xBF\xBF", "\xF0\x90\x80\x80", 0, kCFCompareLessThan},
        {"z", "\xC3\xA4", 0, kCFCompareLessThan},
        {"", "a", 0, kCFCompareLessThan},
    };
    for (const auto& [a, b, options, result] : cases) {
        EXPECT_EQ(CFStringCompare(String(a).Get(), String(b).Get(), options), result) << a << " " << b;
        EXPECT_EQ(CFStringCompare(String(b).Get(), String(a).Get(), options), -result) << b << " " << a;
    }
}

TEST(CFNumber, IsEqualByValueWhateverKindStoresIt)
{
    const int64_t largest = std::numeric_limits<int64_t>::max();
    EXPECT_TRUE(CFEqual(Whole(3).Get(), Real(3.0).Get()));
    EXPECT_EQ(CFHash(Whole(3).Get()), CFHash(Real(3.0).Get()));
    EXPECT_EQ(CFHash(Whole(0).Get()), CFHash(Real(-0.0).Get()));
    EXPECT_FALSE(CFEqual(Whole(3).Get(), Real(3.5).Get()));
    EXPECT_FALSE(CFEqual(Whole(largest).Get(), Real(9223372036854775808.0).Get()));
    EXPECT_TRUE(CFEqual(Whole(-largest - 1).Get(), Real(-9223372036854775808.0).Get()));
    EXPECT_FALSE(CFEqual(Whole(3).Get(), String("3").Get()));
    EXPECT_FALSE(CFEqual(Whole(1).Get(), kCFBooleanTrue));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(CFEqual(Real(nan).Get(), Real(-nan).Get())) << "a list with one in it equals its copy";
    EXPECT_EQ(CFHash(Real(nan).Get()), CFHash(Real(-nan).Get()));
}

TEST(CFNumber, SaysWhetherAConversionHadToCut)
{
    struct {
        Ref<cf::Number> mNumber;
        int32_t mNarrow;
        bool mFits;
    } const cases[] = {
        {Whole(INT32_MAX), INT32_MAX, true},
        {Whole(int64_t(INT32_MAX) + 1), INT32_MAX, false},
        {Whole(INT32_MIN), INT32_MIN, true},
        {Whole(int64_t(INT32_MIN) - 1), INT32_MIN, false},
        {Real(-7.0), -7, true},
        {Real(-7.9), -7, false},
        {Real(1e300), INT32_MAX, false},
        {Real(-1e300), INT32_MIN, false},
        {Real(std::numeric_limits<double>::quiet_NaN()), 0, false},
    };
    for (const auto& [number, narrow, fits] : cases) {
        int32_t value = 99;
        EXPECT_EQ(CFNumberGetValue(number.Get(), kCFNumberSInt32Type, &value), fits) << number.Get()->Describe();
        EXPECT_EQ(value, narrow) << number.Get()->Describe();
    }
    int8_t small = 0;
    EXPECT_TRUE(CFNumberGetValue(Real(-128).Get(), kCFNumberSInt8Type, &small));
    EXPECT_FALSE(CFNumberGetValue(Whole(128).Get(), kCFNumberSInt8Type, &small));
    EXPECT_EQ(small, 127);
    float single = 0;
    EXPECT_TRUE(CFNumberGetValue(Real(0.5).Get(), kCFNumberFloat32Type, &single));
    EXPECT_FALSE(CFNumberGetValue(Real(0.1).Get(), kCFNumberFloat32Type, &single));
    EXPECT_EQ(single, 0.1f);
    EXPECT_FALSE(CFNumberGetValue(Real(-1e300).Get(), kCFNumberFloat32Type, &single));
    EXPECT_EQ(single, -std::numeric_limits<float>::max());
    double real = 0;
    EXPECT_TRUE(CFNumberGetValue(Whole(int64_t(1) << 53).Get(), kCFNumberFloat64Type, &real));
    EXPECT_FALSE(CFNumberGetValue(Whole((int64_t(1) << 53) + 1).Get(), kCFNumberFloat64Type, &real));
    EXPECT_FALSE(CFNumberGetValue(Whole(std::numeric_limits<int64_t>::max()).Get(), kCFNumberFloat64Type, &real));
}

TEST(CFArray, ComparesElementsInOrderAndFindsEqualOnes)
{
    const auto one = Whole(1), two = Whole(2);
    const auto mutableOne = Ref<cf::Array>::Adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0));
    EXPECT_FALSE(CFArrayContainsValue(mutableOne.Get(), one.Get()));
    CFArrayAppendValue(const_cast<CFMutableArrayRef>(mutableOne.Get()), Whole(1).Get());
    EXPECT_TRUE(CFEqual(mutableOne.Get(), Array({one.Get()}).Get()));
    EXPECT_EQ(CFHash(mutableOne.Get()), CFHash(Array({one.Get()}).Get()));
    EXPECT_FALSE(CFEqual(Array({one.Get(), two.Get()}).Get(), Array({two.Get(), one.Get()}).Get()));
    EXPECT_FALSE(CFEqual(Array({one.Get(), two.Get()}).Get(), Array({one.Get()}).Get()));
    EXPECT_TRUE(CFArrayContainsValue(Array({two.Get(), one.Get()}).Get(), Real(1).Get()));
    EXPECT_EQ(CFArrayGetValueAtIndex(mutableOne.Get(), -1), nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(mutableOne.Get(), 1), nullptr);
}

TEST(CFArray, ChangesWhereItIsToldAndLeavesItsCopies)
{
    const auto one = Whole(1), two = Whole(2), three = Whole(3);
    const CFMutableArrayRef array = CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, Array({one.Get()}).Get());
    const auto owner = Ref<cf::Array>::Adopt(array);
    CFArrayAppendValue(array, two.Get());
    const auto copy = Ref<cf::Array>::Adopt(CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, array));
    CFArrayAppendValue(array, three.Get());
    EXPECT_EQ(array->Describe(), "(1, 2, 3)");
    EXPECT_EQ(copy.Get()->Describe(), "(1, 2)");
}

TEST(CFDictionary, ChangesItsEntriesAndLeavesItsCopies)
{
    const CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(kCFAllocatorDefault, 0);
    const auto owner = Ref<cf::Dictionary>::Adopt(dictionary);
    CFDictionarySetValue(dictionary, CFSTR("b"), kCFBooleanTrue);
    CFDictionarySetValue(dictionary, CFSTR("a"), Whole(1).Get());
    const auto copy = Ref<cf::Dictionary>::Adopt(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, dictionary));
    CFDictionarySetValue(dictionary, CFSTR("a"), Whole(2).Get());
    CFDictionaryRemoveValue(dictionary, CFSTR("b"));
    CFDictionaryRemoveValue(dictionary, CFSTR("absent"));
    EXPECT_EQ(dictionary->Describe(), "{ a = 2; }");
    EXPECT_EQ(copy.Get()->Describe(), "{ a = 1; b = true; }");
}

TEST(CFUUID, IsEqualByItsBytesAndWrittenInTheirOrder)
{
    const CFUUIDRef constant = CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0xF8, 0xBB, 0x1C, 0x28, 0xBA, 0xE8,
                                                              0x11, 0xD6, 0x9C, 0x31, 0, 3, 0x93, 0x15, 0xCD, 0x46);
    CFUUIDBytes bytes = CFUUIDGetUUIDBytes(constant);
    const auto same = Ref<cf::UUID>::Adopt(CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, bytes));
    bytes.byte15 ^= 1;
    const auto other = Ref<cf::UUID>::Adopt(CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, bytes));
    EXPECT_TRUE(CFEqual(constant, same.Get()));
    EXPECT_FALSE(CFEqual(constant, other.Get()));
    EXPECT_EQ(constant->Describe(), "F8BB1C28-BAE8-11D6-9C31-00039315CD46");
}

TEST(CFDictionary, IsEqualWhateverTheOrderAndTheFirstOfEqualKeysCounts)
{
    const auto one = Whole(1), two = Whole(2);
    const CFStringRef forth[] = {CFSTR("a"), CFSTR("b"), CFSTR("a")}, back[] = {CFSTR("b"), CFSTR("a")};
    const CFTypeRef values[] = {one.Get(), two.Get(), two.Get()}, swapped[] = {two.Get(), one.Get()};
    const auto a = Ref<cf::Dictionary>::Adopt(CFDictionaryCreate(kCFAllocatorDefault, forth, values, 3));
    const auto b = Ref<cf::Dictionary>::Adopt(CFDictionaryCreate(kCFAllocatorDefault, back, swapped, 2));
    const auto c = Ref<cf::Dictionary>::Adopt(CFDictionaryCreate(kCFAllocatorDefault, back, values, 2));
    EXPECT_TRUE(CFEqual(a.Get(), b.Get()));
    EXPECT_EQ(CFHash(a.Get()), CFHash(b.Get()));
    EXPECT_FALSE(CFEqual(a.Get(), c.Get()));
    EXPECT_EQ(CFDictionaryGetValue(a.Get(), String("a").Get()), one.Get());
    EXPECT_EQ(CFDictionaryGetValue(a.Get(), CFSTR("absent")), nullptr);
}

TEST(Ownership, ContainersKeepWhatTheyHoldAndGiveItUpWithTheirEnd)
{
    int ends = 0;
    const CFTypeRef probe = new Probe(ends);
    const CFStringRef key = CFSTR("key");
    const CFTypeRef array = CFArrayCreate(kCFAllocatorDefault, &probe, 1);
    const CFTypeRef dictionary = CFDictionaryCreate(kCFAllocatorDefault, &key, &array, 1);
    CFRelease(probe);
    CFRelease(array);
    EXPECT_EQ(ends, 0);
    EXPECT_EQ(cf::ToStdString(Ref<cf::String>::Adopt(CFCopyDescription(dictionary)).Get()), "{ key = (probe); }");
    CFRelease(dictionary);
    EXPECT_EQ(ends, 1);
}

TEST(Ownership, CountsRightUnderTwoThreadsAndEndsOnce)
{
    int ends = 0;
    auto shared = Ref<Probe>::Adopt(new Probe(ends));
    const auto shareOften = [](void* argument) -> void* {
        const auto mine = std::unique_ptr<Ref<Probe>>(static_cast<Ref<Probe>*>(argument));
        for (int round = 0; round < 100'000; ++round) Ref<Probe> another(*mine);
        return nullptr;
    };
    pthread_t threads[2];
    for (pthread_t& thread : threads) {
        ASSERT_EQ(platform::kernel::pthread_create(&thread, nullptr, shareOften, new Ref<Probe>(shared)), 0);
    }
    shared = {};
    for (pthread_t thread : threads) platform::kernel::pthread_join(thread, nullptr);
    EXPECT_EQ(ends, 1);
}

}  // namespace
