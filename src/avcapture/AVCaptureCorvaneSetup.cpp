// The tap's way from nothing to two shared regions and an output buffer, in the order that the service expects.

#include "avcapture/AVCaptureCorvane.h"
#include "avcapture/SampleConversion.h"
#include "avcapture/SymbolLookup.h"
#include "avcapture/TapService.h"
#include "platform/audio/AudioHardware.h"
#include "platform/foundation/CFObjects.h"
#include "platform/kernel/System.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace kernel = platform::kernel;

namespace {

constexpr double kRelaxedWakesASecond = 8;

struct RateParts {
    uint32_t mWhole = 0;
    uint32_t mFraction = 0;  // in units of 2^-32
};

RateParts SplitRate(double rate)
{
    constexpr double kTwoTo32 = 4294967296.0;
    if (!(rate > 0 && rate < kTwoTo32)) return {};
    return {uint32_t(rate), uint32_t(uint64_t(rate * kTwoTo32))};
}

cf::Ref<cf::Number> MakeNumber(uint32_t value)
{
    return cf::Ref<cf::Number>::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
}

cf::Ref<cf::Array> MakeArray(std::initializer_list<CFTypeRef> values)
{
    return cf::Ref<cf::Array>::Adopt(CFArrayCreate(kCFAllocatorDefault, values.begin(), CFIndex(values.size())));
}

cf::Ref<cf::String> CopyUID(uint32_t defaultDeviceSelector)
{
    AudioDeviceID device = 0;
    UInt32 bytes = sizeof device;
    if (AudioHardwareGetProperty(defaultDeviceSelector, &bytes, &device)) return {};
    CFStringRef uid = nullptr;
    bytes = sizeof uid;
    if (AudioDeviceGetProperty(device, 0, false, kAudioDevicePropertyDeviceUID, &bytes, &uid)) return {};
    return cf::Ref<cf::String>::Adopt(uid);
}

AudioDeviceID FindDevice(CFStringRef uid)
{
    AudioDeviceID device = 0;
    AudioValueTranslation translation{&uid, sizeof uid, &device, sizeof device};
    UInt32 bytes = sizeof translation;
    return AudioHardwareGetProperty(kAudioHardwarePropertyDeviceForUID, &bytes, &translation) ? 0 : device;
}

/// A device's UID together with its two stereo channels, counted from 0; empty where it has none.
cf::Ref<cf::Array> AttributeDevice(CFStringRef uid)
{
    const AudioDeviceID device = FindDevice(uid);
    if (device == 0) return {};
    UInt32 channels[2] = {};
    UInt32 bytes = sizeof channels;
    if (AudioDeviceGetProperty(device, 0, false, kAudioDevicePropertyPreferredChannelsForStereo, &bytes, channels))
        return {};
    if (channels[0] == 0 || channels[1] == 0) return {};
    const auto left = MakeNumber(channels[0] - 1), right = MakeNumber(channels[1] - 1);
    return MakeArray({uid, left.Get(), right.Get()});
}

void SetTargetKeys(CFMutableDictionaryRef properties, const cf::Ref<cf::Array>& devices, const __CFArray* processes)
{
    CFDictionarySetValue(properties, CFSTR("IOAudioDevices"), devices.Get());
    // Without this key the service chooses by no process.
    if (processes && CFArrayGetCount(processes) > 0)
        CFDictionarySetValue(properties, CFSTR("IOAudioProcesses"), processes);
}

bool SizesAreSane(uint64_t audioBytes, uint64_t statusBytes)
{
    return audioBytes > 0 && audioBytes <= avcapture::kLargestRegionBytes &&
           statusBytes >= avcapture::StatusRegion::kSmallestBytes && statusBytes <= avcapture::kLargestRegionBytes;
}

uint64_t UpperHalf(uint64_t address)
{
    return address >> 32;
}
uint64_t LowerHalf(uint64_t address)
{
    return uint32_t(address);
}

bool LayoutFits(const AudioStreamBasicDescription& format)
{
    constexpr UInt32 kWanted = kAudioFormatFlagIsPacked;
    constexpr UInt32 kUnwanted =
        kAudioFormatFlagIsAlignedHigh | kAudioFormatFlagIsNonMixable | kAudioFormatFlagIsNonInterleaved;
    return format.mSampleRate > 0 && format.mFormatID == kAudioFormatLinearPCM &&
           (format.mFormatFlags & (kWanted | kUnwanted)) == kWanted &&
           (format.mChannelsPerFrame == 1 || format.mChannelsPerFrame == 2) && format.mFramesPerPacket == 1 &&
           format.mBytesPerPacket == format.mBytesPerFrame;
}

}  // namespace

