// SmallFile: the bytes of a file that is no larger than a property list may be.
#pragma once

#include <optional>
#include <string>

namespace cf {

/// Whom a file is taken from: from whoever put it there, through links too; or from the user and root alone, and only
/// where nobody else could have written it.
enum class TakenFrom { Anyone, UserOrRoot };

/// A file that is open for reading. Opening never waits, for the writer of a pipe for instance.
class SmallFile {
public:
    SmallFile(const std::string& path, TakenFrom from);
    ~SmallFile();
    SmallFile(const SmallFile&) = delete;
    SmallFile& operator=(const SmallFile&) = delete;

    /// Why the file is refused, as the end of a sentence that begins with it; "" where it is not.
    const std::string& Refusal() const { return mRefusal; }

    /// What is left of the file; nothing where it is refused, cannot be read or has grown too long, which is then the
    /// refusal.
    std::optional<std::string> ReadToEnd();

private:
    const int mDescriptor;
    std::string mRefusal;
};

}  // namespace cf
