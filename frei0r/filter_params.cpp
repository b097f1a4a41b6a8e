#include "frei0r/filter_params.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include "engine/option_values.h"

namespace vellux::frei0r {

namespace {

using engine::SettingEdits;

// A double parameter: its setting's range, and where the setting lives.
struct DoubleParam {
    int index;
    const char* name;
    const char* explanation;
    double min, max;
    double (*get)(const FilterSettings&);
    void (*set)(FilterSettings&, double);
};

#define VELLUX_FIELD(expr) \
    [](const FilterSettings& s) { return double(expr); }, [](FilterSettings& s, double v) { expr = std::remove_reference_t<decltype(expr)>(v); }

const DoubleParam kDoubles[] = {
    {24, "Light X", "Where the light is across the frame (0 left, 1 right; beyond is off the frame)", 0.0, 1.0, VELLUX_FIELD(s.lightX)},
    {25, "Light Y", "Where the light is down the frame (0 top, 1 bottom; beyond is off the frame)", 0.0, 1.0, VELLUX_FIELD(s.lightY)},
    {2, "Light intensity", "How bright the light is (slider 0.25 is 1, full strength)", 0.0, 4.0, VELLUX_FIELD(s.lightIntensity)},
    {3, "Light radius", "The light's size on the frame, as a part of its smaller side (with Follow light size)", 0.0, 0.25, VELLUX_FIELD(s.lightRadius)},
    {4, "Flare intensity", "Overall strength of the flare", 0.0, 2.0, VELLUX_FIELD(*s.edits.flareIntensity)},
    {5, "Dissolve", "Fades the flare out", 0.0, 1.0, VELLUX_FIELD(*s.edits.dissolve)},
    {6, "Ring size", "Size of the halo around the light", 0.0, 1.0, VELLUX_FIELD(*s.edits.ringSize)},
    {8, "Star filter", "Points of the star: 0 none, up to 10 (five major and five minor)", 0.0, 10.0, VELLUX_FIELD(*s.edits.starFilter)},
    {9, "Star rotation", "Turns the star, 0 to 360 degrees", 0.0, 360.0, VELLUX_FIELD(*s.edits.starRotation)},
    {10, "Streak density", "How many streaks make the star", 0.0, 200.0, VELLUX_FIELD(*s.edits.streakDensity)},
    {11, "Streak intensity", "How bright the streaks are", 0.0, 0.3, VELLUX_FIELD(*s.edits.streakIntensity)},
    {12, "Streak sharpness", "How quickly the streaks fade along their length", 0.0, 30.0, VELLUX_FIELD(*s.edits.streakSharpness)},
    {13, "Anamorphic factor", "How far Anamorphic stretches the flare sideways", 1.0, 4.0, VELLUX_FIELD(*s.edits.anamorphicFactor)},
    {28, "F-number", "With a lens: its aperture, f/1 to f/22 (no wider than the lens opens; slider 1/3 is f/8)", 1.0, 22.0,
     VELLUX_FIELD(s.fNumber)},
    {29, "Blades", "With a lens: the iris's blades, 0 for round, up to 16", 0.0, 16.0, VELLUX_FIELD(s.blades)},
};
#undef VELLUX_FIELD

struct BoolParam {
    int index;
    const char* name;
    const char* explanation;
    std::optional<bool> SettingEdits::*field;   // null: Flare only
};

const BoolParam kBools[] = {
    {14, "Glow", "The white glow around the light", &SettingEdits::glow},
    {15, "Glow in light colour", "The glow takes the light's colour", &SettingEdits::glowInLightColor},
    {16, "Halo", "The ring around the light", &SettingEdits::halo},
    {17, "Reflections", "The chain of lens reflections through the frame's centre", &SettingEdits::reflections},
    {18, "Anamorphic", "Stretches the flare sideways by the anamorphic factor", &SettingEdits::anamorphic},
    {19, "Anamorphic streak", "One long horizontal streak through the light", &SettingEdits::anamorphicStreak},
    {20, "Random streaks", "A spray of fine random streaks", &SettingEdits::randomStreaks},
    {21, "Follow light size", "The glow grows with the light's radius", &SettingEdits::followLightSize},
    {22, "Flare only", "The flare alone on transparent black, for an overlay track", nullptr},
};

// The sliders that set whole numbers: the star filter's points and the iris's blades.
bool IsWhole(int index) { return index == 8 || index == 29; }

// An iris has no blades (round) or at least this many.
constexpr int kFewestBlades = 3;

// A halo needs some size: slider 0 gives this one (the slider maps 0..1 as it is, so that the
// default 0.22 is exactly slider 0.22).
constexpr double kSmallestRing = 0.001;

const DoubleParam* DoubleAt(int index) {
    for (const DoubleParam& p : kDoubles)
        if (p.index == index) return &p;
    return nullptr;
}

const BoolParam* BoolAt(int index) {
    for (const BoolParam& p : kBools)
        if (p.index == index) return &p;
    return nullptr;
}

engine::LightColor ColourOf(const f0r_param_color_t& colour, std::string& problem, const char* name) {
    const auto byte = [&](float v) {
        if (!std::isfinite(v) || v < 0.0f || v > 1.0f) problem = std::string(name) + ": a component is outside 0..1; clamped";
        return uint8_t(std::lround(std::clamp(std::isfinite(v) ? double(v) : 0.0, 0.0, 1.0) * 255.0));
    };
    return {byte(colour.r), byte(colour.g), byte(colour.b)};
}

f0r_param_color_t ColourFor(const engine::LightColor& c) {
    return {float(c.red) / 255.0f, float(c.green) / 255.0f, float(c.blue) / 255.0f};
}

}  // namespace

SettingEdits FilterSettings::DefaultEdits() { return engine::DefaultSettingEdits(); }

f0r_param_info_t ParamInfo(int index) {
    if (const DoubleParam* p = DoubleAt(index)) return {p->name, F0R_PARAM_DOUBLE, p->explanation};
    if (const BoolParam* p = BoolAt(index)) return {p->name, F0R_PARAM_BOOL, p->explanation};
    switch (index) {
    case 0: return {"Light position", F0R_PARAM_POSITION, "Where the light is, as fractions of the frame's width and height"};
    case 1: return {"Light colour", F0R_PARAM_COLOR, "The light's colour, which tints the reflections"};
    case 7: return {"Ring colour", F0R_PARAM_COLOR, "The colour of the halo"};
    case 23: return {"Flare table", F0R_PARAM_STRING, "The lens: a flare table's name (Vellux, LongZoom, CleanPrime) or .rsc file; empty for the default"};
    case 26: return {"Blend", F0R_PARAM_STRING, "How the flare goes over the frame: display (as the plug-in adds it), add (in linear light) or screen"};
    case 27: return {"Lens", F0R_PARAM_STRING, "Paint a lens's own flare instead of the table's: its name (double-gauss-50mm) or .json file; empty for the table's"};
    default: return {"", F0R_PARAM_DOUBLE, ""};
    }
}

std::string SetParam(FilterSettings& s, int index, const void* value) {
    if (value == nullptr) return {};
    std::string problem;
    if (const DoubleParam* p = DoubleAt(index)) {
        const double slider = *static_cast<const double*>(value);
        if (!std::isfinite(slider)) return std::string(p->name) + ": " + engine::NumberText(slider) + " is not a number; ignored";
        // The light's place is a fraction of the frame, as the position parameter's is, and goes on
        // past its edges (a light off the frame still flares); every other number is a slider.
        const bool place = index == 24 || index == 25;
        if (!place && (slider < 0.0 || slider > 1.0))
            problem = std::string(p->name) + ": " + engine::NumberText(slider) + " is outside 0..1; clamped";
        double setting = place ? slider : p->min + std::clamp(slider, 0.0, 1.0) * (p->max - p->min);
        if (IsWhole(index)) setting = std::round(setting);
        if (index == 6) setting = std::max(setting, kSmallestRing);
        if (index == 29 && setting > 0.0 && setting < kFewestBlades) {
            problem = "Blades: " + engine::NumberText(setting) + " is not a blade count (0 for round, 3 to 16); 3 are used";
            setting = kFewestBlades;
        }
        p->set(s, setting);
        return problem;
    }
    if (const BoolParam* p = BoolAt(index)) {
        const bool on = *static_cast<const double*>(value) >= 0.5;
        if (p->field == nullptr) s.flareOnly = on;
        else s.edits.*(p->field) = on;
        return {};
    }
    switch (index) {
    case 0: {
        const auto& at = *static_cast<const f0r_param_position_t*>(value);
        if (!std::isfinite(at.x) || !std::isfinite(at.y)) return "Light position: not a number; ignored";
        s.lightX = at.x, s.lightY = at.y;
        return {};
    }
    case 1: s.lightColor = ColourOf(*static_cast<const f0r_param_color_t*>(value), problem, "Light colour"); return problem;
    case 7: s.edits.ringColor = ColourOf(*static_cast<const f0r_param_color_t*>(value), problem, "Ring colour"); return problem;
    case 23:
    case 27: {
        const char* text = *static_cast<const char* const*>(value);
        (index == 23 ? s.table : s.lens) = text != nullptr ? text : "";
        return {};
    }
    case 26: {
        const char* text = *static_cast<const char* const*>(value);
        try {
            s.blend = engine::ParseBlend("Blend", text != nullptr ? text : "");
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
    if (const DoubleParam* p = DoubleAt(index)) {
        *static_cast<double*>(value) = (p->get(s) - p->min) / (p->max - p->min);
    } else if (const BoolParam* p = BoolAt(index)) {
        *static_cast<double*>(value) = (p->field == nullptr ? s.flareOnly : (s.edits.*(p->field)).value_or(false)) ? 1.0 : 0.0;
    } else if (index == 0) {
        *static_cast<f0r_param_position_t*>(value) = {s.lightX, s.lightY};
    } else if (index == 1) {
        *static_cast<f0r_param_color_t*>(value) = ColourFor(s.lightColor);
    } else if (index == 7) {
        *static_cast<f0r_param_color_t*>(value) = ColourFor(*s.edits.ringColor);
    } else if (index == 23 || index == 27) {
        *static_cast<const char**>(value) = (index == 23 ? s.table : s.lens).c_str();
    } else if (index == 26) {
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
