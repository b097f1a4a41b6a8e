#include "engine/ghost_canvas.h"

#include <algorithm>
#include <cmath>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "engine/pixel_cells.h"

namespace vellux::engine {

namespace {

constexpr double kFaintest = 1.0 / 65536.0;   // linear light a pixel, below which a ghost is not painted

// Where a destination pixel's centre falls in a source image: source pixel coordinates (centres at
// whole numbers) u = ax (x + 0.5) + bx, v = ay (y + 0.5) + by.
struct Mapping {
    double ax = 1.0, bx = 0.0, ay = 1.0, by = 0.0;
};

// The taps of a destination column or row. Past the source's edge a sample is either the edge's
// own (`clamp`: an image that goes on) or nothing (a ghost, which ends there).
using Taps = ResampleTaps;

Taps TapsAt(double u, int size, bool clamp) {
    const int i = FloorWithin(u, -2, size);
    const float t = float(u - i);
    Taps taps{std::clamp(i, 0, size - 1), std::clamp(i + 1, 0, size - 1), 1.0f - t, t};
    if (!clamp) {
        if (i < 0 || i >= size) taps.w0 = 0.0f;
        if (i + 1 < 0 || i + 1 >= size) taps.w1 = 0.0f;
    }
    return taps;
}

// A source row interpolated across at the destination's columns: kChannels values a column.
template <int kChannels>
void AcrossRow(const float* row, const std::vector<Taps>& columns, float* across) {
    for (const Taps& c : columns) {
        for (int k = 0; k < kChannels; ++k) *across++ = row[c.first + k] * c.w0 + row[c.second + k] * c.w1;
    }
}

// The row of `scratch` holding source row `index` interpolated across, made when neither holds it
// (in the slot that `keep`, the other row the destination row takes, is not in).
template <int kChannels>
const float* RowAcross(const float* src, int srcTop, size_t stride, int index, int keep, const std::vector<Taps>& columns,
                       ResampleScratch& scratch) {
    for (int slot = 0; slot < 2; ++slot)
        if (scratch.index[slot] == index) return scratch.rows[slot].data();
    const int slot = scratch.index[0] == keep ? 1 : 0;
    scratch.rows[slot].resize(columns.size() * kChannels);
    AcrossRow<kChannels>(src + size_t(index - srcTop) * stride, columns, scratch.rows[slot].data());
    scratch.index[slot] = index;
    return scratch.rows[slot].data();
}

// out[i] += (top[i] w0 + bottom[i] w1) muls[i] for n values: four at a time where SSE2 is, whose
// products and sums round each lane as the scalar ones do.
void CombineDown(const float* top, const float* bottom, float w0, float w1, const float* muls, float* out, size_t n) {
    size_t i = 0;
#ifdef __SSE2__
    const __m128 a = _mm_set1_ps(w0), b = _mm_set1_ps(w1);
    for (; i + 4 <= n; i += 4) {
        const __m128 down = _mm_add_ps(_mm_mul_ps(_mm_loadu_ps(top + i), a), _mm_mul_ps(_mm_loadu_ps(bottom + i), b));
        _mm_storeu_ps(out + i, _mm_add_ps(_mm_loadu_ps(out + i), _mm_mul_ps(down, _mm_loadu_ps(muls + i))));
    }
#endif
    for (; i < n; ++i) out[i] += (top[i] * w0 + bottom[i] * w1) * muls[i];
}

// Adds the source image (sw x sh pixels of kChannels: 3 RGB, or 1 for grey light) to the RGB
// destination at every pixel of [x0, x1] x [y0, y1], bilinear between source pixel centres, times
// `mul` per channel. Each source row is interpolated across once and kept while destination rows
// take it (the same sums as a pixel at a time, so the same values); down, the rows are combined
// as whole rows. `src` and `dst` may hold only some rows of their images, from row `srcTop` and
// `dstTop` on: the rows read and written must be among them.
template <int kChannels>
void Resample(const float* src, int srcTop, int sw, int sh, const Mapping& m, bool clamp, int x0, int x1, int y0, int y1,
              const float mul[3], float* dst, int dstTop, int dw, ResampleScratch& scratch) {
    if (x0 > x1 || y0 > y1) return;
    std::vector<Taps>& columns = scratch.columns;
    const size_t count = size_t(x1 - x0 + 1);
    columns.resize(count);
    for (int x = x0; x <= x1; ++x) {
        Taps& taps = columns[size_t(x - x0)];
        taps = TapsAt(m.ax * (x + 0.5) + m.bx, sw, clamp);
        taps.first *= kChannels, taps.second *= kChannels;
    }
    scratch.index[0] = scratch.index[1] = -1;
    scratch.muls.resize(count * 3);
    for (size_t i = 0; i < count * 3; ++i) scratch.muls[i] = mul[i % 3];
    scratch.down.resize(count);
    const float* muls = scratch.muls.data();
    const size_t stride = size_t(sw) * kChannels;
    for (int y = y0; y <= y1; ++y) {
        const Taps rows = TapsAt(m.ay * (y + 0.5) + m.by, sh, clamp);
        if (rows.w0 == 0.0f && rows.w1 == 0.0f) continue;
        const float* top = RowAcross<kChannels>(src, srcTop, stride, rows.first, rows.second, columns, scratch);
        const float* bottom = RowAcross<kChannels>(src, srcTop, stride, rows.second, rows.first, columns, scratch);
        float* out = dst + (size_t(y - dstTop) * size_t(dw) + size_t(x0)) * 3;
        if constexpr (kChannels == 3) {
            CombineDown(top, bottom, rows.w0, rows.w1, muls, out, count * 3);
        } else {
            float* down = scratch.down.data();
            for (size_t i = 0; i < count; ++i) down[i] = top[i] * rows.w0 + bottom[i] * rows.w1;
            for (size_t i = 0; i < count; ++i)
                for (int k = 0; k < 3; ++k) out[i * 3 + size_t(k)] += down[i] * mul[k];
        }
    }
}

// Spreads each ghost pixel's light over the frame pixels it overlaps: for ghosts whose pixels are
// smaller than the frame's, so that a small bright ghost keeps its energy where it falls. Only the
// frame's rows `rows` are written.
void Spread(const GhostImage& ghost, const float scale[3], FrameSize frame, double frameMm, Band rows, float* rgb) {
    const double cx = 0.5 * frame.width, cy = 0.5 * frame.height;
    const size_t stride = size_t(ghost.size) * 3;
    const double step = ghost.pixel / frameMm, share = 1.0 / (step * step), cell = ghost.pixel * ghost.pixel;
    for (int j = 0; j < ghost.size; ++j) {
        const double y1 = cy - (ghost.bottom + j * ghost.pixel) / frameMm, y0 = y1 - step;
        const int fy0 = std::max(FloorWithin(y0, 0, frame.height), rows.top);
        const int fy1 = std::min(FloorWithin(y1, -1, frame.height - 1), rows.bottom - 1);
        for (int i = 0; i < ghost.size && fy0 <= fy1; ++i) {
            const float* d = &ghost.rgb[size_t(j) * stride + size_t(i) * 3];
            if (d[0] == 0.0f && d[1] == 0.0f && d[2] == 0.0f) continue;
            const double x0 = cx + (ghost.left + i * ghost.pixel) / frameMm, x1 = x0 + step;
            const int fx0 = FloorWithin(x0, 0, frame.width), fx1 = FloorWithin(x1, -1, frame.width - 1);
            for (int fy = fy0; fy <= fy1; ++fy)
                for (int fx = fx0; fx <= fx1; ++fx) {
                    const float w = float(cell * Overlap(y0, y1, fy) * Overlap(x0, x1, fx) * share);
                    float* out = &rgb[(size_t(fy) * size_t(frame.width) + size_t(fx)) * 3];
                    for (int c = 0; c < 3; ++c) out[c] += w * d[c] * scale[c];
                }
        }
    }
}

}  // namespace

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
    ResampleScratch scratch;
    for (size_t k = 0; k < count; ++k) {
        const lens::GhostFootprint& f = footprints[k];
        if (f.density.empty() || scales[k] == std::array<float, 3>{}) continue;
        const double ratio = image.pixel / f.pixel;
        const Mapping m{ratio, (image.left - f.left) / f.pixel - 0.5, ratio, (image.bottom - f.bottom) / f.pixel - 0.5};
        Resample<1>(f.density.data(), 0, f.size, f.size, m, false, 0, image.size - 1, 0, image.size - 1, scales[k].data(),
                    image.rgb.data(), 0, image.size, scratch);
    }
    image.densest = *std::max_element(image.rgb.begin(), image.rgb.end());
    return image;
}

