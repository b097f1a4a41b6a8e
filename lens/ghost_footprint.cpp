#include "lens/ghost_footprint.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>

#include "lens/ghosts.h"
#include "lens/paraxial.h"
#include "lens/skew_trace.h"

namespace vellux::lens {

namespace {

// A rectangle, mm: of the first vertex's plane (z = 0), or of the sensor.
struct Box {
    double x0 = 0.0, x1 = 0.0, y0 = 0.0, y1 = 0.0;
    bool Empty() const { return !(x1 > x0 && y1 > y0); }
};

Box Intersect(const Box& a, const Box& b) {
    return {std::max(a.x0, b.x0), std::min(a.x1, b.x1), std::max(a.y0, b.y0), std::min(a.y1, b.y1)};
}

// What every path of one light shares.
struct Beam {
    const Prescription& lens;
    const FootprintSettings& settings;
    double sensorDistance = 0.0;
    Iris iris;
    double stopRadius = 0.0;
    double tanX = 0.0, tanY = 0.0;   // the rays' slopes
    Vec3 direction;
    double cosine = 1.0;             // of the rays to the axis: a cell's area across the beam over its area in the plane
    Box clear;                       // where rays through the first surface's clear aperture cross its vertex's plane

    Beam(const Prescription& lens_, const FootprintSettings& settings_) : lens(lens_), settings(settings_) {
        CheckAperture(settings.aperture, "aperture");
        if (lens.surfaces.empty()) throw std::invalid_argument(lens.name + ": no surfaces");
        sensorDistance = settings.sensorDistance > 0.0 ? settings.sensorDistance : Paraxial(lens, kLineD).backFocus;
        GhostOptions used;
        used.fNumber = settings.fNumber;
        stopRadius = StopRadius(lens, UsedFNumber(lens, used));
        iris = Iris(settings.aperture, stopRadius);
        tanX = std::tan(settings.angleX), tanY = std::tan(settings.angleY);
        direction = {tanX, tanY, 1.0};
        cosine = 1.0 / std::sqrt(tanX * tanX + tanY * tanY + 1.0);
        // The rays' crossings of the first vertex's plane: a curved front surface meets a steep
        // ray up to its sag away from that plane, so the box reaches that much further (a
        // fisheye's at 70 degrees, over 10 mm).
        const Surface& front = lens.surfaces[0];
        const double r = 0.5 * front.diameter, radius = std::abs(front.radius);
        const double sag = radius > r ? radius - std::sqrt(radius * radius - r * r) : radius;
        const double wideX = r + sag * std::abs(tanX), wideY = r + sag * std::abs(tanY);
        clear = {-wideX, wideX, -wideY, wideY};
    }

    // The ray through the point (x, y) of the first vertex's plane, started 1 mm before it.
    Vec3 Origin(double x, double y) const { return {x - tanX, y - tanY, -1.0}; }
};

// Why a ray of the grid did not get through, when it landed: kOpen, a rim, or a blade at one of
// the path's crossings of the stop (kShutByBlade + crossing * kMaxBlades + blade).
constexpr unsigned char kOpen = 0, kShutByRim = 1, kShutByBlade = 2;

// The rays of an n x n grid over a box, through its cells' centres, traced unclipped: where they
// landed on the sensor, which of them the iris and the rims let through ("kept"), and why the
// others were stopped. Between four rays that landed lies a cell of the mesh, smooth across the
// iris's and the rims' edges, so that the edges can be found within it.
struct Landings {
    Box box;
    int n = 0;
    double stepX = 0.0, stepY = 0.0;
    size_t count = 0;                 // rays kept
    size_t crossings = 0;             // of the stop by the path
    std::vector<UnclippedTrace> traced;
    std::vector<unsigned char> shut;  // kOpen for the rays kept
    std::vector<Vec3> origins;        // the rays' (reused, so that tracing allocates nothing)

