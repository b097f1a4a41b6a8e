// The frei0r filter loaded as a host loads it (dlopen, RTLD_LOCAL): its description and the
// editor's, the slider mapping, its pixels against the engine's, instances on several threads,
// and bad values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine/lens_look.h"
#include "engine/setting_names.h"
#include "frei0r/filter_params.h"
#include "tests/frei0r/filter_support.h"

namespace {

using namespace vellux;
using test::EnginesComposite;
using test::Frame;
using test::Render;
using test::SetDouble;
using test::TheFilter;

// A name in words, as an editor shows it: "flare-intensity" is "Flare intensity".
std::string Words(std::string name) {
    for (char& c : name)
        if (c == '-') c = ' ';
    name[0] = char(std::toupper(static_cast<unsigned char>(name[0])));
    return name;
}

std::string CommandOutput(const std::string& command) {
    std::string output;
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((command + " 2>&1").c_str(), "r"), pclose);
    for (int c; pipe && (c = std::fgetc(pipe.get())) != EOF;) output += char(c);
    return output;
}

std::string ToolOutput(const std::string& arguments) { return CommandOutput("'" VELLUX_TOOL_PATH "' " + arguments); }

// A host loading the filter loads the engine's core, not the image library and the libraries it
// brings (a third of a second in ffmpeg): those come with the image side, beside the engine, when
// a lens look, a blend or following a light first needs them (the tests below use all three).
TEST(Frei0rFilter, LoadsWithoutTheImageLibrary) {
    const std::string filter = CommandOutput("ldd '" VELLUX_FREI0R_PATH "'");
    EXPECT_NE(filter.find("libvellux_engine_core.so"), std::string::npos) << filter;
    EXPECT_EQ(filter.find("OpenImageIO"), std::string::npos) << filter;
    EXPECT_EQ(filter.find("opencv"), std::string::npos) << filter;
    const std::string side = CommandOutput("ldd '" VELLUX_FREI0R_DIR "/../libvellux_frei0r_images.so'");
    EXPECT_NE(side.find("libOpenImageIO"), std::string::npos) << side;
    EXPECT_EQ(side.find("not found"), std::string::npos) << side;
}

// The flare's settings are parameters under their own names, with their meanings as
// explanations; the light's parameters are the tool's options; every name is its own.
TEST(Frei0rFilter, ParametersAreTheSettingsAndTheToolsOptionsByName) {
    const test::Filter& filter = TheFilter();
    ASSERT_NE(filter.library, nullptr) << dlerror();
    f0r_plugin_info_t info{};
    filter.info(&info);
    EXPECT_EQ(info.plugin_type, F0R_PLUGIN_TYPE_FILTER);
    EXPECT_EQ(info.color_model, F0R_COLOR_MODEL_RGBA8888);
    ASSERT_EQ(info.num_params, frei0r::kParamCount);
    const std::string toolHelp = ToolOutput("render --help");
    // Not options of the tool: its --light-fraction X,Y split for hosts that pass numbers only, and
    // the flare on transparent black (the tool writes a pass, a file of its own), and following the
    // brightest light as frames come (the tool tracks a whole shot first).
    const std::set<std::string> notOptions = {"light-fraction-x", "light-fraction-y", "flare-only", "follow-brightest-light"};
    std::set<std::string> names;
    for (int i = 0; i < info.num_params; ++i) {
        const f0r_param_info_t param = filter.Param(i);
        SCOPED_TRACE(param.name);
        EXPECT_TRUE(names.insert(param.name).second);
        EXPECT_GT(std::string(param.explanation).size(), 10u);
        if (const engine::SettingName* setting = engine::FindSetting(param.name)) {
            EXPECT_EQ(param.explanation, setting->meaning);
            const int type = setting->kind == engine::SettingKind::onOff   ? F0R_PARAM_BOOL
                             : setting->kind == engine::SettingKind::color ? F0R_PARAM_COLOR
                                                                           : F0R_PARAM_DOUBLE;
            EXPECT_EQ(param.type, type);
        } else if (!notOptions.contains(param.name)) {
            EXPECT_NE(toolHelp.find("--" + std::string(param.name) + " "), std::string::npos) << toolHelp;
        }
    }
}

// ---- The Kdenlive description ----

struct Described {
    std::map<std::string, std::string> attributes;
    std::string label, comment;
    std::string Attribute(const std::string& key, const std::string& otherwise = "") const {
        const auto found = attributes.find(key);
        return found == attributes.end() ? otherwise : found->second;
    }
};

