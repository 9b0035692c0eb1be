#include "platform/foundation/CFBundle.h"

#include "platform/foundation/PropertyList.h"
#include "platform/foundation/SmallFile.h"

#include <dlfcn.h>

#include <cstdio>

namespace {

bool IsPlainFileName(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos;
}

}  // namespace

namespace cf {

void* Bundle::Load() const
{
    if (void* loaded = mLibrary.load(std::memory_order_acquire)) return loaded;
    const std::string executable = ToStdString(As<String>(mInfo.Get()->Find("CFBundleExecutable")));
    if (!IsPlainFileName(executable)) {
        std::fprintf(stderr, "corvane: the bundle %s names no library of its own\n", mFolder.c_str());
        return nullptr;
    }
    // Threads that come here together get the same handle: the loader keeps one library a file. It runs the
    // library's constructors, so that no lock of ours is held.
    void* library = dlopen((mFolder + "/" + executable).c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!library) {
        std::fprintf(stderr, "corvane: the bundle's library cannot be loaded: %s\n", dlerror());
        return nullptr;
    }
    mLibrary.store(library, std::memory_order_release);
    return library;
}

void* Bundle::FindFunction(const std::string& name) const
{
    void* library = Load();
    if (!library) return nullptr;
    void* function = dlsym(library, name.c_str());
    if (!function) std::fprintf(stderr, "corvane: the bundle %s has no function %s\n", mFolder.c_str(), name.c_str());
    return function;
}

}  // namespace cf

CFBundleRef CFBundleCreate(CFAllocatorRef, const char* folder)
{
    const auto bytes = cf::SmallFile(std::string(folder) + "/Info.plist", cf::TakenFrom::Anyone).ReadToEnd();
    if (!bytes) return nullptr;
    const auto list = cf::Ref<cf::Object>::Adopt(cf::CreatePropertyList(bytes->data(), bytes->size()));
    auto info = cf::Ref<cf::Dictionary>::Share(cf::As<cf::Dictionary>(list.Get()));
    return info ? new cf::Bundle(folder, std::move(info)) : nullptr;
}

CFStringRef CFBundleGetIdentifier(CFBundleRef bundle)
{
    return cf::As<cf::String>(bundle->Info().Find(cf::kBundleIdentifier));
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle)
{
    auto path = cf::Ref<cf::String>::Adopt(
        CFStringCreateWithCString(kCFAllocatorDefault, bundle->Folder().c_str(), kCFStringEncodingUTF8));
    return path && !path.Get()->Text().empty() ? new cf::URL(std::move(path)) : nullptr;
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key)
{
    return bundle->Info().Find(key->Text());
}

void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef name)
{
    return bundle->FindFunction(name->Text());
}
