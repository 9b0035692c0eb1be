#include "cli/NameMatching.h"

#include <fmt/format.h>
#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <numeric>

namespace cli {

namespace {

constexpr size_t kMostShown = 8;

// Upper case first: two letters that differ in lower case alone, as the two small sigmas, are alike then.
uint32_t FoldedCode(uint32_t code)
{
    static const locale_t sUnicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{});
    if (sUnicode == locale_t{}) return code < 128 ? uint32_t(towlower(wint_t(code))) : code;
    return uint32_t(towlower_l(towupper_l(wint_t(code), sUnicode), sUnicode));
}

/// Takes a character off the text. @return its code, or a byte that is not UTF-8 with the top bit set
uint32_t TakeCharacter(std::string_view& text)
{
    constexpr uint32_t kStrayByte = 0x80000000;
    const auto first = uint8_t(text[0]);
    const int ones = std::countl_one(first);
    const size_t bytes = ones == 0 ? 1 : size_t(ones);
    uint32_t code = ones == 0 ? first : first & (0x7Fu >> ones);
    bool isValid = ones != 1 && ones <= 4 && bytes <= text.size();
    for (size_t i = 1; isValid && i < bytes; ++i) {
        isValid = uint8_t(text[i]) >> 6 == 2;
        code = code << 6 | (uint8_t(text[i]) & 0x3Fu);
    }
    text.remove_prefix(isValid ? bytes : 1);
    return isValid ? code : kStrayByte | first;
}

void Append(uint32_t code, std::string& text)
{
    if (code >= 0x80000000 || code < 0x80) {
        text += char(code);
        return;
    }
    const int more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    constexpr uint8_t kFirst[] = {0, 0xC0, 0xE0, 0xF0};
    text += char(kFirst[more] | code >> (6 * more));
    for (int i = more - 1; i >= 0; --i) text += char(0x80 | (code >> (6 * i) & 0x3F));
}

// Levenshtein's distance, in bytes.
size_t Distance(const std::string& a, const std::string& b)
{
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t(0));
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t replaced = diagonal + (a[i] != b[j]);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j + 1] + 1, row[j] + 1, replaced});
        }
    }
    return row.back();
}

// A name that contains the wanted one, or is contained in it, is as near as one with a wrong letter.
size_t Unlikeness(const std::string& wanted, const std::string& name)
{
    const std::string a = Folded(wanted), b = Folded(name);
    const bool contained = !a.empty() && !b.empty() && (a.find(b) != b.npos || b.find(a) != b.npos);
    return contained ? 1 : Distance(a, b);
}

}  // namespace

std::string Folded(std::string_view text)
{
    std::string folded;
    while (!text.empty()) {
        const uint32_t code = TakeCharacter(text);
        Append(code >= 0x80000000 ? code : FoldedCode(code), folded);
    }
    return folded;
}

Match Compare(const std::string& wanted, const std::vector<std::string>& names)
{
    const std::string sought = Folded(wanted);
    Match best = Match::None;
    if (wanted.empty()) return best;
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string name = Folded(names[i]);
        const size_t place = name.find(sought);
        Match match = Match::Part;
        if (place == name.npos)
            match = Match::None;
        else if (i == 0 && names[i] == wanted)
            match = Match::Exact;
        else if (name == sought)
            match = i == 0 ? Match::Whole : Match::OtherWhole;
        else if (place == 0)
            match = Match::Beginning;
        best = std::min(best, match);
    }
    return best;
}

std::vector<std::string> ClosestFirst(const std::string& wanted, std::vector<std::string> names)
{
    std::stable_sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
        return Unlikeness(wanted, a) < Unlikeness(wanted, b);
    });
    return names;
}

std::string ListClosest(const std::string& wanted, std::vector<std::string> names)
{
    std::ranges::sort(names);
    names.erase(std::unique(names.begin(), names.end()), names.end());
    names = ClosestFirst(wanted, std::move(names));
    const size_t more = names.size() - std::min(names.size(), kMostShown);
    names.resize(names.size() - more);
    const std::string list = fmt::format("{}", fmt::join(names, ", "));
    return more == 0 ? list : fmt::format("{} and {} more", list, more);
}

}  // namespace cli
