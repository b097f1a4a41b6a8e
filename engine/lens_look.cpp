#include "engine/lens_look.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <stdexcept>

#include "engine/closest_match.h"
#include "engine/plugin_location.h"
#include "engine/row_parts.h"
#include "lens/exact_trace.h"
#include "lens/paraxial.h"
#include "lens/spectrum.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

constexpr double kDLine = 587.6;   // nm: where the f-number and the focus are set

lens::Aperture ApertureOf(const LensLookOptions& options) {
    lens::Aperture aperture;
    aperture.blades = options.blades.value_or(0);
    aperture.curvature = options.bladeCurvature.value_or(0.0);
    aperture.rotation = options.apertureRotation.value_or(0.0) * std::numbers::pi / 180.0;
    lens::CheckAperture({aperture.blades, 0.0, 0.0}, "--blades");
    lens::CheckAperture({0, aperture.curvature, 0.0}, "--blade-curvature");
    lens::CheckAperture(aperture, "--aperture-rotation");
    return aperture;
}

// A lens's stated f-number rounds its widest, which the prescription may make a hair narrower
// (f/2 against f/2.03): within 2% the widest is taken. Left to its default, a lens whose
// prescription opens narrower than it states (a stop cut down in the published design) is used at
// its widest.
double FNumberOf(const LensLookOptions& options, const lens::Prescription& prescription) {
    const double widest = WidestFNumber(prescription);
    const double chosen = options.fNumber.value_or(std::max(prescription.fNumber.value_or(widest), widest));
    if (!(chosen >= widest * 0.98) || !std::isfinite(chosen)) {
        char text[160];
        std::snprintf(text, sizeof(text), "--f-number: %g is wider than %s opens (f/%.2f)", chosen,
                      prescription.name.c_str(), widest);
        throw std::invalid_argument(text);
    }
    return std::max(chosen, widest);
}

// The ghosts are traced at every second wavelength of the spectrum, each standing for its own and
// the next one's share of the colour: eight wavelengths, half the tracing, and the ghosts' fringes
// still follow the glass's dispersion across the spectrum.
constexpr int kGhostWavelengthStep = 2;
constexpr int kGhostRays = 24;     // rays across a ghost's entrance
constexpr int kGhostRaster = 96;   // density pixels across its footprint
constexpr int32_t kLeastPartRows = 64;   // rows a thread is started for: every part redoes the coarse rows it needs

// Whether two lights' ghosts are traced alike (the rest of the look's settings never change).
bool SameLight(const lens::FootprintSettings& a, const lens::FootprintSettings& b) {
    return a.fNumber == b.fNumber && a.angleX == b.angleX && a.angleY == b.angleY && a.aperture.blades == b.aperture.blades &&
           a.aperture.curvature == b.aperture.curvature && a.aperture.rotation == b.aperture.rotation;
}

// Every ghost's wavelengths folded into RGB for a white light of intensity 1: each wavelength
// stands for its own and the next kGhostWavelengthStep - 1 samples' share of the colour.
std::vector<GhostImage> FoldGhosts(const lens::GhostFootprints& traced) {
    const std::array<lens::LinearRgb, lens::kSpectralSamples> weights = lens::SpectralWeights();
    const size_t bands = traced.wavelengths.size();
    std::vector<std::array<float, 3>> scales(bands);
    for (size_t band = 0; band < bands; ++band) {
        const auto sample = size_t(std::lround((traced.wavelengths[band] - lens::kFirstWavelength) / lens::kWavelengthStep));
        lens::LinearRgb weight;
        for (size_t k = sample; k < std::min(sample + kGhostWavelengthStep, size_t(lens::kSpectralSamples)); ++k)
            weight.r += weights[k].r, weight.g += weights[k].g, weight.b += weights[k].b;
        // The light's energy per unit of its flux; where none of the light gets through the lens at
        // this wavelength its ghosts cannot be scaled to it, and are left out.
        const double flux = traced.lightFlux[band];
        const double perLight = flux > 0.0 ? kLightEnergy / flux : 0.0;
        scales[band] = {float(perLight * weight.r), float(perLight * weight.g), float(perLight * weight.b)};
    }
    std::vector<GhostImage> folded;
    for (size_t first = 0; first + bands <= traced.ghosts.size(); first += bands)
        folded.push_back(FoldGhost(&traced.ghosts[first], scales.data(), bands));
    return folded;
}

}  // namespace

lens::FootprintSettings GhostSettings(double fNumber, const lens::Aperture& aperture, double angleX, double angleY) {
    lens::FootprintSettings settings;
    settings.fNumber = fNumber;
    settings.aperture = aperture;
    settings.grid = kGhostRays;
    settings.raster = kGhostRaster;
    settings.angleX = angleX;
    settings.angleY = angleY;
    settings.wavelengths.clear();
    for (int i = 0; i < lens::kSpectralSamples; i += kGhostWavelengthStep)
        settings.wavelengths.push_back(lens::SpectralWavelength(i));
    return settings;
}

std::vector<fs::path> LensFolders() {
    std::vector<fs::path> folders;
    const auto add = [&folders](const fs::path& folder) {
        if (!folder.empty() && std::find(folders.begin(), folders.end(), folder) == folders.end()) folders.push_back(folder);
    };
    for (const fs::path& folder : FoldersIn("VELLUX_LENS_PATH")) add(folder);
    for (const fs::path& base : {EngineFolder(), RunningToolFolder()}) {
        if (base.empty()) continue;
        add(base.parent_path() / "share" / "vellux" / "lenses");
        add(base / "lenses");
        add(base.parent_path() / "lenses");
    }
    return folders;
}

