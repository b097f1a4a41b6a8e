#include "lens/starburst.h"

#include <kiss_fft.h>
#include <kiss_fftr.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

#include "lens/skew_trace.h"
#include "lens/spectrum.h"

namespace vellux::lens {

namespace {

// Edge cells are sampled on an 8 x 8 grid: the aperture's open fraction of the cell to 1/64,
// which keeps the sampled edge from adding stair-step spikes of its own.
constexpr int kEdgeSamples = 8;

// The radius every point inside the aperture exceeds: the blades' straight edges come no
// closer than cos(pi / blades) to the centre, curved ones stay further out.
double InnerRadius(const Aperture& aperture) {
    if (aperture.blades == 0) return 1.0;
    return std::cos(std::numbers::pi / aperture.blades);
}

// The aperture's transmission on the grid, centred: 1 inside, 0 outside, the open fraction in
// cells the edge crosses (the whole opening lies within the unit circle).
std::vector<float> Transmission(const Aperture& aperture, int grid) {
    std::vector<float> open(size_t(grid) * size_t(grid), 0.0f);
    const double cell = 1.0 / kPupilRadiusCells;      // on the unit aperture's scale
    const double inner = InnerRadius(aperture);
    const Iris iris(aperture, 1.0);                   // the same opening as Inside, without its trigonometry
    const int first = grid / 2 - kPupilRadiusCells - 1, last = grid / 2 + kPupilRadiusCells + 1;
    for (int row = first; row < last; ++row) {
        const double y0 = (row - grid / 2) * cell, y1 = y0 + cell;
        for (int column = first; column < last; ++column) {
            const double x0 = (column - grid / 2) * cell, x1 = x0 + cell;
            const double nearX = std::max({x0, -x1, 0.0}), nearY = std::max({y0, -y1, 0.0});
            const double farX = std::max(std::abs(x0), std::abs(x1)), farY = std::max(std::abs(y0), std::abs(y1));
            float& value = open[size_t(row) * size_t(grid) + size_t(column)];
            if (farX * farX + farY * farY <= inner * inner) {
                value = 1.0f;
            } else if (nearX * nearX + nearY * nearY < 1.0) {
                int inside = 0;
                for (int i = 0; i < kEdgeSamples; ++i)
                    for (int j = 0; j < kEdgeSamples; ++j)
                        inside += iris.Open(x0 + (j + 0.5) * cell / kEdgeSamples, y0 + (i + 0.5) * cell / kEdgeSamples);
                value = float(inside) / (kEdgeSamples * kEdgeSamples);
            }
        }
    }
    return open;
}

void CheckSampling(double fNumber, double wavelength) {
    if (!(fNumber > 0.0 && std::isfinite(fNumber)))
        throw std::invalid_argument("f-number: " + std::to_string(fNumber) + " is not a positive number");
    if (!(wavelength > 0.0 && std::isfinite(wavelength)))
        throw std::invalid_argument("wavelength: " + std::to_string(wavelength) + " nm is not a positive number");
}

// Where each output pixel along one axis reads the far field: the two frequency steps around it
// (kept on the grid) and their linear-interpolation weights, 0 for a step off the grid, whose power
// is taken as 0.
struct Taps {
    std::vector<int> index;
    std::vector<float> low, high;
};

Taps AxisTaps(int grid, int size, double stepsPerPixel) {
    Taps taps;
    taps.index.resize(size_t(size));
    taps.low.resize(size_t(size));
    taps.high.resize(size_t(size));
    const auto hat = [](double d) { return float(std::max(0.0, 1.0 - std::abs(d))); };
    for (int k = 0; k < size; ++k) {
        const double at = (k - size / 2) * stepsPerPixel + grid / 2;
        const int index = int(std::clamp(std::floor(at), 0.0, double(grid - 2)));
        taps.index[size_t(k)] = index;
        taps.low[size_t(k)] = hat(at - index);
        taps.high[size_t(k)] = hat(at - (index + 1));
    }
    return taps;
}

// One wavelength's far field scaled onto the pixels, a row at a time in increasing order: each
// pixel blends the two far-field rows round it, each of them first resampled across onto the
// pixels' columns. Neighbouring pixel rows share far-field rows (a longer wavelength magnifies the
// field), so each is resampled once, when first needed, and kept while the next row uses it.
class FarFieldRows {
public:
    FarFieldRows(const FarField& farField, double fNumber, double wavelength, int size, double mmPerPixel)
        : farField_(farField), size_(size) {
        const double stepsPerPixel = mmPerPixel / FarFieldStepMm(fNumber, wavelength);
        taps_ = AxisTaps(farField.grid, size, stepsPerPixel);
        // Each step holds power / totalPower of the light over a step's area; a pixel gathers
        // (pixel / step)^2 times that area.
        scale_ = float(stepsPerPixel * stepsPerPixel / farField.totalPower);
        for (std::vector<float>& across : across_) across.resize(size_t(size));
    }