bool AVCaptureCorvane::ASBDFormatValid(const AudioStreamBasicDescription& format, unsigned int& type)
{
    if (!LayoutFits(format)) return false;
    const bool isBigEndian = format.mFormatFlags & kAudioFormatFlagIsBigEndian;
    const bool isSigned = format.mFormatFlags & kAudioFormatFlagIsSignedInteger;
    const UInt32 sampleBytes = format.mBytesPerFrame / format.mChannelsPerFrame;
    if (format.mFormatFlags & kAudioFormatFlagIsFloat) {
        type = avcapture::kOutputFloat;
        return !isBigEndian && !isSigned && sampleBytes == 4 && format.mBitsPerChannel == 32;
    }
    type = isBigEndian ? avcapture::kOutputInt16Big : avcapture::kOutputInt16Little;
    return isSigned && sampleBytes == 2 && format.mBitsPerChannel == 16;
}

int32_t AVCaptureCorvane::Setup(const __CFArray* devices, const __CFArray* processes)
{
    // Only the type is wanted: with a format that fails the test, set-up goes on all the same.
    ASBDFormatValid(mDetails.audioFormat, mOutputType);
    auto tapped = devices ? cf::Ref<cf::Array>::Share(devices) : CopyDefaultDevices();
    if (CFArrayGetCount(tapped.Get()) == 0) return kAVCaptureNoDevice;

    const avcapture::IOObject service = avcapture::FindTapService();
    if (!service) return kAVCaptureNoExtension;
    if (const int32_t version = avcapture::ReadTapVersion(service); version >= 2) mExtensionVersion = version;
    if (mTranslated && mExtensionVersion < 2) return kAVCaptureNoExtension;

    tapped = AttributeDevices(tapped);
    const int32_t error = Connect(service.Get(), tapped, processes);
    if (error) CloseConnection();
    return error;
}

cf::Ref<cf::Array> AVCaptureCorvane::CopyDefaultDevices()
{
    const CFMutableArrayRef uids = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    auto owned = cf::Ref<cf::Array>::Adopt(uids);  // what is added may fail
    for (const auto selector :
         {kAudioHardwarePropertyDefaultOutputDevice, kAudioHardwarePropertyDefaultSystemOutputDevice}) {
        const auto uid = CopyUID(selector);
        if (uid && !CFArrayContainsValue(uids, uid.Get())) CFArrayAppendValue(uids, uid.Get());
    }
    return owned;
}

cf::Ref<cf::Array> AVCaptureCorvane::AttributeDevices(cf::Ref<cf::Array> devices) const
{
    const CFIndex count = CFArrayGetCount(devices.Get());
    if (count == 0 || mExtensionVersion == 1) return devices;
    const CFMutableArrayRef attributed = CFArrayCreateMutable(kCFAllocatorDefault, count);
    auto owned = cf::Ref<cf::Array>::Adopt(attributed);
    for (CFIndex i = 0; i < count; ++i) {
        const CFTypeRef entry = CFArrayGetValueAtIndex(devices.Get(), i);
        cf::Ref<cf::Array> withChannels;
        if (CFGetTypeID(entry) == CFStringGetTypeID()) withChannels = AttributeDevice(CFStringRef(entry));
        CFArrayAppendValue(attributed, withChannels ? CFTypeRef(withChannels.Get()) : entry);
    }
    return owned;
}

int32_t AVCaptureCorvane::Connect(io_service_t service, const cf::Ref<cf::Array>& devices, const __CFArray* processes)
{
    int32_t error = OpenUserClient(service);
    if (!error) error = Configure(devices, processes);
    if (!error) error = ShareRegions();
    if (!error) error = MakeOutputBuffer();
    return error;
}

int32_t AVCaptureCorvane::OpenUserClient(io_service_t service)
{
    const int32_t error = IOServiceOpen(service, mach_task_self(), 0, &mConnect);
    return error || mExtensionVersion < 2 ? error : ServeSymbolRequest();
}

int32_t AVCaptureCorvane::ServeSymbolRequest()
{
    SInt32 response = 0;
    if (const int32_t error = Gestalt(gestaltSystemVersion, &response)) return error;
    const uint64_t systemVersion = uint32_t(response);

    uint32_t namesBytes = 0;
    size_t outBytes = sizeof namesBytes;
    int32_t error = IOConnectCallMethod(mConnect, avcapture::kGetSymbolRequest, &systemVersion, 1, nullptr, 0, nullptr,
                                        nullptr, &namesBytes, &outBytes);
    if (error || namesBytes == 0) return error;
    if (namesBytes > avcapture::kLargestSymbolRequestBytes) return kIOReturnNotFound;

    std::vector<char> names(namesBytes);
    outBytes = names.size();
    error = IOConnectCallMethod(mConnect, avcapture::kGetSymbolRequest, &systemVersion, 1, nullptr, 0, nullptr, nullptr,
                                names.data(), &outBytes);
    if (error || outBytes == 0) return error;
    return SetSymbolAddrs(uint32_t(response), std::span<const char>(names).first(std::min(outBytes, names.size())));
}

