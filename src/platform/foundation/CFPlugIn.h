// CFPlugIn: how many instances of a factory's type live in this process.
// Why: the code of a factory must stay as long as one of its objects does.
#pragma once

#include "platform/foundation/CFBase.h"

/// An object of the factory came to life.
/// @thread any that may block, as the next
void CFPlugInAddInstanceForFactory(CFUUIDRef factory);
/// One went. More going than came is our own bug: an assertion.
void CFPlugInRemoveInstanceForFactory(CFUUIDRef factory);
