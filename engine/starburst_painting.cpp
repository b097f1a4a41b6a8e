#include "engine/starburst_painting.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/pixel_cells.h"

namespace vellux::engine {

namespace {

// The starburst's value at pattern pixel coordinates (x, y), bilinear, channel c.
double Sample(const lens::Starburst& burst, double x, double y, int c) {
    const int i = FloorWithin(x, -1, burst.size), j = FloorWithin(y, -1, burst.size);
    if (i < 0 || j < 0 || i + 1 >= burst.size || j + 1 >= burst.size) return 0.0;
    const double tx = x - i, ty = y - j;
    const auto at = [&](int a, int b) { return double(burst.rgb[(size_t(b) * size_t(burst.size) + size_t(a)) * 3 + size_t(c)]); };
    return (at(i, j) * (1 - tx) + at(i + 1, j) * tx) * (1 - ty) + (at(i, j + 1) * (1 - tx) + at(i + 1, j + 1) * tx) * ty;
}

}  // namespace

// The rays: the maxima of the pattern's brightness around its rim that stand well above the rim's
// typical level; each ray's light is summed across it, between the minima on either side.
//
// Along a ray the light of each wavelength beats between the two parallel edges of opposite
// blades, a few pattern pixels a period and in step with the wavelength, so at any one radius the
// ray takes one colour or another; on the frame, whose pixels hold many periods, it is their
// mean. So the rim is the mean over a band of radii (each brought to the rim's by the inverse
// square) rather than one circle.
std::vector<StarburstRay> StarburstRays(const lens::Starburst& burst) {
    constexpr int kSteps = 2880, kRadii = 24;
    const double centre = 0.5 * (burst.size - 1), rim = 0.42 * burst.size;
    std::vector<std::array<double, 3>> ring(kSteps);
    std::vector<double> level(kSteps);
    for (int k = 0; k < kSteps; ++k) {
        const double angle = 2.0 * std::numbers::pi * k / kSteps, dx = std::cos(angle), dy = std::sin(angle);
        for (int m = 0; m < kRadii; ++m) {
            const double r = rim * (0.7 + 0.3 * m / (kRadii - 1)), toRim = (r / rim) * (r / rim) / kRadii;
            for (int c = 0; c < 3; ++c) ring[size_t(k)][size_t(c)] += toRim * Sample(burst, centre + r * dx, centre + r * dy, c);
        }
        level[size_t(k)] = ring[size_t(k)][0] + ring[size_t(k)][1] + ring[size_t(k)][2];
    }
    std::vector<double> sorted = level;
    std::nth_element(sorted.begin(), sorted.begin() + kSteps / 2, sorted.end());
    const double typical = sorted[kSteps / 2];
    const auto wrap = [](int k) { return size_t((k % kSteps + kSteps) % kSteps); };
    std::vector<StarburstRay> rays;
    for (int k = 0; k < kSteps; ++k) {
        const double here = level[wrap(k)];
        if (!(here > 8.0 * typical) || here < level[wrap(k - 1)] || here <= level[wrap(k + 1)]) continue;
        StarburstRay ray;
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
void AddRays(const std::vector<StarburstRay>& rays, double cx, double cy, const float scale[3], FrameSize frame, double frameMm,
             float* rgb, Band rows) {
    const double reach = std::hypot(frame.width, frame.height);
    for (const StarburstRay& ray : rays) {
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
                if (xs[q] < 0 || ys[q] < rows.top || xs[q] >= frame.width || ys[q] >= frame.height || ys[q] >= rows.bottom)
                    continue;
                float* out = &rgb[(size_t(ys[q]) * size_t(frame.width) + size_t(xs[q])) * 3];
                for (int c = 0; c < 3; ++c) out[c] += float(weights[q]) * add[c];
            }
        }
    }
}

void AddPattern(const float* pattern, int size, double patternMm, double cx, double cy, const float scale[3],
                FrameSize frame, double frameMm, float* rgb, Band rows) {
    const double step = patternMm / frameMm;      // a pattern pixel's side in frame pixels
    const double origin = -0.5 * size * step;     // the pattern's corner from the light
    const double share = 1.0 / (step * step);     // of a pattern pixel, per frame pixel area of overlap
    // The frame columns the pattern covers, and each pattern column's overlap with each of them:
    // the weights are a column's overlap times a row's, so each pattern row is first summed into
    // the frame's columns, then that sum shared among the frame rows the pattern row overlaps.
    const int first = FloorWithin(cx + origin, 0, frame.width), last = FloorWithin(cx + origin + size * step, -1, frame.width - 1);
    if (first > last) return;
    const int span = last - first + 1;
    struct Cells {
        int fx0 = 0, fx1 = -1;
        double x0 = 0.0, x1 = 0.0;
    };
    std::vector<Cells> columns(static_cast<size_t>(size));
    for (int px = 0; px < size; ++px) {
        Cells& cells = columns[size_t(px)];
        cells.x0 = cx + origin + px * step, cells.x1 = cells.x0 + step;
        cells.fx0 = FloorWithin(cells.x0, 0, frame.width), cells.fx1 = FloorWithin(cells.x1, -1, frame.width - 1);
    }
    std::vector<double> row(size_t(span) * 3);
    for (int py = 0; py < size; ++py) {
        const double y0 = cy + origin + py * step, y1 = y0 + step;
        const int fy0 = std::max(FloorWithin(y0, 0, frame.height), rows.top);
        const int fy1 = std::min(FloorWithin(y1, -1, frame.height - 1), rows.bottom - 1);
        if (fy0 > fy1) continue;
        std::fill(row.begin(), row.end(), 0.0);
        const float* values = &pattern[size_t(py) * size_t(size) * 3];
        for (int px = 0; px < size; ++px) {
            const Cells& cells = columns[size_t(px)];
            const float* value = values + size_t(px) * 3;
            for (int fx = cells.fx0; fx <= cells.fx1; ++fx) {
                const double ox = Overlap(cells.x0, cells.x1, fx);
                double* sum = &row[size_t(fx - first) * 3];
                for (int c = 0; c < 3; ++c) sum[c] += value[c] * ox;
            }
        }
        for (int fy = fy0; fy <= fy1; ++fy) {
            const double oy = Overlap(y0, y1, fy) * share;
            float* out = &rgb[(size_t(fy) * size_t(frame.width) + size_t(first)) * 3];
            for (size_t k = 0; k < row.size(); ++k) out[k] += float(row[k] * oy) * scale[k % 3];
        }
    }
}

}  // namespace vellux::engine
