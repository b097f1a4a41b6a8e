#include "lens/ghost_footprint.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "lens/ghosts.h"
#include "lens/paraxial.h"
#include "lens/skew_trace.h"

namespace vellux::lens {

namespace {

// A rectangle of the first vertex's plane (z = 0), mm.
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

// The rays of an n x n grid over a box, through its cells' centres, and where those that got
// through landed on the sensor.
struct Landings {
    Box box;
    int n = 0;
    double stepX = 0.0, stepY = 0.0;
    size_t count = 0;
    std::vector<double> x, y;
    std::vector<unsigned char> landed;

    std::vector<Vec3> origins;        // the rays' (reused, so that tracing allocates nothing)
    std::vector<SkewTrace> traced;

    explicit Landings(int size)
        : n(size), x(size_t(size * size)), y(size_t(size * size)), landed(size_t(size * size)),
          origins(size_t(size * size)), traced(size_t(size * size)) {}
    size_t At(int a, int b) const { return size_t(b) * size_t(n) + size_t(a); }
    bool Landed(int a, int b) const { return a >= 0 && b >= 0 && a < n && b < n && landed[At(a, b)]; }
    double CellX(int a) const { return box.x0 + (a + 0.5) * stepX; }
    double CellY(int b) const { return box.y0 + (b + 0.5) * stepY; }
};

// The grids a call traces, made once.
struct Grids {
    static constexpr int kCoarse = 16;
    Landings coarse{kCoarse}, fine;
    explicit Grids(const FootprintSettings& settings) : fine(std::max(settings.grid, 4)) {}
};

void TraceGrid(const Beam& beam, const SkewPath& path, const Box& box, size_t events, Landings& out) {
    out.box = box;
    out.stepX = (box.x1 - box.x0) / out.n, out.stepY = (box.y1 - box.y0) / out.n;
    for (int b = 0; b < out.n; ++b)
        for (int a = 0; a < out.n; ++a) out.origins[out.At(a, b)] = beam.Origin(out.CellX(a), out.CellY(b));
    path.Trace(out.origins.data(), out.origins.size(), beam.direction, beam.iris, events, out.traced.data());
    out.count = 0;
    for (size_t k = 0; k < out.traced.size(); ++k) {
        out.landed[k] = out.traced[k].miss == Miss::none;
        if (!out.landed[k]) continue;
        out.x[k] = out.traced[k].sensorX, out.y[k] = out.traced[k].sensorY;
        ++out.count;
    }
}

// The box round the coarse grid's rays that got through, a coarse cell further out and half a fine
// cell more, so that the fine grid's outermost rays fall where the coarse ones failed; nothing
// when none did.
std::optional<Box> AroundLandings(const Beam& beam, const Landings& coarse) {
    Box found{1e300, -1e300, 1e300, -1e300};
    for (int b = 0; b < coarse.n; ++b) {
        for (int a = 0; a < coarse.n; ++a) {
            if (!coarse.landed[coarse.At(a, b)]) continue;
            const double x = coarse.CellX(a), y = coarse.CellY(b);
            found = {std::min(found.x0, x), std::max(found.x1, x), std::min(found.y0, y), std::max(found.y1, y)};
        }
    }
    if (found.x1 < found.x0) return std::nullopt;
    const double fine = 0.5 / std::max(beam.settings.grid, 4);
    const double marginX = coarse.stepX + fine * (found.x1 - found.x0 + 2.0 * coarse.stepX);
    const double marginY = coarse.stepY + fine * (found.y1 - found.y0 + 2.0 * coarse.stepY);
    return Intersect({found.x0 - marginX, found.x1 + marginX, found.y0 - marginY, found.y1 + marginY}, beam.clear);
}

// The part of the first surface's clear aperture whose rays get through the path: a guess from
// the paraxial model (the image in the entrance of the stop where the path first crosses it, half
// as wide again), then a coarse grid over it traced to the sensor, whose outermost rays that got
// through, a coarse cell further out, bound it. It is found once for all wavelengths, at the d
// line: dispersion moves it by far less than the cell.
Box EntranceRegion(const Beam& beam, const Path& events, Grids& grids) {
    Landings& coarse = grids.coarse;
    const double wavelength = kLineD;
    const SkewPath path(beam.lens, events, wavelength, beam.sensorDistance, beam.settings.clearApertures);
    Box guess = beam.clear;
    const size_t stop = path.FirstStopEvent();
    if (stop < path.Events()) {
        const Matrix2 m = PathMatrix(beam.lens, events, wavelength, stop + 1, 0.0);   // y at the stop = a y0 + b u
        if (std::abs(m.a) > 1e-9) {
            const double cx = -m.b * beam.tanX / m.a, cy = -m.b * beam.tanY / m.a, r = 1.5 * beam.stopRadius / std::abs(m.a);
            const Box region = Intersect({cx - r, cx + r, cy - r, cy + r}, beam.clear);
            if (!region.Empty()) guess = region;
        }
    }
    TraceGrid(beam, path, guess, size_t(-1), coarse);
    // Far off the axis the paraxial guess can miss the bundle altogether: then the whole surface,
    // first coarsely, then (a narrow band slipping between the coarse rays) finely.
    if (coarse.count == 0) TraceGrid(beam, path, guess = beam.clear, size_t(-1), coarse);
    if (coarse.count == 0) {
        TraceGrid(beam, path, beam.clear, size_t(-1), grids.fine);
        const std::optional<Box> found = AroundLandings(beam, grids.fine);
        if (!found) return guess;
        TraceGrid(beam, path, guess = *found, size_t(-1), coarse);
    }
    // A bundle that fills few of the coarse grid's cells (a narrow band far off the axis) is
    // looked for again on a coarse grid over just the cells that found it, up to three times, so
    // that the fine grid is spread over the bundle rather than round it.
    Box region = guess;
    for (int zoom = 0;; ++zoom) {
        const std::optional<Box> found = AroundLandings(beam, coarse);
        if (!found) return region;
        region = *found;
        if (zoom == 3 || coarse.count >= size_t(coarse.n * coarse.n / 8)) return region;
        TraceGrid(beam, path, region, size_t(-1), coarse);
    }
}

// Traces the path's grid over its entrance region, widening a side of the region while rays on
// that edge of the grid still get through (the coarse grid can miss a sliver).
void TracePath(const Beam& beam, const Path& events, double wavelength, Box box, Landings& out) {
    const SkewPath path(beam.lens, events, wavelength, beam.sensorDistance, beam.settings.clearApertures);
    for (int attempt = 0;; ++attempt) {
        TraceGrid(beam, path, box, size_t(-1), out);
        if (attempt == 3 || out.count == 0) return;
        bool left = false, right = false, bottom = false, top = false;
        for (int k = 0; k < out.n; ++k) {
            left |= out.Landed(0, k), right |= out.Landed(out.n - 1, k);
            bottom |= out.Landed(k, 0), top |= out.Landed(k, out.n - 1);
        }
        const double growX = 0.25 * (box.x1 - box.x0), growY = 0.25 * (box.y1 - box.y0);
        const Box wider = Intersect({box.x0 - (left ? growX : 0.0), box.x1 + (right ? growX : 0.0),
                                     box.y0 - (bottom ? growY : 0.0), box.y1 + (top ? growY : 0.0)},
                                    beam.clear);
        if (wider.x0 == box.x0 && wider.x1 == box.x1 && wider.y0 == box.y0 && wider.y1 == box.y1) return;
        box = wider;
    }
}

// The footprint's area: each ray's cell of the entrance times how much the path stretches it on
// the sensor (the Jacobian of the landing, from the neighbouring rays), so that the area is the
// integral over what got through rather than the hull of the outermost rays, half a cell short.
double FootprintArea(const Landings& l) {
    const auto derivative = [&](int a, int b, int da, int db, const std::vector<double>& v, double step) {
        const bool before = l.Landed(a - da, b - db), after = l.Landed(a + da, b + db);
        const double here = v[l.At(a, b)];
        if (before && after) return (v[l.At(a + da, b + db)] - v[l.At(a - da, b - db)]) / (2.0 * step);
        if (after) return (v[l.At(a + da, b + db)] - here) / step;
        if (before) return (here - v[l.At(a - da, b - db)]) / step;
        return 0.0;
    };
    double area = 0.0;
    for (int b = 0; b < l.n; ++b) {
        for (int a = 0; a < l.n; ++a) {
            if (!l.Landed(a, b)) continue;
            const double xu = derivative(a, b, 1, 0, l.x, l.stepX), yu = derivative(a, b, 1, 0, l.y, l.stepX);
            const double xv = derivative(a, b, 0, 1, l.x, l.stepY), yv = derivative(a, b, 0, 1, l.y, l.stepY);
            area += std::abs(xu * yv - xv * yu);
        }
    }
    return area * l.stepX * l.stepY;
}

// The density raster: each ray's cell of the entrance is shared in quarters among the four
// squares of neighbouring rays round it. A square whose four rays all landed carries its share
// onto the quadrilateral they land on, spread by points sampled across it (more where it is
// stretched), each shared bilinearly among four pixels; a quarter whose square is broken (at the
// footprint's edge) lands with its own ray. Where the quadrilaterals crowd (a caustic) the density
// rises, and the whole holds the ghost's energy.
void Rasterise(const Landings& l, int size, GhostFootprint& footprint) {
    double x0 = l.x[0], x1 = x0, y0 = l.y[0], y1 = y0;
    bool first = true;
    for (size_t k = 0; k < l.landed.size(); ++k) {
        if (!l.landed[k]) continue;
        if (first) x0 = x1 = l.x[k], y0 = y1 = l.y[k], first = false;
        x0 = std::min(x0, l.x[k]), x1 = std::max(x1, l.x[k]), y0 = std::min(y0, l.y[k]), y1 = std::max(y1, l.y[k]);
    }
    // A square round the landings with a pixel to spare on each side, for the bilinear spread.
    const double side = std::max({x1 - x0, y1 - y0, 1e-6});
    footprint.size = size;
    footprint.pixel = side / (size - 2);
    footprint.left = 0.5 * (x0 + x1) - 0.5 * size * footprint.pixel;
    footprint.bottom = 0.5 * (y0 + y1) - 0.5 * size * footprint.pixel;
    std::vector<double> sum(size_t(size) * size_t(size), 0.0);
    const auto splat = [&](double px, double py, double weight) {
        const double fx = std::floor(px), fy = std::floor(py);
        const int ix = int(fx), iy = int(fy);
        const double wx = px - fx, wy = py - fy;
        const auto add = [&](int x, int y, double w) {
            if (x >= 0 && y >= 0 && x < size && y < size) sum[size_t(y) * size_t(size) + size_t(x)] += w;
        };
        add(ix, iy, weight * (1.0 - wx) * (1.0 - wy));
        add(ix + 1, iy, weight * wx * (1.0 - wy));
        add(ix, iy + 1, weight * (1.0 - wx) * wy);
        add(ix + 1, iy + 1, weight * wx * wy);
    };
    // Pixel coordinates with pixel centres at whole numbers.
    const double scale = 1.0 / footprint.pixel;
    const auto px = [&](size_t k) { return (l.x[k] - footprint.left) * scale - 0.5; };
    const auto py = [&](size_t k) { return (l.y[k] - footprint.bottom) * scale - 0.5; };
    for (int b = -1; b < l.n; ++b) {
        for (int a = -1; a < l.n; ++a) {
            if (!l.Landed(a, b) || !l.Landed(a + 1, b) || !l.Landed(a, b + 1) || !l.Landed(a + 1, b + 1)) {
                for (const auto& [ca, cb] : {std::pair{a, b}, {a + 1, b}, {a, b + 1}, {a + 1, b + 1}})
                    if (l.Landed(ca, cb)) splat(px(l.At(ca, cb)), py(l.At(ca, cb)), 0.25);
                continue;
            }
            const size_t k00 = l.At(a, b), k10 = l.At(a + 1, b), k01 = l.At(a, b + 1), k11 = l.At(a + 1, b + 1);
            const double ax = px(k00), bx = px(k10) - ax, cx = px(k01) - ax, dx = px(k11) - px(k10) - px(k01) + ax;
            const double ay = py(k00), by = py(k10) - ay, cy = py(k01) - ay, dy = py(k11) - py(k10) - py(k01) + ay;
            const double extent = std::max({std::abs(bx), std::abs(by), std::abs(cx), std::abs(cy), std::abs(bx + dx),
                                            std::abs(by + dy), std::abs(cx + dx), std::abs(cy + dy)});
            const int samples = std::clamp(int(std::ceil(extent)), 1, 8);
            const double weight = 1.0 / (samples * samples);
            for (int t = 0; t < samples; ++t) {
                const double v = (t + 0.5) / samples;
                for (int s = 0; s < samples; ++s) {
                    const double u = (s + 0.5) / samples;
                    splat(ax + u * bx + v * cx + u * v * dx, ay + u * by + v * cy + u * v * dy, weight);
                }
            }
        }
    }
    const double perUnit = footprint.energy / double(l.count) / (footprint.pixel * footprint.pixel);
    footprint.density.assign(sum.size(), 0.0f);
    for (size_t k = 0; k < sum.size(); ++k) footprint.density[k] = float(sum[k] * perUnit);
}

double Transmittance(const Beam& beam, const Path& path, double wavelength) {
    double t = 1.0;
    for (const Event& event : path) {
        if (event.reflect || beam.lens.surfaces[event.surface].stop) continue;
        t *= 1.0 - ReflectanceOf(beam.lens, event.surface, beam.settings.coating, wavelength);
    }
    return t;
}

GhostFootprint Footprint(const Beam& beam, size_t i, size_t j, const Path& path, const Box& region, double wavelength,
                         Grids& grids) {
    const Landings& landings = grids.fine;
    GhostFootprint footprint;
    footprint.first = i, footprint.second = j, footprint.wavelength = wavelength;
    footprint.reflectance = ReflectanceOf(beam.lens, i, beam.settings.coating, wavelength) *
                            ReflectanceOf(beam.lens, j, beam.settings.coating, wavelength);
    footprint.transmittance = Transmittance(beam, path, wavelength);
    TracePath(beam, path, wavelength, region, grids.fine);
    footprint.rays = landings.count;
    if (landings.count == 0) return footprint;
    const double cell = landings.stepX * landings.stepY * beam.cosine;
    footprint.energy = double(landings.count) * cell * footprint.reflectance * footprint.transmittance;
    double sx = 0.0, sy = 0.0;
    for (size_t k = 0; k < landings.landed.size(); ++k) {
        if (landings.landed[k]) sx += landings.x[k], sy += landings.y[k];
    }
    // Every ray carries as much light, so the light's centre is the rays' mean landing.
    footprint.centroidX = sx / double(landings.count), footprint.centroidY = sy / double(landings.count);
    footprint.area = FootprintArea(landings);
    Rasterise(landings, std::max(beam.settings.raster, 4), footprint);
    return footprint;
}

}  // namespace

GhostFootprint TraceGhostFootprint(const Prescription& lens, size_t i, size_t j, double wavelength,
                                   const FootprintSettings& settings) {
    const Beam beam(lens, settings);
    Grids grids(settings);
    const Path path = GhostPath(lens, i, j);
    return Footprint(beam, i, j, path, EntranceRegion(beam, path, grids), wavelength, grids);
}

GhostFootprints TraceGhostFootprints(const Prescription& lens, const FootprintSettings& settings) {
    const Beam beam(lens, settings);
    Grids grids(settings);
    GhostFootprints out;
    out.wavelengths = settings.wavelengths;
    const Path light = LightPath(lens);
    const Box lightRegion = EntranceRegion(beam, light, grids);
    for (const double wavelength : settings.wavelengths) {
        TracePath(beam, light, wavelength, lightRegion, grids.fine);
        out.lightFlux.push_back(double(grids.fine.count) * grids.fine.stepX * grids.fine.stepY * beam.cosine);
    }
    for (size_t i = 0; i < lens.surfaces.size(); ++i) {
        for (size_t j = i + 1; j < lens.surfaces.size(); ++j) {
            if (lens.surfaces[i].stop || lens.surfaces[j].stop) continue;
            const Path path = GhostPath(lens, i, j);
            const Box region = EntranceRegion(beam, path, grids);
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
