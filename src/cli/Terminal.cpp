#include "cli/Terminal.h"

#include <cstdlib>
#include <cwchar>

#include <locale.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr size_t kUsualColumns = 80;
constexpr wchar_t kEmojiSelector = 0xFE0F;  // makes the character before it wide, in some terminals

// Widths are those of UTF-8 whatever locale the command runs in, since names are UTF-8 in each.
class UTF8Scope {
public:
    UTF8Scope() : mBefore(uselocale(UTF8())) {}
    ~UTF8Scope() { uselocale(mBefore); }
    UTF8Scope(const UTF8Scope&) = delete;
    UTF8Scope& operator=(const UTF8Scope&) = delete;

private:
    static locale_t UTF8()
    {
        static const locale_t sUTF8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(0));
        return sUTF8;  // null leaves the locale as it is
    }

    const locale_t mBefore;
};

struct Character {
    size_t mBytes;
    size_t mColumns;
};

Character FirstOf(std::string_view text)
{
    wchar_t code = 0;
    std::mbstate_t state = {};
    const size_t bytes = std::mbrtowc(&code, text.data(), text.size(), &state);
    if (bytes == 0 || bytes > text.size()) return {1, 1};
    if (code == kEmojiSelector) return {bytes, 1};
    const int columns = wcwidth(code);
    return {bytes, columns < 0 ? 2 : size_t(columns)};  // a character newer than the C library is most often wide
}

}  // namespace

TerminalKind FindTerminal(int descriptor)
{
    if (isatty(descriptor) != 1) return TerminalKind::None;
    const char* const name = std::getenv("TERM");
    const std::string_view term = name ? name : "";
    return term.empty() || term == "dumb" ? TerminalKind::Plain : TerminalKind::Complete;
}

size_t TerminalColumns(int descriptor)
{
    winsize size = {};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualColumns;
}

bool IsInForeground(int descriptor)
{
    const pid_t group = tcgetpgrp(descriptor);
    return group < 0 || group == getpgrp();  // below 0: it is not the terminal that controls this process
}

size_t DisplayColumns(std::string_view text)
{
    const UTF8Scope scope;
    size_t columns = 0;
    while (!text.empty()) {
        const Character first = FirstOf(text);
        columns += first.mColumns;
        text.remove_prefix(first.mBytes);
    }
    return columns;
}

std::string CutToColumns(std::string_view text, size_t columns)
{
    if (DisplayColumns(text) <= columns) return std::string(text);
    if (columns == 0) return {};
    const UTF8Scope scope;
    size_t taken = 0, bytes = 0;
    while (bytes < text.size()) {
        const Character next = FirstOf(text.substr(bytes));
        if (taken + next.mColumns > columns - 1) break;
        taken += next.mColumns;
        bytes += next.mBytes;
    }
    return std::string(text.substr(0, bytes)) + "…";
}

}  // namespace cli
