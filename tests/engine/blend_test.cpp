// Blending the flare into a plate: each mode against values worked by hand, the proof that
// painting on black and adding is the plug-in's own painting of the plate, and the dissolve
// fading the flare on every kind of plate without ever touching the plate itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "engine/blend.h"
#include "engine/flare.h"
#include "engine/plugin_pixels.h"
#include "host/resource_services.h"

namespace {

using namespace vellux::engine;

// ---- The rules, by hand ----------------------------------------------------------------------
// sRGB: decode(x) = ((x + 0.055) / 1.055)^2.4 above 0.04045; encode is its inverse.

struct ByteCase {
    Blend blend;
    uint8_t plate, flare, expected;
};

TEST(BlendRules, EightBitPlatesByHand) {
    const ByteCase cases[] = {
        {Blend::display, 128, 64, 192},   // 128 + 64
        {Blend::display, 200, 100, 255},  // saturates, as the plug-in does
        {Blend::screen, 128, 64, 160},    // 0.502 + 0.251 x 0.498 = 0.627 -> 160
        {Blend::screen, 255, 200, 255},   // white stays white
        {Blend::add, 128, 64, 141},       // encode(decode(0.502) + decode(0.251)) = encode(0.216 + 0.051) -> 141.19
        {Blend::add, 0, 64, 64},          // on black every blend is the flare
        {Blend::screen, 0, 64, 64},
        {Blend::display, 90, 0, 90},      // no flare, no change
    };
    for (const ByteCase& c : cases) {
        uint8_t plate[4] = {c.plate, c.plate, c.plate, 77};
        const uint8_t flare[4] = {0, c.flare, c.flare, c.flare};
        BlendBytes(plate, 4, flare, 1, c.blend);
        EXPECT_EQ(plate[0], c.expected) << BlendName(c.blend) << " " << int(c.plate) << " + " << int(c.flare);
        EXPECT_EQ(plate[3], 77) << "alpha is not colour";
    }
}

TEST(BlendRules, SixteenBitDisplayIsThePluginsAddOnItsScale) {
    // 65534 is level 16320 already: a flare that adds nothing visible leaves the exact value.
    uint16_t plate[6] = {65534, 32768, 0, 100, 200, 300};
    const uint16_t flare[6] = {500, 1000, 16320, 0, 0, 0};
    BlendShorts(plate, 3, flare, 2, Blend::display);
    EXPECT_EQ(plate[0], 65534);
    EXPECT_EQ(plate[1], FromPluginScale16(uint16_t(ToPluginScale(uint16_t(32768)) + 1000)));
    EXPECT_EQ(plate[2], 65535);
    EXPECT_EQ(plate[3], 100);   // an untouched pixel keeps every channel
    uint16_t half[3] = {32768, 32768, 32768};
    const uint16_t quarter[3] = {8160, 8160, 8160};   // 0.5 of the full level
    BlendShorts(half, 3, quarter, 1, Blend::screen);
    EXPECT_NEAR(half[0], 0.75 * 65535.0, 1.0);          // 0.5 + 0.5 x 0.5
}

struct FloatCase {
    Blend blend;
    float plate, flare, expected;   // a linear plate, the flare's display level
};

TEST(BlendRules, LinearFloatPlatesByHand) {
    const FloatCase cases[] = {
        {Blend::add, 0.2f, 0.5f, 0.41404f},       // 0.2 + decode(0.5)
        {Blend::display, 0.2f, 0.5f, 0.96517f},   // decode(encode(0.2) + 0.5) = decode(0.4845 + 0.5)
        {Blend::screen, 0.2f, 0.5f, 0.51055f},    // decode(0.4845 + 0.5 x 0.5155)
        {Blend::add, 3.0f, 0.5f, 3.21404f},       // above white: light adds all the same
        {Blend::display, 3.0f, 0.5f, 4.53716f},   // above white: what the flare adds to white, 3 + decode(1.5) - 1
        {Blend::screen, 3.0f, 0.5f, 3.0f},        // screen never lifts white
        {Blend::display, 0.0f, 2.0f, 4.95385f},   // a recovered level above 1 goes on: decode(2)
        {Blend::add, 0.7f, 0.0f, 0.7f},
    };
    for (const FloatCase& c : cases) {
        LevelBlender blender(kLinearSpace, c.blend);
        float plate[4] = {c.plate, c.plate, c.plate, 0.25f};
        const float levels[3] = {c.flare, c.flare, c.flare};
        blender.Blend(plate, 4, levels, 1);
        EXPECT_NEAR(plate[0], c.expected, 2e-4f * std::max(1.0f, c.expected))
            << BlendName(c.blend) << " " << c.plate << " + " << c.flare;
        EXPECT_EQ(plate[3], 0.25f);
    }
}

TEST(BlendRules, ModesAreNamedAndAWrongNameSaysWhichThereAre) {
    for (const Blend blend : {Blend::display, Blend::add, Blend::screen})
        EXPECT_EQ(ParseBlend("--blend", BlendName(blend)), blend);
    try {
        ParseBlend("--blend", "multiply");
        FAIL() << "multiply was taken";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "--blend: 'multiply' is not a blend mode (display, add, screen)");
    }
}

