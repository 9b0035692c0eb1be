#include "platform/foundation/CFBundle.h"

#include "platform/foundation/PropertyList.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <optional>

namespace {

class Descriptor {
public:
    // Non-blocking, because opening a pipe would wait for its writer.
    explicit Descriptor(const std::string& path) : mNumber(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
    ~Descriptor()
    {
        if (mNumber >= 0) close(mNumber);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return mNumber; }

private:
    const int mNumber;
};

/// The bytes of a regular file of at most kPropertyListMaxBytes.
std::optional<std::string> ReadSmallFile(const std::string& path)
{
    const Descriptor file(path);
    struct stat status;
    if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    if (static_cast<uint64_t>(status.st_size) > cf::kPropertyListMaxBytes) return {};
    std::string bytes(static_cast<size_t>(status.st_size), '\0');
    size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t got = read(file.Get(), bytes.data() + filled, bytes.size() - filled);
        if (got <= 0) return {};
        filled += static_cast<size_t>(got);
    }
    return bytes;
}

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
    const std::optional<std::string> bytes = ReadSmallFile(std::string(folder) + "/Info.plist");
    if (!bytes) return nullptr;
    const auto list = cf::Ref<cf::Object>::Adopt(cf::CreatePropertyList(bytes->data(), bytes->size()));
    auto info = cf::Ref<cf::Dictionary>::Share(cf::As<cf::Dictionary>(list.Get()));
    return info ? new cf::Bundle(folder, std::move(info)) : nullptr;
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key)
{
    return bundle->Info().Find(key->Text());
}

void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef name)
{
    return bundle->FindFunction(name->Text());
}