    explicit Landings(int size)
        : n(size), traced(size_t(size * size)), shut(size_t(size * size)), origins(size_t(size * size)) {}
    size_t At(int a, int b) const { return size_t(b) * size_t(n) + size_t(a); }
    bool Landed(int a, int b) const { return a >= 0 && b >= 0 && a < n && b < n && traced[At(a, b)].landed; }
    bool Kept(int a, int b) const { return Landed(a, b) && shut[At(a, b)] == kOpen; }
    double CellX(int a) const { return box.x0 + (a + 0.5) * stepX; }
    double CellY(int b) const { return box.y0 + (b + 0.5) * stepY; }
};

// What stops the light of a ray whose crossings of the stop and margin inside the rims are these.
unsigned char Shut(const Iris& iris, const double (*stop)[2], size_t crossings, double rim) {
    if (!(rim > 0.0)) return kShutByRim;
    for (size_t c = 0; c < crossings; ++c) {
        const int blade = iris.Covering(stop[c][0], stop[c][1]);
        if (blade >= 0) return (unsigned char)(kShutByBlade + c * kMaxBlades + size_t(blade));
    }
    return kOpen;
}

// What lets light through a cell an edge crosses: the iris at each of the path's crossings of the
// stop and the margin inside the rims, each blended across the cell from its corners.
class Gate {
public:
    Gate(const Iris& iris, const Landings& l, int a, int b) : crossings_(l.crossings) {
        const UnclippedTrace* corners[] = {&l.traced[l.At(a, b)], &l.traced[l.At(a + 1, b)], &l.traced[l.At(a, b + 1)],
                                           &l.traced[l.At(a + 1, b + 1)]};
        for (size_t c = 0; c < crossings_; ++c) {
            double stop[4][2];
            for (int k = 0; k < 4; ++k) stop[k][0] = corners[k]->stop[c][0], stop[k][1] = corners[k]->stop[c][1];
            iris_[c].emplace(iris, stop);
        }
        for (int k = 0; k < 4; ++k) rim_[k] = corners[k]->rim;
        rimClear_ = std::min({rim_[0], rim_[1], rim_[2], rim_[3]}) > 0.0;
    }
    bool Open(double u, double v) const {
        if (!rimClear_) {
            const double low = rim_[0] + u * (rim_[1] - rim_[0]), high = rim_[2] + u * (rim_[3] - rim_[2]);
            if (!(low + v * (high - low) > 0.0)) return false;
        }
        for (size_t c = 0; c < crossings_; ++c)
            if (!iris_[c]->Open(u, v)) return false;
        return true;
    }

private:
    size_t crossings_;
    std::optional<Iris::Patch> iris_[kMaxStopCrossings];   // made in place: a patch is large
    double rim_[4];
    bool rimClear_;
};

// A point of a footprint on the sensor, carrying `weight` entrance cells' worth of light.
struct Sample {
    double x = 0.0, y = 0.0, weight = 0.0;
};

// The grids a call traces and the samples it gathers, made once.
struct Grids {
    static constexpr int kCoarse = 16;
    Landings coarse{kCoarse}, fine;
    std::vector<Sample> samples;
    explicit Grids(const FootprintSettings& settings) : fine(std::max(settings.grid, 4)) {}
};

void TraceGrid(const Beam& beam, const SkewPath& path, const Box& box, Landings& out) {
    out.box = box;
    out.stepX = (box.x1 - box.x0) / out.n, out.stepY = (box.y1 - box.y0) / out.n;
    out.crossings = path.StopCrossings();
    for (int b = 0; b < out.n; ++b)
        for (int a = 0; a < out.n; ++a) out.origins[out.At(a, b)] = beam.Origin(out.CellX(a), out.CellY(b));
    path.TraceUnclipped(out.origins.data(), out.origins.size(), beam.direction, out.traced.data());
    out.count = 0;
    for (size_t k = 0; k < out.traced.size(); ++k) {
        const UnclippedTrace& ray = out.traced[k];
        out.shut[k] = ray.landed ? Shut(beam.iris, ray.stop, out.crossings, ray.rim) : kShutByRim;
        out.count += ray.landed && out.shut[k] == kOpen;
    }
}

// Traces the grid over a box of the entrance, widening a side of the box while rays on that edge
// of the grid still get through.
void TraceWidening(const Beam& beam, const SkewPath& path, Box box, Landings& out) {
    for (int attempt = 0;; ++attempt) {
        TraceGrid(beam, path, box, out);
        if (attempt == 3 || out.count == 0) return;
        bool left = false, right = false, bottom = false, top = false;
        for (int k = 0; k < out.n; ++k) {
            left |= out.Kept(0, k), right |= out.Kept(out.n - 1, k);
            bottom |= out.Kept(k, 0), top |= out.Kept(k, out.n - 1);
        }
        const double growX = 0.25 * (box.x1 - box.x0), growY = 0.25 * (box.y1 - box.y0);
        const Box wider = Intersect({box.x0 - (left ? growX : 0.0), box.x1 + (right ? growX : 0.0),
                                     box.y0 - (bottom ? growY : 0.0), box.y1 + (top ? growY : 0.0)},
                                    beam.clear);
        if (wider.x0 == box.x0 && wider.x1 == box.x1 && wider.y0 == box.y0 && wider.y1 == box.y1) return;
        box = wider;
    }
}

// The box round the centres of a grid's cells whose rays got through (empty when none did).
Box KeptCells(const Landings& l) {
    Box kept{l.box.x1, l.box.x0, l.box.y1, l.box.y0};
    for (int b = 0; b < l.n; ++b) {
        for (int a = 0; a < l.n; ++a) {
            if (!l.Kept(a, b)) continue;
            const double x = l.CellX(a), y = l.CellY(b);
            kept = {std::min(kept.x0, x), std::max(kept.x1, x), std::min(kept.y0, y), std::max(kept.y1, y)};
        }
    }
    return kept;
}

// Where the ray through the point (x, y) of the entrance first crosses the stop's plane, traced
// through a path that no rim clips; nothing when it is lost before.
std::optional<std::array<double, 2>> AtStop(const Beam& beam, const SkewPath& unclipped, double x, double y) {
    const SkewTrace traced = unclipped.Trace(beam.Origin(x, y), beam.direction, Iris(), unclipped.FirstStopEvent() + 1);
    if (traced.miss != Miss::none) return std::nullopt;
    return std::array{traced.stopX, traced.stopY};
}

// The image in the entrance of the stop where the path first crosses it, as a box half as wide
// again: a real ray aimed at the stop's centre by Newton's method from (x, y) (a step that loses
// the ray is halved), and the box from how the entrance maps onto the stop there. Far off the
// axis of a wide lens the stop's image moves and stretches far from its paraxial place. Nothing
// when no ray can be aimed there from (x, y).
std::optional<Box> StopImage(const Beam& beam, const SkewPath& unclipped, double x, double y) {
    const double h = 1e-5 * (beam.clear.x1 - beam.clear.x0);   // mm, for the derivatives
    auto at = AtStop(beam, unclipped, x, y);
    for (int iteration = 0; at && iteration < 16; ++iteration) {
        const auto alongX = AtStop(beam, unclipped, x + h, y), alongY = AtStop(beam, unclipped, x, y + h);
        if (!alongX || !alongY) return std::nullopt;
        // The Jacobian [a b; c d] of the stop point by the entrance point.
        const double a = ((*alongX)[0] - (*at)[0]) / h, b = ((*alongY)[0] - (*at)[0]) / h;
        const double c = ((*alongX)[1] - (*at)[1]) / h, d = ((*alongY)[1] - (*at)[1]) / h;
        const double determinant = a * d - b * c;
        if (!(std::abs(determinant) > 0.0)) return std::nullopt;
        if (std::hypot((*at)[0], (*at)[1]) < 1e-3 * beam.stopRadius) {
            // The stop's circle through the inverse Jacobian: each row's length is the reach across.
            const double r = 1.5 * beam.stopRadius / std::abs(determinant);
            return Box{x - r * std::hypot(d, b), x + r * std::hypot(d, b), y - r * std::hypot(c, a), y + r * std::hypot(c, a)};
        }
        double stepX = (d * (*at)[0] - b * (*at)[1]) / determinant, stepY = (a * (*at)[1] - c * (*at)[0]) / determinant;
        std::optional<std::array<double, 2>> next;
        for (int halving = 0; halving < 8; ++halving) {
            next = AtStop(beam, unclipped, x - stepX, y - stepY);
            if (next) break;
            stepX *= 0.5, stepY *= 0.5;
        }
        x -= stepX, y -= stepY;
        at = next;
    }
    return std::nullopt;
}

// The part of the first surface's clear aperture whose rays get through the path: a guess from
// the stop's image in the entrance (aimed from the paraxial one's centre, or else from the light's
// own region's, `light`; the paraxial image is the guess where no ray can be aimed), then a coarse
// grid over it traced to the sensor (widened where the aberrations carry the beam past the guess),
// whose outermost rays that got through, a coarse cell further out, bound it. It is found once
// for all wavelengths, at the d line: dispersion moves it by far less than the cell. Empty when no
// ray of the coarse grid gets through, nor one of the fine grid over the guess: then the path is
// dark.
Box EntranceRegion(const Beam& beam, const Path& events, Grids& grids, const Box& light = {}) {
    const double wavelength = kLineD;
    const SkewPath path(beam.lens, events, wavelength, beam.sensorDistance, beam.settings.clearApertures);
    Box guess = beam.clear;
    const size_t stop = path.FirstStopEvent();
    if (stop < path.Events()) {
        const Matrix2 m = PathMatrix(beam.lens, events, wavelength, stop + 1, 0.0);   // y at the stop = a y0 + b u
        if (std::abs(m.a) > 1e-9) {
            const double cx = -m.b * beam.tanX / m.a, cy = -m.b * beam.tanY / m.a, r = 1.5 * beam.stopRadius / std::abs(m.a);
            const SkewPath unclipped(beam.lens, events, wavelength, beam.sensorDistance, false);
            std::optional<Box> aimed = StopImage(beam, unclipped, cx, cy);
            if (!aimed && !light.Empty())
                aimed = StopImage(beam, unclipped, 0.5 * (light.x0 + light.x1), 0.5 * (light.y0 + light.y1));
            const Box region = Intersect(aimed.value_or(Box{cx - r, cx + r, cy - r, cy + r}), beam.clear);
            if (!region.Empty()) guess = region;
        }
    }
    Landings& coarse = grids.coarse;
    TraceWidening(beam, path, guess, coarse);
    // Far off a fisheye's axis the aim can fail and the guess hold little of the bundle, a narrow
    // band of the front surface: then the whole surface is searched on the fine grid, and where it
    // finds more light the coarse grid goes round what it found.
    if (coarse.count < size_t(coarse.n * coarse.n / 16)) {
        const double aimedFlux = double(coarse.count) * coarse.stepX * coarse.stepY;
        Landings& wide = grids.fine;
        TraceGrid(beam, path, beam.clear, wide);
        if (double(wide.count) * wide.stepX * wide.stepY > 1.2 * aimedFlux) {
            const Box kept = KeptCells(wide);
            guess = Intersect({kept.x0 - wide.stepX, kept.x1 + wide.stepX, kept.y0 - wide.stepY, kept.y1 + wide.stepY}, beam.clear);
            TraceWidening(beam, path, guess, coarse);
        }
    }
    if (coarse.count == 0) {
        // A sliver may fall between the coarse rays.
        TraceGrid(beam, path, guess, grids.fine);
        return grids.fine.count == 0 ? Box{} : guess;
    }
    const Box found = KeptCells(coarse);
    // Half a fine cell more, so that the fine grid's outermost rays fall where the coarse ones failed.
    const double fine = 0.5 / std::max(beam.settings.grid, 4);
    const double marginX = coarse.stepX + fine * (found.x1 - found.x0 + 2.0 * coarse.stepX);
    const double marginY = coarse.stepY + fine * (found.y1 - found.y0 + 2.0 * coarse.stepY);
    return Intersect({found.x0 - marginX, found.x1 + marginX, found.y0 - marginY, found.y1 + marginY}, beam.clear);
}

// Traces the path's grid over its entrance region at a wavelength (widened where rays on an
// edge of the grid still get through: the coarse grid can miss a sliver).
void TracePath(const Beam& beam, const Path& events, double wavelength, Box& box, Landings& out) {
    const SkewPath path(beam.lens, events, wavelength, beam.sensorDistance, beam.settings.clearApertures);
    TraceWidening(beam, path, box, out);
    box = out.box;   // widened for the path's other wavelengths too: dispersion moves them alike
}

// How the landing moves round a ray of the grid, per step along a and along b (mm), from the
// neighbouring rays that landed (0 where none did).
struct Spread {
    double ax = 0.0, ay = 0.0, bx = 0.0, by = 0.0;
};
Spread RaySpread(const Landings& l, int a, int b) {
    const auto derivative = [&](int da, int db, auto coordinate) {
        const bool before = l.Landed(a - da, b - db), after = l.Landed(a + da, b + db);
        const double here = coordinate(l.traced[l.At(a, b)]);
        const auto at = [&](int k) { return coordinate(l.traced[l.At(a + k * da, b + k * db)]); };
        if (before && after) return 0.5 * (at(1) - at(-1));
        if (after) return at(1) - here;
        if (before) return here - at(-1);
        return 0.0;
    };
    const auto x = [](const UnclippedTrace& t) { return t.sensorX; };
    const auto y = [](const UnclippedTrace& t) { return t.sensorY; };
    return {derivative(1, 0, x), derivative(1, 0, y), derivative(0, 1, x), derivative(0, 1, y)};
}

// One cell of the mesh, from the ray at its corner (a, b) to the one at (a + 1, b + 1): where a
// point (u, v) of it lands is bilinear in u and v, and so are its crossings of the stop and its
// margin inside the rims.
class Cell {
public:
    Cell(const Landings& l, int a, int b)
        : t00_(l.traced[l.At(a, b)]), t10_(l.traced[l.At(a + 1, b)]), t01_(l.traced[l.At(a, b + 1)]),
          t11_(l.traced[l.At(a + 1, b + 1)]) {
        ax_ = t00_.sensorX, bx_ = t10_.sensorX - ax_, cx_ = t01_.sensorX - ax_, dx_ = t11_.sensorX - t10_.sensorX - cx_;
        ay_ = t00_.sensorY, by_ = t10_.sensorY - ay_, cy_ = t01_.sensorY - ay_, dy_ = t11_.sensorY - t10_.sensorY - cy_;
        // The Jacobian (b + d v) x (c + d u) is affine in u and v.
        j0_ = bx_ * cy_ - by_ * cx_, ju_ = bx_ * dy_ - by_ * dx_, jv_ = dx_ * cy_ - dy_ * cx_;
    }

