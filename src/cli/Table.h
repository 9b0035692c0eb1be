// Table: rows of text in columns, as wide as they need to be.
#pragma once

#include <string>
#include <vector>

namespace cli {

class Table {
public:
    /// @param headings  of the columns, shown on a terminal alone
    explicit Table(std::vector<std::string> headings) : mRows{std::move(headings)} {}

    /// @param cells  one a column; control characters are replaced
    void Add(std::vector<std::string> cells);

    /// On standard output. On a terminal, the last columns are left out where a row would not fit.
    void Print() const;

private:
    std::vector<std::vector<std::string>> mRows;  // the headings first
};

}  // namespace cli
