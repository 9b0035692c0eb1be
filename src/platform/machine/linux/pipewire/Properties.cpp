#include "platform/machine/linux/pipewire/Properties.h"

#include <spa/utils/dict.h>

#include <charconv>

namespace platform::machine::pipewire {

void Properties::Merge(const spa_dict* dictionary)
{
    for (uint32_t i = 0; dictionary != nullptr && i < dictionary->n_items; ++i) {
        const spa_dict_item& item = dictionary->items[i];
        if (item.key != nullptr && item.value != nullptr) mValues.insert_or_assign(item.key, item.value);
    }
}

const std::string& Properties::Get(std::string_view key) const
{
    static const std::string kNothing;
    const auto found = mValues.find(key);
    return found == mValues.end() ? kNothing : found->second;
}

uint64_t Properties::Number(std::string_view key, uint64_t otherwise) const
{
    return ParseNumber(Get(key), otherwise);
}

bool Properties::Is(std::string_view key) const
{
    const std::string& text = Get(key);
    return text == "true" || text == "1";
}

uint64_t ParseNumber(std::string_view text, uint64_t otherwise)
{
    uint64_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() ? number : otherwise;
}

}  // namespace platform::machine::pipewire
