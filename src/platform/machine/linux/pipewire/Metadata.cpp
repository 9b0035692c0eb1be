#include "platform/machine/linux/pipewire/Metadata.h"

namespace platform::machine::pipewire {

const pw_metadata_events Metadata::kEvents = {
    .version = PW_VERSION_METADATA_EVENTS,
    .property = [](void* self, uint32_t subject, const char* key, const char* type,
                   const char* text) { return static_cast<Metadata*>(self)->OnProperty(subject, key, type, text); },
};

Metadata::Metadata(pw_registry* registry, uint32_t id, std::function<void()> changed)
    : mID(id),
      mChanged(std::move(changed)),
      mProxy(registry, id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, &kEvents, this)
{
}

const Metadata::Value* Metadata::Find(uint32_t subject, std::string_view key) const
{
    const auto found = mValues.find(Key(subject, key));
    return found == mValues.end() ? nullptr : &found->second;
}

std::string Metadata::Text(std::string_view key) const
{
    const Value* value = Find(0, key);
    return value == nullptr ? std::string() : value->mText;
}

void Metadata::Set(uint32_t subject, const std::string& key, const Value* value)
{
    auto* metadata = mProxy.As<pw_metadata>();
    if (metadata == nullptr) return;
    const char* type = value == nullptr || value->mType.empty() ? nullptr : value->mType.c_str();
    pw_metadata_set_property(metadata, subject, key.c_str(), type, value == nullptr ? nullptr : value->mText.c_str());
}

int Metadata::OnProperty(uint32_t subject, const char* key, const char* type, const char* text)
{
    if (key == nullptr) {  // everything about the object is forgotten
        std::erase_if(mValues, [&](const auto& entry) { return entry.first.first == subject; });
    } else if (text == nullptr) {
        mValues.erase(Key(subject, key));
    } else {
        mValues.insert_or_assign(Key(subject, key), Value{type == nullptr ? "" : type, text});
    }
    mChanged();
    return 0;
}

}  // namespace platform::machine::pipewire
