// Lists: vectors as the arrays that the platform's calls take.
#pragma once

#include "platform/foundation/CFDictionary.h"

#include <sys/types.h>
#include <string>
#include <vector>

namespace record {

/// Null for an empty one: no choice.
cf::Ref<cf::Array> ArrayOf(const std::vector<pid_t>& processes);
cf::Ref<cf::Array> ArrayOf(const std::vector<std::string>& texts);

}  // namespace record