std::string Unescaped(std::string text) {
    for (const auto& [entity, character] : {std::pair{"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}})
        for (size_t at = 0; (at = text.find(entity, at)) != std::string::npos; ++at) text.replace(at, std::strlen(entity), character);
    return text;
}

std::vector<Described> KdenliveParameters() {
    std::ifstream file(VELLUX_KDENLIVE_XML);
    const std::string xml((std::istreambuf_iterator<char>(file)), {});
    const std::regex parameter(R"re(<parameter ([^>]*)>([\s\S]*?)</parameter>)re"), attribute(R"re((\w+)="([^"]*)")re"),
        label(R"re(<name>([^<]*)</name>)re"), comment(R"re(<comment>([^<]*)</comment>)re");
    std::vector<Described> described;
    for (std::sregex_iterator it(xml.begin(), xml.end(), parameter), end; it != end; ++it) {
        Described d;
        const std::string attributes = (*it)[1], body = (*it)[2];
        for (std::sregex_iterator a(attributes.begin(), attributes.end(), attribute); a != end; ++a)
            d.attributes[(*a)[1]] = Unescaped((*a)[2]);
        std::smatch found;
        if (std::regex_search(body, found, label)) d.label = Unescaped(found[1]);
        if (std::regex_search(body, found, comment)) d.comment = Unescaped(found[1]);
        described.push_back(std::move(d));
    }
    return described;
}

// A number parameter's value in its own unit, as the flare gets it.
double UnitOf(const frei0r::FilterSettings& s, const std::string& name) {
    if (const engine::SettingName* setting = engine::FindSetting(name)) {
        const engine::SettingValue value = *engine::EditOf(*setting, s.edits);
        if (const double* number = std::get_if<double>(&value)) return *number;
        return std::get<int32_t>(value);
    }
    static const std::map<std::string, double (*)(const frei0r::FilterSettings&)> light = {
        {"light-fraction-x", [](const frei0r::FilterSettings& s) { return s.lightX; }},
        {"light-fraction-y", [](const frei0r::FilterSettings& s) { return s.lightY; }},
        {"intensity", [](const frei0r::FilterSettings& s) { return s.lightIntensity; }},
        {"radius", [](const frei0r::FilterSettings& s) { return s.lightRadius; }},
        {"f-number", [](const frei0r::FilterSettings& s) { return s.fNumber; }},
        {"blades", [](const frei0r::FilterSettings& s) { return double(s.blades); }},
    };
    return light.at(name)(s);
}

double UnitAt(int index, const std::string& name, double slider) {
    frei0r::FilterSettings settings;
    frei0r::SetParam(settings, index, &slider);
    return UnitOf(settings, name);
}

// Kdenlive lists every parameter MLT can pass (all but the position) under the filter's own name,
// labelled with it in words and explained as the filter explains it; a number shows in its own
// unit (Kdenlive's factor and offset are the filter's slider mapping, its range the slider's ends),
// and every default is the filter's.
TEST(Frei0rFilter, TheKdenliveDescriptionShowsEachParameterByItsNameInItsUnit) {
    const test::Filter& filter = TheFilter();
    std::set<std::string> names, described;
    for (int i = 0; i < filter.ParamCount(); ++i) names.insert(filter.Param(i).name);
    names.erase("light-fraction");
    const frei0r::FilterSettings defaults;
    for (const Described& d : KdenliveParameters()) {
        const std::string name = d.Attribute("name");
        SCOPED_TRACE(name);
        described.insert(name);
        const int index = filter.Index(name);
        ASSERT_GE(index, 0);
        const f0r_param_info_t param = filter.Param(index);
        EXPECT_EQ(d.label, name == "follow-brightest-light" ? "Follow the brightest light" : Words(name));
        EXPECT_EQ(d.comment, param.explanation);
        const std::string type = d.Attribute("type"), value = d.Attribute("default");
        switch (param.type) {
        case F0R_PARAM_DOUBLE: {
            ASSERT_EQ(type, "animated");
            double slider = -1.0;
            frei0r::GetParam(defaults, index, &slider);
            EXPECT_NEAR(std::stod(value), slider, 1e-6);
            const double factor = std::stod(d.Attribute("factor", "1")), offset = std::stod(d.Attribute("offset", "0"));
            const bool place = !d.attributes.contains("factor");   // a place on the frame: no slider
            EXPECT_DOUBLE_EQ(UnitAt(index, name, 0.5), 0.5 * factor + offset);
            EXPECT_DOUBLE_EQ(UnitAt(index, name, place ? -1.0 : 0.0), std::stod(d.Attribute("min")));
            EXPECT_DOUBLE_EQ(UnitAt(index, name, place ? 2.0 : 1.0), std::stod(d.Attribute("max")));
            break;
        }
        case F0R_PARAM_BOOL: {
            ASSERT_EQ(type, "bool");
            double on = -1.0;
            frei0r::GetParam(defaults, index, &on);
            EXPECT_EQ(std::stod(value), on);
            break;
        }
        case F0R_PARAM_COLOR: {
            ASSERT_EQ(type, "color");
            f0r_param_color_t colour{};
            frei0r::GetParam(defaults, index, &colour);
            char expected[16];
            std::snprintf(expected, sizeof(expected), "0x%02x%02x%02xff", int(std::lround(colour.r * 255)),
                          int(std::lround(colour.g * 255)), int(std::lround(colour.b * 255)));
            EXPECT_EQ(value, expected);
            break;
        }
        case F0R_PARAM_STRING: {
            ASSERT_TRUE(type == "list" || type == "url") << type;
            const char* text = nullptr;
            frei0r::GetParam(defaults, index, &text);
            EXPECT_EQ(value, text);
            const std::string list = d.Attribute("paramlist");
            for (size_t from = 0; type == "list" && from <= list.size();) {
                const size_t to = std::min(list.find(';', from), list.size());
                const std::string choice = list.substr(from, to - from);
                from = to + 1;
                if (name == "lens" && !choice.empty()) EXPECT_NO_THROW(engine::FindLens(choice)) << choice;
                frei0r::FilterSettings settings;
                const char* chosen = choice.c_str();
                EXPECT_EQ(frei0r::SetParam(settings, index, &chosen), "") << choice;
            }
            break;
        }
        default: ADD_FAILURE() << "a parameter of type " << param.type;
        }
    }
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

// The engine's composite with the light at (0.4, 0.3) of the frame, as the filter's tests place it.
std::vector<uint32_t> EnginesComposite(const engine::FlareSetup& setup, int w, int h, const std::vector<uint32_t>& in,
                                       engine::Blend blend) {
    engine::FlareLight light;
    light.x = 0.4 * w, light.y = 0.3 * h;
    return test::EnginesComposite(setup, w, h, in, light, blend);
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
        const test::Filter& filter = TheFilter();
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
// alpha kept: each blend, in place and not; an f-number wider than the lens opens takes its
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
    const std::string wider = "f-number: f/1 is wider than";
    for (const Case& c : {Case{160, 90, false, engine::Blend::display, 1.0 / 3.0, 0.375, LensLook(8.0, 6), ""},
                          Case{161, 91, true, engine::Blend::screen, 1.0 / 3.0, 0.0, LensLook(8.0, 0), ""},
                          Case{120, 80, false, engine::Blend::add, 0.0, 0.0625, LensLook(widest, 3), "blades: 1 is not a blade count"}}) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << (c.inPlace ? " in place " : " ") << engine::BlendName(c.blend)
                                        << ", f/" << *c.expected.fNumber << ", " << *c.expected.blades << " blades");
        const test::Filter& filter = TheFilter();
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
    const test::Filter& filter = TheFilter();
    const std::vector<uint32_t> in = Frame(w, h);
    f0r_instance_t plain = filter.construct(w, h);
    const std::vector<uint32_t> tableLook = Render(plain, in);
    filter.destruct(plain);
    for (const auto& [lens, message] : {std::pair{"double-gauss-5mm", "lens: no lens named 'double-gauss-5mm'; did you mean 'double-gauss-50mm'?"},
                                        std::pair{"/nonexistent/lens.json", "lens: /nonexistent/lens.json: no such lens file"}}) {
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
        EXPECT_EQ(messages.find("lens:"), messages.rfind("lens:")) << messages;   // once
        EXPECT_EQ(first, tableLook);
        EXPECT_EQ(second, tableLook);
    }
}

// Dissolve fades the flare over a frame: no channel below the input's, none brighter than with a
// smaller dissolve, the frame itself at 1.
TEST(Frei0rFilter, DissolveFadesTheFlareAndNeverDarkensTheFrame) {
    constexpr int w = 200, h = 120;
    const test::Filter& filter = TheFilter();
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
    const test::Filter& filter = TheFilter();
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
    const test::Filter& filter = TheFilter();
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
    for (const char* message : {"flare-intensity: nan is not a number; ignored", "dissolve: -3 is outside 0..1; clamped",
                                "table: /nonexistent/table.rsc: no such flare table file; the default table is used",
                                "blend: 'multiply' is not a blend mode (display, add, screen); display is used"})
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
        const test::Filter& filter = TheFilter();
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
