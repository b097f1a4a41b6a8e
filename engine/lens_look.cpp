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

// floor(v) held within [lo, hi], taken in double first: a ghost can lie far off the frame, or be
// focused to a point at one wavelength, and its coordinates then go past what an int holds.
int FloorWithin(double v, int lo, int hi) {
    if (!(v > double(lo))) return lo;   // NaN too
    if (v >= double(hi)) return hi;
    return int(std::floor(v));
}

// The overlap of [a0, a1) with the unit cell [k, k + 1).
double Overlap(double a0, double a1, int k) { return std::max(0.0, std::min(a1, k + 1.0) - std::max(a0, double(k))); }

// One ray of the starburst past the computed pattern: its direction and the light it carries per
// mm of its length at `radius` mm from the light, falling as the inverse square of the distance
// (the far field of a straight blade edge), its colour what it is at the pattern's rim.
struct Ray {
    double angle = 0.0;
    double radius = 0.0;
    std::array<double, 3> perMm{};
};

// The starburst's value at pattern pixel coordinates (x, y), bilinear, channel c.
double Sample(const lens::Starburst& burst, double x, double y, int c) {
    const int i = FloorWithin(x, -1, burst.size), j = FloorWithin(y, -1, burst.size);
    if (i < 0 || j < 0 || i + 1 >= burst.size || j + 1 >= burst.size) return 0.0;
    const double tx = x - i, ty = y - j;
    const auto at = [&](int a, int b) { return double(burst.rgb[(size_t(b) * size_t(burst.size) + size_t(a)) * 3 + size_t(c)]); };
    return (at(i, j) * (1 - tx) + at(i + 1, j) * tx) * (1 - ty) + (at(i, j + 1) * (1 - tx) + at(i + 1, j + 1) * tx) * ty;
}

// The rays: the maxima of the pattern's brightness around a circle near its rim that stand well
// above the circle's typical level; each ray's light is summed across it, between the minima on
// either side.
std::vector<Ray> RaysOf(const lens::Starburst& burst) {
    constexpr int kSteps = 2880;
    const double centre = 0.5 * (burst.size - 1), rim = 0.42 * burst.size;
    std::vector<std::array<double, 3>> ring(kSteps);
    std::vector<double> level(kSteps);
    for (int k = 0; k < kSteps; ++k) {
        const double angle = 2.0 * std::numbers::pi * k / kSteps;
        for (int c = 0; c < 3; ++c) ring[size_t(k)][size_t(c)] = Sample(burst, centre + rim * std::cos(angle), centre + rim * std::sin(angle), c);
        level[size_t(k)] = ring[size_t(k)][0] + ring[size_t(k)][1] + ring[size_t(k)][2];
    }
    std::vector<double> sorted = level;
    std::nth_element(sorted.begin(), sorted.begin() + kSteps / 2, sorted.end());
    const double typical = sorted[kSteps / 2];
    const auto wrap = [](int k) { return size_t((k % kSteps + kSteps) % kSteps); };
    std::vector<Ray> rays;
    for (int k = 0; k < kSteps; ++k) {
        const double here = level[wrap(k)];
        if (!(here > 8.0 * typical) || here < level[wrap(k - 1)] || here <= level[wrap(k + 1)]) continue;
        Ray ray;
        ray.angle = 2.0 * std::numbers::pi * k / kSteps;
        ray.radius = rim * burst.mmPerPixel;
        const double across = 2.0 * std::numbers::pi * rim / kSteps * burst.mmPerPixel;   // mm a step, across the ray
        for (int side : {-1, 1})
            for (int d = side < 0 ? 0 : 1; d < kSteps / 4; ++d) {
                const size_t at = wrap(k + side * d);
                if (d > 1 && level[at] > level[wrap(k + side * (d - 1))]) break;   // past the minimum
                for (int c = 0; c < 3; ++c) ray.perMm[size_t(c)] += std::max(0.0, ring[at][size_t(c)] - typical / 3.0) * across;
            }
        // Light per mm across at the rim, over pattern pixels' area: per mm of the ray's length.
        for (double& v : ray.perMm) v /= burst.mmPerPixel * burst.mmPerPixel;
        rays.push_back(ray);
    }
    return rays;
}

