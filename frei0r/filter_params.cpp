// The frei0r filter's parameters. See filter_params.h.
#include "frei0r/filter_params.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string_view>
#include <type_traits>

#include "engine/option_values.h"
#include "engine/setting_names.h"
#include "engine/setting_sliders.h"

namespace vellux::frei0r {

namespace {

using engine::SettingKind;
using engine::SettingName;

// The numbers a slider's 0..1 covers, in the value's own unit.
struct Range {
    double min = 0.0, max = 1.0;
    double At(double slider) const { return min + slider * (max - min); }
    double SliderOf(double value) const { return (value - min) / (max - min); }
};

// ---- The flare's settings ----

// The parameters that carry the flare's settings, by the setting's name; a number's slider spans
// what engine/setting_sliders.h gives it. wireframe-preview has none: it shapes only the settings
// dialog's preview, a dialog no video host opens.
struct SettingParam {
    int index;
    std::string_view name;
};

const SettingParam kSettingParams[] = {
    {4, "flare-intensity"},     {5, "dissolve"},           {6, "ring-size"},          {7, "ring-color"},
    {8, "star-filter"},         {9, "star-rotation"},      {10, "streak-density"},    {11, "streak-intensity"},
    {12, "streak-sharpness"},   {13, "anamorphic-factor"}, {14, "glow"},              {15, "glow-in-light-color"},
    {16, "halo"},               {17, "reflections"},       {18, "anamorphic"},        {19, "anamorphic-streak"},
    {20, "random-streaks"},     {21, "follow-light-size"}, {30, "streaks-off-frame"},
};

// The slider's span of a number parameter (a colour or switch has none: the default is unused).
Range RangeOf(const SettingParam& p) {
    const engine::SliderSpan* slider = engine::FindSettingSlider(p.name);
    return slider != nullptr ? Range{slider->min, slider->max} : Range{};
}

// A setting above (not at) its minimum, as the ring's size is: slider 0 gives this much more, so
// that the slider still maps 0..1 as it is (the default 0.22 is slider 0.22).
constexpr double kAboveMinimum = 0.001;

const SettingParam* SettingAt(int index) {
    for (const SettingParam& p : kSettingParams)
        if (p.index == index) return &p;
    return nullptr;
}

const SettingName& SettingOf(const SettingParam& p) { return *engine::FindSetting(p.name); }

int TypeOf(SettingKind kind) {
    switch (kind) {
    case SettingKind::color: return F0R_PARAM_COLOR;
    case SettingKind::onOff: return F0R_PARAM_BOOL;
    default: return F0R_PARAM_DOUBLE;
    }
}

// ---- The light and the look ----

// A number that is not a setting: the light's, the lens's.
struct NumberParam {
    int index;
    const char* name;
    const char* explanation;
    Range range;
    bool place;   // a place on the frame: a fraction of it as it is, past its edges too, not a slider
    bool whole;
    double (*get)(const FilterSettings&);
    void (*set)(FilterSettings&, double);
};

#define VELLUX_FIELD(expr) \
    [](const FilterSettings& s) { return double(expr); }, [](FilterSettings& s, double v) { expr = std::remove_reference_t<decltype(expr)>(v); }

const NumberParam kNumbers[] = {
    {24, "light-fraction-x", "Where the light is across the frame (0 left, 1 right; beyond is off the frame)", {0.0, 1.0},
     true, false, VELLUX_FIELD(s.lightX)},
    {25, "light-fraction-y", "Where the light is down the frame (0 top, 1 bottom; beyond is off the frame)", {0.0, 1.0},
     true, false, VELLUX_FIELD(s.lightY)},
    {2, "intensity", "How bright the light is (1 is full strength)", {0.0, 4.0}, false, false,
     VELLUX_FIELD(s.lightIntensity)},
    {3, "radius", "The light's size on the frame, as a part of its smaller side (with follow-light-size)", {0.0, 0.25},
     false, false, VELLUX_FIELD(s.lightRadius)},
    {28, "f-number", "With a lens: its aperture, f/1 to f/22 (no wider than the lens opens)",
     {1.0, 22.0}, false, false, VELLUX_FIELD(s.fNumber)},
    {29, "blades", "With a lens: the iris's blades, 0 for round, up to 16", {0.0, 16.0}, false, true, VELLUX_FIELD(s.blades)},
};
#undef VELLUX_FIELD

constexpr int kLightFraction = 0, kColor = 1, kFlareOnly = 22, kTable = 23, kBlend = 26, kLens = 27, kBlades = 29, kFollow = 31;

// An iris has no blades (round) or at least this many.
constexpr int kFewestBlades = 3;

const NumberParam* NumberAt(int index) {
    for (const NumberParam& p : kNumbers)
        if (p.index == index) return &p;
    return nullptr;
}

engine::LightColor ColourOf(const f0r_param_color_t& colour, std::string& problem, std::string_view name) {
    const auto byte = [&](float v) {
        if (!std::isfinite(v) || v < 0.0f || v > 1.0f) problem = std::string(name) + ": a component is outside 0..1; clamped";
        return uint8_t(std::lround(std::clamp(std::isfinite(v) ? double(v) : 0.0, 0.0, 1.0) * 255.0));
    };
    return {byte(colour.r), byte(colour.g), byte(colour.b)};
}

f0r_param_color_t ColourFor(const engine::LightColor& c) {
    return {float(c.red) / 255.0f, float(c.green) / 255.0f, float(c.blue) / 255.0f};
}

// The slider's number, or the problem with it: one that is not a number is ignored (none), one
// outside 0..1 clamped (a place is not a slider, and goes on past the frame's edges).
std::optional<double> Slider(const void* value, std::string_view name, bool place, std::string& problem) {
    const double slider = *static_cast<const double*>(value);
    if (!std::isfinite(slider)) {
        problem = std::string(name) + ": " + engine::NumberText(slider) + " is not a number; ignored";
        return std::nullopt;
    }
    if (place) return slider;
    if (slider < 0.0 || slider > 1.0) problem = std::string(name) + ": " + engine::NumberText(slider) + " is outside 0..1; clamped";
    return std::clamp(slider, 0.0, 1.0);
}

std::string SetSetting(FilterSettings& s, const SettingParam& p, const void* value) {
    const SettingName& setting = SettingOf(p);
    std::string problem;
    switch (setting.kind) {
    case SettingKind::number:
        if (const auto slider = Slider(value, p.name, false, problem)) {
            double unit = RangeOf(p).At(*slider);
            if (!setting.minIncluded && unit <= setting.min) unit = setting.min + kAboveMinimum;
            engine::SetEdit(setting, unit, s.edits);
        }
        break;
    case SettingKind::whole:
        if (const auto slider = Slider(value, p.name, false, problem))
            engine::SetEdit(setting, int32_t(std::lround(RangeOf(p).At(*slider))), s.edits);
        break;
    case SettingKind::color:
        engine::SetEdit(setting, ColourOf(*static_cast<const f0r_param_color_t*>(value), problem, p.name), s.edits);
        break;
    case SettingKind::onOff: engine::SetEdit(setting, *static_cast<const double*>(value) >= 0.5, s.edits); break;
    }
    return problem;
}

void GetSetting(const FilterSettings& s, const SettingParam& p, void* value) {
    const SettingName& setting = SettingOf(p);
    const std::optional<engine::SettingValue> edit = engine::EditOf(setting, s.edits);
    if (!edit) return;
    if (const auto* color = std::get_if<engine::LightColor>(&*edit)) *static_cast<f0r_param_color_t*>(value) = ColourFor(*color);
    else if (const auto* on = std::get_if<bool>(&*edit)) *static_cast<double*>(value) = *on ? 1.0 : 0.0;
    else if (const auto* whole = std::get_if<int32_t>(&*edit)) *static_cast<double*>(value) = RangeOf(p).SliderOf(*whole);
    else *static_cast<double*>(value) = RangeOf(p).SliderOf(std::get<double>(*edit));
}

std::string SetNumber(FilterSettings& s, const NumberParam& p, const void* value) {
    std::string problem;
    const auto slider = Slider(value, p.name, p.place, problem);
    if (!slider) return problem;
    double unit = p.place ? *slider : p.range.At(*slider);
    if (p.whole) unit = std::round(unit);
    if (p.index == kBlades && unit > 0.0 && unit < kFewestBlades) {
        problem = "blades: " + engine::NumberText(unit) + " is not a blade count (0 for round, 3 to 16); 3 are used";
        unit = kFewestBlades;
    }
    p.set(s, unit);
    return problem;
}

}  // namespace

engine::SettingEdits FilterSettings::DefaultEdits() { return engine::DefaultSettingEdits(); }

f0r_param_info_t ParamInfo(int index) {
    if (const SettingParam* p = SettingAt(index)) {
        const SettingName& setting = SettingOf(*p);
        return {setting.name.data(), TypeOf(setting.kind), setting.meaning.data()};
    }
    if (const NumberParam* p = NumberAt(index)) return {p->name, F0R_PARAM_DOUBLE, p->explanation};
    switch (index) {
    case kLightFraction: return {"light-fraction", F0R_PARAM_POSITION, "Where the light is, as fractions of the frame's width and height"};
    case kColor: return {"color", F0R_PARAM_COLOR, "The light's colour, which tints the reflections"};
    case kFlareOnly: return {"flare-only", F0R_PARAM_BOOL, "The flare alone on transparent black, for an overlay track"};
    case kTable: return {"table", F0R_PARAM_STRING, "The flare table: its name (Vellux, LongZoom, CleanPrime) or .rsc file; empty for the default"};
    case kBlend: return {"blend", F0R_PARAM_STRING, "How the flare goes over the frame: display (as the plug-in adds it), add (in linear light) or screen"};
    case kLens: return {"lens", F0R_PARAM_STRING, "Paint a lens's own flare instead of the table's: its name (double-gauss-50mm) or .json file; empty for the table's"};
    case kFollow: return {"follow-brightest-light", F0R_PARAM_BOOL, "Find the brightest light in each frame and follow it, instead of light-fraction-x/y; the flare dims as the light is hidden"};
    default: return {"", F0R_PARAM_DOUBLE, ""};
    }
}

std::string SetParam(FilterSettings& s, int index, const void* value) {
    if (value == nullptr) return {};
    if (const SettingParam* p = SettingAt(index)) return SetSetting(s, *p, value);
    if (const NumberParam* p = NumberAt(index)) return SetNumber(s, *p, value);
    std::string problem;
    switch (index) {
    case kLightFraction: {
        const auto& at = *static_cast<const f0r_param_position_t*>(value);
        if (!std::isfinite(at.x) || !std::isfinite(at.y)) return "light-fraction: not a number; ignored";
        s.lightX = at.x, s.lightY = at.y;
        return {};
    }
    case kColor: s.lightColor = ColourOf(*static_cast<const f0r_param_color_t*>(value), problem, "color"); return problem;
    case kFlareOnly: s.flareOnly = *static_cast<const double*>(value) >= 0.5; return {};
    case kFollow: s.followBrightest = *static_cast<const double*>(value) >= 0.5; return {};
    case kTable:
    case kLens: {
        const char* text = *static_cast<const char* const*>(value);
        (index == kTable ? s.table : s.lens) = text != nullptr ? text : "";
        return {};
    }
    case kBlend: {
        const char* text = *static_cast<const char* const*>(value);
        try {
            s.blend = engine::ParseBlend("blend", text != nullptr ? text : "");
        } catch (const std::invalid_argument& error) {
            s.blend = engine::kDefaultBlend;
            return std::string(error.what()) + "; display is used";
        }
        return {};
    }
    default: return "no parameter " + std::to_string(index);
    }
}

void GetParam(const FilterSettings& s, int index, void* value) {
    if (value == nullptr) return;
    if (const SettingParam* p = SettingAt(index)) {
        GetSetting(s, *p, value);
    } else if (const NumberParam* p = NumberAt(index)) {
        *static_cast<double*>(value) = p->place ? p->get(s) : p->range.SliderOf(p->get(s));
    } else if (index == kLightFraction) {
        *static_cast<f0r_param_position_t*>(value) = {s.lightX, s.lightY};
    } else if (index == kColor) {
        *static_cast<f0r_param_color_t*>(value) = ColourFor(s.lightColor);
    } else if (index == kFlareOnly) {
        *static_cast<double*>(value) = s.flareOnly ? 1.0 : 0.0;
    } else if (index == kFollow) {
        *static_cast<double*>(value) = s.followBrightest ? 1.0 : 0.0;
    } else if (index == kTable || index == kLens) {
        *static_cast<const char**>(value) = (index == kTable ? s.table : s.lens).c_str();
    } else if (index == kBlend) {
        *static_cast<const char**>(value) = engine::BlendName(s.blend);
    }
}

engine::FlareLight LightOn(const FilterSettings& s, int width, int height) {
    engine::FlareLight light;
    light.x = s.lightX * width;
    light.y = s.lightY * height;
    light.color = s.lightColor;
    light.intensity = s.lightIntensity;
    light.radius = s.lightRadius * std::min(width, height);
    return light;
}

}  // namespace vellux::frei0r
