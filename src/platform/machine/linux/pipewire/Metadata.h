// Metadata: one of the server's tables of notes about objects.
#pragma once

#include "platform/machine/linux/pipewire/Proxy.h"

#include <pipewire/extensions/metadata.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace platform::machine::pipewire {

class Metadata {
public:
    struct Value {
        std::string mType;
        std::string mText;
        bool operator==(const Value&) const = default;
    };
    using Key = std::pair<uint32_t, std::string>;  // the object's number (0: the whole graph), and what of it

    Metadata(pw_registry* registry, uint32_t id, std::function<void()> changed);

    uint32_t ID() const { return mID; }
    const std::map<Key, Value>& Values() const { return mValues; }
    /// Null where nothing is noted.
    const Value* Find(uint32_t subject, std::string_view key) const;
    /// The text of a note of the whole graph, or an empty one.
    std::string Text(std::string_view key) const;

    /// Asks the server to note `value`, or to forget what is noted where it is null.
    void Set(uint32_t subject, const std::string& key, const Value* value);

private:
    int OnProperty(uint32_t subject, const char* key, const char* type, const char* text);

    static const pw_metadata_events kEvents;

    uint32_t mID;
    std::function<void()> mChanged;
    std::map<Key, Value> mValues;
    Proxy mProxy;
};

}  // namespace platform::machine::pipewire
