#include "platform/foundation/DistributedCenter.h"

#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/MutexGuard.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Messenger.h"

using platform::kernel::MutexGuard;
using platform::machine::Machine;

namespace cf {

namespace {

struct Told {
    std::string_view mName, mObject;
};

/// A name, a zero byte and an object, which may be empty; nothing where `message` is anything else.
std::optional<Told> Unpack(std::string_view message)
{
    const size_t zero = message.find('\0');
    if (zero == 0 || zero == std::string_view::npos || message.find('\0', zero + 1) != std::string_view::npos)
        return std::nullopt;
    return Told{message.substr(0, zero), message.substr(zero + 1)};
}

/// Null where the bytes are not UTF-8.
Ref<String> MakeString(std::string_view bytes)
{
    return Ref<String>::Adopt(
        CFStringCreateWithCString(kCFAllocatorDefault, std::string(bytes).c_str(), kCFStringEncodingUTF8));
}

}  // namespace

void DistributedCenter::Add(Observation observation)
{
    Listen();
    NotificationCenter::Add(std::move(observation));
}

void DistributedCenter::Post(const Notification& notification)
{
    Tell(notification);
    const std::string message = notification.mName.Get()->Text() + '\0' + ToStdString(notification.mObject.Get());
    // A name that a message cannot hold stays in this process. Whoever was not reached reads what there is when he next
    // looks, so that the result is of no use.
    if (Unpack(message)) static_cast<void>(Machine::Current().GetMessenger().Broadcast(message));
}

void DistributedCenter::Listen()
{
    const MutexGuard guard(mListenMutex);
    if (mIsListening) return;
    mIsListening = Machine::Current().GetMessenger().Listen([this](std::string_view message) { Receive(message); });
}

void DistributedCenter::Receive(std::string_view message)
{
    const std::optional<Told> told = Unpack(message);
    if (!told || !IsObserved(told->mName)) return;
    Notification notification{MakeString(told->mName), {}, {}};  // a name that is observed is UTF-8
    if (!told->mObject.empty() && !(notification.mObject = MakeString(told->mObject))) return;
    Tell(notification);
}

}  // namespace cf
