// DistributedCenter: the notification center of all processes of one user.
// What is posted goes to this process's observers at once, and to the other processes as a message whose bytes are in
// docs/formats/messages.md.
#pragma once

#include "platform/foundation/NotificationCenter.h"

namespace cf {

class DistributedCenter final : public NotificationCenter {
public:
    void Add(Observation observation) override;
    void Post(const Notification& notification) override;

private:
    void Listen();
    void Receive(std::string_view message);

    pthread_mutex_t mListenMutex = PTHREAD_MUTEX_INITIALIZER;
    bool mIsListening = false;
};

}  // namespace cf
