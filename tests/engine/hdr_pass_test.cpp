// Exposure brackets: the flare's levels past the plug-in's ceiling, recovered from darker
// exposures painted by private copies of the plug-in with darkened tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "engine/flare.h"
#include "engine/hdr_pass.h"
#include "host/resource_services.h"

namespace {

using namespace vellux::engine;

constexpr FrameSize kSize{640, 360};

struct Look {
    const char* name;
    SettingEdits edits;
    double intensity;
};

// A frame painted at full exposure and its levels.
struct Levelled {
    std::vector<uint8_t> control;
    PluginPixels painted;
    std::vector<float> levels;
    uint16_t clip = 0;

    uint16_t Painted(size_t i, int c) const { return painted.Channel48(i, c); }
    bool Clipped(size_t i) const {
        return clip > 0 && std::max({Painted(i, 0), Painted(i, 1), Painted(i, 2)}) >= clip;
    }
    float Level(size_t i, int c) const { return levels[i * 3 + size_t(c)]; }
};

SettingEdits Edits(double flareIntensity, double dissolve = 0.0) {
    SettingEdits edits;
    edits.flareIntensity = flareIntensity;
    edits.dissolve = dissolve;
    return edits;
}

// Only elements whose brightness the light's intensity scales without changing their size: the
// halo and the reflections. The glows grow with the intensity, and so do the streaks.
SettingEdits LinearElements(double flareIntensity) {
    SettingEdits edits = Edits(flareIntensity);
    edits.glow = false;
    edits.randomStreaks = edits.anamorphicStreak = false;
    edits.starFilter = 0;
    edits.halo = edits.reflections = true;
    return edits;
}

FlareLight Light(double intensity) {
    FlareLight light;
    light.x = 400.0;
    light.y = 100.0;
    light.color = {255, 200, 120};   // each channel tints the halo differently
    light.intensity = intensity;
    return light;
}

class ExposureBracketsTest : public testing::Test {
protected:
    static void SetUpTestSuite() { vellux::host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR); }

    static FlareSetup Setup(const SettingEdits& edits) {
        FlareSetup setup;
        setup.plugin = VELLUX_PLUGIN_PATH;
        setup.edits = edits;
        return setup;
    }

    // One frame through a Flare and its brackets.
    static Levelled Render(const SettingEdits& edits, double intensity) {
        Flare flare(Setup(edits));
        ExposureBrackets brackets(Setup(edits));
        Levelled frame;
        frame.painted = PluginPixels(kSize.width, kSize.height, 48);
        RenderFrame(flare.instance(), Light(intensity), frame.painted, 0);
        frame.control = flare.host().controlData();
        frame.clip = ExposureBrackets::ClipLevel(frame.control);
        frame.levels.assign(size_t(kSize.width) * size_t(kSize.height) * 3, -1.0f);
        brackets.Levels(frame.control, Light(intensity), frame.painted, frame.levels.data());
        return frame;
    }
};

size_t Pixels() { return size_t(kSize.width) * size_t(kSize.height); }

// Below the ceiling the painted frame stands, bit for bit; it is replaced only where a darker
// exposure shows a table entry the plug-in clamped, and then only by a brighter level.
TEST_F(ExposureBracketsTest, BelowTheCeilingThePaintedLevelsStand) {
    const Look looks[] = {{"default", Edits(0.5), 1.0},
                          {"bright", Edits(2.0), 4.0},
                          {"bright and half dissolved", Edits(2.0, 0.5), 4.0}};
    for (const Look& look : looks) {
        SCOPED_TRACE(look.name);
        const Levelled frame = Render(look.edits, look.intensity);
        size_t below = 0, same = 0;
        for (size_t i = 0; i < Pixels(); ++i) {
            if (frame.Clipped(i)) continue;
            ++below;
            bool equal = true;
            for (int c = 0; c < 3; ++c) {
                const float painted = float(frame.Painted(i, c)) / float(kFullChannel);
                ASSERT_GE(frame.Level(i, c), painted) << i;
                equal = equal && frame.Level(i, c) == painted;
            }
            same += equal;
        }
        EXPECT_GE(double(same), 0.995 * double(below));
    }
    const Levelled dim = Render(LinearElements(2.0), 1.0);   // nothing clipped: nothing replaced
    for (size_t i = 0; i < Pixels() * 3; ++i)
        ASSERT_EQ(dim.levels[i], float(dim.painted.Channel48(i / 3, int(i % 3))) / float(kFullChannel)) << i;
}

