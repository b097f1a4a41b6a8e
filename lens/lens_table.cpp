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
// One scale for every lens, so that a lens that flares more shows it. A ghost's light (ghosts.h:
// the area of white it matches, in flare units squared, for a frame exposed for the scene) spans a
// thousandfold from ghost to ghost and lens to lens, more than a frame shows: like film, the table
// compresses it, each ghost's light following its square root (a ghost that carries a hundredth as
// much shows a tenth of it). That light is then spread over the ghost's disc as the lens spreads
// it, so a disc twice as wide is a quarter as bright, and stopping down, which gathers the same
// light into a smaller disc, makes the ghosts smaller and brighter. A ghost carrying 1e-3 on a disc
// of radius 0.1 peaks at this value; the smallest discs are clipped at full scale.
constexpr double kPeakAtReference = 12000.0;
constexpr double kReferenceLight = 1e-3;
constexpr double kReferenceRadius = 0.1;      // flare units
constexpr double kCompression = 0.5;
constexpr int kRampStops = 12;
constexpr int kSmallestOutside = 40;         // file units: a ghost stays a few pixels wide
// Ghosts beyond these never reach a frame, or not as anything that can be seen, and are left out,
// which keeps every number of the table within its fields.
constexpr double kFarthestPosition = 50.0;
constexpr double kLargestRadius = 5.0;       // flare units
// A ghost whose disc is wider than the frame (a radius of a flare unit covers a 16:9 frame's
// height twice) has no edge in it: what it adds is an even lift of the whole frame, veiling glare.
// Such ghosts are not drawn as discs: their light, spread the same way, makes one veil centred on
// the frame. Its colour is their mean over the three channels: the coatings tint single ghosts,
// but the many paths a veil gathers (with the scatter of real glass and barrel) read as grey.
constexpr double kVeilingRadius = 1.0;       // flare units
constexpr int kVeilOutside = 15000;          // file units: the veil covers frames up to 2.7:1
// Where the light will be is not known to the table. A ghost that stays within a short way of the
// light, and whose disc reaches the light's bright core, for lights anywhere within this distance
// of the frame's centre, lies on the light's own image: it is drawn centred on it, as part of the
// glare round it, not as a second core beside it.
constexpr double kCoreReach = 0.5;           // flare units
constexpr double kCoreRadius = 0.05;         // flare units: the glow's brightest part
constexpr double kLargestShift = 0.1;        // flare units

bool Drawable(const Ghost& ghost) {
    for (int c = 0; c < 3; ++c) {
        if (!(std::abs(ghost.position[c]) <= kFarthestPosition) || !(ghost.radius[c] <= kLargestRadius)) return false;
        if (!(ghost.brightness[c] >= 0.0) || !std::isfinite(ghost.brightness[c])) return false;
        if (!(ghost.light[c] >= 0.0) || !std::isfinite(ghost.light[c])) return false;
    }
    return true;
}

bool Veils(const Ghost& ghost) { return ghost.radius[1] > kVeilingRadius; }

bool OnTheLight(const Ghost& ghost) {
    const double shift = std::abs(1.0 - ghost.position[1]) * kCoreReach;
    return shift < kLargestShift && shift < ghost.radius[1] + kCoreRadius;
}

// The radius a channel of the ghost is drawn at, in file units.
double DrawnRadius(const Ghost& ghost, int c) {
    return std::max(ghost.radius[c] * kTableUnits, double(kSmallestOutside) / 1.1);
}

// The peak of `light` (compressed) spread over `area` (flare units squared).
double Peak(double light, double area, double exposure) {
    const double pi = std::acos(-1.0);
    return exposure * kPeakAtReference * std::pow(light / kReferenceLight, kCompression) * pi * kReferenceRadius *
           kReferenceRadius / area;
}

double Area(double radius) { return std::acos(-1.0) * radius * radius; }

// A channel's peak: its compressed light over its disc's area.
double Peak(const Ghost& ghost, int c, double exposure) {
    return Peak(ghost.light[c], Area(DrawnRadius(ghost, c) / kTableUnits), exposure);
}

// The ghosts folded into the veil, together: their light, grey, and the level it makes.
struct Veiling {
    double light = 0.0;
    double level = 0.0;   // uncompressed: light over area, summed
    void Add(const Ghost& ghost) {
        const double grey = (ghost.light[0] + ghost.light[1] + ghost.light[2]) / 3.0;
        light += grey;
        level += grey / Area(ghost.radius[1]);
    }
    // Compressed as one ghost would be, so that many faint ones do not add up to a bright veil.
    double Peak(double exposure) const { return level > 0.0 ? lens::Peak(light, light / level, exposure) : 0.0; }
};

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
        for (int c = 0; c < 3; ++c) value[c] = Peak(ghost, c, exposure) * Disc(position / DrawnRadius(ghost, c));
        stops.push_back(Stop(position, value[0], value[1], value[2]));
    }
    stops.push_back(Stop(outside, 0, 0, 0));
    stops.back()["alpha"] = 0;
    char name[32];
    std::snprintf(name, sizeof name, "Ghost %zu-%zu", ghost.first + 1, ghost.second + 1);
    const double position = OnTheLight(ghost) ? 1.0 : ghost.position[1];
    return Ring(id, name, 4, int(std::lround(position * kTableUnits)), outside, std::move(stops));
}

// The veil: even over the frame, its edge well outside it.
Json Veil(int id, double level) {
    Json stops = Json::array({Stop(0, level, level, level), Stop(kVeilOutside * 9 / 10, level, level, level),
                              Stop(kVeilOutside, 0, 0, 0)});
    stops.back()["alpha"] = 0;
    return Ring(id, "Veil", 4, 0, kVeilOutside, std::move(stops));
}

}  // namespace

Json LensTableSource(const Prescription& lens, const std::vector<Ghost>& ghosts, double fNumber, const TableOptions& options) {
    std::vector<Ghost> drawable;
    Veiling veiling;
    for (const Ghost& ghost : ghosts) {
        if (!Drawable(ghost)) continue;
        if (Veils(ghost))
            veiling.Add(ghost);
        else if (drawable.size() < size_t(std::max(options.ghosts, 0)))
            drawable.push_back(ghost);
    }
    const size_t count = drawable.size();
    const double veil = veiling.Peak(options.exposure);
    const double glow = std::clamp(std::sqrt(2.8 / fNumber), 0.6, 1.4);
    Json resources = Json::array();
    char name[64];
    std::snprintf(name, sizeof name, ": ghosts computed at f/%.3g", fNumber);
    const int last = 2003 + int(count) + (veil > 0.0 ? 1 : 0);
    resources.push_back({{"type", "FLAR"}, {"id", 1001}, {"name", lens.name + name},
                         {"flare", {{"elements", Json::array({{{"type", "RING"}, {"first", 2001}, {"last", last}}})}}}});
    resources.push_back(Glow(2001, "Glow", 1, glow));
    resources.push_back(Glow(2002, "Glow in light colour", 2, glow));
    resources.push_back(Halo(2003));
    for (size_t g = 0; g < count; ++g)
        resources.push_back(GhostRing(2004 + int(g), drawable[g], options.exposure));
    if (veil > 0.0) resources.push_back(Veil(last, veil));
    return {{"resources", std::move(resources)}};
}

}  // namespace vellux::lens
