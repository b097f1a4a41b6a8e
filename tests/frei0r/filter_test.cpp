// The frei0r filter loaded as a host loads it (dlopen, RTLD_LOCAL): its description, the slider
// mapping, its pixels against the engine's, instances on several threads, and bad values.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "engine/flare.h"
#include "engine/lens_look.h"
#include "frei0r/filter_params.h"

namespace {

using namespace vellux;

// The filter's entry points, looked up as a host does.
struct Filter {
    void* library = dlopen(VELLUX_FREI0R_PATH, RTLD_NOW | RTLD_LOCAL);
    template <typename F>
    F Get(const char* name) const { return reinterpret_cast<F>(dlsym(library, name)); }
    decltype(&f0r_get_plugin_info) info = Get<decltype(&f0r_get_plugin_info)>("f0r_get_plugin_info");
    decltype(&f0r_get_param_info) paramInfo = Get<decltype(&f0r_get_param_info)>("f0r_get_param_info");
    decltype(&f0r_construct) construct = Get<decltype(&f0r_construct)>("f0r_construct");
    decltype(&f0r_destruct) destruct = Get<decltype(&f0r_destruct)>("f0r_destruct");
    decltype(&f0r_set_param_value) set = Get<decltype(&f0r_set_param_value)>("f0r_set_param_value");
    decltype(&f0r_get_param_value) get = Get<decltype(&f0r_get_param_value)>("f0r_get_param_value");
    decltype(&f0r_update) update = Get<decltype(&f0r_update)>("f0r_update");
};

const Filter& TheFilter() {
    static const Filter filter;
    return filter;
}

// A busy RGBA frame with an alpha that varies.
std::vector<uint32_t> Frame(int width, int height) {
    std::vector<uint32_t> frame(size_t(width) * size_t(height));
    auto* bytes = reinterpret_cast<uint8_t*>(frame.data());
    for (size_t i = 0; i < frame.size() * 4; ++i) bytes[i] = uint8_t((i * 2654435761u >> 7) % 120 + (i % 4 == 3 ? 130 : 0));
    return frame;
}

std::vector<uint32_t> Render(f0r_instance_t instance, const std::vector<uint32_t>& in) {
    std::vector<uint32_t> out(in.size());
    TheFilter().update(instance, 0.0, in.data(), out.data());
    return out;
}

void SetDouble(f0r_instance_t instance, int index, double value) { TheFilter().set(instance, &value, index); }

TEST(Frei0rFilter, DescribesAFilterWithNamedParametersAndKdenliveKnowsThemAll) {
    const Filter& filter = TheFilter();
    ASSERT_NE(filter.library, nullptr) << dlerror();
    f0r_plugin_info_t info{};
    filter.info(&info);
    EXPECT_EQ(info.plugin_type, F0R_PLUGIN_TYPE_FILTER);
    EXPECT_EQ(info.color_model, F0R_COLOR_MODEL_RGBA8888);
    ASSERT_EQ(info.num_params, frei0r::kParamCount);
    std::set<std::string> names;
    for (int i = 0; i < info.num_params; ++i) {
        f0r_param_info_t param{};
        filter.paramInfo(&param, i);
        EXPECT_GT(std::string(param.explanation).size(), 10u) << param.name;
        names.insert(param.name);
    }
    EXPECT_EQ(names.size(), size_t(info.num_params));   // every name its own

    // The editor's description names every parameter MLT can set: all but the position.
    std::ifstream file(VELLUX_KDENLIVE_XML);
    const std::string xml((std::istreambuf_iterator<char>(file)), {});
    std::set<std::string> described;
    const std::regex parameter(R"re(<parameter [^>]*name="([^"]+)")re");
    for (std::sregex_iterator it(xml.begin(), xml.end(), parameter), end; it != end; ++it) described.insert((*it)[1]);
    names.erase("Light position");
    EXPECT_EQ(described, names);
}

// Slider values come back as they were set, and map onto the settings as documented.
TEST(Frei0rFilter, SlidersMapOntoTheSettingsAndBack) {
    const struct {
        int index;
        double slider;
        double setting;   // what the flare gets
        double (*read)(const frei0r::FilterSettings&);
    } cases[] = {
        {2, 0.25, 1.0, [](const frei0r::FilterSettings& s) { return s.lightIntensity; }},
        {4, 0.25, 0.5, [](const frei0r::FilterSettings& s) { return *s.edits.flareIntensity; }},
        {6, 0.22, 0.22, [](const frei0r::FilterSettings& s) { return *s.edits.ringSize; }},
        {6, 0.0, 0.001, [](const frei0r::FilterSettings& s) { return *s.edits.ringSize; }},
        {8, 0.44, 4.0, [](const frei0r::FilterSettings& s) { return double(*s.edits.starFilter); }},
        {9, 0.5, 180.0, [](const frei0r::FilterSettings& s) { return *s.edits.starRotation; }},
        {13, 0.0, 1.0, [](const frei0r::FilterSettings& s) { return *s.edits.anamorphicFactor; }},
        {24, 0.5, 0.5, [](const frei0r::FilterSettings& s) { return s.lightX; }},
        {25, 0.0, 0.0, [](const frei0r::FilterSettings& s) { return s.lightY; }},
        {25, -0.4, -0.4, [](const frei0r::FilterSettings& s) { return s.lightY; }},   // off the frame: not clamped
        {24, 1.7, 1.7, [](const frei0r::FilterSettings& s) { return s.lightX; }},
        {28, 1.0 / 3.0, 8.0, [](const frei0r::FilterSettings& s) { return s.fNumber; }},
        {28, 1.0, 22.0, [](const frei0r::FilterSettings& s) { return s.fNumber; }},
        {29, 0.375, 6.0, [](const frei0r::FilterSettings& s) { return double(s.blades); }},
        {29, 0.0, 0.0, [](const frei0r::FilterSettings& s) { return double(s.blades); }},
    };
    for (const auto& c : cases) {
        frei0r::FilterSettings settings;
        EXPECT_EQ(frei0r::SetParam(settings, c.index, &c.slider), "");
        EXPECT_DOUBLE_EQ(c.read(settings), c.setting) << c.index;
        double back = -1.0;
        frei0r::GetParam(settings, c.index, &back);
        if (c.index != 6 || c.slider > 0.0) {
            EXPECT_NEAR(back, c.index == 8 ? 0.4 : c.slider, 1e-12) << c.index;   // the star filter is whole
        }
    }
    frei0r::FilterSettings settings;
    const f0r_param_position_t at{0.7, -0.2};
    frei0r::SetParam(settings, 0, &at);
    EXPECT_EQ(frei0r::LightOn(settings, 200, 100).x, 140.0);
    EXPECT_EQ(frei0r::LightOn(settings, 200, 100).y, -20.0);
    const double off = 0.0;
    frei0r::SetParam(settings, 16, &off);
    EXPECT_EQ(settings.edits.halo, false);
}

void SetBlend(f0r_instance_t instance, const char* name) { TheFilter().set(instance, &name, 26); }

// The engine's composite of an 8-bit RGBA frame with the flare `setup` makes (the test's plug-in),
// the light at (0.4, 0.3) of the frame.
std::vector<uint32_t> EnginesComposite(engine::FlareSetup setup, int w, int h, const std::vector<uint32_t>& in,
                                       engine::Blend blend) {
    OIIO::ImageBuf plate(OIIO::ImageSpec(w, h, 4, OIIO::TypeUInt8));
    plate.set_pixels(plate.roi(), OIIO::TypeUInt8, in.data());
    setup.plugin = VELLUX_PLUGIN_PATH;
    engine::Flare flare(setup);
    engine::FlareLight light;
    light.x = 0.4 * w, light.y = 0.3 * h;
    const OIIO::ImageBuf painted = flare.Composite(plate, light, {0, "", blend});
    std::vector<uint32_t> expected(in.size());
    painted.get_pixels(painted.roi(), OIIO::TypeUInt8, expected.data());
    return expected;
}

// An 8-bit frame gets exactly the engine's flare (the plug-in's 32-bit path, blended as asked),
// every alpha kept: into another buffer and in place, even and odd sizes, each blend, with and
// without a dissolve (the plug-in's own add without one is painted straight into the host's frame).
TEST(Frei0rFilter, PixelsAreTheEnginesAndAlphaIsKept) {
    struct Case {
        int w, h;
        bool inPlace;
        engine::Blend blend;
        double dissolve;
    };
    for (const Case c : {Case{160, 90, false, engine::Blend::display, 0.0}, Case{1001, 151, false, engine::Blend::display, 0.0},
                         Case{1001, 151, true, engine::Blend::display, 0.0}, Case{161, 91, true, engine::Blend::display, 0.5},
                         Case{160, 90, false, engine::Blend::add, 0.25}, Case{161, 91, true, engine::Blend::screen, 0.0}}) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << (c.inPlace ? " in place " : " ")
                                        << engine::BlendName(c.blend) << ", dissolve " << c.dissolve);
        const Filter& filter = TheFilter();
        f0r_instance_t instance = filter.construct(c.w, c.h);
        const f0r_param_position_t at{0.4, 0.3};
        filter.set(instance, const_cast<f0r_param_position_t*>(&at), 0);
        SetDouble(instance, 8, 0.6);   // star filter 6
        SetDouble(instance, 5, c.dissolve);
        SetBlend(instance, engine::BlendName(c.blend));
        const std::vector<uint32_t> in = Frame(c.w, c.h);
        std::vector<uint32_t> out = in;
        if (c.inPlace) filter.update(instance, 0.0, out.data(), out.data());
        else out = Render(instance, in);
        filter.destruct(instance);

        engine::FlareSetup setup;
        setup.edits.starFilter = 6;
        setup.edits.dissolve = c.dissolve;
        EXPECT_EQ(out, EnginesComposite(setup, c.w, c.h, in, c.blend));
        EXPECT_NE(out, in);
    }
}

void SetText(f0r_instance_t instance, int index, const char* text) { TheFilter().set(instance, &text, index); }

constexpr const char* kLens = "double-gauss-50mm";

// The lens look the engine makes of the same lens and aperture.
engine::LensLookOptions LensLook(double fNumber, int blades) {
    engine::LensLookOptions look;
    look.lens = kLens;
    look.fNumber = fNumber;
    look.blades = blades;
    return look;
}

// With a lens, an 8-bit frame gets exactly the engine's composite of the lens's own flare, every
// alpha kept: each blend, in place and not; an F-number wider than the lens opens takes its
// widest, and a blade count the iris cannot have takes 3, each said once.
TEST(Frei0rFilter, TheLensLookIsTheEnginesAndBadAperturesAreMended) {
    const double widest = engine::WidestFNumber(lens::ReadPrescription(engine::FindLens(kLens)));
    struct Case {
        int w, h;
        bool inPlace;
        engine::Blend blend;
        double fSlider, bladeSlider;
        engine::LensLookOptions expected;
        const char* message;   // what the filter says, once
    };
    const std::string wider = "F-number: f/1 is wider than";
    for (const Case& c : {Case{160, 90, false, engine::Blend::display, 1.0 / 3.0, 0.375, LensLook(8.0, 6), ""},
                          Case{161, 91, true, engine::Blend::screen, 1.0 / 3.0, 0.0, LensLook(8.0, 0), ""},
                          Case{120, 80, false, engine::Blend::add, 0.0, 0.0625, LensLook(widest, 3), "Blades: 1 is not a blade count"}}) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << (c.inPlace ? " in place " : " ") << engine::BlendName(c.blend)
                                        << ", f/" << *c.expected.fNumber << ", " << *c.expected.blades << " blades");
        const Filter& filter = TheFilter();
        f0r_instance_t instance = filter.construct(c.w, c.h);
        const f0r_param_position_t at{0.4, 0.3};
        filter.set(instance, const_cast<f0r_param_position_t*>(&at), 0);
        SetBlend(instance, engine::BlendName(c.blend));
        testing::internal::CaptureStderr();
        SetText(instance, 27, kLens);
        SetDouble(instance, 28, c.fSlider);
        SetDouble(instance, 29, c.bladeSlider);
        const std::vector<uint32_t> in = Frame(c.w, c.h);
        std::vector<uint32_t> out = in;
        if (c.inPlace) filter.update(instance, 0.0, out.data(), out.data());
        else out = Render(instance, in);
        EXPECT_EQ(Render(instance, in), out);   // the flare kept from frame to frame paints the same
        const std::string messages = testing::internal::GetCapturedStderr();
        filter.destruct(instance);

