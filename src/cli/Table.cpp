#include "cli/Table.h"

#include "cli/Output.h"
#include "cli/Terminal.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

namespace cli {

namespace {

constexpr size_t kFewestColumns = 3;  // of the table; what they say is needed on any terminal
constexpr size_t kGap = 2;

/// How many columns of these widths a terminal has room for.
size_t CountFitting(const std::vector<size_t>& widths, size_t room)
{
    size_t used = 0, count = 0;
    while (count < widths.size() && (count < kFewestColumns || used + widths[count] <= room))
        used += widths[count++] + kGap;
    return count;
}

}  // namespace

void Table::Add(std::vector<std::string> cells)
{
    for (std::string& cell : cells) cell = Printable(cell);
    mRows.push_back(std::move(cells));
}

void Table::Print() const
{
    const bool isTerminal = isatty(STDOUT_FILENO) == 1;
    std::vector<size_t> widths(mRows.front().size());
    for (const auto& row : mRows)
        for (size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], DisplayColumns(row[i]));
    const size_t columns = isTerminal ? CountFitting(widths, TerminalColumns(STDOUT_FILENO)) : widths.size();
    for (size_t n = isTerminal ? 0 : 1; n < mRows.size(); ++n) {
        std::string line;
        for (size_t i = 0; i < columns; ++i) {
            line += mRows[n][i];
            if (i + 1 < columns) line.append(widths[i] - DisplayColumns(mRows[n][i]) + kGap, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        fmt::print("{}\n", line);
    }
}

}  // namespace cli
