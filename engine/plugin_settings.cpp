#include "engine/plugin_settings.h"

#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

#include "engine/option_values.h"
#include "engine/setting_names.h"
#include "vellux/plugin_records.h"

namespace vellux::engine {

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
    edits.streaksOffFrame = true;
    edits.wireframePreview = false;
    return edits;
}

void CheckSettingEdits(const SettingEdits& edits) {
    for (const SettingName& setting : SettingNames()) {
        const std::optional<SettingValue> value = EditOf(setting, edits);
        if (!value || setting.kind != SettingKind::number) continue;
        if (const auto problem = RangeProblem(setting, std::get<double>(*value)))
            throw std::invalid_argument("--" + std::string(setting.name) + ": " + *problem);
    }
}

void ApplySettingEdits(const SettingEdits& edits, std::vector<uint8_t>& controlRecord) {
    ControlDataRec control;
    if (controlRecord.size() < sizeof(control))
        throw std::runtime_error("the plug-in's settings record has " + std::to_string(controlRecord.size()) +
                                 " bytes, fewer than the " + std::to_string(sizeof(control)) + " it should have");
    std::memcpy(&control, controlRecord.data(), sizeof(control));
    for (const SettingName& setting : SettingNames()) {
        const std::optional<SettingValue> value = EditOf(setting, edits);
        if (!value) continue;
        switch (setting.kind) {
        case SettingKind::number: control.*setting.field = std::get<double>(*value); break;
        case SettingKind::whole: control.flareStarFilter = std::get<int32_t>(*value); break;
        case SettingKind::color: {
            const LightColor color = std::get<LightColor>(*value);
            const auto wide = [](uint8_t v) { return int16_t(uint16_t(v * 257u)); };   // 0xFF is 0xFFFF
            control.flareRingColor.red = wide(color.red);
            control.flareRingColor.green = wide(color.green);
            control.flareRingColor.blue = wide(color.blue);
            break;
        }
        case SettingKind::onOff:
            control.flareFlags = std::get<bool>(*value) ? control.flareFlags | setting.flag : control.flareFlags & ~setting.flag;
            break;
        }
    }
    std::memcpy(controlRecord.data(), &control, sizeof(control));
}

}  // namespace vellux::engine
