#include "engine/plugin_settings.h"

#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "engine/option_values.h"
#include "vellux/plugin_records.h"

namespace vellux::engine {

namespace {

void CheckRange(const char* option, const std::optional<double>& value, double min, bool minIncluded, double max) {
    if (!value) return;
    const double v = *value;
    if (std::isfinite(v) && (minIncluded ? v >= min : v > min) && v <= max) return;
    std::string range = std::string(minIncluded ? "at least " : "more than ") + NumberText(min);
    if (std::isfinite(max)) range = "from " + NumberText(min) + " to " + NumberText(max);
    throw std::invalid_argument(std::string(option) + ": " + NumberText(v) + " is out of range (" + range + ")");
}

}  // namespace

SettingEdits DefaultSettingEdits() {
    SettingEdits edits;
    edits.flareIntensity = 0.5;
    edits.dissolve = 0.0;
    edits.ringSize = 0.22;
    edits.streakDensity = 50.0;
    edits.starFilter = 0;
    edits.anamorphicFactor = 1.77;
    edits.starRotation = 0.0;
    edits.streakIntensity = 0.03;
    edits.streakSharpness = 6.0;
    edits.ringColor = LightColor{0x50, 0x14, 0x0A};
    edits.glow = edits.glowInLightColor = edits.halo = edits.reflections = edits.randomStreaks = true;
    edits.anamorphic = edits.anamorphicStreak = edits.followLightSize = false;
    return edits;
}

void CheckSettingEdits(const SettingEdits& edits) {
    constexpr double kNoLimit = HUGE_VAL;
    CheckRange("--flare-intensity", edits.flareIntensity, 0.0, true, kNoLimit);
    CheckRange("--dissolve", edits.dissolve, 0.0, true, 1.0);
    CheckRange("--ring-size", edits.ringSize, 0.0, false, kNoLimit);
    CheckRange("--streak-density", edits.streakDensity, 0.0, true, kNoLimit);
    CheckRange("--anamorphic-factor", edits.anamorphicFactor, 0.0, false, kNoLimit);
    CheckRange("--star-rotation", edits.starRotation, -kNoLimit, false, kNoLimit);
    CheckRange("--streak-intensity", edits.streakIntensity, 0.0, true, kNoLimit);
    CheckRange("--streak-sharpness", edits.streakSharpness, 0.0, true, kNoLimit);
}

void ApplySettingEdits(const SettingEdits& edits, std::vector<uint8_t>& controlRecord) {
    ControlDataRec control;
    if (controlRecord.size() < sizeof(control))
        throw std::runtime_error("the plug-in's settings record has " + std::to_string(controlRecord.size()) +
                                 " bytes, fewer than the " + std::to_string(sizeof(control)) + " it should have");
    std::memcpy(&control, controlRecord.data(), sizeof(control));
    if (edits.flareIntensity) control.flareIntensity = *edits.flareIntensity;
    if (edits.dissolve) control.flareDissolve = *edits.dissolve;
    if (edits.ringSize) control.flareRingSize = *edits.ringSize;
    if (edits.streakDensity) control.flareStreakDensity = *edits.streakDensity;
    if (edits.starFilter) control.flareStarFilter = *edits.starFilter;
    if (edits.anamorphicFactor) control.flareAnamorphicFactor = *edits.anamorphicFactor;
    if (edits.starRotation) control.flareStarRotation = *edits.starRotation;
    if (edits.streakIntensity) control.flareStreakIntensity = *edits.streakIntensity;
    if (edits.streakSharpness) control.flareStreakSharpness = *edits.streakSharpness;
    if (edits.ringColor) {
        const auto wide = [](uint8_t v) { return int16_t(uint16_t(v * 257u)); };   // 0xFF is 0xFFFF
        control.flareRingColor.red = wide(edits.ringColor->red);
        control.flareRingColor.green = wide(edits.ringColor->green);
        control.flareRingColor.blue = wide(edits.ringColor->blue);
    }
    const std::pair<const std::optional<bool>*, uint32_t> switches[] = {
        {&edits.glow, kFlagGlow},
        {&edits.glowInLightColor, kFlagGlowInLightColor},
        {&edits.halo, kFlagHalo},
        {&edits.reflections, kFlagReflections},
        {&edits.anamorphic, kFlagAnamorphic},
        {&edits.anamorphicStreak, kFlagAnamorphicStreak},
        {&edits.randomStreaks, kFlagRandomStreaks},
        {&edits.followLightSize, kFlagFollowLightSize},
    };
    for (const auto& [value, bit] : switches)
        if (*value) control.flareFlags = **value ? control.flareFlags | bit : control.flareFlags & ~bit;
    std::memcpy(controlRecord.data(), &control, sizeof(control));
}

}  // namespace vellux::engine
