// Properties: what the server says of one object, as text by key.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

struct spa_dict;

namespace platform::machine::pipewire {

class Properties {
public:
    Properties() = default;
    explicit Properties(const spa_dict* dictionary) { Merge(dictionary); }

    /// Takes every entry of `dictionary`, which may be null, over what was there.
    void Merge(const spa_dict* dictionary);

    /// The text, or an empty one.
    const std::string& Get(std::string_view key) const;
    /// The number, or `otherwise` where there is none.
    uint64_t Number(std::string_view key, uint64_t otherwise = 0) const;
    /// Whether the text stands for true.
    bool Is(std::string_view key) const;

private:
    std::map<std::string, std::string, std::less<>> mValues;
};

/// The number that a text starts with, or `otherwise`.
uint64_t ParseNumber(std::string_view text, uint64_t otherwise);

}  // namespace platform::machine::pipewire
