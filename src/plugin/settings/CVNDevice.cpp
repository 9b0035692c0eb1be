#include "plugin/settings/CVNDevice.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace {

using cf::As;
using cf::Ref;

Ref<cf::String> MakeString(const char* text)
{
    return Ref<cf::String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}

/// Stores a number of the dictionary in `field`, where there is one.
template <class Field>
bool Read(CFDictionaryRef dictionary, const char* key, CFNumberType type, Field& field)
{
    const auto* number = As<cf::Number>(dictionary->Find(key));
    if (number) CFNumberGetValue(number, type, &field);
    return number != nullptr;
}

/// The same with a copy of an array.
void Read(CFDictionaryRef dictionary, const char* key, Ref<cf::Array>& field)
{
    if (const auto* array = As<cf::Array>(dictionary->Find(key)))
        field = Ref<cf::Array>::Adopt(CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, array));
}

template <class Field>
void Write(CFMutableDictionaryRef dictionary, const char* key, CFNumberType type, Field field)
{
    const auto number = Ref<cf::Number>::Adopt(CFNumberCreate(kCFAllocatorDefault, type, &field));
    CFDictionarySetValue(dictionary, CFSTR(key), number.Get());
}

}  // namespace

CVNDevice::CVNDevice() : mName(MakeString("untitled"))
{
    const std::array<CFTypeRef, 1> devices{CFSTR(kDefaultOutput)};
    mCaptureDevices = Ref<cf::Array>::Adopt(CFArrayCreate(kCFAllocatorDefault, devices.data(), 1));
    mCaptureSources = Ref<cf::Array>::Adopt(CFArrayCreate(kCFAllocatorDefault, nullptr, 0));
}

CVNDevice::CVNDevice(CFDictionaryRef dictionary) : CVNDevice()
{
    mCachedChannelCount = 0;
    Read(dictionary, "captureDevices", mCaptureDevices);
    Read(dictionary, "captureSources", mCaptureSources);
    if (const auto* name = As<cf::String>(dictionary->Find("name"))) mName = Ref<cf::String>::Share(name);
    Read(dictionary, "enabled", kCFNumberSInt8Type, mEnabled);
    Read(dictionary, "sampleRate", kCFNumberFloat64Type, mSampleRate);
    Read(dictionary, "uid", kCFNumberSInt32Type, mUID);
    if (Read(dictionary, "downMix", kCFNumberSInt8Type, mDownMix)) mOutputChannelCount = mDownMix ? 2 : 0;
    Read(dictionary, "softwareSourcesMuted", kCFNumberSInt8Type, mSoftwareSourcesMuted);
    int32_t count = 0;
    if (Read(dictionary, "outputChannelCount", kCFNumberSInt32Type, count)) SetOutputChannelCount(count);
    Read(dictionary, "cachedChannelCount", kCFNumberSInt32Type, mCachedChannelCount);
}

bool CVNDevice::Understands(const std::string& key, CFTypeRef value)
{
    if (key == "captureDevices" || key == "captureSources") return As<cf::Array>(value);
    if (key == "name") return As<cf::String>(value);
    constexpr const char* kNumbers[] = {
        "enabled", "sampleRate", "uid", "downMix", "softwareSourcesMuted", "outputChannelCount", "cachedChannelCount"};
    return std::ranges::find(kNumbers, key) != std::end(kNumbers) && As<cf::Number>(value);
}

std::string CVNDevice::PublishedName(CFStringRef name, int32_t uid)
{
    return name ? "Corvane: " + name->Text() : "Corvane " + std::to_string(int64_t(uid) + 1);
}

std::string CVNDevice::PublishedUID(int32_t uid)
{
    return std::string(kPlugInIdentifier) + ".device." + std::to_string(uid);
}

void CVNDevice::SetOutputChannelCount(int32_t count)
{
    mOutputChannelCount = count < 3 ? count : 0;
    mDownMix = mOutputChannelCount == 2;
}

CFMutableDictionaryRef CVNDevice::CopyDictionaryRepresentation() const
{
    const CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(kCFAllocatorDefault, 0);
    if (mCaptureDevices) CFDictionarySetValue(dictionary, CFSTR("captureDevices"), mCaptureDevices.Get());
    if (mCaptureSources) CFDictionarySetValue(dictionary, CFSTR("captureSources"), mCaptureSources.Get());
    if (mName) CFDictionarySetValue(dictionary, CFSTR("name"), mName.Get());
    Write(dictionary, "enabled", kCFNumberSInt8Type, mEnabled);
    Write(dictionary, "sampleRate", kCFNumberFloat64Type, mSampleRate);
    Write(dictionary, "uid", kCFNumberSInt32Type, mUID);
    Write(dictionary, "downMix", kCFNumberSInt8Type, mDownMix);
    Write(dictionary, "softwareSourcesMuted", kCFNumberSInt8Type, mSoftwareSourcesMuted);
    Write(dictionary, "outputChannelCount", kCFNumberSInt32Type, mOutputChannelCount);
    UInt32 channels = 0;
    if (GetChannelCount(&channels) != 0) channels = 0;
    Write(dictionary, "cachedChannelCount", kCFNumberSInt32Type, int32_t(channels));
    return dictionary;
}

CFArrayRef CVNDevice::CopyTransformedCaptureDevices() const
{
    return CopyTransformedAudioDevices(mCaptureDevices.Get());
}

std::vector<std::unique_ptr<CVNDevice>> CVNDevice::CreateDevicesWithDictionaries(CFArrayRef dictionaries)
{
    std::vector<std::unique_ptr<CVNDevice>> devices;
    for (const auto& item : dictionaries->Get())
        if (const auto* dictionary = As<cf::Dictionary>(item.Get()))
            devices.push_back(std::make_unique<CVNDevice>(dictionary));
    return devices;
}

CFArrayRef CVNDevice::CreateDictionariesWithDevices(const std::vector<std::unique_ptr<CVNDevice>>& devices)
{
    const CFMutableArrayRef dictionaries = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    for (const auto& device : devices) {
        const auto dictionary = Ref<cf::Dictionary>::Adopt(device ? device->CopyDictionaryRepresentation() : nullptr);
        if (dictionary) CFArrayAppendValue(dictionaries, dictionary.Get());
    }
    return dictionaries;
}
