#include "engine/blend.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <stdexcept>

#include <OpenImageIO/color.h>

#include "engine/colour.h"
#include "engine/plugin_pixels.h"

namespace vellux::engine {

namespace {

// The display-level blends of one value: plate `a` and flare `f` in display levels (1 = white).
float DisplayRule(Blend blend, float a, float f) {
    return blend == Blend::screen ? a + f * (1.0f - a) : a + f;
}

// sRGB levels in and out of linear light, as the image library defines them (the integer routes
// have no colour space but sRGB).
const std::array<float, 256>& LinearOfByte() {
    static const std::array<float, 256> table = [] {
        std::array<float, 256> values{};
        for (size_t v = 0; v < values.size(); ++v) values[v] = OIIO::sRGB_to_linear(float(v) / 255.0f);
        return values;
    }();
    return table;
}

float Rounded(float value, float full) { return std::floor(std::clamp(value, 0.0f, 1.0f) * full + 0.5f); }

// One channel of an integer plate at `a` (0..1) under flare level `f`, for the float-rule blends.
float BlendedLevel(Blend blend, float a, float linearA, float f) {
    if (blend == Blend::add) return OIIO::linear_to_sRGB(linearA + OIIO::sRGB_to_linear(f));
    return DisplayRule(blend, a, f);
}

}  // namespace

// ---- Integer sRGB plates ---------------------------------------------------------------------

void BlendBytes(uint8_t* plate, size_t channels, const uint8_t* flareArgb, size_t count, Blend blend) {
    const std::array<float, 256>& linear = LinearOfByte();
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* f = &flareArgb[i * 4 + 1];
        if ((f[0] | f[1] | f[2]) == 0) continue;
        uint8_t* p = &plate[i * channels];
        for (size_t c = 0; c < 3; ++c) {
            if (blend == Blend::display) {   // the plug-in's own saturating add, to the level
                p[c] = uint8_t(std::min(unsigned(p[c]) + unsigned(f[c]), 255u));
                continue;
            }
            const float level = BlendedLevel(blend, float(p[c]) / 255.0f, linear[p[c]], float(f[c]) / 255.0f);
            p[c] = uint8_t(Rounded(level, 255.0f));
        }
    }
}

void BlendShorts(uint16_t* plate, size_t channels, const uint16_t* flareRgb, size_t count, Blend blend) {
    for (size_t i = 0; i < count; ++i) {
        const uint16_t* f = &flareRgb[i * 3];
        if ((f[0] | f[1] | f[2]) == 0) continue;
        uint16_t* p = &plate[i * channels];
        for (size_t c = 0; c < 3; ++c) {
            if (f[c] == 0) continue;
            if (blend == Blend::display) {   // the plug-in's own saturating add on its 16320 scale
                const uint16_t before = ToPluginScale(p[c]);
                const auto sum = uint16_t(std::min<uint32_t>(uint32_t(before) + f[c], kFullChannel));
                p[c] = CompositeChannel(p[c], before, sum, [](uint16_t v) { return FromPluginScale16(v); });
                continue;
            }
            const float a = float(p[c]) / 65535.0f;
            const float level = BlendedLevel(blend, a, OIIO::sRGB_to_linear(a), FromPluginScaleFloat(f[c]));
            p[c] = uint16_t(Rounded(level, 65535.0f));
        }
    }
}

// ---- Float plates ----------------------------------------------------------------------------

// The conversions a blend needs: the plate's space to where the blend works and back, and the
// flare's levels into linear light for add. A conversion that is no change is left out.
struct LevelBlender::Processors {
    OIIO::ColorProcessorHandle toWork, fromWork, flareToLinear;
};

namespace {

void Apply(const OIIO::ColorProcessorHandle& processor, float* values, size_t count) {
    if (processor == nullptr || count == 0) return;
    processor->apply(values, int(count), 1, 3, sizeof(float), 3 * sizeof(float), OIIO::AutoStride);
}

}  // namespace

LevelBlender::LevelBlender(const std::string& space, engine::Blend blend) : processors_(new Processors), blend_(blend) {
    std::unique_ptr<Processors> owned(processors_);
    const std::string work = blend == Blend::add ? kLinearSpace : kDisplaySpace;
    processors_->toWork = UnlessNoOp(ColourProcessor(space, work));
    processors_->fromWork = UnlessNoOp(ColourProcessor(work, space));
    if (blend == Blend::add) processors_->flareToLinear = UnlessNoOp(ColourProcessor(kDisplaySpace, kLinearSpace));
    owned.release();
}

LevelBlender::~LevelBlender() { delete processors_; }

// The pixels the flare reaches are gathered into packed RGB (so that any layout converts the same
// way; the others are left alone) and taken to where the blend works; the blend and the plate's
// own value there (display blends: up to white) are both taken back, and the plate gains the
// difference. So a plate's value is never put through a round trip of conversions, which need not
// be exact, and the flare can only add.
void LevelBlender::Blend(float* plate, size_t channels, const float* levels, size_t count) {
    reached_.clear();
    for (size_t i = 0; i < count; ++i) {
        const float* f = &levels[i * 3];
        if (f[0] != 0.0f || f[1] != 0.0f || f[2] != 0.0f) reached_.push_back(i);
    }
    const size_t n = reached_.size();
    scratch_.resize(n * 9);
    float* blended = scratch_.data();
    float* base = blended + n * 3;
    float* flare = base + n * 3;
    for (size_t k = 0; k < n; ++k)
        for (size_t c = 0; c < 3; ++c)
            blended[k * 3 + c] = plate[reached_[k] * channels + c], flare[k * 3 + c] = levels[reached_[k] * 3 + c];
    Apply(processors_->toWork, blended, n);
    Apply(processors_->flareToLinear, flare, n);
    for (size_t i = 0; i < n * 3; ++i) {
        base[i] = blend_ == Blend::add ? blended[i] : std::min(blended[i], 1.0f);
        blended[i] = blend_ == Blend::add ? base[i] + flare[i] : DisplayRule(blend_, base[i], flare[i]);
    }
    Apply(processors_->fromWork, blended, n);
    Apply(processors_->fromWork, base, n);
    for (size_t k = 0; k < n; ++k)
        for (size_t c = 0; c < 3; ++c)
            plate[reached_[k] * channels + c] += std::max(blended[k * 3 + c] - base[k * 3 + c], 0.0f);
}

}  // namespace vellux::engine
