// Components: what there is to be opened, behind the calls of AudioUnit.h.
#pragma once

#include "platform/audio/units/Unit.h"

#include <memory>

struct OpaqueComponent {
    ComponentDescription mDescription;
    std::unique_ptr<platform::audio::units::Unit> (*mOpen)();  // throws std::bad_alloc
};