// ---- Plates through a flare ------------------------------------------------------------------

constexpr int kWidth = 160, kHeight = 96;

// A plate that differs in every pixel and channel, with a quarter of it near white so that the
// flare saturates there, in `type`.
OIIO::ImageBuf BusyPlate(OIIO::TypeDesc type, int channels) {
    OIIO::ImageBuf image(OIIO::ImageSpec(kWidth, kHeight, channels, OIIO::TypeFloat));
    for (OIIO::ImageBuf::Iterator<float> p(image); !p.done(); ++p) {
        for (int c = 0; c < channels; ++c) {
            const float v = float((p.x() * 7 + p.y() * 13 + c * 29) % 97) / 97.0f;
            p[c] = p.x() > kWidth * 3 / 4 ? 0.9f + 0.1f * v : v * 0.8f;
        }
    }
    if (channels == 4) image.specmod().alpha_channel = 3;
    OIIO::ImageBuf typed = image.copy(type);
    typed.specmod().alpha_channel = image.spec().alpha_channel;
    return typed;
}

std::vector<float> FloatValues(const OIIO::ImageBuf& image) {
    std::vector<float> values(image.spec().image_pixels() * size_t(image.nchannels()));
    image.get_pixels(image.roi(), OIIO::TypeFloat, values.data());
    return values;
}

FlareLight TheLight() { return FlareLight{60.0, 40.0, {255, 230, 200}, 1.5, 0.0}; }

class BlendFlare : public testing::Test {
protected:
    static void SetUpTestSuite() { vellux::host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR); }

    static FlareSetup Setup(const std::function<void(SettingEdits&)>& edit) {
        FlareSetup setup;
        setup.plugin = VELLUX_PLUGIN_PATH;
        edit(setup.edits);
        return setup;
    }
    static FlareLight Light() { return TheLight(); }
};

// The plug-in painting straight into the plate's own pixels, as a host hands it a frame: the
// reference the composite must equal at dissolve 0 with the display blend.
OIIO::ImageBuf PaintedByThePlugin(Flare& flare, const OIIO::ImageBuf& plate) {
    const bool bytes = plate.spec().format == OIIO::TypeUInt8;
    const size_t count = size_t(kWidth) * kHeight, channels = size_t(plate.nchannels());
    PluginPixels pixels(kWidth, kHeight, bytes ? 32 : 48);
    OIIO::ImageBuf result = plate.copy(OIIO::TypeUnknown);
    if (bytes) {
        uint8_t* values = static_cast<uint8_t*>(result.localpixels());
        for (size_t i = 0; i < count; ++i) std::memcpy(&pixels.bytes[i * 4 + 1], &values[i * channels], 3);
        RenderFrame(flare.instance(), TheLight(), pixels, 0);
        for (size_t i = 0; i < count; ++i) std::memcpy(&values[i * channels], &pixels.bytes[i * 4 + 1], 3);
        return result;
    }
    uint16_t* values = static_cast<uint16_t*>(result.localpixels());
    for (size_t i = 0; i < count; ++i)
        for (int c = 0; c < 3; ++c) pixels.SetChannel48(i, c, ToPluginScale(values[i * channels + size_t(c)]));
    RenderFrame(flare.instance(), TheLight(), pixels, 0);
    for (size_t i = 0; i < count; ++i)
        for (int c = 0; c < 3; ++c) {
            uint16_t& value = values[i * channels + size_t(c)];
            value = CompositeChannel(value, ToPluginScale(value), pixels.Channel48(i, c),
                                     [](uint16_t p) { return FromPluginScale16(p); });
        }
    return result;
}

