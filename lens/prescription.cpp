#include "lens/prescription.h"

#include <cmath>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace vellux::lens {

namespace {

using Json = nlohmann::json;

struct Reader {
    const std::string& file;

    [[noreturn]] void Fail(const std::string& path, const std::string& message) const {
        throw std::runtime_error(file + ": " + (path.empty() ? "" : path + ": ") + message);
    }

    const Json& Member(const Json& object, const std::string& path, const char* key) const {
        if (!object.contains(key)) Fail(path, std::string("has no \"") + key + "\"");
        return object.at(key);
    }

    double Number(const Json& value, const std::string& path) const {
        if (!value.is_number()) Fail(path, "must be a number");
        const double number = value.get<double>();
        if (!std::isfinite(number)) Fail(path, "must be a finite number");
        return number;
    }

    double Number(const Json& object, const std::string& path, const char* key) const {
        return Number(Member(object, path, key), path + "." + key);
    }

    std::optional<double> Optional(const Json& object, const std::string& path, const char* key) const {
        if (!object.contains(key) || object.at(key).is_null()) return std::nullopt;
        return Number(object.at(key), path + "." + key);
    }

    bool Flag(const Json& object, const std::string& path, const char* key) const {
        if (!object.contains(key)) return false;
        if (!object.at(key).is_boolean()) Fail(path + "." + key, "must be true or false");
        return object.at(key).get<bool>();
    }

    std::string Text(const Json& object, const char* key) const {
        if (!object.contains(key)) return "";
        if (!object.at(key).is_string()) Fail(key, "must be text");
        return object.at(key).get<std::string>();
    }

    Coating CoatingOf(const Json& value, const std::string& path) const {
        const std::optional<Coating> coating = value.is_string() ? CoatingNamed(value.get<std::string>()) : std::nullopt;
        if (!coating) Fail(path, "must be \"none\", \"mgf2\" or \"multi\"");
        return *coating;
    }

    Surface ReadSurface(const Json& entry, const std::string& path) const {
        if (!entry.is_object()) Fail(path, "must be an object");
        Surface surface;
        surface.stop = Flag(entry, path, "stop");
        surface.radius = surface.stop ? 0.0 : Number(entry, path, "radius");
        surface.thickness = Number(entry, path, "thickness");
        if (surface.thickness < 0.0) Fail(path + ".thickness", "must not be negative");
        surface.n = surface.stop ? 1.0 : Number(entry, path, "n");
        if (surface.n < 1.0) Fail(path + ".n", "must be at least 1");
        surface.abbe = Optional(entry, path, "abbe");
        if (surface.abbe && *surface.abbe <= 0.0) Fail(path + ".abbe", "must be more than 0");
        surface.diameter = Number(entry, path, "diameter");
        if (surface.diameter <= 0.0) Fail(path + ".diameter", "the clear aperture must be more than 0");
        if (entry.contains("coating")) surface.coating = CoatingOf(entry.at("coating"), path + ".coating");
        return surface;
    }
};

}  // namespace

Prescription ParsePrescription(const std::string& text, const std::string& name) {
    const Reader read{name};
    Json json;
    try {
        json = Json::parse(text);
    } catch (const Json::exception& error) {   // a syntax error, or a number beyond a double
        read.Fail("", std::string("not JSON: ") + error.what());
    }
    if (!json.is_object()) read.Fail("", "must be a JSON object");
    Prescription lens;
    lens.name = read.Text(json, "name");
    lens.source = read.Text(json, "source");
    lens.focalLength = read.Number(json, "", "focalLength");
    lens.fNumber = read.Optional(json, "", "fNumber");
    if (lens.fNumber && *lens.fNumber <= 0.0) read.Fail("fNumber", "must be more than 0");
    if (json.contains("coating")) lens.coating = read.CoatingOf(json.at("coating"), "coating");
    const Json& surfaces = read.Member(json, "", "surfaces");
    if (!surfaces.is_array() || surfaces.size() < 2) read.Fail("surfaces", "must be a list of at least two surfaces");
    bool haveStop = false;
    for (size_t k = 0; k < surfaces.size(); ++k) {
        const std::string path = "surfaces[" + std::to_string(k) + "]";
        lens.surfaces.push_back(read.ReadSurface(surfaces[k], path));
        if (!lens.surfaces.back().stop) continue;
        if (haveStop) read.Fail(path, "a second aperture stop");
        haveStop = true;
        lens.stopIndex = k;
    }
    if (!haveStop) read.Fail("surfaces", "no aperture stop (a surface with \"stop\": true)");
    if (lens.surfaces.back().n != 1.0) read.Fail("surfaces[" + std::to_string(surfaces.size() - 1) + "].n", "the last surface must lead into air (1)");
    return lens;
}

Prescription ReadPrescription(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) throw std::runtime_error(file.string() + ": cannot be read");
    std::ostringstream text;
    text << in.rdbuf();
    return ParsePrescription(text.str(), file.string());
}

double IndexBefore(const Prescription& lens, size_t k) { return k == 0 ? 1.0 : lens.surfaces[k - 1].n; }

}  // namespace vellux::lens
