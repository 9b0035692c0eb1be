#include "utility/CADebug.h"

#include <cstdio>
#include <cstdlib>

namespace {

bool IsPrintable(char character) noexcept
{
    return character >= ' ' && character <= '~';
}

const char* Level(bool isThrow, bool isAssert) noexcept
{
    if (isAssert) return "Assert";
    return isThrow ? "Throw" : "Trace";
}

void Print(const char* name, UInt32 code, const char* file, const char* where, bool isThrow, bool isAssert)
{
    if (!name || !*name) name = Level(isThrow, isAssert);
    if (code == 0)
        std::fprintf(stderr, "%s @ %s:%s\r\n", name, file, where);
    else
        std::fprintf(stderr, "%s : %i @ %s:%s\r\n", name, static_cast<int>(code), file, where);
}

[[noreturn]] void Leave(UInt32 code)
{
    std::exit(code ? static_cast<int>(code) : 1);
}

}  // namespace

char* CAStringForOSType(UInt32 code, char* text)
{
    const char characters[] = {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
    // The first character alone decides, so that a code with an odd later byte still reads as a word.
    if (IsPrintable(characters[0]) && characters[0] != '\\')
        std::snprintf(text, kOSTypeStringBytes, "'%c%c%c%c'", characters[0], characters[1], characters[2],
                      characters[3]);
    else
        std::snprintf(text, kOSTypeStringBytes, "0x%08X", code);
    return text;
}

void Debug(const char* name, UInt32 code, const char* file, const char* where, bool isThrow, bool isAssert)
{
    Print(name, code, file, where, isThrow, isAssert);
    if (isAssert) Leave(code);
}

void Fatal(const char* name, UInt32 code, const char* file, const char* where, bool isThrow, bool isAssert)
{
    Print(name, code, file, where, isThrow, isAssert);
    Leave(code);
}