int32_t AVCaptureCorvane::SetSymbolAddrs(uint32_t systemVersion, std::span<const char> names)
{
    std::vector<uint8_t> reply;
    if (const int32_t error = avcapture::AnswerSymbolRequest(systemVersion, names, reply)) return error;
    const uint64_t scalar = systemVersion;
    return IOConnectCallMethod(mConnect, avcapture::kSetSymbolReply, &scalar, 1, reply.data(), reply.size(), nullptr,
                               nullptr, nullptr, nullptr);
}

cf::Ref<cf::Object> AVCaptureCorvane::CopySampleRate() const
{
    const RateParts rate = SplitRate(mDetails.audioFormat.mSampleRate);
    if (mExtensionVersion == 1)
        return cf::Ref<cf::Object>::Adopt(MakeNumber(rate.mWhole << 16 | rate.mFraction >> 16).Detach());
    const auto whole = MakeNumber(rate.mWhole), fraction = MakeNumber(rate.mFraction);
    return cf::Ref<cf::Object>::Adopt(MakeArray({whole.Get(), fraction.Get()}).Detach());
}

int32_t AVCaptureCorvane::Configure(const cf::Ref<cf::Array>& devices, const __CFArray* processes)
{
    const auto rate = CopySampleRate();
    const auto channels = MakeNumber(mDetails.audioFormat.mChannelsPerFrame);
    // A consumer that waits for a quarter of the ring does not need every block at its time.
    const auto publish = MakeNumber(uint32_t(mDetails.audioFormat.mSampleRate / kRelaxedWakesASecond));
    const CFMutableDictionaryRef properties = CFDictionaryCreateMutable(kCFAllocatorDefault, 0);
    const auto owned = cf::Ref<cf::Dictionary>::Adopt(properties);
    SetTargetKeys(properties, devices, processes);
    CFDictionarySetValue(properties, CFSTR("IOAudioSampleRate"), rate.Get());
    CFDictionarySetValue(properties, CFSTR("IOAudioNumChannels"), channels.Get());
    if (!(mFlags & kAVCaptureLowLatencyAudio))
        CFDictionarySetValue(properties, CFSTR("IOAudioPublishFrames"), publish.Get());
    return IOConnectSetCFProperties(mConnect, properties);
}

int32_t AVCaptureCorvane::SetTargets(const __CFArray* devices, const __CFArray* processes)
{
    const auto attributed = AttributeDevices(devices ? cf::Ref<cf::Array>::Share(devices) : CopyDefaultDevices());
    const CFMutableDictionaryRef properties = CFDictionaryCreateMutable(kCFAllocatorDefault, 0);
    const auto owned = cf::Ref<cf::Dictionary>::Adopt(properties);
    SetTargetKeys(properties, attributed, processes);
    return IOConnectSetCFProperties(mConnect, properties);
}

int32_t AVCaptureCorvane::ShareRegions()
{
    uint64_t sizes[2] = {};
    uint32_t count = 2;
    if (const int32_t error =
            IOConnectCallScalarMethod(mConnect, avcapture::kGetRegionSizes, nullptr, 0, sizes, &count))
        return error;
    if (count != 2 || !SizesAreSane(sizes[0], sizes[1])) return kIOReturnError;
    if (!mAudioRegion.Allocate(sizes[0]) || !mStatusRegion.Allocate(sizes[1])) return kAVCaptureNoMemory;

    const vm_address_t audio = mAudioRegion.Address(), status = mStatusRegion.Address();
    const uint64_t regions[] = {sizes[0], UpperHalf(audio),  LowerHalf(audio),
                                sizes[1], UpperHalf(status), LowerHalf(status)};
    if (const int32_t error = IOConnectCallScalarMethod(mConnect, avcapture::kSetRegions, regions, 6, nullptr, nullptr))
        return error;
    mStatus = avcapture::StatusRegion(status, sizes[1], mTranslated);
    const auto ring = avcapture::ReadRingShape(mStatus, sizes[0], mExtensionVersion);
    if (!ring) return kIOReturnError;
    mRing = *ring;
    return 0;
}

int32_t AVCaptureCorvane::MakeOutputBuffer()
{
    const uint64_t page = kernel::vm_page_size();
    const uint64_t bytes = uint64_t(mRing.mOutputFrames) * mRing.mChannelCount * GetOutputSampleSize();
    mOutputCapacity = (bytes + page - 1) / page * page;
    if (mOutputCapacity == 0) return 0;  // no samples leave this tap
    if (!mOutputBuffer.Allocate(mOutputCapacity)) return kAVCaptureNoMemory;
    if (mFlags & kAVCaptureNoMemoryLock) return 0;

    void* const buffer = reinterpret_cast<void*>(mOutputBuffer.Address());
    const int notProtected = kernel::mprotect(buffer, mOutputCapacity,
                                              kernel::VM_PROT_READ | kernel::VM_PROT_WRITE | kernel::VM_PROT_EXECUTE);
    const int notLocked = kernel::mlock(buffer, mOutputCapacity);
    return notLocked ? notLocked : notProtected;
}
