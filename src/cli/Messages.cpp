#include "cli/Messages.h"

#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"
#include "platform/process/PlainText.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <utility>

#include <unistd.h>

namespace cli {

namespace {

constexpr std::string_view kEraseBelow = "\033[J";  // a line that a narrower window has wrapped takes several rows

// Lists within a sentence stand on lines of their own.
std::string CleanedLines(std::string_view text)
{
    std::string clean;
    for (size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1))
        clean += platform::process::PlainText(text.substr(0, end)) + '\n';
    return clean + platform::process::PlainText(text);
}

// Runs what may be out of memory. @return whether it was done
template <typename Action>
bool Attempt(Action action) noexcept
{
    try {
        action();
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace

Messages& Messages::Standard()
{
    static Messages sMessages(STDERR_FILENO, platform::machine::Machine::Current().GetFiles());
    return sMessages;
}

void Messages::Tell(std::string_view sentence) noexcept
{
    if (!Attempt([&] {
            if (mStyle == Style::JSONLines) return TellJSON({{"type", "message"}, {"text", sentence}});
            TellLine("corvane: " + CleanedLines(sentence));
        }))
        ++mDropped;
}

void Messages::TellLine(std::string_view line, uint64_t waitNanos) noexcept
{
    if (mStyle != Style::Text) return;
    if (!Attempt([&] { WriteLines(std::string(line) + '\n', waitNanos); })) ++mDropped;
}

void Messages::TellJSON(const nlohmann::json& object, uint64_t waitNanos) noexcept
{
    if (mStyle != Style::JSONLines) return;
    if (!Attempt([&] {
            WriteLines(object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n', waitNanos);
        }))
        ++mDropped;
}

void Messages::ShowLine(std::string line) noexcept
{
    if (mStyle != Style::Text || (line.empty() && mLine.empty())) return;
    // A line that was not shown is followed by another; no reader misses it.
    Attempt([&] {
        Write(line + std::string(kEraseBelow) + '\r', 0);
        mLine = std::move(line);
    });
}

bool Messages::WriteLines(const std::string& lines, uint64_t waitNanos)
{
    std::string text = mLine.empty() ? "" : std::string(kEraseBelow);
    if (mDroppedUntold > 0 && mStyle == Style::Text)
        text += fmt::format("corvane: {} messages could not be shown\n", mDroppedUntold);
    text += lines;
    if (!mLine.empty()) text += mLine + std::string(kEraseBelow) + '\r';
    const bool written = Write(text, waitNanos);
    if (!written) ++mDropped;
    mDroppedUntold = written ? 0 : mDroppedUntold + 1;
    return written;
}

bool Messages::Write(std::string_view bytes, uint64_t waitNanos)
{
    const std::string afterCut = mEndsInLine ? "\n" + std::string(bytes) : "";
    if (mEndsInLine) bytes = afterCut;
    const size_t all = bytes.size();
    while (!bytes.empty()) {
        const int64_t written = mFiles.WriteToStream(mDescriptor, bytes.data(), bytes.size(), waitNanos);
        if (written <= 0) break;
        bytes.remove_prefix(size_t(written));
    }
    if (bytes.size() < all) mEndsInLine = !bytes.empty();
    return bytes.empty();
}

}  // namespace cli
