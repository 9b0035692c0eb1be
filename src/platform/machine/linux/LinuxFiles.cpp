#include "platform/machine/linux/LinuxFiles.h"

#include <dlfcn.h>
#include <filesystem>
#include <system_error>

namespace platform::machine {

namespace {

const char sInThisLibrary = 0;

}  // namespace

std::string LinuxFiles::Resolve(const std::string& wellKnownPath)
{
    return wellKnownPath;
}

std::string LinuxFiles::BundleFolder()
{
    Dl_info info{};
    if (dladdr(&sInThisLibrary, &info) == 0 || !info.dli_fname) return {};
    // The loader may have found the library through a relative path or a link.
    std::error_code error;
    const std::filesystem::path library = std::filesystem::canonical(info.dli_fname, error);
    return error ? std::string() : (library.parent_path() / "corvane").string();
}

}  // namespace platform::machine
