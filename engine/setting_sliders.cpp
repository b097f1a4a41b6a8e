#include "engine/setting_sliders.h"

namespace vellux::engine {

namespace {

const SliderSpan kSliders[] = {
    {"flare-intensity", 0.0, 2.0},
    {"dissolve", 0.0, 1.0},
    {"ring-size", 0.0, 1.0},
    {"star-filter", 0.0, 10.0},
    {"star-rotation", 0.0, 360.0},
    {"streak-density", 0.0, 200.0},
    {"streak-intensity", 0.0, 0.3},
    {"streak-sharpness", 0.0, 30.0},
    {"anamorphic-factor", 1.0, 4.0},
};

}  // namespace

std::span<const SliderSpan> SettingSliders() { return kSliders; }

const SliderSpan* FindSettingSlider(std::string_view setting) {
    for (const SliderSpan& slider : kSliders)
        if (slider.setting == setting) return &slider;
    return nullptr;
}

}  // namespace vellux::engine