namespace {

// The rows of a coarse level (`height` rows) that bringing it up into the rows `finer` of the
// level below reads (Finish's mapping, halving).
Band CoarseRowsFor(Band finer, int height) {
    if (finer.top >= finer.bottom) return {0, 0};
    const Taps first = TapsAt(0.5 * (finer.top + 0.5) - 0.5, height, true);
    const Taps last = TapsAt(0.5 * (finer.bottom - 1 + 0.5) - 0.5, height, true);
    return {std::min(first.first, first.second), std::max(last.first, last.second) + 1};
}

}  // namespace

void GhostCanvas::Begin(FrameSize frame, double frameMm, Band rows) {
    frame_ = frame, frameMm_ = frameMm;
    rows_ = {std::max(0, rows.top), std::min(frame.height, rows.bottom)};
    Band finer = rows_;
    for (int l = 1; l < kLevels; ++l) {
        Level& level = levels_[size_t(l)];
        level.width = (frame.width + (1 << l) - 1) >> l;
        level.height = (frame.height + (1 << l) - 1) >> l;
        const Band kept = CoarseRowsFor(finer, level.height);
        const size_t values = size_t(level.width) * size_t(std::max(0, kept.bottom - kept.top)) * 3;
        if (level.rgb.size() != values || level.rows.top != kept.top || level.rows.bottom != kept.bottom)
            level.rgb.assign(values, 0.0f);
        else if (level.used)
            std::fill(level.rgb.begin(), level.rgb.end(), 0.0f);
        level.rows = kept;
        level.used = false;
        finer = kept;
    }
}

