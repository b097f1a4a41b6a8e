#include "gimp/flare_arguments.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "engine/blend.h"
#include "engine/setting_assignments.h"

namespace vellux::gimp {

namespace {

// GIMP keeps the pointers it is given for the life of the plug-in: the table is static.
const GimpParamDef kParams[] = {
    {GIMP_PDB_INT32, const_cast<gchar*>("run-mode"), const_cast<gchar*>("The run mode { RUN-INTERACTIVE (0), RUN-NONINTERACTIVE (1), RUN-WITH-LAST-VALS (2) }")},
    {GIMP_PDB_IMAGE, const_cast<gchar*>("image"), const_cast<gchar*>("Input image")},
    {GIMP_PDB_DRAWABLE, const_cast<gchar*>("drawable"), const_cast<gchar*>("Input drawable (RGB)")},
    {GIMP_PDB_FLOAT, const_cast<gchar*>("light-x"), const_cast<gchar*>("The light's X on the image, pixels")},
    {GIMP_PDB_FLOAT, const_cast<gchar*>("light-y"), const_cast<gchar*>("The light's Y on the image, pixels")},
    {GIMP_PDB_COLOR, const_cast<gchar*>("color"), const_cast<gchar*>("The light's colour")},
    {GIMP_PDB_FLOAT, const_cast<gchar*>("intensity"), const_cast<gchar*>("The light's intensity (1.0: as the table has it)")},
    {GIMP_PDB_STRING, const_cast<gchar*>("table"), const_cast<gchar*>("A flare table's name or .rsc file (empty: Vellux)")},
    {GIMP_PDB_STRING, const_cast<gchar*>("lens"), const_cast<gchar*>("A lens's name: its own flare instead of the table's (empty: none)")},
    {GIMP_PDB_STRING, const_cast<gchar*>("settings-file"), const_cast<gchar*>("A saved settings file to start from (empty: none)")},
    {GIMP_PDB_STRING, const_cast<gchar*>("settings"), const_cast<gchar*>("Settings, NAME=VALUE separated by spaces: \"ring-size=1.5 star-filter=6 halo=off\"")},
    {GIMP_PDB_STRING, const_cast<gchar*>("blend"), const_cast<gchar*>("How the flare goes over the image: display, add or screen (empty: display)")},
    {GIMP_PDB_INT32, const_cast<gchar*>("flare-only"), const_cast<gchar*>("The flare alone onto a new layer (TRUE, FALSE)")},
};

constexpr int kParamCount = int(sizeof(kParams) / sizeof(kParams[0]));

uint8_t Level(double value) { return uint8_t(std::lround(std::clamp(value, 0.0, 1.0) * 255.0)); }

std::string Text(const GimpParam& param) { return param.data.d_string ? param.data.d_string : ""; }

}  // namespace

const GimpParamDef* ProcedureParams(int* count) {
    *count = kParamCount;
    return kParams;
}

bool ReadArguments(const GimpParam* params, int count, FlareArguments& a, std::string& problem) {
    if (count != kParamCount) {
        problem = std::string(kProcedureName) + " takes " + std::to_string(kParamCount) + " arguments, not " +
                  std::to_string(count);
        return false;
    }
    a.lightX = params[3].data.d_float;
    a.lightY = params[4].data.d_float;
    const GimpRGB& rgb = params[5].data.d_color;
    a.color = {Level(rgb.r), Level(rgb.g), Level(rgb.b)};
    a.intensity = params[6].data.d_float;
    a.table = Text(params[7]);
    a.lens = Text(params[8]);
    a.settingsFile = Text(params[9]);
    a.settings = Text(params[10]);
    a.blend = Text(params[11]);
    a.flareOnly = params[12].data.d_int32 != 0;
    return true;
}

FlareArguments DefaultArguments(int imageWidth, int imageHeight) {
    FlareArguments arguments;
    arguments.lightX = 0.3 * imageWidth;
    arguments.lightY = 0.35 * imageHeight;
    return arguments;
}

namespace {

void ReadLastArguments(const nlohmann::json& json, FlareArguments& a) {
    a.lightX = json.value("light-x", a.lightX);
    a.lightY = json.value("light-y", a.lightY);
    const auto rgb = json.value("color", std::vector<int>{255, 255, 255});
    if (rgb.size() == 3) a.color = {uint8_t(rgb[0]), uint8_t(rgb[1]), uint8_t(rgb[2])};
    a.intensity = json.value("intensity", a.intensity);
    a.table = json.value("table", a.table);
    a.lens = json.value("lens", a.lens);
    a.settingsFile = json.value("settings-file", a.settingsFile);
    a.settings = json.value("settings", a.settings);
    a.blend = json.value("blend", a.blend);
    a.flareOnly = json.value("flare-only", a.flareOnly);
}

}  // namespace

// Kept as JSON text: GIMP stores bytes, and the strings have no fixed length.
bool LoadLastArguments(FlareArguments& a) {
    const gint size = gimp_get_data_size(kProcedureName);
    if (size <= 0) return false;
    std::string text(size_t(size), '\0');
    if (!gimp_get_data(kProcedureName, text.data())) return false;
    const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded() || !json.is_object()) return false;
    FlareArguments last = a;
    try {
        ReadLastArguments(json, last);
    } catch (const nlohmann::json::exception&) {
        return false;   // not as this version writes them: the defaults
    }
    a = last;
    return true;
}

void SaveLastArguments(const FlareArguments& a) {
    const nlohmann::json json = {{"light-x", a.lightX},
                                 {"light-y", a.lightY},
                                 {"color", {a.color.red, a.color.green, a.color.blue}},
                                 {"intensity", a.intensity},
                                 {"table", a.table},
                                 {"lens", a.lens},
                                 {"settings-file", a.settingsFile},
                                 {"settings", a.settings},
                                 {"blend", a.blend},
                                 {"flare-only", a.flareOnly}};
    const std::string text = json.dump();
    gimp_set_data(kProcedureName, text.data(), guint32(text.size()));
}

engine::RenderRequest RequestFor(const FlareArguments& a, int offsetX, int offsetY) {
    if (!std::isfinite(a.lightX) || !std::isfinite(a.lightY))
        throw std::invalid_argument("light-x, light-y: " + engine::NumberText(a.lightX) + ", " +
                                    engine::NumberText(a.lightY) + " is not a place");
    if (!std::isfinite(a.intensity) || a.intensity < 0.0)
        throw std::invalid_argument("intensity: " + engine::NumberText(a.intensity) + " is out of range (at least 0)");
    engine::RenderRequest request;
    request.lightIsFraction = false;
    request.lightX = a.lightX - offsetX;
    request.lightY = a.lightY - offsetY;
    request.color = a.color;
    request.intensity = a.intensity;
    request.table = a.table;
    if (!a.lens.empty()) {
        engine::LensLookOptions lens;
        lens.lens = a.lens;
        request.lens = lens;
    }
    request.settingsFile = a.settingsFile;
    request.settings = engine::ParseSettingAssignments(a.settings);
    if (!a.blend.empty()) request.blend = engine::ParseBlend("blend", a.blend);
    return request;
}

}  // namespace vellux::gimp
