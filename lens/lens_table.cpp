#include "lens/lens_table.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

namespace vellux::lens {

namespace {

using Json = nlohmann::ordered_json;

constexpr double kFullScale = 65535.0;
// One scale for every lens, so that a lens that flares more shows it: a ghost of brightness 1e-3
// (its disc's irradiance over the light's at the lens) peaks at this value. Ghosts span a
// millionfold in brightness, far beyond what a frame shows: like film, the table compresses them,
// each ghost's peak following the square root of its brightness (a ghost a hundredth as bright
// shows at a tenth of the strength), the brightest clipped at full scale.
constexpr double kPeakAtReference = 10000.0;
constexpr double kReferenceBrightness = 1e-3;
constexpr double kCompression = 0.5;
constexpr int kRampStops = 12;
constexpr int kSmallestOutside = 40;         // file units: a ghost stays a few pixels wide
// Ghosts beyond these never reach a frame (or not as a ghost: a veil over all of it) and are
// left out, which keeps every number of the table within its fields.
constexpr double kFarthestPosition = 50.0;
constexpr double kLargestRadius = 5.0;       // flare units

bool Drawable(const Ghost& ghost) {
    for (int c = 0; c < 3; ++c) {
        if (!(std::abs(ghost.position[c]) <= kFarthestPosition) || !(ghost.radius[c] <= kLargestRadius)) return false;
        if (!(ghost.brightness[c] >= 0.0) || !std::isfinite(ghost.brightness[c])) return false;
    }
    return true;
}

Json Stop(int position, double red, double green, double blue) {
    const auto channel = [](double v) { return int(std::lround(std::clamp(v, 0.0, kFullScale))); };
    return {{"position", position}, {"red", channel(red)}, {"green", channel(green)}, {"blue", channel(blue)}};
}

Json Ring(int id, const std::string& name, int type, int offset, int outside, Json stops) {
    Json ring = {{"name", name.substr(0, 31)}, {"type", type}, {"mode", 0}, {"units", kTableUnits}, {"offset", offset},
                 {"inside", 0}, {"outside", outside}, {"stops", std::move(stops)}};
    return {{"type", "RING"}, {"id", id}, {"ring", std::move(ring)}};
}

// The glow's falloff (the default table's), its size grown for a fast lens wide open: more of
// the light scatters in a lens working at a large aperture.
Json Glow(int id, const std::string& name, int type, double size) {
    static const int kPositions[] = {0, 150, 300, 500, 800, 1250, 1900, 2750, 3750};
    static const int kValues[] = {65535, 60292, 43253, 27525, 15728, 7864, 3604, 1442, 459};
    Json stops = Json::array();
    for (size_t k = 0; k < std::size(kPositions); ++k) {
        const double v = kValues[k];
        stops.push_back(Stop(int(std::lround(kPositions[k] * size)), v, v, v));
    }
    const int outside = int(std::lround(5000 * size));
    stops.push_back(Stop(outside, 0, 0, 0));
    stops.back()["alpha"] = 0;
    return Ring(id, name, type, kTableUnits, outside, std::move(stops));
}

Json Halo(int id) {
    Json stops = Json::array({Stop(0, 0, 0, 0), Stop(1015, 0, 0, 0), Stop(1087, 16383, 16383, 16383),
                              Stop(1103, 16383, 16383, 16383), Stop(1175, 0, 0, 0)});
    stops.back()["alpha"] = 0;
    return Ring(id, "Halo", 3, kTableUnits, 1175, std::move(stops));
}

// An aperture image across its radius r: even inside, a little brighter towards the rim, a soft
// edge from 0.9 r to 1.1 r.
double Disc(double x) {
    if (x <= 0.9) return 0.8 + 0.2 * x * x / 0.81;
    if (x >= 1.1) return 0.0;
    return (1.1 - x) / 0.2;
}

Json GhostRing(int id, const Ghost& ghost, double exposure) {
    const double largest = std::max({ghost.radius[0], ghost.radius[1], ghost.radius[2]});
    const int outside = std::max(kSmallestOutside, int(std::lround(largest * 1.1 * kTableUnits)));
    Json stops = Json::array();
    for (int k = 0; k < kRampStops; ++k) {
        const int position = int(int64_t(outside) * k / kRampStops);
        double value[3];
        for (int c = 0; c < 3; ++c) {
            const double radius = std::max(ghost.radius[c] * kTableUnits, double(kSmallestOutside) / 1.1);
            const double peak = exposure * kPeakAtReference * std::pow(ghost.brightness[c] / kReferenceBrightness, kCompression);
            value[c] = peak * Disc(position / radius);
        }
        stops.push_back(Stop(position, value[0], value[1], value[2]));
    }
    stops.push_back(Stop(outside, 0, 0, 0));
    stops.back()["alpha"] = 0;
    char name[32];
    std::snprintf(name, sizeof name, "Ghost %zu-%zu", ghost.first + 1, ghost.second + 1);
    return Ring(id, name, 4, int(std::lround(ghost.position[1] * kTableUnits)), outside, std::move(stops));
}

}  // namespace

Json LensTableSource(const Prescription& lens, const std::vector<Ghost>& ghosts, double fNumber, const TableOptions& options) {
    std::vector<Ghost> drawable;
    for (const Ghost& ghost : ghosts)
        if (Drawable(ghost) && drawable.size() < size_t(std::max(options.ghosts, 0))) drawable.push_back(ghost);
    const size_t count = drawable.size();
    const double glow = std::clamp(std::sqrt(2.8 / fNumber), 0.6, 1.4);
    Json resources = Json::array();
    char name[64];
    std::snprintf(name, sizeof name, ": ghosts computed at f/%.3g", fNumber);
    const int last = 2003 + int(count);
    resources.push_back({{"type", "FLAR"}, {"id", 1001}, {"name", lens.name + name},
                         {"flare", {{"elements", Json::array({{{"type", "RING"}, {"first", 2001}, {"last", last}}})}}}});
    resources.push_back(Glow(2001, "Glow", 1, glow));
    resources.push_back(Glow(2002, "Glow in light colour", 2, glow));
    resources.push_back(Halo(2003));
    for (size_t g = 0; g < count; ++g)
        resources.push_back(GhostRing(2004 + int(g), drawable[g], options.exposure));
    return {{"resources", std::move(resources)}};
}

}  // namespace vellux::lens
