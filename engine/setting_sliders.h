// The span a slider covers for each of the flare's number settings (setting_names.h): what a front
// end with sliders offers (the frei0r filter's 0..1 parameters, the GIMP dialog's scale entries).
// A setting's own range is often open-ended ("0 or more"); a slider's span is the part of it an
// artist works in. Typed values past a span stay allowed where the setting's range allows them.
#ifndef VELLUX_ENGINE_SETTING_SLIDERS_H
#define VELLUX_ENGINE_SETTING_SLIDERS_H

#include <span>
#include <string_view>

namespace vellux::engine {

struct SliderSpan {
    std::string_view setting;   // "ring-size"
    double min, max;            // in the setting's own unit
};

// One row per number setting (whole numbers included), in the settings' order; wireframe-preview
// and the switches and colour have none.
std::span<const SliderSpan> SettingSliders();
const SliderSpan* FindSettingSlider(std::string_view setting);   // null when the setting has none

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SETTING_SLIDERS_H
