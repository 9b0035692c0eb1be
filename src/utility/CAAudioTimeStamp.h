// CAAudioTimeStamp: how time stamps compare: by the first of sample time, host time and word clock that both
// have valid. Two stamps that share none are neither equal nor in order.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

bool operator==(const AudioTimeStamp& a, const AudioTimeStamp& b) noexcept;
bool operator<(const AudioTimeStamp& a, const AudioTimeStamp& b) noexcept;
