// Ghosts traced as images of the aperture: the skew tracer against the meridional one, under
// rotation and unclipped against clipped, the iris against the aperture's own outline and across
// a patch, footprints against the paraxial ghosts, the blades' polygon and which way it turns, the
// lens's rims cutting ghosts off axis, edges found between coarse rays, the light far off a
// fisheye's axis, the light a ghost carries, the coating's tint, and the density against the
// rays' own spreading.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <map>
#include <numbers>
#include <string>

#include "lens/exact_trace.h"
#include "lens/ghost_footprint.h"
#include "lens/ghosts.h"
#include "lens/glass.h"
#include "lens/paraxial.h"
#include "lens/skew_trace.h"

namespace vellux::lens {
namespace {

const std::string kLenses = VELLUX_LENS_DIR;
const char* const kShippedLenses[] = {"double-gauss-50mm.json", "wide-angle-22mm.json", "fisheye-10mm.json", "vintage-58mm.json"};
constexpr double kPi = std::numbers::pi;
constexpr double kDegree = kPi / 180.0;

Prescription Lens(const std::string& file) { return ReadPrescription(kLenses + "/" + file); }

// Every path worth checking: the light's own and each ghost's.
std::vector<Path> Paths(const Prescription& lens) {
    std::vector<Path> paths{LightPath(lens)};
    for (size_t i = 0; i < lens.surfaces.size(); ++i)
        for (size_t j = i + 1; j < lens.surfaces.size(); ++j)
            if (!lens.surfaces[i].stop && !lens.surfaces[j].stop) paths.push_back(GhostPath(lens, i, j));
    return paths;
}

Vec3 Rotated(Vec3 v, double angle) {
    return {v.x * std::cos(angle) - v.y * std::sin(angle), v.x * std::sin(angle) + v.y * std::cos(angle), v.z};
}

TEST(SkewTrace, AgreesWithTheMeridionalTracerInItsPlane) {
    for (const char* file : kShippedLenses) {
        const Prescription lens = Lens(file);
        const double sensor = Paraxial(lens, kLineD).backFocus, stop = lens.surfaces[lens.stopIndex].diameter;
        int compared = 0;
        for (const Path& path : Paths(lens)) {
            // The meridional tracer knows no clear apertures.
            const SkewPath skew(lens, path, kGreen, sensor, false);
            for (const double height : {-0.3 * stop, 0.05 * stop, 0.35 * stop}) {
                for (const double angle : {0.0, 0.03, -0.08}) {
                    const auto meridional = TraceRay(lens, path, kGreen, sensor, height, angle);
                    const SkewTrace traced = skew.Trace({0.0, height - std::tan(angle), -1.0}, {0.0, std::sin(angle), std::cos(angle)});
                    ASSERT_EQ(meridional.has_value(), traced.miss == Miss::none) << file << " at " << height << ", " << angle;
                    if (!meridional) continue;
                    ++compared;
                    EXPECT_NEAR(traced.sensorY, meridional->sensorHeight, 1e-9) << file;
                    EXPECT_NEAR(traced.stopY, meridional->stopHeight, 1e-9) << file;
                    EXPECT_EQ(traced.sensorX, 0.0) << file;
                }
            }
        }
        EXPECT_GT(compared, 100) << file;
    }
}

TEST(SkewTrace, IsSymmetricAboutTheAxis) {
    const Prescription lens = Lens("double-gauss-50mm.json");
    const double sensor = Paraxial(lens, kLineD).backFocus;
    const Iris round(Aperture{}, 0.8 * StopRadius(lens, 2.0));
    const Vec3 origin{0.6, -0.9, -1.0}, direction{0.02, 0.03, 1.0};
    for (const Path& path : {LightPath(lens), GhostPath(lens, 2, 8), GhostPath(lens, 6, 9), GhostPath(lens, 0, 4)}) {
        const SkewPath skew(lens, path, kBlue, sensor, false);
        const SkewTrace reference = skew.Trace(origin, direction, round);
        ASSERT_EQ(reference.miss, Miss::none);
        for (const double angle : {0.4, 2.0, 3.9}) {
            const SkewTrace turned = skew.Trace(Rotated(origin, angle), Rotated(direction, angle), round);
            ASSERT_EQ(turned.miss, Miss::none);
            const Vec3 expected = Rotated({reference.sensorX, reference.sensorY, 0.0}, angle);
            EXPECT_NEAR(turned.sensorX, expected.x, 1e-9);
            EXPECT_NEAR(turned.sensorY, expected.y, 1e-9);
        }
    }
}

TEST(SkewTrace, NamesWhereARayIsLost) {
    const Prescription lens = Lens("double-gauss-50mm.json");
    const SkewPath light(lens, LightPath(lens), kGreen, Paraxial(lens, kLineD).backFocus);
    // Beyond the front element's rim.
    const SkewTrace rim = light.Trace({0.0, 13.0, -1.0}, {0.0, 0.0, 1.0});
    EXPECT_EQ(rim.miss, Miss::clearAperture);
    EXPECT_EQ(rim.event, 0u);
    // Through the front element but outside a small opening at the stop.
    const SkewTrace blocked = light.Trace({5.0, 0.0, -1.0}, {0.0, 0.0, 1.0}, Iris(Aperture{}, 2.0));
    EXPECT_EQ(blocked.miss, Miss::iris);
    EXPECT_EQ(blocked.event, lens.stopIndex);
    EXPECT_GT(blocked.stopX, 2.0);
}

// Traced unclipped, a ray lands where the clipping tracer's does when nothing stops it, and tells
// what would have: a rim (a margin not above 0) or a blade (at one of its crossings of the stop).
// A ray lost for good (passing a sphere by, totally reflected, turned back) is lost either way.
TEST(SkewTrace, UnclippedRaysLandAsClippedOnesAndTellWhatWouldStopThem) {
    const Prescription lens = Lens("double-gauss-50mm.json");
    const double sensor = Paraxial(lens, kLineD).backFocus, front = 0.5 * lens.surfaces[0].diameter;
    const Iris iris(Aperture{6, 0.0, 0.3}, StopRadius(lens, 4.0));
    const Vec3 direction{0.1, -0.05, 1.0};
    std::vector<Vec3> origins;   // over the front element and past its rim
    for (int a = -12; a <= 12; ++a)
        for (int b = -12; b <= 12; ++b) origins.push_back({front * a / 10.0 - 0.2, front * b / 10.0 + 0.1, -1.0});
    std::vector<UnclippedTrace> unclipped(origins.size());
    std::map<Miss, int> seen;
    for (const Path& path : Paths(lens)) {
        const SkewPath skew(lens, path, kBlue, sensor);
        skew.TraceUnclipped(origins.data(), origins.size(), direction, unclipped.data());
        for (size_t k = 0; k < origins.size(); ++k) {
            const SkewTrace clipped = skew.Trace(origins[k], direction, iris);
            const UnclippedTrace& free = unclipped[k];
            int covered = 0;
            for (size_t c = 0; c < skew.StopCrossings(); ++c) covered += !iris.Open(free.stop[c][0], free.stop[c][1]);
            ++seen[clipped.miss];
            if (clipped.miss == Miss::none) {
                ASSERT_TRUE(free.landed);
                EXPECT_NEAR(free.sensorX, clipped.sensorX, 1e-9);
                EXPECT_NEAR(free.sensorY, clipped.sensorY, 1e-9);
                EXPECT_GT(free.rim, 0.0);
                EXPECT_EQ(covered, 0);
            } else if (clipped.miss == Miss::clearAperture) {
                EXPECT_TRUE(!free.landed || free.rim <= 0.0);
            } else if (clipped.miss == Miss::iris) {
                EXPECT_GT(covered, 0);
            } else {
                EXPECT_FALSE(free.landed);
            }
        }
    }
    EXPECT_GT(seen[Miss::none], 1000);
    EXPECT_GT(seen[Miss::clearAperture], 1000);
    EXPECT_GT(seen[Miss::iris], 1000);
}

TEST(Iris, AgreesWithTheAperturesOutline) {
    const Aperture apertures[] = {{0, 0.0, 0.0}, {6, 0.0, 0.2}, {5, 0.4, -1.0}, {9, 1.0, 0.0}, {3, 0.7, 2.5}, {32, 0.0, 0.1}};
    unsigned state = 12345;
    const auto next = [&] { return (state = state * 1103515245u + 12345u) / 4294967296.0 * 2.4 - 1.2; };
    for (const Aperture& aperture : apertures) {
        const double radius = 3.0;
        const Iris iris(aperture, radius);
        int open = 0;
        for (int k = 0; k < 4000; ++k) {
            const double x = next(), y = next();
            EXPECT_EQ(iris.Open(radius * x, radius * y), Inside(aperture, x, y)) << aperture.blades << " blades at " << x << ", " << y;
            open += Inside(aperture, x, y);
        }
        // The open share of the square matches the opening's area.
        EXPECT_NEAR(open / 4000.0, OpenArea(aperture) / (2.4 * 2.4), 0.03) << aperture.blades << " blades";
    }
}

// Asked across a patch, the iris answers as it does at the blended point, also where blades'
// edges meet within the patch.
TEST(Iris, AnswersAcrossAPatchAsAtEachPoint) {
    const Aperture apertures[] = {{6, 0.0, 0.2}, {5, 0.4, -1.0}, {0, 0.0, 0.0}, {3, 0.0, 2.5}};
    unsigned state = 777;
    const auto next = [&] { return (state = state * 1103515245u + 12345u) / 4294967296.0; };
    for (const Aperture& aperture : apertures) {
        const Iris iris(aperture, 3.0);
        int open = 0, shut = 0;
        for (int patch = 0; patch < 300; ++patch) {
            // A skewed quadrilateral about the size of a ray cell, in and round the opening.
            const double angle = 2.0 * kPi * next(), reach = 1.2 + 2.0 * next(), size = 0.3 + 0.6 * next();
            double corners[4][2];
            for (int c = 0; c < 4; ++c) {
                corners[c][0] = reach * std::cos(angle) + size * ((c & 1) + 0.3 * next());
                corners[c][1] = reach * std::sin(angle) + size * ((c >> 1) + 0.3 * next());
            }
            const Iris::Patch across(iris, corners);
            for (int k = 0; k < 20; ++k) {
                const double u = next(), v = next();
                const auto blend = [&](int axis) {
                    const double low = corners[0][axis] + u * (corners[1][axis] - corners[0][axis]);
                    const double high = corners[2][axis] + u * (corners[3][axis] - corners[2][axis]);
                    return low + v * (high - low);
                };
                const bool expected = iris.Open(blend(0), blend(1));
                ASSERT_EQ(across.Open(u, v), expected) << aperture.blades << " blades, patch " << patch;
                (expected ? open : shut)++;
            }
        }
        EXPECT_GT(open, 500) << aperture.blades << " blades";
        EXPECT_GT(shut, 500) << aperture.blades << " blades";
    }
}

// The paraxial ghost's magnification from the stop (where its path first crosses it) to the sensor,
// and the light's image height per unit slope.
double StopToSensor(const Prescription& lens, const Path& path, double wavelength, double sensor) {
    size_t crossing = 0;
    while (path[crossing].surface != lens.stopIndex) ++crossing;
    return PathMatrix(lens, path, wavelength, path.size(), sensor).a / PathMatrix(lens, path, wavelength, crossing + 1, sensor).a;
}
double ImagePerSlope(const Prescription& lens, double wavelength, double sensor) {
    const Path path = LightPath(lens);
    const Matrix2 before = PathMatrix(lens, path, wavelength, lens.stopIndex + 1, sensor);
    const Matrix2 whole = PathMatrix(lens, path, wavelength, path.size(), sensor);
    return whole.b - whole.a * before.b / before.a;
}

// The paraxial radius of the beam in the entrance that gets through the stop along the ghost's
// path (the light's own for a default footprint, first == second == 0).
double EntranceRadius(const Prescription& lens, const GhostFootprint& ghost, double stopRadius) {
    const Path path = ghost.second == 0 ? LightPath(lens) : GhostPath(lens, ghost.first, ghost.second);
    size_t crossing = 0;
    while (path[crossing].surface != lens.stopIndex) ++crossing;
    return stopRadius / std::abs(PathMatrix(lens, path, ghost.wavelength > 0.0 ? ghost.wavelength : kLineD, crossing + 1, 0.0).a);
}

bool CrossesTheStopOnce(const Prescription& lens, size_t i, size_t j) { return i > lens.stopIndex || j < lens.stopIndex; }

// The ghosts whose first crossing of the stop is their only one, that no rim cuts (the same rays
// land with the clear apertures as without) and whose paraxial disc is `minRadius` to `maxRadius` mm.
std::vector<const GhostFootprint*> Unclipped(const Prescription& lens, const GhostFootprints& clipped, const GhostFootprints& free,
                                            double stopRadius, double minRadius, double maxRadius) {
    std::vector<const GhostFootprint*> chosen;
    const double sensor = Paraxial(lens, kLineD).backFocus;
    for (size_t g = 0; g < clipped.ghosts.size(); ++g) {
        const GhostFootprint& ghost = clipped.ghosts[g];
        if (!CrossesTheStopOnce(lens, ghost.first, ghost.second) || ghost.rays == 0 || ghost.rays != free.ghosts[g].rays) continue;
        const auto paraxial = ParaxialGhost(lens, ghost.first, ghost.second, ghost.wavelength, stopRadius, sensor);
        if (!paraxial || paraxial->radius < minRadius || paraxial->radius > maxRadius) continue;
        // Only where the beam the stop admits is no wider than twice the light's own: wider, it
        // meets the front surfaces far out, where the paraxial model no longer holds.
        if (EntranceRadius(lens, ghost, stopRadius) > 2.0 * EntranceRadius(lens, {}, stopRadius)) continue;
        chosen.push_back(&ghost);
    }
    return chosen;
}

struct Traced {
    GhostFootprints clipped, free;
};
Traced TraceBoth(const Prescription& lens, FootprintSettings settings) {
    Traced traced;
    traced.clipped = TraceGhostFootprints(lens, settings);
    settings.clearApertures = false;
    traced.free = TraceGhostFootprints(lens, settings);
    return traced;
}

TEST(GhostFootprints, MatchTheParaxialGhostsNearTheAxis) {
    const double diagonal = std::hypot(36.0, 24.0);
    for (const char* file : {"double-gauss-50mm.json", "vintage-58mm.json"}) {
        const Prescription lens = Lens(file);
        const double sensor = Paraxial(lens, kLineD).backFocus;
        // Stopped down far, where the paraxial model holds: the ghosts reflected before the stop
        // take in a beam several times the pupil's width, whose aberrations show by f/16.
        FootprintSettings settings;
        settings.fNumber = 32.0;
        const double stop = StopRadius(lens, settings.fNumber);
        for (const double angle : {0.0, 2.0 * kDegree}) {
            settings.angleY = angle;
            const Traced traced = TraceBoth(lens, settings);
            const auto chosen = Unclipped(lens, traced.clipped, traced.free, stop, 0.5, 8.0);
            EXPECT_GE(chosen.size(), 6u) << file;
            for (const GhostFootprint* ghost : chosen) {
                // Ghosts reflected in the front group (0-1, 2-3 here) stay 6-8% smaller and
                // 0.2-0.3 mm nearer the centre than the paraxial disc even at f/32: compared are
                // those behind the stop, which take in the light's own beam.
                if (ghost->first < lens.stopIndex) continue;
                const std::string name = std::string(file) + " ghost " + std::to_string(ghost->first) + "-" + std::to_string(ghost->second);
                const auto paraxial = *ParaxialGhost(lens, ghost->first, ghost->second, ghost->wavelength, stop, sensor);
                const double image = ImagePerSlope(lens, ghost->wavelength, sensor) * std::tan(angle);
                EXPECT_NEAR(ghost->centroidX, 0.0, 0.005 * diagonal) << name;
                EXPECT_NEAR(ghost->centroidY, paraxial.position * image, 0.005 * diagonal) << name;
                EXPECT_NEAR(ghost->area, kPi * paraxial.radius * paraxial.radius, 0.05 * ghost->area) << name;
            }
        }
    }
}

// The footprint's k-fold orientation: the angle of a corner of a k-sided polygon from the phase
// of its density's k-th angular moment about the centre, in [0, 2 pi / k).
double CornerAngle(const GhostFootprint& ghost, int k) {
    std::complex<double> moment;
    for (int y = 0; y < ghost.size; ++y) {
        for (int x = 0; x < ghost.size; ++x) {
            const std::complex<double> at(ghost.left + (x + 0.5) * ghost.pixel - ghost.centroidX,
                                          ghost.bottom + (y + 0.5) * ghost.pixel - ghost.centroidY);
            moment += double(ghost.density[size_t(y * ghost.size + x)]) * std::pow(std::conj(at), k);
        }
    }
    const double period = 2.0 * kPi / k;
    return std::fmod(-std::arg(moment) / k + 2.0 * period, period);
}

// The difference a - b folded into [-period / 2, period / 2).
double Turn(double a, double b, double period) { return std::remainder(a - b, period); }

TEST(GhostFootprints, TakeTheBladesPolygonAndTurnWithIt) {
    const Prescription lens = Lens("double-gauss-50mm.json");
    const double sensor = Paraxial(lens, kLineD).backFocus;
    FootprintSettings settings;
    settings.fNumber = 8.0;
    settings.wavelengths = {kGreen};
    settings.aperture = {6, 0.0, 0.0};
    const Traced hexagons = TraceBoth(lens, settings);
    settings.aperture.rotation = 10.0 * kDegree;
    const GhostFootprints turned = TraceGhostFootprints(lens, settings);
    const auto chosen = Unclipped(lens, hexagons.clipped, hexagons.free, StopRadius(lens, 8.0), 1.5, 8.0);
    ASSERT_GE(chosen.size(), 8u);
    int upright = 0, inverted = 0;
    for (const GhostFootprint* ghost : chosen) {
        const size_t g = size_t(ghost - hexagons.clipped.ghosts.data());
        const std::string name = "ghost " + std::to_string(ghost->first) + "-" + std::to_string(ghost->second);
        // Corners where the blades' corners are, whichever way up the image: a hexagon turned half
        // round is itself; and turning the blades turns the ghost the same way (a rotationally
        // symmetric lens never mirrors).
        EXPECT_NEAR(Turn(CornerAngle(*ghost, 6), 0.0, 60.0 * kDegree), 0.0, 1.5 * kDegree) << name;
        EXPECT_NEAR(Turn(CornerAngle(turned.ghosts[g], 6), CornerAngle(*ghost, 6), 60.0 * kDegree), 10.0 * kDegree, 1.5 * kDegree) << name;
        // Five blades tell the two apart: an inverted image has its corners half a turn round.
        FootprintSettings five = settings;
        five.aperture = {5, 0.0, 10.0 * kDegree};
        const GhostFootprint pentagon = TraceGhostFootprint(lens, ghost->first, ghost->second, kGreen, five);
        const bool isUpright = StopToSensor(lens, GhostPath(lens, ghost->first, ghost->second), kGreen, sensor) > 0.0;
        (isUpright ? upright : inverted)++;
        const double expected = five.aperture.rotation + (isUpright ? 0.0 : kPi);
        EXPECT_NEAR(Turn(CornerAngle(pentagon, 5), expected, 72.0 * kDegree), 0.0, 2.0 * kDegree) << name << (isUpright ? " upright" : " inverted");
    }
    EXPECT_GT(upright, 0);
    EXPECT_GT(inverted, 0);
}

TEST(GhostFootprints, AreCutByTheLensRimsOffAxisAndNeverGrow) {
    const Prescription lens = Lens("double-gauss-50mm.json");
    FootprintSettings settings;
    settings.fNumber = 4.0;
    settings.wavelengths = {kGreen};
    settings.angleX = 12.0 * kDegree, settings.angleY = 14.0 * kDegree;   // towards the frame's corner
    const Traced traced = TraceBoth(lens, settings);
    int cut = 0;
    for (size_t g = 0; g < traced.clipped.ghosts.size(); ++g) {
        const GhostFootprint &clipped = traced.clipped.ghosts[g], &free = traced.free.ghosts[g];
        const std::string name = "ghost " + std::to_string(clipped.first) + "-" + std::to_string(clipped.second);
        EXPECT_LE(clipped.area, 1.02 * free.area + 1e-9) << name;
        EXPECT_LE(clipped.energy, 1.02 * free.energy + 1e-12) << name;
        cut += clipped.area < 0.7 * free.area;
    }
    EXPECT_GE(cut, 5);
}

// Far off the axis the rays a path lets through make a narrow band of the front surface, well away
// from where the paraxial model looks (the fisheye's at 60 and 70 degrees): the light's own bundle
// is still found whole, and its ghosts with it, each traced by many rays, not a stray few.
TEST(GhostFootprints, FindNarrowBundlesFarOffTheAxis) {
    const Prescription lens = Lens("fisheye-10mm.json");
    FootprintSettings settings;
    settings.fNumber = 8.0;
    settings.wavelengths = {kGreen};
    const double onAxis = TraceGhostFootprints(lens, settings).lightFlux[0];
    for (const double angle : {60.0, 70.0}) {
        settings.angleX = angle * kDegree;
        const GhostFootprints traced = TraceGhostFootprints(lens, settings);
        EXPECT_GT(traced.lightFlux[0], 0.8 * onAxis) << angle;
        int wellTraced = 0;
        for (const GhostFootprint& ghost : traced.ghosts) wellTraced += ghost.rays >= size_t(settings.grid * settings.grid / 8);
        EXPECT_GE(wellTraced, 5) << angle;
    }
}

TEST(GhostFootprints, CarryTheReflectedShareOfTheLightLetIn) {
    const Prescription lens = Lens("double-gauss-50mm.json");
    FootprintSettings settings;
    settings.fNumber = 32.0;
    settings.wavelengths = {kRed, kBlue};
    const double pupil = Paraxial(lens, kLineD).focalLength / settings.fNumber / 2.0, stop = StopRadius(lens, settings.fNumber);
    const Traced traced = TraceBoth(lens, settings);
    const auto chosen = Unclipped(lens, traced.clipped, traced.free, stop, 0.0, 1e9);
    int behind = 0, before = 0;
    for (size_t w = 0; w < settings.wavelengths.size(); ++w)
        EXPECT_NEAR(traced.clipped.lightFlux[w], kPi * pupil * pupil, 0.03 * kPi * pupil * pupil);
    for (const GhostFootprint* ghost : chosen) {
        const std::string name = "ghost " + std::to_string(ghost->first) + "-" + std::to_string(ghost->second);
        const size_t w = ghost->wavelength == kRed ? 0 : 1;
        const double letIn = ghost->energy / (ghost->reflectance * ghost->transmittance);
        EXPECT_GT(ghost->transmittance, 0.5) << name;
        EXPECT_LT(ghost->transmittance, 1.0) << name;
        if (ghost->first > lens.stopIndex) {
            // The stop comes first: the ghost takes its share of the very light the aperture lets in.
            EXPECT_NEAR(letIn, traced.clipped.lightFlux[w], 0.05 * traced.clipped.lightFlux[w]) << name;
            ++behind;
        } else {
            // Reflected before the stop: the aperture lets in the beam that the two reflections
            // steer through it, the stop's paraxial image back through them.
            const double radius = EntranceRadius(lens, *ghost, stop);
            const double expected = kPi * radius * radius;
            EXPECT_NEAR(letIn, expected, 0.05 * expected) << name;
            ++before;
        }
    }
    EXPECT_GE(behind, 5);
    EXPECT_GE(before, 3);
}

// Far off the axis of a fisheye the stop's image in the entrance lies far from its paraxial
// place: the light is found there, as much of it as a fine grid over the whole front element lets
// through.
TEST(GhostFootprints, FindTheLightFarOffTheAxisOfAFisheye) {
    const Prescription lens = Lens("fisheye-10mm.json");
    FootprintSettings settings;
    settings.fNumber = 8.0;
    settings.wavelengths = {kGreen};
    settings.angleX = -52.0 * kDegree, settings.angleY = 34.0 * kDegree;
    const double flux = TraceGhostFootprints(lens, settings).lightFlux[0];
    const SkewPath path(lens, LightPath(lens), kGreen, Paraxial(lens, kLineD).backFocus);
    const Iris iris(settings.aperture, StopRadius(lens, settings.fNumber));
    const Vec3 direction{std::tan(settings.angleX), std::tan(settings.angleY), 1.0};
    const double front = 0.5 * lens.surfaces[0].diameter, cell = 2.0 * front / 600;
    int through = 0;
    for (int a = 0; a < 600; ++a) {
        for (int b = 0; b < 600; ++b) {
            const double x = -front + (a + 0.5) * cell, y = -front + (b + 0.5) * cell;
            through += path.Trace({x - direction.x, y - direction.y, -1.0}, direction, iris).miss == Miss::none;
        }
    }
    const double expected = through * cell * cell / std::hypot(direction.x, direction.y, 1.0);
    ASSERT_GT(through, 100);
    EXPECT_NEAR(flux, expected, 0.02 * expected);
}

TEST(GhostFootprints, AreNeutralBareAndTintedByASingleLayer) {
    const Prescription lens = Lens("double-gauss-50mm.json");
    FootprintSettings settings;
    settings.fNumber = 8.0;
    settings.wavelengths = {450.0, 550.0, 650.0};
    settings.coating = Coating::none;
    const Traced traced = TraceBoth(lens, settings);
    const GhostFootprints& bare = traced.clipped;
    settings.coating = Coating::singleLayer;
    const GhostFootprints coated = TraceGhostFootprints(lens, settings);
    const auto airSide = [&](size_t k) { return lens.surfaces[k].n == 1.0 || IndexBefore(lens, k) == 1.0; };
    int tinted = 0;
    for (size_t g = 0; g + 2 < bare.ghosts.size(); g += 3) {
        const GhostFootprint* b = &bare.ghosts[g];
        const GhostFootprint* c = &coated.ghosts[g];
        const std::string name = "ghost " + std::to_string(b->first) + "-" + std::to_string(b->second);
        // Where a rim cuts a ghost, dispersion moves the cut: only the whole ghosts are compared.
        if (b[1].energy == 0.0 || b[1].rays != traced.free.ghosts[g + 1].rays) continue;
        // Between two glasses the reflectance follows their indices' difference, which dispersion
        // changes in proportion; and before the stop, dispersion changes the beam it admits.
        if (!airSide(b->first) || !airSide(b->second) || b->first < lens.stopIndex) continue;
        for (int w : {0, 2}) EXPECT_NEAR(b[w].energy / b[1].energy, 1.0, 0.15) << name << " at " << b[w].wavelength;
        // A quarter wave at 550 nm: the violet and the red ends reflect more than the green.
        EXPECT_GT(c[0].energy, 1.5 * c[1].energy) << name;
        EXPECT_GT(c[2].energy, 1.5 * c[1].energy) << name;
        ++tinted;
    }
    EXPECT_GE(tinted, 5);
}

// The iris's and the rims' edges are found between the rays, so that a coarse grid's ghosts hold
// the light and cover the area a fine grid's do: on the axis, and off it where rims cut them.
TEST(GhostFootprints, FindTheirEdgesBetweenTheRays) {
    const Prescription lens = Lens("double-gauss-50mm.json");
    struct Case {
        Aperture aperture;
        double angle;
    };
    const Case cases[] = {{{6, 0.0, 0.0}, 0.0}, {{0, 0.0, 0.0}, 0.0}, {{5, 0.0, 0.3}, 10.0 * kDegree}, {{7, 0.5, 0.0}, 10.0 * kDegree}};
    for (const Case& c : cases) {
        FootprintSettings settings;
        settings.fNumber = 8.0;
        settings.aperture = c.aperture;
        settings.angleX = c.angle;
        settings.wavelengths = {kGreen};
        settings.grid = 16;
        const GhostFootprints coarse = TraceGhostFootprints(lens, settings);
        settings.grid = 96;
        const GhostFootprints fine = TraceGhostFootprints(lens, settings);
        const std::string name = std::to_string(c.aperture.blades) + " blades at " + std::to_string(c.angle);
        EXPECT_NEAR(coarse.lightFlux[0], fine.lightFlux[0], 0.01 * fine.lightFlux[0]) << name;
        int compared = 0;
        for (size_t g = 0; g < fine.ghosts.size(); ++g) {
            const GhostFootprint &a = coarse.ghosts[g], &b = fine.ghosts[g];
            // A ghost focused to a speck stretches its cells too unevenly for so coarse a mesh.
            if (b.area < 1.0) continue;
            const std::string ghost = name + ", ghost " + std::to_string(b.first) + "-" + std::to_string(b.second);
            EXPECT_NEAR(a.energy, b.energy, 0.02 * b.energy) << ghost;
            EXPECT_NEAR(a.area, b.area, 0.02 * b.area) << ghost;
            ++compared;
        }
        EXPECT_GE(compared, 30) << name;
    }
}

// The density of a ghost at the landing of the ray through (x, y) of the entrance, from the rays
// themselves: the light of a small patch there over the area it lands on.
double DensityFromRays(const Prescription& lens, const GhostFootprint& ghost, double x, double y, double& landX, double& landY) {
    const SkewPath path(lens, GhostPath(lens, ghost.first, ghost.second), ghost.wavelength, Paraxial(lens, kLineD).backFocus);
    const double h = 1e-4;
    const auto land = [&](double dx, double dy) { return path.Trace({x + dx, y + dy, -1.0}, {0.0, 0.0, 1.0}); };
    const SkewTrace o = land(0.0, 0.0), u = land(h, 0.0), v = land(0.0, h);
    if (o.miss != Miss::none || u.miss != Miss::none || v.miss != Miss::none) return NAN;
    landX = o.sensorX, landY = o.sensorY;
    const double jacobian = std::abs((u.sensorX - o.sensorX) * (v.sensorY - o.sensorY) - (v.sensorX - o.sensorX) * (u.sensorY - o.sensorY)) / (h * h);
    return ghost.reflectance * ghost.transmittance / jacobian;
}

// The raster round a point: the mean of the 3 x 3 pixels there (the rays' grid shows in single pixels).
double RasterAt(const GhostFootprint& ghost, double x, double y) {
    const int px = int((x - ghost.left) / ghost.pixel), py = int((y - ghost.bottom) / ghost.pixel);
    double sum = 0.0;
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) sum += ghost.density[size_t((py + dy) * ghost.size + px + dx)];
    return sum / 9.0;
}

TEST(GhostFootprints, SpreadTheirLightAsTheRaysSpread) {
    const Prescription lens = Lens("double-gauss-50mm.json");
    FootprintSettings settings;
    settings.fNumber = 2.0;
    settings.wavelengths = {kGreen};
    const GhostFootprints traced = TraceGhostFootprints(lens, settings);
    int checked = 0;
    double steepest = 1.0;
    for (const GhostFootprint& ghost : traced.ghosts) {
        if (ghost.rays < 200 || ghost.first < lens.stopIndex) continue;   // entrance centred on the axis
        double held = 0.0;
        for (const float d : ghost.density) held += d;
        EXPECT_NEAR(held * ghost.pixel * ghost.pixel, ghost.energy, 1e-4 * ghost.energy);
        // At the centre and a third of the way out the raster follows the rays' spreading.
        double centreX, centreY, outX, outY;
        const double centre = DensityFromRays(lens, ghost, 0.0, 0.0, centreX, centreY);
        const double out = DensityFromRays(lens, ghost, 0.0, 3.0, outX, outY);
        if (std::isnan(centre) || std::isnan(out)) continue;
        const std::string name = "ghost " + std::to_string(ghost.first) + "-" + std::to_string(ghost.second);
        EXPECT_NEAR(RasterAt(ghost, centreX, centreY), centre, 0.1 * centre) << name;
        EXPECT_NEAR(RasterAt(ghost, outX, outY), out, 0.1 * out) << name;
        steepest = std::max({steepest, centre / out, out / centre});
        ++checked;
    }
    EXPECT_GE(checked, 5);
    EXPECT_GT(steepest, 1.3);   // at f/2 some ghost's light is far from even
}

TEST(FootprintCache, TracesEachKeyOnceAndKeepsTheLatest) {
    const Prescription lens = Lens("double-gauss-50mm.json");
    FootprintSettings a;
    a.grid = 8, a.raster = 8, a.wavelengths = {kGreen};
    FootprintSettings b = a, c = a;
    b.angleY = 0.1;
    c.aperture.blades = 6;
    FootprintCache cache(2);
    const GhostFootprints& first = cache.Get(lens, a);
    EXPECT_EQ(cache.Get(lens, a).ghosts.size(), first.ghosts.size());
    EXPECT_EQ(cache.Traced(), 1u);
    cache.Get(lens, b);
    cache.Get(lens, a);
    EXPECT_EQ(cache.Traced(), 2u);
    cache.Get(lens, c);   // b goes: a was used since
    cache.Get(lens, a);
    EXPECT_EQ(cache.Traced(), 3u);
    cache.Get(lens, b);
    EXPECT_EQ(cache.Traced(), 4u);
    Prescription other = lens;
    other.surfaces[0].diameter -= 1.0;
    cache.Get(other, b);
    EXPECT_EQ(cache.Traced(), 5u);
}

}  // namespace
}  // namespace vellux::lens
