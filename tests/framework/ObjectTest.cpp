// Objects by number, properties by address, and what the system says of the process.
#include "framework/HP_SystemInfo.h"
#include "framework/TestObjects.h"
#include "utility/CAException.h"

#include <gtest/gtest.h>

namespace {

constexpr UInt32 kAnySelector = kAudioObjectPropertySelectorWildcard;
constexpr UInt32 kGlobal = kAudioObjectPropertyScopeGlobal, kAnyScope = kAudioObjectPropertyScopeWildcard;
constexpr UInt32 kAnyElement = kAudioObjectPropertyElementWildcard;

TEST(HP_Object, IsFoundByItsNumberAndClassFromItsBirthToItsTeardown)
{
    TestPlugIn rig;
    TestStream& stream = rig.mDevice->Add(8, true, 1, Integers(16));
    EXPECT_EQ(HP_Object::GetObjectByID(0), nullptr);
    EXPECT_EQ(HP_Object::GetObjectByID(8), &stream);
    EXPECT_EQ(HP_Object::GetStreamByID(8), &stream);
    EXPECT_EQ(HP_Object::GetDeviceByID(8), nullptr);
    EXPECT_EQ(HP_Object::GetStreamByID(7), nullptr);
    HP_Device aggregate(20, kAudioAggregateDeviceClassID, rig.mPlugIn);
    EXPECT_EQ(HP_Object::GetDeviceByID(20), &aggregate);
    aggregate.SetObjectID(21);
    EXPECT_EQ(HP_Object::GetDeviceByID(20), nullptr);
    EXPECT_EQ(HP_Object::GetDeviceByID(21), &aggregate);
    {
        HP_Device later(21, kAudioDeviceClassID, rig.mPlugIn);  // takes the number over
        EXPECT_EQ(HP_Object::GetDeviceByID(21), &later);
        aggregate.SetObjectID(0);
        EXPECT_EQ(HP_Object::GetDeviceByID(21), &later);
    }
    EXPECT_EQ(HP_Object::GetDeviceByID(21), nullptr);

    EXPECT_EQ(HP_Object::GetObjectStateMutexByID(8), rig.mDevice->GetObjectStateMutex());
    const std::weak_ptr<CAMutex> mutex = rig.mDevice->GetObjectStateMutex();
    rig.mDevice->RemoveStream(&stream);
    HP_Object::SetObjectStateMutexForID(7, nullptr);
    EXPECT_EQ(HP_Object::GetObjectStateMutexByID(7), mutex.lock());  // the object is still there
    rig.mDevice->AddStream(&stream);

    // A deleter lives as long as the memory of its mutex: the entries that were set do not keep it.
    const auto witness = std::make_shared<int>();
    for (const AudioObjectID number : {30, 31})
        HP_Object::SetObjectStateMutexForID(number, {new CAMutex("gone"), [witness](CAMutex* gone) { delete gone; }});
    HP_Object::SetObjectStateMutexForID(31, nullptr);
    EXPECT_EQ(witness.use_count(), 1);
}

TEST(HP_Object, ClassesDeriveFromTheirBaseFromItsBaseAndFromTheClassOfAllObjects)
{
    for (const char* pair : {"aagg adev", "clck slct", "clck actl", "span actl", "mute togl", "vlme levl", "vlme actl",
                             "levl levl", "zzzz zzzz", "zzzz aobj"})
        EXPECT_TRUE(HP_Object::IsSubClass(Code(pair), Code(pair + 5))) << pair;
    for (const char* pair : {"adev aagg", "vlme togl", "span levl", "slct clck", "aagg actl", "aobj adev"})
        EXPECT_FALSE(HP_Object::IsSubClass(Code(pair), Code(pair + 5))) << pair;
}

class Listed final : public HP_Property {
public:
    explicit Listed(std::vector<AudioObjectPropertyAddress> addresses) : mAddresses(std::move(addresses)) {}
    bool IsActive(const AudioObjectPropertyAddress&) const override { return mIsActive; }
    UInt32 GetNumberAddressesImplemented() const override { return UInt32(mAddresses.size()); }
    void GetImplementedAddressByIndex(UInt32 index, AudioObjectPropertyAddress& address) const override
    {
        address = mAddresses[index];
    }
    bool mIsActive = true;

private:
    const std::vector<AudioObjectPropertyAddress> mAddresses;
};

TEST(HP_Object, AnAddressFindsTheFirstActivePropertyThatItMatchesWildcardsOnEitherSide)
{
    TestPlugIn rig;
    HP_Object object(0, FourCC("aobj"), rig.mPlugIn);
    Listed one({{FourCC("aaaa"), kGlobal, 3}}), all({{FourCC("bbbb"), kAnyScope, kAnyElement}}),
        clash({{FourCC("cccc"), kGlobal, 0}, {FourCC("bbbb"), kGlobal, 1}, {FourCC("dddd"), kGlobal, 0}});
    object.AddProperty(&one);
    object.AddProperty(&all);
    EXPECT_THROW(object.AddProperty(&clash), CAException);
    const struct {
        AudioObjectPropertyAddress mAddress;
        HP_Property* mFound;
    } cases[] = {
        {{FourCC("aaaa"), kGlobal, 3}, &one},           {{FourCC("aaaa"), kGlobal, 4}, nullptr},
        {{FourCC("aaaa"), kGlobal, kAnyElement}, &one}, {{FourCC("aaaa"), kAudioObjectPropertyScopeInput, 3}, nullptr},
        {{kAnySelector, kAnyScope, kAnyElement}, &one}, {{FourCC("bbbb"), kAudioObjectPropertyScopeInput, 17}, &all},
        {{FourCC("cccc"), kGlobal, 0}, &clash},    // entered before the clash
        {{FourCC("dddd"), kGlobal, 0}, nullptr}};  // never reached
    for (const auto& [address, found] : cases) EXPECT_EQ(object.FindActivePropertyByAddress(address), found);
    one.mIsActive = false;
    EXPECT_EQ(object.FindActivePropertyByAddress({kAnySelector, kGlobal, 3}), &all);
    EXPECT_FALSE(object.HasProperty({FourCC("aaaa"), kGlobal, 3}));
    object.RemoveProperty(&all);
    EXPECT_EQ(object.FindActivePropertyByAddress({FourCC("bbbb"), kGlobal, 0}), nullptr);
}

TEST(HP_Object, HearsWhoListensToWhat)
{
    struct Hearing final : HP_Object {
        using HP_Object::HP_Object;
        void PropertyListenerAdded(const AudioObjectPropertyAddress& address) override
        {
            mHeard += "+" + Letters(address.mSelector);
        }
        void PropertyListenerRemoved(const AudioObjectPropertyAddress& address) override
        {
            mHeard += "-" + Letters(address.mSelector);
        }
        std::string mHeard;
    };
    TestPlugIn rig;
    Hearing object(0, FourCC("aobj"), rig.mPlugIn);
    const AudioObjectPropertyAddress livn{FourCC("livn"), kGlobal, 0};
    object.SetPropertyData({FourCC("lisa"), kGlobal, 0}, 0, nullptr, sizeof livn, &livn, nullptr);
    object.SetPropertyData({FourCC("lisr"), kGlobal, 0}, 0, nullptr, sizeof livn, &livn, nullptr);
    EXPECT_EQ(object.mHeard, "+livn-livn");
}

TEST(HP_SystemInfo, FollowsTheSystemAndFallsBackToWhatLetsSoundThrough)
{
    FakeSystem system;
    system.mValues = {{FourCC("user"), 0}, {FourCC("stmo"), 1}, {FourCC("mast"), 1}};
    HP_SystemInfo::Teardown();  // whatever ran before in this process
    system.mListenedTo.clear();
    HP_SystemInfo::Initialize();
    HP_SystemInfo::Initialize();
    EXPECT_EQ(system.mListenedTo, (std::vector<UInt32>{FourCC("user"), FourCC("pmut"), FourCC("stmo")}));
    const auto words = [] {
        return std::string(HP_SystemInfo::sCurrentUserSessionIsActiveOrHeadless ? "active" : "away") +
               (HP_SystemInfo::sCurrentProcessIsAudible ? " audible" : " mute") +
               (HP_SystemInfo::sIsMixingStereoToMono ? " mono" : " stereo");
    };
    EXPECT_EQ(words(), "away audible mono");
    EXPECT_TRUE(HP_SystemInfo::IsCurrentProcessTheMaster());
    EXPECT_FALSE(HP_SystemInfo::IsCurrentProcessInitingOrExiting());

    const AudioObjectPropertyAddress all[] = {
        {FourCC("stmo"), kGlobal, 0}, {FourCC("user"), kGlobal, 0}, {FourCC("pmut"), kGlobal, 0}};
    system.mValues = {{FourCC("pmut"), 0}};
    system.mListener(7, 3, all, nullptr);  // not the system's
    EXPECT_EQ(words(), "away audible mono");
    system.mListener(kAudioObjectSystemObject, 3, all, nullptr);
    EXPECT_EQ(words(), "active mute mono");  // mono cannot be read, and stays
    HP_SystemInfo::Teardown();
    EXPECT_EQ(system.mListenedTo, std::vector<UInt32>{FourCC("stmo")});
    system.mValues = {{FourCC("stmo"), 0}};
    HP_SystemInfo::Initialize();
    EXPECT_EQ(words(), "active audible stereo");
}

}  // namespace