        engine::FlareSetup setup;
        setup.lens = c.expected;
        EXPECT_EQ(out, EnginesComposite(setup, c.w, c.h, in, c.blend));
        EXPECT_NE(out, in);
        const bool clamped = c.fSlider == 0.0;
        EXPECT_EQ(messages.find(wider) != std::string::npos, clamped) << messages;
        EXPECT_EQ(messages.find(wider), messages.rfind(wider)) << messages;   // once
        EXPECT_NE(messages.find(c.message), std::string::npos) << messages;
    }
}

// A lens that cannot be loaded is said once, and the table's look painted in its place.
TEST(Frei0rFilter, ALensThatCannotBeLoadedLeavesTheTablesLook) {
    constexpr int w = 96, h = 64;
    const Filter& filter = TheFilter();
    const std::vector<uint32_t> in = Frame(w, h);
    f0r_instance_t plain = filter.construct(w, h);
    const std::vector<uint32_t> tableLook = Render(plain, in);
    filter.destruct(plain);
    for (const auto& [lens, message] : {std::pair{"double-gauss-5mm", "Lens: no lens named 'double-gauss-5mm'; did you mean 'double-gauss-50mm'?"},
                                        std::pair{"/nonexistent/lens.json", "Lens: /nonexistent/lens.json: no such lens file"}}) {
        f0r_instance_t instance = filter.construct(w, h);
        testing::internal::CaptureStderr();
        SetText(instance, 27, lens);
        const std::vector<uint32_t> first = Render(instance, in), second = Render(instance, in);
        const std::string messages = testing::internal::GetCapturedStderr();
        const char* back = nullptr;
        filter.get(instance, &back, 27);
        EXPECT_STREQ(back, lens);
        filter.destruct(instance);
        EXPECT_NE(messages.find(message), std::string::npos) << messages;
        EXPECT_NE(messages.find("the table's look is used"), std::string::npos) << messages;
        EXPECT_EQ(messages.find("Lens:"), messages.rfind("Lens:")) << messages;   // once
        EXPECT_EQ(first, tableLook);
        EXPECT_EQ(second, tableLook);
    }
}

