#include "record/Lists.h"

namespace record {

cf::Ref<cf::Array> ArrayOf(const std::vector<pid_t>& processes)
{
    if (processes.empty()) return {};
    CFMutableArrayRef array = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    for (const pid_t pid : processes) {
        const int32_t value = pid;
        const auto number =
            cf::Ref<cf::Number>::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
        CFArrayAppendValue(array, number.Get());
    }
    return cf::Ref<cf::Array>::Adopt(array);
}

cf::Ref<cf::Array> ArrayOf(const std::vector<std::string>& texts)
{
    if (texts.empty()) return {};
    CFMutableArrayRef array = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    for (const std::string& text : texts) {
        const auto string = cf::Ref<cf::String>::Adopt(
            CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
        if (string) CFArrayAppendValue(array, string.Get());
    }
    return cf::Ref<cf::Array>::Adopt(array);
}

}  // namespace record
