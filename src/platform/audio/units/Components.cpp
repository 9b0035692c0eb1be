#include "platform/audio/units/Components.h"

#include "platform/audio/units/Converter.h"
#include "platform/audio/units/GenericOutput.h"
#include "platform/audio/units/InputUnit.h"
#include "platform/audio/units/MatrixMixer.h"
#include "platform/audio/units/OutputUnit.h"
#include "platform/audio/units/Varispeed.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace platform::audio::units {

namespace {

template <typename Kind>
std::unique_ptr<Unit> Open()
{
    return std::make_unique<Kind>();
}

constexpr OSType kManufacturer = FourCC("appl");
constexpr OpaqueComponent kComponents[] = {
    {{FourCC("auou"), FourCC("ahal"), kManufacturer, 0, 0}, Open<InputUnit>},
    {{FourCC("auou"), FourCC("def "), kManufacturer, 0, 0}, Open<OutputUnit>},
    {{FourCC("auou"), FourCC("genr"), kManufacturer, 0, 0}, Open<GenericOutput>},
    {{FourCC("aufc"), FourCC("conv"), kManufacturer, 0, 0}, Open<Converter>},
    {{FourCC("aufc"), FourCC("vari"), kManufacturer, 0, 0}, Open<Varispeed>},
    {{FourCC("aumx"), FourCC("mxmx"), kManufacturer, 0, 0}, Open<MatrixMixer>},
};

/// No component has a flag, so that a description that wants one fits none.
bool Fits(const ComponentDescription& has, const ComponentDescription& wants) noexcept
{
    const auto fits = [](OSType field, OSType wanted) { return wanted == 0 || wanted == field; };
    return fits(has.componentType, wants.componentType) && fits(has.componentSubType, wants.componentSubType) &&
           fits(has.componentManufacturer, wants.componentManufacturer) &&
           (wants.componentFlags & wants.componentFlagsMask) == 0;
}

}  // namespace

}  // namespace platform::audio::units

using namespace platform::audio::units;

Component FindNextComponent(Component after, ComponentDescription* description)
{
    if (!description) return nullptr;
    const Component found =
        std::find_if(after ? after + 1 : std::begin(kComponents), std::end(kComponents),
                     [&](const OpaqueComponent& each) { return Fits(each.mDescription, *description); });
    return found == std::end(kComponents) ? nullptr : found;
}

ComponentResult OpenAComponent(Component component, AudioUnit* unit)
{
    if (!component || !unit) return kAudio_ParamError;
    try {
        *unit = component->mOpen().release();
    } catch (const std::bad_alloc&) {
        return kAudio_MemFullError;
    }
    return 0;
}

ComponentResult CloseComponent(AudioUnit unit)
{
    if (!unit) return kAudio_ParamError;
    delete static_cast<Unit*>(unit);
    return 0;
}