void GhostCanvas::Add(const GhostImage& ghost, const float scale[3], float* rgb) {
    if (ghost.rgb.empty()) return;
    const double densest = ghost.densest * *std::max_element(scale, scale + 3);
    if (densest * std::max(frameMm_ * frameMm_, ghost.pixel * ghost.pixel) < kFaintest) return;
    if (ghost.pixel < frameMm_) return Spread(ghost, scale, frame_, frameMm_, rows_, rgb);
    // Gathered at the coarsest level whose pixels are no larger than half the ghost's: a ghost's
    // edge is then as sharp as its own raster draws it.
    int l = 0;
    while (l + 1 < kLevels && ghost.pixel >= frameMm_ * double(4 << l)) ++l;
    const double cell = frameMm_ * double(1 << l);
    const int width = l == 0 ? frame_.width : levels_[size_t(l)].width;
    const int height = l == 0 ? frame_.height : levels_[size_t(l)].height;
    const Band kept = l == 0 ? rows_ : levels_[size_t(l)].rows;
    float* out = l == 0 ? rgb : levels_[size_t(l)].rgb.data();
    // The sensor's centre, the frame's, in the level's pixels.
    const double cx = 0.5 * frame_.width / double(1 << l), cy = 0.5 * frame_.height / double(1 << l);
    const double ratio = cell / ghost.pixel;
    const Mapping m{ratio, (-cx * cell - ghost.left) / ghost.pixel - 0.5, -ratio, (cy * cell - ghost.bottom) / ghost.pixel - 0.5};
    const double right = ghost.left + ghost.size * ghost.pixel, top = ghost.bottom + ghost.size * ghost.pixel;
    const int x0 = FloorWithin(cx + ghost.left / cell, 0, width), x1 = FloorWithin(cx + right / cell + 1.0, -1, width - 1);
    const int y0 = std::max(FloorWithin(cy - top / cell, 0, height), kept.top);
    const int y1 = std::min(FloorWithin(cy - ghost.bottom / cell + 1.0, -1, height - 1), kept.bottom - 1);
    // The frame takes light (per mm^2 times its pixel's area); a coarse level keeps light per mm^2.
    const float unit = l == 0 ? float(frameMm_ * frameMm_) : 1.0f;
    const float mul[3] = {scale[0] * unit, scale[1] * unit, scale[2] * unit};
    Resample<3>(ghost.rgb.data(), 0, ghost.size, ghost.size, m, false, x0, x1, y0, y1, mul, out, l == 0 ? 0 : kept.top,
                width, scratch_);
    if (l > 0) levels_[size_t(l)].used = true;
}

void GhostCanvas::Finish(float* rgb) {
    // Each level up into the next finer one, whose pixels halve its own; the last into the frame.
    for (int l = kLevels - 1; l >= 1; --l) {
        Level& level = levels_[size_t(l)];
        if (!level.used) continue;
        const bool toFrame = l == 1;
        Level* finer = toFrame ? nullptr : &levels_[size_t(l - 1)];
        const int width = toFrame ? frame_.width : finer->width;
        const Band rows = toFrame ? rows_ : finer->rows;
        const float unit = toFrame ? float(frameMm_ * frameMm_) : 1.0f;
        const float mul[3] = {unit, unit, unit};
        const Mapping half{0.5, -0.5, 0.5, -0.5};
        Resample<3>(level.rgb.data(), level.rows.top, level.width, level.height, half, true, 0, width - 1, rows.top,
                    rows.bottom - 1, mul, toFrame ? rgb : finer->rgb.data(), toFrame ? 0 : rows.top, width, scratch_);
        if (!toFrame) finer->used = true;
    }
}

void AddGhost(const GhostImage& ghost, FrameSize frame, double frameMm, float* rgb) {
    GhostCanvas canvas;
    const float one[3] = {1.0f, 1.0f, 1.0f};
    canvas.Begin(frame, frameMm);
    canvas.Add(ghost, one, rgb);
    canvas.Finish(rgb);
}

}  // namespace vellux::engine
