// Messages: all that the command says on standard error: sentences, the live line, and JSON lines.
// Why: a terminal that went away, a full disk or a stalled reader never ends or delays a recording.
// Start at Tell.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace platform::machine {
class Files;
}

namespace cli {

/// What cannot be written at once is dropped and counted. No operation throws.
///
/// @thread one at a time
class Messages {
public:
    enum class Style {
        Text,       // sentences, and the live line
        JSONLines,  // an object a line, for a program; no live line
    };

    Messages(int descriptor, platform::machine::Files& files) : mDescriptor(descriptor), mFiles(files) {}
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    /// Those of this process, on standard error.
    static Messages& Standard();

    void SetStyle(Style style) { mStyle = style; }
    Style GetStyle() const { return mStyle; }
    int Descriptor() const { return mDescriptor; }

    /// Shows one sentence above the live line, after the command's name. Control characters are replaced, but for the
    /// ends of lines. In JSON lines: {"type": "message", "text": ...}.
    void Tell(std::string_view sentence) noexcept;

    /// Writes one line as it is, above the live line; not in JSON lines.
    ///
    /// @param waitNanos  the longest wait for a reader that stalls; 0 while recording
    void TellLine(std::string_view line, uint64_t waitNanos = 0) noexcept;

    /// Writes one line of JSON; in JSON lines only.
    ///
    /// @param waitNanos  as for TellLine
    void TellJSON(const nlohmann::json& object, uint64_t waitNanos = 0) noexcept;

    /// Shows the line that stands below all others until the next call; empty removes it. For terminals that take
    /// escape sequences, and in text only.
    ///
    /// @param line  fits the terminal; the cursor stays in its first column
    void ShowLine(std::string line) noexcept;

    /// Leaves the live line where it is: something else has the terminal now.
    void ForgetLine() noexcept { mLine.clear(); }

    /// Messages that could not be written, or only in part.
    uint64_t Dropped() const { return mDropped; }

private:
    bool WriteLines(const std::string& lines, uint64_t waitNanos);
    bool Write(std::string_view bytes, uint64_t waitNanos);

    const int mDescriptor;
    platform::machine::Files& mFiles;
    Style mStyle = Style::Text;
    std::string mLine;         // the live line as it is shown
    bool mEndsInLine = false;  // what was written last was cut
    uint64_t mDropped = 0;
    uint64_t mDroppedUntold = 0;  // of these, since the last message that was written
};

}  // namespace cli