// Adding with saturation commutes with painting, and the 32-bit dither depends only on what is
// added: so the flare painted on black and added is the flare painted onto the plate, to the bit,
// for every look the golden renders pin.
TEST_F(BlendFlare, PaintedOnBlackAndAddedIsThePluginPaintingThePlate) {
    const std::pair<const char*, std::function<void(SettingEdits&)>> looks[] = {
        {"default", [](SettingEdits&) {}},
        {"star 4, anamorphic streak", [](SettingEdits& e) { e.starFilter = 4, e.anamorphicStreak = true; }},
        {"bright random streaks", [](SettingEdits& e) { e.streakIntensity = 1.5, e.starFilter = 8; }},
        {"twice the flare intensity", [](SettingEdits& e) { e.flareIntensity = 2.0; }},
    };
    for (const auto& [name, edit] : looks) {
        for (const OIIO::TypeDesc type : {OIIO::TypeUInt8, OIIO::TypeUInt16}) {
            for (const int channels : {3, 4}) {
                SCOPED_TRACE(std::string(name) + ", " + type.c_str() + ", " + std::to_string(channels) + " channels");
                const OIIO::ImageBuf plate = BusyPlate(type, channels);
                Flare reference(Setup(edit)), composite(Setup(edit));
                const OIIO::ImageBuf expected = PaintedByThePlugin(reference, plate);
                const OIIO::ImageBuf got = composite.Composite(plate, Light(), {});
                ASSERT_EQ(got.spec().format, type);
                EXPECT_EQ(FloatValues(got), FloatValues(expected));
            }
        }
    }
}

// Dissolve on 8-bit, 16-bit and float plates: the plate is never darkened, the flare only ever
// gets fainter as the dissolve grows, nothing is left of it at 1.
TEST_F(BlendFlare, DissolveFadesTheFlareAndNeverDarkensThePlate) {
    for (const OIIO::TypeDesc type : {OIIO::TypeUInt8, OIIO::TypeUInt16, OIIO::TypeFloat}) {
        for (const Blend blend : {Blend::display, Blend::add, Blend::screen}) {
            SCOPED_TRACE(std::string(type.c_str()) + ", " + BlendName(blend));
            const OIIO::ImageBuf plate = BusyPlate(type, 3);
            const std::vector<float> before = FloatValues(plate);
            std::vector<float> brighter;   // the last dissolve's picture
            for (const double dissolve : {0.0, 0.25, 0.5, 0.75, 1.0}) {
                Flare flare(Setup([&](SettingEdits& e) { e.dissolve = dissolve, e.starFilter = 4; }));
                const std::vector<float> after = FloatValues(flare.Composite(plate, Light(), {0, "", blend}));
                size_t darkened = 0, brightened = 0, risen = 0;
                for (size_t i = 0; i < after.size(); ++i) {
                    darkened += after[i] < before[i];
                    brightened += after[i] > before[i];
                    if (!brighter.empty()) risen += after[i] > brighter[i];
                }
                EXPECT_EQ(darkened, 0u) << "dissolve " << dissolve;
                EXPECT_EQ(risen, 0u) << "dissolve " << dissolve << " is brighter than the one before";
                if (dissolve < 1.0) EXPECT_GT(brightened, 100u) << "dissolve " << dissolve;
                else EXPECT_EQ(after, before) << "something is left at dissolve 1";
                brighter = after;
            }
        }
    }
}

}  // namespace