TEST_F(ExposureBracketsTest, ABrightCoreGoesPastTheFullLevel) {
    const Levelled frame = Render(Edits(2.0), 4.0);
    size_t clipped = 0;
    float top = 0.0f;
    for (size_t i = 0; i < Pixels(); ++i) {
        for (int c = 0; c < 3; ++c) ASSERT_TRUE(std::isfinite(frame.Level(i, c))) << i;
        if (!frame.Clipped(i)) continue;
        ++clipped;
        const float level = std::max({frame.Level(i, 0), frame.Level(i, 1), frame.Level(i, 2)});
        EXPECT_GE(level, 0.99f * float(frame.clip) / float(kFullChannel)) << i;   // never darker than it clipped
        top = std::max(top, level);
    }
    EXPECT_GT(clipped, 1000u);
    EXPECT_GT(top, 2.0f);
}

// Levels that must be k times others: the halo and reflections at four times the light's
// intensity (the glows and streaks are off: they grow with the intensity rather than brighten),
// against the unclipped painted frame; and a half dissolve against none, levels recovered on both
// sides. Each within the exposures' quantisation, on both sides.
TEST_F(ExposureBracketsTest, LevelsScaleWithTheLightAndTheDissolve) {
    struct Case {
        const char* name;
        Look scaled, reference;
        double k;
        bool referencePainted;   // the reference is the painted frame, which must not clip
    };
    const Case cases[] = {
        {"light intensity", {"", LinearElements(2.0), 4.0}, {"", LinearElements(2.0), 1.0}, 4.0, true},
        {"dissolve", {"", Edits(2.0, 0.5), 4.0}, {"", Edits(2.0), 4.0}, 0.5, false},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        const Levelled scaled = Render(test.scaled.edits, test.scaled.intensity);
        const Levelled reference = Render(test.reference.edits, test.reference.intensity);
        size_t recovered = 0;
        for (size_t i = 0; i < Pixels(); ++i) {
            if (test.referencePainted) {
                ASSERT_FALSE(reference.Clipped(i)) << i;
            }
            recovered += scaled.Clipped(i);
            for (int c = 0; c < 3; ++c) {
                const double expected = test.k * double(reference.Level(i, c)) * kFullChannel;
                const double tolerance = 2.0 * ExposureBrackets::Tolerance(16, uint32_t(expected));
                ASSERT_NEAR(double(scaled.Level(i, c)) * kFullChannel, expected, tolerance) << i % 640 << "," << i / 640;
            }
        }
        EXPECT_GT(recovered, 500u);   // the comparison reaches past the ceiling
    }
}

// Each source of levels, the painted frame and the two exposures (rings x factor + streaks), agrees
// with the next darker one wherever neither clipped: a wrong darkening shows as a scale error.
TEST_F(ExposureBracketsTest, TheExposuresAgreeWhereNeitherClipped) {
    const SettingEdits edits = Edits(2.0);
    Flare flare(Setup(edits));
    ExposureBrackets brackets(Setup(edits));
    PluginPixels painted(kSize.width, kSize.height, 48);
    RenderFrame(flare.instance(), Light(4.0), painted, 0);
    const std::vector<uint8_t> control = flare.host().controlData();
    const uint16_t clip = ExposureBrackets::ClipLevel(control);
    const PluginPixels streaks = brackets.PaintStreaks(control, Light(4.0), kSize);
    const PluginPixels darker16 = brackets.PaintRings(0, control, Light(4.0), kSize);
    const PluginPixels& darker256 = brackets.PaintRings(1, control, Light(4.0), kSize);
    struct Source {
        const PluginPixels* frame;
        uint32_t factor;
        bool withStreaks;
    };
    const Source sources[] = {{&painted, 1, false}, {&darker16, 16, true}, {&darker256, 256, true}};
    for (size_t k = 0; k + 1 < std::size(sources); ++k) {
        const Source& finer = sources[k];
        const Source& darker = sources[k + 1];
        SCOPED_TRACE(darker.factor);
        const auto clipped = [clip](const PluginPixels& frame, size_t i) {
            return std::max({frame.Channel48(i, 0), frame.Channel48(i, 1), frame.Channel48(i, 2)}) >= clip;
        };
        const auto level = [&streaks](const Source& source, size_t i, int c) {
            return source.factor * source.frame->Channel48(i, c) + (source.withStreaks ? streaks.Channel48(i, c) : 0u);
        };
        size_t compared = 0;
        for (size_t i = 0; i < Pixels(); ++i) {
            if (clipped(*finer.frame, i) || clipped(*darker.frame, i)) continue;
            for (int c = 0; c < 3; ++c) {
                const uint32_t a = level(finer, i, c), b = level(darker, i, c);
                ASSERT_NEAR(double(a), double(b), double(ExposureBrackets::Tolerance(darker.factor, b))) << i << " " << c;
                compared += b > 4 * darker.factor;
            }
        }
        EXPECT_GT(compared, 10000u);
    }
}

}  // namespace