    double X(double u, double v) const { return ax_ + u * bx_ + v * (cx_ + u * dx_); }
    double Y(double u, double v) const { return ay_ + u * by_ + v * (cy_ + u * dy_); }
    double MeanX() const { return 0.25 * (t00_.sensorX + t10_.sensorX + t01_.sensorX + t11_.sensorX); }
    double MeanY() const { return 0.25 * (t00_.sensorY + t10_.sensorY + t01_.sensorY + t11_.sensorY); }
    // mm^2 on the sensor per cell at (u, v).
    double Stretch(double u, double v) const { return std::abs(j0_ + u * ju_ + v * jv_); }
    // mm^2 the whole cell lands on (twice where it folds over itself): the Jacobian's mean where it
    // keeps its sign, else its mean over s x s points.
    double Area(int s) const {
        const double corners[] = {j0_, j0_ + ju_, j0_ + jv_, j0_ + ju_ + jv_};
        if (std::min({corners[0], corners[1], corners[2], corners[3]}) >= 0.0 ||
            std::max({corners[0], corners[1], corners[2], corners[3]}) <= 0.0)
            return Stretch(0.5, 0.5);
        double sum = 0.0;
        for (int t = 0; t < s; ++t)
            for (int r = 0; r < s; ++r) sum += Stretch((r + 0.5) / s, (t + 0.5) / s);
        return sum / (s * s);
    }
    // Points across the cell, s x s, no further apart on the sensor than `unit` mm.
    int Samples(double unit) const {
        const double most = std::max({std::abs(bx_), std::abs(by_), std::abs(cx_), std::abs(cy_), std::abs(bx_ + dx_),
                                      std::abs(by_ + dy_), std::abs(cx_ + dx_), std::abs(cy_ + dy_)});
        return int(std::clamp(std::ceil(most / unit), 1.0, 8.0));
    }

private:
    const UnclippedTrace &t00_, &t10_, &t01_, &t11_;
    double ax_, bx_, cx_, dx_, ay_, by_, cy_, dy_;
    double j0_, ju_, jv_;
};

// Where the rays kept landed (an empty box when none was).
Box KeptLandings(const Landings& l) {
    Box box{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
            std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
    for (size_t k = 0; k < l.traced.size(); ++k) {
        if (!l.traced[k].landed || l.shut[k] != kOpen) continue;
        box.x0 = std::min(box.x0, l.traced[k].sensorX), box.x1 = std::max(box.x1, l.traced[k].sensorX);
        box.y0 = std::min(box.y0, l.traced[k].sensorY), box.y1 = std::max(box.y1, l.traced[k].sensorY);
    }
    return box;
}

// The light that got through a grid.
struct Coverage {
    double cells = 0.0;                   // entrance cells' worth
    double area = 0.0;                    // mm^2 on the sensor
    double sumX = 0.0, sumY = 0.0;        // the landings weighted by the light
    Box bounds;                           // on the sensor

    void Add(double x, double y, double weight, double stretch) {
        cells += weight, area += weight * stretch, sumX += weight * x, sumY += weight * y;
        bounds = {std::min(bounds.x0, x), std::max(bounds.x1, x), std::min(bounds.y0, y), std::max(bounds.y1, y)};
    }
};

// The quarter of a broken cell round its corner ray (a, b), towards the cell (signA, signB: +1 or
// -1 steps along a and b): spread as the ray's neighbours say the landing moves, in points about
// `pixel` mm apart, rather than heaped where the ray landed. Beyond the rays kept the landing is
// only guessed: the points stay within `kept`, where they landed, so that a guess far out does
// not widen the raster.
void GatherQuarter(const Landings& l, int a, int b, int signA, int signB, double pixel, const Box& kept,
                   std::vector<Sample>& samples, Coverage& coverage) {
    const UnclippedTrace& ray = l.traced[l.At(a, b)];
    const Spread d = RaySpread(l, a, b);
    const double stretch = std::abs(d.ax * d.by - d.bx * d.ay);
    const double reach = 0.5 * std::max({std::abs(d.ax), std::abs(d.ay), std::abs(d.bx), std::abs(d.by)});
    const int s = int(std::clamp(std::ceil(reach / pixel), 1.0, 8.0));
    const double weight = 0.25 / (s * s);
    for (int t = 0; t < s; ++t) {
        const double v = signB * 0.5 * (t + 0.5) / s;
        for (int r = 0; r < s; ++r) {
            const double u = signA * 0.5 * (r + 0.5) / s;
            samples.push_back({std::clamp(ray.sensorX + u * d.ax + v * d.bx, kept.x0, kept.x1),
                               std::clamp(ray.sensorY + u * d.ay + v * d.by, kept.y0, kept.y1), weight});
            coverage.Add(samples.back().x, samples.back().y, weight, stretch);
        }
    }
}

// A cell an edge crosses: points across it about `pixel` mm apart, each asked whether it gets
// through.
void GatherEdge(const Gate& gate, const Cell& cell, double pixel, std::vector<Sample>& samples, Coverage& coverage) {
    const int s = std::max(cell.Samples(pixel), 2);
    for (int t = 0; t < s; ++t) {
        const double v = (t + 0.5) / s;
        for (int r = 0; r < s; ++r) {
            const double u = (r + 0.5) / s;
            if (!gate.Open(u, v)) continue;
            samples.push_back({cell.X(u, v), cell.Y(u, v), 1.0 / (s * s)});
            coverage.Add(samples.back().x, samples.back().y, samples.back().weight, cell.Stretch(u, v));
        }
    }
}

// Whether every ray at the cell's corners was kept: then the whole cell is open (the iris and the
// rims' margins are convex in the bilinear blend of its corners).
bool Whole(const Landings& l, int a, int b) {
    return l.Kept(a, b) && l.Kept(a + 1, b) && l.Kept(a, b + 1) && l.Kept(a + 1, b + 1);
}

// The light through each cell of the mesh. A whole cell is counted here and spread later (its
// points lie among its corners, within the kept rays' landings). One whose rays were all stopped
// by the same edge is shut throughout (a curved blade's bulge across a cell is a sliver). The
// others, where an edge crosses, are sampled and the points let through kept in `samples`. A cell
// broken by a ray lost for good has no mesh: a quarter of it goes with each of its rays kept.
Coverage Gather(const Beam& beam, const Landings& l, double pixel, std::vector<Sample>& samples) {
    samples.clear();
    Coverage coverage;
    const Box kept = coverage.bounds = KeptLandings(l);
    for (int b = -1; b < l.n; ++b) {
        for (int a = -1; a < l.n; ++a) {
            if (!l.Landed(a, b) || !l.Landed(a + 1, b) || !l.Landed(a, b + 1) || !l.Landed(a + 1, b + 1)) {
                for (const auto& [ca, cb] : {std::pair{a, b}, {a + 1, b}, {a, b + 1}, {a + 1, b + 1}}) {
                    if (!l.Kept(ca, cb)) continue;
                    GatherQuarter(l, ca, cb, ca == a ? 1 : -1, cb == b ? 1 : -1, pixel, kept, samples, coverage);
                }
                continue;
            }
            const Cell cell(l, a, b);
            if (Whole(l, a, b)) {
                coverage.Add(cell.MeanX(), cell.MeanY(), 1.0, cell.Area(std::max(cell.Samples(pixel), 4)));
                continue;
            }
            const unsigned char shut = l.shut[l.At(a, b)];
            if (shut == l.shut[l.At(a + 1, b)] && shut == l.shut[l.At(a, b + 1)] && shut == l.shut[l.At(a + 1, b + 1)])
                continue;
            GatherEdge(Gate(beam.iris, l, a, b), cell, pixel, samples, coverage);
        }
    }
    return coverage;
}

// The density raster: a square round the footprint with a pixel to spare on each side, its light
// spread by points (the samples gathered, and points across each whole cell no more than a pixel
// apart), each shared bilinearly among the four pixels round it. Where the cells crowd (a caustic)
// the density rises, and the whole holds the ghost's energy.
void Rasterise(const Landings& l, const Coverage& coverage, const std::vector<Sample>& samples, int size,
               GhostFootprint& footprint) {
    const Box& bounds = coverage.bounds;
    const double side = std::max({bounds.x1 - bounds.x0, bounds.y1 - bounds.y0, 1e-6});
    footprint.size = size;
    footprint.pixel = side / (size - 2);
    footprint.left = 0.5 * (bounds.x0 + bounds.x1) - 0.5 * size * footprint.pixel;
    footprint.bottom = 0.5 * (bounds.y0 + bounds.y1) - 0.5 * size * footprint.pixel;
    std::vector<double> sum(size_t(size) * size_t(size), 0.0);
    const double scale = 1.0 / footprint.pixel;
    const auto splat = [&](double x, double y, double weight) {
        // Pixel coordinates with pixel centres at whole numbers: every point lies at least half a
        // pixel inside, so its four pixels are in the square (the clamp only guards rounding).
        const double px = (x - footprint.left) * scale - 0.5, py = (y - footprint.bottom) * scale - 0.5;
        const int ix = std::clamp(int(px), 0, size - 2), iy = std::clamp(int(py), 0, size - 2);
        const double wx = px - ix, wy = py - iy;
        double* row = &sum[size_t(iy) * size_t(size) + size_t(ix)];
        row[0] += weight * (1.0 - wx) * (1.0 - wy);
        row[1] += weight * wx * (1.0 - wy);
        row[size] += weight * (1.0 - wx) * wy;
        row[size + 1] += weight * wx * wy;
    };
    for (const Sample& s : samples) splat(s.x, s.y, s.weight);
    for (int b = 0; b + 1 < l.n; ++b) {
        for (int a = 0; a + 1 < l.n; ++a) {
            if (!Whole(l, a, b)) continue;
            const Cell cell(l, a, b);
            const int s = cell.Samples(footprint.pixel);
            const double weight = 1.0 / (s * s);
            for (int t = 0; t < s; ++t) {
                const double v = (t + 0.5) / s;
                for (int r = 0; r < s; ++r) splat(cell.X((r + 0.5) / s, v), cell.Y((r + 0.5) / s, v), weight);
            }
        }
    }
    const double perUnit = footprint.energy / coverage.cells / (footprint.pixel * footprint.pixel);
    footprint.density.assign(sum.size(), 0.0f);
    for (size_t k = 0; k < sum.size(); ++k) footprint.density[k] = float(sum[k] * perUnit);
}

// The samples' spacing: about a raster pixel, from the spread of the rays kept.
double PixelGuess(const Landings& l, int size) {
    const Box kept = KeptLandings(l);
    return std::max({kept.x1 - kept.x0, kept.y1 - kept.y0, 1e-6}) / (size - 2);
}

double Transmittance(const Beam& beam, const Path& path, double wavelength) {
    double t = 1.0;
    for (const Event& event : path) {
        if (event.reflect || beam.lens.surfaces[event.surface].stop) continue;
        t *= 1.0 - ReflectanceOf(beam.lens, event.surface, beam.settings.coating, wavelength);
    }
    return t;
}

GhostFootprint Footprint(const Beam& beam, size_t i, size_t j, const Path& path, Box& region, double wavelength,
                         Grids& grids) {
    const Landings& landings = grids.fine;
    GhostFootprint footprint;
    footprint.first = i, footprint.second = j, footprint.wavelength = wavelength;
    footprint.reflectance = ReflectanceOf(beam.lens, i, beam.settings.coating, wavelength) *
                            ReflectanceOf(beam.lens, j, beam.settings.coating, wavelength);
    footprint.transmittance = Transmittance(beam, path, wavelength);
    if (region.Empty()) return footprint;
    TracePath(beam, path, wavelength, region, grids.fine);
    footprint.rays = landings.count;
    if (landings.count == 0) return footprint;
    const int size = std::max(beam.settings.raster, 4);
    const Coverage coverage = Gather(beam, landings, PixelGuess(landings, size), grids.samples);
    if (coverage.cells == 0.0) return footprint;
    const double cell = landings.stepX * landings.stepY * beam.cosine;
    footprint.energy = coverage.cells * cell * footprint.reflectance * footprint.transmittance;
    footprint.centroidX = coverage.sumX / coverage.cells, footprint.centroidY = coverage.sumY / coverage.cells;
    footprint.area = coverage.area;
    Rasterise(landings, coverage, grids.samples, size, footprint);
    return footprint;
}

// The light's own flux through the aperture at a wavelength (light units, see the header).
double LightFlux(const Beam& beam, const Path& path, Box& region, double wavelength, Grids& grids) {
    if (region.Empty()) return 0.0;
    TracePath(beam, path, wavelength, region, grids.fine);
    const Landings& l = grids.fine;
    const double cells = Gather(beam, l, PixelGuess(l, std::max(beam.settings.raster, 4)), grids.samples).cells;
    return cells * l.stepX * l.stepY * beam.cosine;
}

}  // namespace

GhostFootprint TraceGhostFootprint(const Prescription& lens, size_t i, size_t j, double wavelength,
                                   const FootprintSettings& settings) {
    const Beam beam(lens, settings);
    Grids grids(settings);
    const Path path = GhostPath(lens, i, j);
    const Box light = EntranceRegion(beam, LightPath(lens), grids);
    Box region = EntranceRegion(beam, path, grids, light);
    return Footprint(beam, i, j, path, region, wavelength, grids);
}

GhostFootprints TraceGhostFootprints(const Prescription& lens, const FootprintSettings& settings) {
    const Beam beam(lens, settings);
    Grids grids(settings);
    GhostFootprints out;
    out.wavelengths = settings.wavelengths;
    const Path light = LightPath(lens);
    Box lightRegion = EntranceRegion(beam, light, grids);
    for (const double wavelength : settings.wavelengths)
        out.lightFlux.push_back(LightFlux(beam, light, lightRegion, wavelength, grids));
    for (size_t i = 0; i < lens.surfaces.size(); ++i) {
        for (size_t j = i + 1; j < lens.surfaces.size(); ++j) {
            if (lens.surfaces[i].stop || lens.surfaces[j].stop) continue;
            const Path path = GhostPath(lens, i, j);
            Box region = EntranceRegion(beam, path, grids, lightRegion);
            for (const double wavelength : settings.wavelengths)
                out.ghosts.push_back(Footprint(beam, i, j, path, region, wavelength, grids));
        }
    }
    return out;
}

namespace {

bool SameLens(const Prescription& a, const Prescription& b) {
    const auto same = [](const Surface& s, const Surface& t) {
        return s.radius == t.radius && s.thickness == t.thickness && s.n == t.n && s.abbe == t.abbe &&
               s.diameter == t.diameter && s.stop == t.stop && s.coating == t.coating;
    };
    return a.name == b.name && a.fNumber == b.fNumber && a.coating == b.coating && a.stopIndex == b.stopIndex &&
           std::equal(a.surfaces.begin(), a.surfaces.end(), b.surfaces.begin(), b.surfaces.end(), same);
}

bool SameSettings(const FootprintSettings& a, const FootprintSettings& b) {
    return a.fNumber == b.fNumber && a.aperture.blades == b.aperture.blades && a.aperture.curvature == b.aperture.curvature &&
           a.aperture.rotation == b.aperture.rotation && a.angleX == b.angleX && a.angleY == b.angleY &&
           a.wavelengths == b.wavelengths && a.coating == b.coating && a.sensorDistance == b.sensorDistance &&
           a.grid == b.grid && a.raster == b.raster && a.clearApertures == b.clearApertures;
}

}  // namespace

const GhostFootprints& FootprintCache::Get(const Prescription& lens, const FootprintSettings& settings) {
    for (size_t k = 0; k < entries_.size(); ++k) {
        if (!SameLens(entries_[k].lens, lens) || !SameSettings(entries_[k].settings, settings)) continue;
        std::rotate(entries_.begin() + long(k), entries_.begin() + long(k) + 1, entries_.end());
        return entries_.back().footprints;
    }
    GhostFootprints footprints = TraceGhostFootprints(lens, settings);
    ++traced_;
    if (!entries_.empty() && entries_.size() >= std::max<size_t>(capacity_, 1)) entries_.erase(entries_.begin());
    entries_.push_back({lens, settings, std::move(footprints)});
    return entries_.back().footprints;
}

}  // namespace vellux::lens
