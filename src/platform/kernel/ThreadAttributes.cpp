// Attributes of threads and locks: plain records, the same on every machine.
#include "platform/kernel/Threads.h"

namespace platform::kernel {

int pthread_mutexattr_init(pthread_mutexattr_t* attributes)
{
    return ::pthread_mutexattr_init(attributes);
}

int pthread_mutexattr_destroy(pthread_mutexattr_t* attributes)
{
    return ::pthread_mutexattr_destroy(attributes);
}

int pthread_attr_init(pthread_attr_t* attributes)
{
    return ::pthread_attr_init(attributes);
}

int pthread_attr_destroy(pthread_attr_t* attributes)
{
    return ::pthread_attr_destroy(attributes);
}

int pthread_attr_setdetachstate(pthread_attr_t* attributes, int state)
{
    return ::pthread_attr_setdetachstate(attributes, state);
}

}  // namespace platform::kernel