    // Pixel row `row`: wLow low[column] + wHigh high[column].
    struct Blend {
        const float *low, *high;
        float wLow, wHigh;
    };
    Blend Row(int row) {
        const int index = taps_.index[size_t(row)];
        return {Across(index), Across(index + 1), taps_.low[size_t(row)] * scale_, taps_.high[size_t(row)] * scale_};
    }

private:
    // The far field's row `index` resampled onto the pixels' columns.
    const float* Across(int index) {
        std::vector<float>& across = across_[size_t(index % 2)];
        int& held = held_[size_t(index % 2)];
        if (held == index) return across.data();
        held = index;
        const float* power = &farField_.power[size_t(index) * size_t(farField_.grid)];
        for (int column = 0; column < size_; ++column) {
            const int i = taps_.index[size_t(column)];
            across[size_t(column)] = taps_.low[size_t(column)] * power[i] + taps_.high[size_t(column)] * power[i + 1];
        }
        return across.data();
    }

    const FarField& farField_;
    int size_;
    Taps taps_;
    float scale_ = 0.0f;
    std::array<std::vector<float>, 2> across_;   // far-field rows of even and odd index, resampled
    std::array<int, 2> held_{-1, -1};            // which
};

struct FreePlan {
    void operator()(void* plan) const { kiss_fft_free(plan); }
};

}  // namespace

FarField ApertureFarField(const Aperture& aperture) {
    CheckAperture(aperture, "aperture");
    const int grid = kFarFieldGrid, half = grid / 2 + 1;
    const std::vector<float> open = Transmission(aperture, grid);

    // The 2-D transform as rows, then columns. Only the rows through the aperture are non-zero,
    // and a real row's transform keeps the columns 0..grid/2: the others are the conjugates of
    // the mirrored frequencies, of the same power. (The library's own n-dimensional real
    // transform is not used: Debian's 131.1.0 build crashes on grids of 64 and more.)
    const std::unique_ptr<kiss_fftr_state, FreePlan> rowPlan(kiss_fftr_alloc(grid, 0, nullptr, nullptr));
    const std::unique_ptr<kiss_fft_state, FreePlan> columnPlan(kiss_fft_alloc(grid, 0, nullptr, nullptr));
    std::vector<kiss_fft_cpx> rows(size_t(grid) * size_t(half), kiss_fft_cpx{0.0f, 0.0f});
    for (int row = grid / 2 - kPupilRadiusCells - 1; row < grid / 2 + kPupilRadiusCells + 1; ++row)
        kiss_fftr(rowPlan.get(), &open[size_t(row) * size_t(grid)], &rows[size_t(row) * size_t(half)]);

    FarField field;
    field.grid = grid;
    field.power.resize(size_t(grid) * size_t(grid));
    // Frequency k lands at (k + grid / 2) mod grid: the zero frequency in the middle.
    const auto centred = [](int k) { return size_t((k + grid / 2) % grid); };
    // The columns' transforms a block at a time, their powers then written row by row: one column
    // at a time would write the field a row apart at every step.
    constexpr int kBlock = 16;
    std::vector<kiss_fft_cpx> columns(size_t(kBlock) * size_t(grid));
    for (int first = 0; first < half; first += kBlock) {
        const int count = std::min(kBlock, half - first);
        for (int k = 0; k < count; ++k)
            kiss_fft_stride(columnPlan.get(), &rows[size_t(first + k)], &columns[size_t(k) * size_t(grid)], half);
        for (int ky = 0; ky < grid; ++ky) {
            float* row = &field.power[centred(ky) * size_t(grid)];
            float* mirrored = &field.power[centred(grid - ky) * size_t(grid)];
            for (int k = 0; k < count; ++k) {
                const int kx = first + k;
                const kiss_fft_cpx& value = columns[size_t(k) * size_t(grid) + size_t(ky)];
                const float power = value.r * value.r + value.i * value.i;
                row[centred(kx)] = power;
                // The mirrored frequency (-kx, -ky), where it is not the same one.
                if (kx != 0 && kx != grid / 2) mirrored[centred(grid - kx)] = power;
            }
        }
    }
    for (const float power : field.power) field.totalPower += power;
    return field;
}

double FarFieldStepMm(double fNumber, double wavelength) {
    return 2.0 * kPupilRadiusCells * wavelength * 1e-6 * fNumber / kFarFieldGrid;
}

void SampleFarField(const FarField& farField, double fNumber, double wavelength, int size, double mmPerPixel,
                    std::vector<float>& out) {
    CheckSampling(fNumber, wavelength);
    FarFieldRows rows(farField, fNumber, wavelength, size, mmPerPixel);
    out.resize(size_t(size) * size_t(size));
    for (int row = 0; row < size; ++row) {
        const FarFieldRows::Blend blend = rows.Row(row);
        float* line = &out[size_t(row) * size_t(size)];
        for (int column = 0; column < size; ++column) line[column] = blend.wLow * blend.low[column] + blend.wHigh * blend.high[column];
    }
}

Starburst MonochromaticStarburst(const Aperture& aperture, double fNumber, double wavelength) {
    CheckSampling(fNumber, wavelength);
    const FarField field = ApertureFarField(aperture);
    Starburst pattern;
    pattern.size = kStarburstSize;
    pattern.mmPerPixel = FarFieldStepMm(fNumber, SpectralWavelength(0));
    SampleFarField(field, fNumber, wavelength, pattern.size, pattern.mmPerPixel, pattern.rgb);
    return pattern;
}

namespace {

// Row `row` of the pattern summed over the spectrum into `out` (r g b a pixel). Wavelengths outside
// the gamut leave a pixel slightly negative in a channel here and there: clipped to 0.
void SpectralRow(std::vector<FarFieldRows>& wavelengths, int row, float* out) {
    static const std::array<LinearRgb, kSpectralSamples> weights = SpectralWeights();
    std::array<float, kStarburstSize> r{}, g{}, b{};
    for (size_t k = 0; k < wavelengths.size(); ++k) {
        const FarFieldRows::Blend blend = wavelengths[k].Row(row);
        const float wr = float(weights[k].r), wg = float(weights[k].g), wb = float(weights[k].b);
        for (size_t column = 0; column < kStarburstSize; ++column) {
            const float value = blend.wLow * blend.low[column] + blend.wHigh * blend.high[column];
            r[column] += wr * value, g[column] += wg * value, b[column] += wb * value;
        }
    }
    for (size_t column = 0; column < kStarburstSize; ++column) {
        out[3 * column] = std::max(r[column], 0.0f);
        out[3 * column + 1] = std::max(g[column], 0.0f);
        out[3 * column + 2] = std::max(b[column], 0.0f);
    }
}

}  // namespace

Starburst SpectralStarburst(const Aperture& aperture, double fNumber) {
    CheckSampling(fNumber, SpectralWavelength(0));
    const FarField field = ApertureFarField(aperture);
    Starburst starburst;
    const int size = starburst.size = kStarburstSize;
    // The shortest wavelength's steps: every longer one is magnified onto the pixels, never
    // shrunk, so no step of the far field falls between pixels.
    starburst.mmPerPixel = FarFieldStepMm(fNumber, SpectralWavelength(0));
    starburst.rgb.resize(3 * size_t(size) * size_t(size));
    std::vector<FarFieldRows> wavelengths;
    wavelengths.reserve(kSpectralSamples);
    for (int k = 0; k < kSpectralSamples; ++k)
        wavelengths.emplace_back(field, fNumber, SpectralWavelength(k), size, starburst.mmPerPixel);

    // A real aperture's far field is the same turned half a turn, and so is every wavelength's
    // pattern centred on the middle pixel: the rows up to the middle one are summed, and each
    // also makes its mirror image's row.
    double sums[3] = {0.0, 0.0, 0.0};
    for (int row = 0; row <= size / 2; ++row) {
        float* out = &starburst.rgb[3 * size_t(row) * size_t(size)];
        SpectralRow(wavelengths, row, out);
        const double copies = row == size / 2 ? 1.0 : 2.0;
        for (int column = 0; column < size; ++column)
            for (int c = 0; c < 3; ++c) sums[c] += copies * out[3 * column + c];
        if (row == size / 2) continue;
        float* mirror = &starburst.rgb[3 * size_t(size - 1 - row) * size_t(size)];
        for (int column = 0; column < size; ++column) std::copy_n(&out[3 * column], 3, &mirror[3 * (size - 1 - column)]);
    }
    // Each channel adds up to 1.
    const double scale[3] = {1.0 / sums[0], 1.0 / sums[1], 1.0 / sums[2]};
    float* rgb = starburst.rgb.data();
    for (size_t p = 0; p < size_t(size) * size_t(size); ++p)
        for (int c = 0; c < 3; ++c) rgb[3 * p + size_t(c)] = float(rgb[3 * p + size_t(c)] * scale[c]);
    return starburst;
}

const Starburst& StarburstCache::Get(const Aperture& aperture, double fNumber) {
    // A round opening is the same whatever its curvature and rotation.
    const bool round = aperture.blades == 0;
    const Key key{aperture.blades, round ? 0.0 : aperture.curvature, round ? 0.0 : aperture.rotation, fNumber};
    const auto found = entries_.find(key);
    if (found != entries_.end()) return found->second;
    return entries_.emplace(key, SpectralStarburst(aperture, fNumber)).first->second;
}

}  // namespace vellux::lens