// Dissolve fades the flare over a frame: no channel below the input's, none brighter than with a
// smaller dissolve, the frame itself at 1.
TEST(Frei0rFilter, DissolveFadesTheFlareAndNeverDarkensTheFrame) {
    constexpr int w = 200, h = 120;
    const Filter& filter = TheFilter();
    std::vector<uint32_t> in = Frame(w, h);
    for (size_t i = 0; i < in.size(); i += 3) in[i] |= 0x00f0f0f0u;   // bright pixels, where a ceiling would show
    std::vector<uint32_t> previous;
    for (const double dissolve : {0.0, 0.25, 0.5, 0.75, 1.0}) {
        f0r_instance_t instance = filter.construct(w, h);
        SetDouble(instance, 5, dissolve);
        const std::vector<uint32_t> out = Render(instance, in);
        filter.destruct(instance);
        size_t darkened = 0, risen = 0;
        for (size_t i = 0; i < in.size() * 4; ++i) {
            const auto byte = [i](const std::vector<uint32_t>& frame) { return reinterpret_cast<const uint8_t*>(frame.data())[i]; };
            darkened += byte(out) < byte(in);
            if (!previous.empty()) risen += byte(out) > byte(previous);
        }
        EXPECT_EQ(darkened, 0u) << "dissolve " << dissolve;
        EXPECT_EQ(risen, 0u) << "dissolve " << dissolve;
        if (dissolve == 1.0) EXPECT_EQ(out, in);
        else EXPECT_NE(out, in);
        previous = out;
    }
}