double WidestFNumber(const lens::Prescription& prescription) { return lens::Paraxial(prescription, kDLine).fNumber; }

std::vector<LensEntry> ListLenses() {
    std::vector<LensEntry> lenses;
    for (const fs::path& folder : LensFolders()) {
        for (const fs::path& file : FilesIn(folder, ".json")) {
            const std::string name = file.stem().string();
            const auto same = [&name](const LensEntry& lens) { return lens.name == name; };
            if (std::none_of(lenses.begin(), lenses.end(), same)) lenses.push_back({name, file});
        }
    }
    return lenses;
}

fs::path FindLens(const std::string& nameOrPath) {
    if (nameOrPath.find('/') != std::string::npos || fs::path(nameOrPath).extension() == ".json") {
        std::error_code error;
        if (!fs::is_regular_file(nameOrPath, error)) throw std::runtime_error(nameOrPath + ": no such lens file");
        return nameOrPath;
    }
    std::vector<std::string> names;
    for (const LensEntry& lens : ListLenses()) {
        if (lens.name == nameOrPath) return lens.file;
        names.push_back(lens.name);
    }
    std::string message = "--lens: no lens named '" + nameOrPath + "'";
    if (const std::string closest = ClosestMatch(nameOrPath, names); !closest.empty())
        message += "; did you mean '" + closest + "'?";
    std::string known;
    for (const std::string& name : names) known += (known.empty() ? "" : ", ") + name;
    throw std::runtime_error(message + (known.empty() ? " (no lenses found)" : " (there are: " + known + ")"));
}

LensLook::LensLook(const LensLookOptions& options)
    : lens_(lens::ReadPrescription(FindLens(options.lens))),
      fNumber_(FNumberOf(options, lens_)),
      aperture_(ApertureOf(options)),
      sensorWidth_(options.sensorWidth),
      sensorHeight_(options.sensorHeight) {}

void LensLook::SetFNumber(double fNumber) {
    LensLookOptions options;
    options.fNumber = fNumber;
    fNumber_ = FNumberOf(options, lens_);
}

void LensLook::Paint(FrameSize size, const FlareLight& light, float* rgb, int32_t threads) {
    // The frame's smaller side spans the sensor's smaller side; its centre is the lens's axis.
    const double frameMm = std::min(sensorWidth_, sensorHeight_) / double(std::min(size.width, size.height));
    // The light in this frame's pixels: fewer of them, each larger, on a smaller frame.
    const double rows = double(std::min(size.width, size.height)) / kReferenceRows;
    const double perFrame = light.intensity * rows * rows, energy = perFrame * kLightEnergy;
    const double colour[3] = {light.color.red / 255.0, light.color.green / 255.0, light.color.blue / 255.0};
    const float burstScale[3] = {float(energy * colour[0]), float(energy * colour[1]), float(energy * colour[2])};
    const lens::Starburst& burst = starbursts_.Get(aperture_, fNumber_);
    if (raysFNumber_ != fNumber_) rays_ = StarburstRays(burst), raysFNumber_ = fNumber_;

    // The light's direction: where its image lies on the sensor (y up there), through the lens.
    const double sx = (light.x - 0.5 * size.width) * frameMm, sy = (0.5 * size.height - light.y) * frameMm;
    if (sx != lightOnSensor_[0] || sy != lightOnSensor_[1]) {
        const double r = std::hypot(sx, sy);
        const double slope = std::tan(lens::FieldAngle(lens_, r, kDLine, lens::Paraxial(lens_, kDLine).backFocus));
        lightOnSensor_ = {sx, sy};
        lightAngles_ = {r > 0.0 ? std::atan(slope * sx / r) : 0.0, r > 0.0 ? std::atan(slope * sy / r) : 0.0};
    }
    const lens::FootprintSettings settings = GhostSettings(fNumber_, aperture_, lightAngles_[0], lightAngles_[1]);
    if (folded_.empty() || !SameLight(settings, foldedFor_)) {
        folded_ = FoldGhosts(footprints_.Get(lens_, settings));
        foldedFor_ = settings;
    }
    const float scale[3] = {float(perFrame * colour[0]), float(perFrame * colour[1]), float(perFrame * colour[2])};
    // Each part paints its rows as the whole frame would be painted, in the same order: the
    // starburst, its rays, then the ghosts.
    const std::vector<Band> parts = RowParts({0, size.height}, threads, kLeastPartRows);
    if (canvases_.size() < parts.size()) canvases_.resize(parts.size());
    ForEachRowPart(parts, [&](size_t p, Band part) {
        AddPattern(burst.rgb.data(), burst.size, burst.mmPerPixel, light.x, light.y, burstScale, size, frameMm, rgb, part);
        AddRays(rays_, light.x, light.y, burstScale, size, frameMm, rgb, part);
        GhostCanvas& canvas = canvases_[p];
        canvas.Begin(size, frameMm, part);
        for (const GhostImage& ghost : folded_) canvas.Add(ghost, scale, rgb);
        canvas.Finish(rgb);
    });
}

}  // namespace vellux::engine