// The rays from the pattern's rim outwards, each a thin line of light spread over the frame
// pixels beside it, until it fades below what a frame can show.
void AddRays(const std::vector<Ray>& rays, double cx, double cy, const float scale[3], FrameSize frame, double frameMm,
             float* rgb) {
    const double reach = std::hypot(frame.width, frame.height);
    for (const Ray& ray : rays) {
        const double dx = std::cos(ray.angle), dy = std::sin(ray.angle);
        for (double r = ray.radius / frameMm; r < reach; r += 0.5) {
            const double falloff = (ray.radius / (r * frameMm)) * (ray.radius / (r * frameMm));
            const double x = cx + r * dx - 0.5, y = cy + r * dy - 0.5;   // pixel centres at +0.5
            const int i = FloorWithin(x, -2, frame.width), j = FloorWithin(y, -2, frame.height);
            if (i < -1 || j < -1 || i >= frame.width || j >= frame.height) continue;
            const double tx = x - i, ty = y - j;
            double peak = 0.0;
            float add[3];
            for (int c = 0; c < 3; ++c) {
                add[c] = float(ray.perMm[size_t(c)] * falloff * frameMm * 0.5) * scale[c];
                peak = std::max(peak, double(add[c]));
            }
            if (peak < 1e-5) break;
            const double weights[4] = {(1 - tx) * (1 - ty), tx * (1 - ty), (1 - tx) * ty, tx * ty};
            const int xs[4] = {i, i + 1, i, i + 1}, ys[4] = {j, j, j + 1, j + 1};
            for (int q = 0; q < 4; ++q) {
                if (xs[q] < 0 || ys[q] < 0 || xs[q] >= frame.width || ys[q] >= frame.height) continue;
                float* out = &rgb[(size_t(ys[q]) * size_t(frame.width) + size_t(xs[q])) * 3];
                for (int c = 0; c < 3; ++c) out[c] += float(weights[q]) * add[c];
            }
        }
    }
}

// The ghosts are traced at every second wavelength of the spectrum, each standing for its own and
// the next one's share of the colour: eight wavelengths, half the tracing, and the ghosts' fringes
// still follow the glass's dispersion across the spectrum.
constexpr int kGhostWavelengthStep = 2;
constexpr double kFaintest = 1.0 / 65536.0;   // linear light a pixel, below which a ghost is not painted
constexpr int kGhostRays = 24;     // rays across a ghost's entrance
constexpr int kGhostRaster = 96;   // density pixels across its footprint

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