// Instances on threads at once give what they give one after the other.
TEST(Frei0rFilter, InstancesOnSeveralThreadsRenderAsAlone) {
    constexpr int w = 120, h = 68, kFrames = 3;
    const Filter& filter = TheFilter();
    const std::vector<uint32_t> in = Frame(w, h);
    const auto run = [&](int which, std::vector<std::vector<uint32_t>>& frames) {
        f0r_instance_t instance = filter.construct(w, h);
        SetDouble(instance, 8, which == 0 ? 0.4 : 0.8);
        for (int f = 0; f < kFrames; ++f) {
            SetDouble(instance, 24, 0.35 + 0.05 * f + 0.1 * which);
            frames.push_back(Render(instance, in));
        }
        filter.destruct(instance);
    };
    std::vector<std::vector<uint32_t>> alone[2], together[2];
    run(0, alone[0]);
    run(1, alone[1]);
    std::thread first(run, 0, std::ref(together[0])), second(run, 1, std::ref(together[1]));
    first.join();
    second.join();
    EXPECT_EQ(together[0], alone[0]);
    EXPECT_EQ(together[1], alone[1]);
    EXPECT_NE(alone[0][0], alone[0][2]);   // the light moved
}

// Bad values: one message each, a defined fallback, and frames keep coming.
TEST(Frei0rFilter, BadValuesAreReportedOnceAndRenderingGoesOn) {
    constexpr int w = 64, h = 40;
    const Filter& filter = TheFilter();
    f0r_instance_t instance = filter.construct(w, h);
    const std::vector<uint32_t> in = Frame(w, h), good = Render(instance, in);
    testing::internal::CaptureStderr();
    SetDouble(instance, 4, NAN);
    SetDouble(instance, 4, NAN);
    SetDouble(instance, 5, -3.0);
    const char* table = "/nonexistent/table.rsc";
    filter.set(instance, &table, 23);
    SetBlend(instance, "multiply");
    const std::vector<uint32_t> first = Render(instance, in), second = Render(instance, in);
    const std::string messages = testing::internal::GetCapturedStderr();
    filter.destruct(instance);
    for (const char* message : {"Flare intensity: nan is not a number; ignored", "Dissolve: -3 is outside 0..1; clamped",
                                "Flare table: /nonexistent/table.rsc: no such flare table file; the default table is used",
                                "Blend: 'multiply' is not a blend mode (display, add, screen); display is used"})
        EXPECT_NE(messages.find(message), std::string::npos) << messages;
    EXPECT_EQ(messages.find("nan is not a number"), messages.rfind("nan is not a number"));   // once
    EXPECT_EQ(first, second);
    EXPECT_NE(first, in);
}

// Flare only: the flare alone, its brightest channel as a straight alpha; the table's look and a
// lens's.
TEST(Frei0rFilter, FlareOnlyGivesTheFlareOnTransparentBlack) {
    for (const char* lens : {"", kLens}) {
        SCOPED_TRACE(std::string("lens ") + lens);
        constexpr int w = 96, h = 54;
        const Filter& filter = TheFilter();
        f0r_instance_t instance = filter.construct(w, h);
        const double on = 1.0;
        filter.set(instance, const_cast<double*>(&on), 22);
        SetText(instance, 27, lens);
        const std::vector<uint32_t> out = Render(instance, Frame(w, h));
        filter.destruct(instance);
        size_t clear = 0, lit = 0;
        for (const uint32_t pixel : out) {
            const auto* rgba = reinterpret_cast<const uint8_t*>(&pixel);
            if (rgba[3] == 0) {
                EXPECT_EQ(pixel, 0u);
                ++clear;
                continue;
            }
            EXPECT_EQ(std::max({rgba[0], rgba[1], rgba[2]}), 255);   // unpremultiplied by the brightest
            ++lit;
        }
        EXPECT_GT(clear, 0u);
        EXPECT_GT(lit, size_t(w * h) / 4);
    }
}

}  // namespace
