// NameMatching: how a name that a person wrote is compared with the names of applications and devices.
// Why: people write "firefox" for "Firefox ESR" and "hörspiel" for "Hörspiel", and no other match may be taken by
// chance. Start at BestMatches.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The text with its letters of any script in one case, whatever the locale. Bytes that are not UTF-8 stay as they are.
std::string Folded(std::string_view text);

/// How well a name matches, best first.
enum class Match { Exact, Whole, OtherWhole, Beginning, Part, None };

/// @param names  the shown name first, then others that mean the same; empty ones match nothing
Match Compare(const std::string& wanted, const std::vector<std::string>& names);

/// Those of `all` that match best; several where they match equally well, none where nothing matches.
///
/// @param namesOf  gives the names of one, as Compare takes them
template <class Thing, class NamesOf>
std::vector<const Thing*> BestMatches(const std::string& wanted, const std::vector<Thing>& all, NamesOf namesOf)
{
    std::vector<const Thing*> found;
    Match best = Match::None;
    for (const Thing& thing : all) {
        const Match match = Compare(wanted, namesOf(thing));
        if (match < best) found.clear();
        if (match < best) best = match;
        if (match == best && best != Match::None) found.push_back(&thing);
    }
    return found;
}

/// `names` with those most like `wanted` first; equally like ones keep their order.
std::vector<std::string> ClosestFirst(const std::string& wanted, std::vector<std::string> names);

/// The closest names in one line, "Firefox, mpv and 3 more", each once.
std::string ListClosest(const std::string& wanted, std::vector<std::string> names);

}  // namespace cli