fs::path FindLens(const std::string& nameOrPath) {
    if (nameOrPath.find('/') != std::string::npos || fs::path(nameOrPath).extension() == ".json") {
        std::error_code error;
        if (!fs::is_regular_file(nameOrPath, error)) throw std::runtime_error(nameOrPath + ": no such lens file");
        return nameOrPath;
    }
    std::vector<std::string> names;
    for (const fs::path& folder : LensFolders()) {
        for (const fs::path& file : FilesIn(folder, ".json")) {
            if (file.stem() == nameOrPath) return file;
            if (std::find(names.begin(), names.end(), file.stem().string()) == names.end()) names.push_back(file.stem().string());
        }
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


void LensLook::Paint(FrameSize size, const FlareLight& light, float* rgb) {
    // The frame's smaller side spans the sensor's smaller side; its centre is the lens's axis.
    const double frameMm = std::min(sensorWidth_, sensorHeight_) / double(std::min(size.width, size.height));
    const double energy = light.intensity * kLightEnergy;
    const double colour[3] = {light.color.red / 255.0, light.color.green / 255.0, light.color.blue / 255.0};
    const float burstScale[3] = {float(energy * colour[0]), float(energy * colour[1]), float(energy * colour[2])};
    const lens::Starburst& burst = starbursts_.Get(aperture_, fNumber_);
    AddPattern(burst.rgb.data(), burst.size, burst.mmPerPixel, light.x, light.y, burstScale, size, frameMm, rgb);
    AddRays(RaysOf(burst), light.x, light.y, burstScale, size, frameMm, rgb);

    // The light's direction from where its image lies on the sensor (y up there).
    const double focal = lens::Paraxial(lens_, kDLine).focalLength;
    const lens::FootprintSettings settings =
        GhostSettings(fNumber_, aperture_, std::atan((light.x - 0.5 * size.width) * frameMm / focal),
                      std::atan((0.5 * size.height - light.y) * frameMm / focal));
    const lens::GhostFootprints& traced = footprints_.Get(lens_, settings);
    const std::array<lens::LinearRgb, lens::kSpectralSamples> weights = lens::SpectralWeights();
    const size_t bands = traced.wavelengths.size();
    std::vector<std::array<float, 3>> scales(bands);
    for (size_t band = 0; band < bands; ++band) {
        const auto sample = size_t(std::lround((traced.wavelengths[band] - lens::kFirstWavelength) / lens::kWavelengthStep));
        lens::LinearRgb weight;
        for (size_t k = sample; k < std::min(sample + kGhostWavelengthStep, size_t(lens::kSpectralSamples)); ++k)
            weight.r += weights[k].r, weight.g += weights[k].g, weight.b += weights[k].b;
        const double perLight = energy / traced.lightFlux[band];   // the light's energy per unit of its flux
        scales[band] = {float(perLight * weight.r * colour[0]), float(perLight * weight.g * colour[1]),
                        float(perLight * weight.b * colour[2])};
    }
    for (size_t first = 0; first + bands <= traced.ghosts.size(); first += bands)
        AddGhost(FoldGhost(&traced.ghosts[first], scales.data(), bands), size, frameMm, rgb);
}

GhostImage FoldGhost(const lens::GhostFootprint* footprints, const std::array<float, 3>* scales, size_t count) {
    GhostImage image;
    double left = 1e30, bottom = 1e30, right = -1e30, top = -1e30;
    int finest = 0;
    for (size_t k = 0; k < count; ++k) {
        const lens::GhostFootprint& f = footprints[k];
        if (f.density.empty()) continue;
        left = std::min(left, f.left), bottom = std::min(bottom, f.bottom);
        right = std::max(right, f.left + f.size * f.pixel), top = std::max(top, f.bottom + f.size * f.pixel);
        finest = std::max(finest, f.size);
    }
    if (finest == 0) return image;
    // One raster over every wavelength's footprint, as fine as the finest across the widest.
    image.size = finest + finest / 8;
    image.pixel = std::max(right - left, top - bottom) / image.size;
    image.left = left, image.bottom = bottom;
    image.rgb.assign(size_t(image.size) * size_t(image.size) * 3, 0.0f);
    for (size_t k = 0; k < count; ++k) {
        const lens::GhostFootprint& f = footprints[k];
        if (f.density.empty()) continue;
        const auto at = [&f](int i, int j) {
            return i < 0 || j < 0 || i >= f.size || j >= f.size ? 0.0f : f.density[size_t(j) * size_t(f.size) + size_t(i)];
        };
        for (int j = 0; j < image.size; ++j) {
            const double v = (image.bottom + (j + 0.5) * image.pixel - f.bottom) / f.pixel - 0.5;
            const int fj = FloorWithin(v, -2, f.size);
            if (fj < -1 || fj >= f.size) continue;
            const double tv = v - fj;
            for (int i = 0; i < image.size; ++i) {
                const double u = (image.left + (i + 0.5) * image.pixel - f.left) / f.pixel - 0.5;
                const int fi = FloorWithin(u, -2, f.size);
                if (fi < -1 || fi >= f.size) continue;
                const double tu = u - fi;
                const double d = (at(fi, fj) * (1 - tu) + at(fi + 1, fj) * tu) * (1 - tv) +
                                 (at(fi, fj + 1) * (1 - tu) + at(fi + 1, fj + 1) * tu) * tv;
                if (d == 0.0) continue;
                float* out = &image.rgb[(size_t(j) * size_t(image.size) + size_t(i)) * 3];
                for (int c = 0; c < 3; ++c) out[c] += float(d) * scales[k][size_t(c)];
            }
        }
    }
    return image;
}

void AddGhost(const GhostImage& ghost, FrameSize frame, double frameMm, float* rgb) {
    if (ghost.rgb.empty()) return;
    // A ghost too faint to move any pixel by a 16-bit level's worth of linear light is left out.
    const double densest = *std::max_element(ghost.rgb.begin(), ghost.rgb.end());
    if (densest * std::max(frameMm * frameMm, ghost.pixel * ghost.pixel) < kFaintest) return;
    const double cx = 0.5 * frame.width, cy = 0.5 * frame.height;
    const size_t stride = size_t(ghost.size) * 3;
    if (ghost.pixel < frameMm) {
        // Spread: each ghost pixel's light over the frame pixels it overlaps.
        const double step = ghost.pixel / frameMm, share = 1.0 / (step * step), cell = ghost.pixel * ghost.pixel;
        for (int j = 0; j < ghost.size; ++j) {
            const double y1 = cy - (ghost.bottom + j * ghost.pixel) / frameMm, y0 = y1 - step;
            const int fy0 = FloorWithin(y0, 0, frame.height), fy1 = FloorWithin(y1, -1, frame.height - 1);
            for (int i = 0; i < ghost.size && fy0 <= fy1; ++i) {
                const float* d = &ghost.rgb[size_t(j) * stride + size_t(i) * 3];
                if (d[0] == 0.0f && d[1] == 0.0f && d[2] == 0.0f) continue;
                const double x0 = cx + (ghost.left + i * ghost.pixel) / frameMm, x1 = x0 + step;
                const int fx0 = FloorWithin(x0, 0, frame.width), fx1 = FloorWithin(x1, -1, frame.width - 1);
                for (int fy = fy0; fy <= fy1; ++fy)
                    for (int fx = fx0; fx <= fx1; ++fx) {
                        const float w = float(cell * Overlap(y0, y1, fy) * Overlap(x0, x1, fx) * share);
                        float* out = &rgb[(size_t(fy) * size_t(frame.width) + size_t(fx)) * 3];
                        for (int c = 0; c < 3; ++c) out[c] += w * d[c];
                    }
            }
        }
        return;
    }
    // Gathered: the light at each frame pixel's centre, bilinear between ghost pixel centres.
    const double area = frameMm * frameMm;
    const double right = ghost.left + ghost.size * ghost.pixel, top = ghost.bottom + ghost.size * ghost.pixel;
    const int fx0 = FloorWithin(cx + ghost.left / frameMm, 0, frame.width);
    const int fx1 = FloorWithin(cx + right / frameMm + 1.0, -1, frame.width - 1);
    const int fy0 = FloorWithin(cy - top / frameMm, 0, frame.height);
    const int fy1 = FloorWithin(cy - ghost.bottom / frameMm + 1.0, -1, frame.height - 1);
    static const float kNone[3] = {0.0f, 0.0f, 0.0f};
    const auto at = [&](int i, int j) {
        return i < 0 || j < 0 || i >= ghost.size || j >= ghost.size ? kNone : &ghost.rgb[size_t(j) * stride + size_t(i) * 3];
    };
    for (int fy = fy0; fy <= fy1; ++fy) {
        const double v = ((cy - (fy + 0.5)) * frameMm - ghost.bottom) / ghost.pixel - 0.5;
        const int j = FloorWithin(v, -2, ghost.size);
        const float tv = float(v - j);
        for (int fx = fx0; fx <= fx1; ++fx) {
            const double u = ((fx + 0.5 - cx) * frameMm - ghost.left) / ghost.pixel - 0.5;
            const int i = FloorWithin(u, -2, ghost.size);
            const float tu = float(u - i);
            const float *a = at(i, j), *b = at(i + 1, j), *c0 = at(i, j + 1), *d = at(i + 1, j + 1);
            float* out = &rgb[(size_t(fy) * size_t(frame.width) + size_t(fx)) * 3];
            for (int c = 0; c < 3; ++c) {
                const float value = (a[c] * (1 - tu) + b[c] * tu) * (1 - tv) + (c0[c] * (1 - tu) + d[c] * tu) * tv;
                out[c] += value * float(area);
            }
        }
    }
}

void AddPattern(const float* pattern, int size, double patternMm, double cx, double cy, const float scale[3],
                FrameSize frame, double frameMm, float* rgb) {
    const double step = patternMm / frameMm;      // a pattern pixel's side in frame pixels
    const double origin = -0.5 * size * step;     // the pattern's corner from the light
    const double share = 1.0 / (step * step);     // of a pattern pixel, per frame pixel area of overlap
    for (int py = 0; py < size; ++py) {
        const double y0 = cy + origin + py * step, y1 = y0 + step;
        const int fy0 = FloorWithin(y0, 0, frame.height), fy1 = FloorWithin(y1, -1, frame.height - 1);
        if (fy0 > fy1) continue;
        for (int px = 0; px < size; ++px) {
            const float* value = &pattern[(size_t(py) * size_t(size) + size_t(px)) * 3];
            if (value[0] == 0.0f && value[1] == 0.0f && value[2] == 0.0f) continue;
            const double x0 = cx + origin + px * step, x1 = x0 + step;
            const int fx0 = FloorWithin(x0, 0, frame.width), fx1 = FloorWithin(x1, -1, frame.width - 1);
            for (int fy = fy0; fy <= fy1; ++fy) {
                const double oy = Overlap(y0, y1, fy);
                for (int fx = fx0; fx <= fx1; ++fx) {
                    const float weight = float(oy * Overlap(x0, x1, fx) * share);
                    float* out = &rgb[(size_t(fy) * size_t(frame.width) + size_t(fx)) * 3];
                    for (int c = 0; c < 3; ++c) out[c] += value[c] * scale[c] * weight;
                }
            }
        }
    }
}

}  // namespace vellux::engine
