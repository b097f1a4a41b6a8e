// The GIMP plug-in in GIMP itself, headless: Script-Fu batch runs of plug-in-vellux-flare on
// plates made for the tests, against `vellux render` of the same plates and settings. GIMP must be
// installed (scripts/install-test-hosts.sh installs it); a missing GIMP fails the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "gimp/gimp_batch.h"

namespace {

namespace fs = std::filesystem;
using vellux::test::GimpBatch;
using vellux::test::Pixels;
using vellux::test::Quoted;
using vellux::test::ReadPixels;

constexpr int kWidth = 320, kHeight = 200;

// One run of the procedure, and what `vellux render` is told for it.
struct FlareCall {
    double x = 0.0, y = 0.0;
    int red = 255, green = 255, blue = 255;
    double intensity = 1.0;
    std::string table = {}, settings = {}, blend = {};
};

std::string ScriptCall(const std::string& image, const FlareCall& c, bool flareOnly, const char* mode = nullptr) {
    std::ostringstream call;
    call << "(vellux-flare " << image << " " << c.x << " " << c.y << " '(" << c.red << " " << c.green << " " << c.blue
         << ") " << c.intensity << " " << Quoted(c.table) << " " << Quoted(c.settings) << " " << Quoted(c.blend) << " "
         << (flareOnly ? "TRUE" : "FALSE") << (mode ? std::string(" ") + mode : "") << ")";
    return call.str();
}

// "ring-size=1.5 halo=off" as the tool's options.
std::string ToolOptions(const FlareCall& c) {
    std::ostringstream options;
    options << " --light " << c.x << "," << c.y << " --color " << c.red << "," << c.green << "," << c.blue
            << " --intensity " << c.intensity;
    if (!c.table.empty()) options << " --table " << c.table;
    if (!c.blend.empty()) options << " --blend " << c.blend;
    std::istringstream settings(c.settings);
    for (std::string pair; settings >> pair;) {
        const size_t equals = pair.find('=');
        options << " --" << pair.substr(0, equals) << " " << pair.substr(equals + 1);
    }
    return options.str();
}

// How many values differ, and the largest difference.
struct Difference {
    size_t count = 0;
    float largest = 0.0f;
};

Difference Compare(const Pixels& a, const Pixels& b, int channels) {
    Difference d;
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x)
            for (int c = 0; c < channels; ++c) {
                const float e = std::fabs(a.at(x, y, c) - b.at(x, y, c));
                if (e > 0.0f) ++d.count, d.largest = std::max(d.largest, e);
            }
    return d;
}

bool SameSize(const Pixels& a, const Pixels& b) {
    return a.width == b.width && a.height == b.height && a.width > 0 && a.channels == b.channels;
}

class GimpPlugin : public testing::Test {
protected:
    static void SetUpTestSuite() {
        gimp_ = std::make_unique<GimpBatch>(VELLUX_GIMP, VELLUX_GIMP_PLUGIN);
        using OIIO::TypeDesc;
        vellux::test::WritePlate(Path("plate8.png"), kWidth, kHeight, 3, TypeDesc::UINT8);
        vellux::test::WritePlate(Path("plate8a.png"), kWidth, kHeight, 4, TypeDesc::UINT8);
        vellux::test::WritePlate(Path("plate16.png"), kWidth, kHeight, 3, TypeDesc::UINT16);
        vellux::test::WritePlate(Path("platef.exr"), kWidth, kHeight, 3, TypeDesc::FLOAT);
    }
    static void TearDownTestSuite() { gimp_.reset(); }

    static fs::path Path(const std::string& name) { return *gimp_ / name; }
    static std::string Scheme(const std::string& name) { return Quoted(Path(name).string()); }

    // `vellux render` of a plate in the test folder.
    static void Render(const std::string& plate, const FlareCall& call, const std::string& output) {
        const std::string command = "'" VELLUX_TOOL_PATH "' render -q -i '" + Path(plate).string() + "' -o '" +
                                    Path(output).string() + "'" + ToolOptions(call);
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    }

    // GIMP run with `expressions`; fails the test with GIMP's log when it did not end well.
    static void RunGimp(const std::vector<std::string>& expressions) {
        ASSERT_EQ(gimp_->Run(expressions), 0) << gimp_->log();
    }

    static std::unique_ptr<GimpBatch> gimp_;
};

std::unique_ptr<GimpBatch> GimpPlugin::gimp_;

// Every precision path: the 8-bit and 16-bit sRGB plates through the plug-in's own pixels, the
// linear float plate through the float levels; an alpha kept; a table, settings, colour and blend
// taken as the tool takes them; a with-last-values run repeating the run before it.
TEST_F(GimpPlugin, GivesTheToolsPixels) {
    struct Case {
        const char* name;
        const char* plate;
        const char* exported;   // what GIMP saves it as: PNG keeps 8 and 16 bits, TIFF floats
        FlareCall call;
        int channels;
    };
    const FlareCall styled{250, 40, 255, 200, 150, 0.8, "LongZoom", "ring-size=1.5 star-filter=6 halo=off", "screen"};
    const std::vector<Case> cases = {
        {"8-bit sRGB", "plate8.png", "png", {100, 70}, 3},
        {"8-bit sRGB with alpha, a table, settings, screen", "plate8a.png", "png", styled, 4},
        {"16-bit sRGB", "plate16.png", "png", {60, 150, 255, 255, 255, 1.2, "", "streak-density=2", ""}, 3},
        {"32-bit float linear, add", "platef.exr", "tif", {100, 70, 255, 255, 255, 1.0, "CleanPrime", "", "add"}, 3},
    };
    std::vector<std::string> script;
    for (size_t i = 0; i < cases.size(); ++i) {
        const std::string gimp = "gimp" + std::to_string(i) + "." + cases[i].exported;
        script.push_back("(let ((image (vellux-load " + Scheme(cases[i].plate) + "))) " +
                         ScriptCall("image", cases[i].call, false) + " (vellux-save image (vellux-active image) " +
                         Scheme(gimp) + "))");
    }
    // With the last values: the last call's arguments, whatever this call's are.
    script.push_back("(let ((image (vellux-load " + Scheme("plate8.png") + "))) " +
                     ScriptCall("image", {10, 10}, false, "RUN-WITH-LAST-VALS") +
                     " (vellux-save image (vellux-active image) " + Scheme("gimp-last.png") + "))");
    RunGimp(script);

    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(cases[i].name);
        const std::string tool = "tool" + std::to_string(i) + fs::path(cases[i].plate).extension().string();
        Render(cases[i].plate, cases[i].call, tool);
        const Pixels gimp = ReadPixels(Path("gimp" + std::to_string(i) + "." + cases[i].exported));
        const Pixels rendered = ReadPixels(Path(tool)), plate = ReadPixels(Path(cases[i].plate));
        ASSERT_TRUE(SameSize(gimp, rendered)) << gimp_->log();
        EXPECT_GT(Compare(plate, rendered, 3).count, 1000u);   // the flare is there
        const Difference d = Compare(gimp, rendered, cases[i].channels);
        EXPECT_EQ(d.count, 0u) << "largest difference " << d.largest;
    }
    SCOPED_TRACE("with last values");
    Render("plate8.png", cases.back().call, "tool-last.png");
    const Pixels last = ReadPixels(Path("gimp-last.png"));
    ASSERT_TRUE(SameSize(last, ReadPixels(Path("tool-last.png"))));
    EXPECT_EQ(Compare(last, ReadPixels(Path("tool-last.png")), 3).count, 0u);
}

// A hard rectangle changes exactly its pixels to the tool's; a feathered ellipse leaves everything
// beyond its feathering alone, gives the tool's pixels at its middle and blends in between.
TEST_F(GimpPlugin, ChangesOnlyTheSelection) {
    const FlareCall call{160, 100};
    const int left = 40, top = 30, width = 120, height = 80;
    const int ex = 150, ey = 60, ew = 120, eh = 100, feather = 10;
    std::ostringstream rectangle, ellipse;
    rectangle << "(let ((image (vellux-load " << Scheme("plate8.png") << "))) (gimp-context-set-feather FALSE) "
              << "(gimp-context-set-antialias FALSE) (gimp-image-select-rectangle image CHANNEL-OP-REPLACE " << left
              << " " << top << " " << width << " " << height << ") " << ScriptCall("image", call, false)
              << " (vellux-save image (vellux-active image) " << Scheme("rectangle.png") << "))";
    ellipse << "(let ((image (vellux-load " << Scheme("plate8.png") << "))) (gimp-context-set-feather TRUE) "
            << "(gimp-context-set-feather-radius " << feather << " " << feather << ") "
            << "(gimp-image-select-ellipse image CHANNEL-OP-REPLACE " << ex << " " << ey << " " << ew << " " << eh
            << ") " << ScriptCall("image", call, false) << " (vellux-save image (vellux-active image) "
            << Scheme("ellipse.png") << "))";
    RunGimp({rectangle.str(), ellipse.str()});
    Render("plate8.png", call, "whole.png");
    const Pixels plate = ReadPixels(Path("plate8.png")), whole = ReadPixels(Path("whole.png"));
    const Pixels inRectangle = ReadPixels(Path("rectangle.png")), inEllipse = ReadPixels(Path("ellipse.png"));
    ASSERT_TRUE(SameSize(plate, inRectangle) && SameSize(plate, inEllipse) && SameSize(plate, whole)) << gimp_->log();

    size_t wrong = 0, changedInside = 0, between = 0, wrongOutsideEllipse = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const bool inside = x >= left && x < left + width && y >= top && y < top + height;
            // Beyond the ellipse's box grown by the feathering: untouched.
            const bool beyond = x < ex - feather || x >= ex + ew + feather || y < ey - feather || y >= ey + eh + feather;
            for (int c = 0; c < 3; ++c) {
                const float expected = inside ? whole.at(x, y, c) : plate.at(x, y, c);
                wrong += inRectangle.at(x, y, c) != expected;
                changedInside += inside && whole.at(x, y, c) != plate.at(x, y, c);
                const float got = inEllipse.at(x, y, c), lo = std::min(plate.at(x, y, c), whole.at(x, y, c)),
                            hi = std::max(plate.at(x, y, c), whole.at(x, y, c));
                if (beyond) wrongOutsideEllipse += got != plate.at(x, y, c);
                else if (hi - lo > 4.0f / 255.0f && got > lo + 0.5f / 255.0f && got < hi - 0.5f / 255.0f) ++between;
            }
        }
    EXPECT_GT(changedInside, 1000u);
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(wrongOutsideEllipse, 0u);
    EXPECT_GT(between, 100u);   // the feathered edge mixes the two
    for (int c = 0; c < 3; ++c) EXPECT_EQ(inEllipse.at(ex + ew / 2, ey + eh / 2, c), whole.at(ex + ew / 2, ey + eh / 2, c));
}

// Flare only: a second layer holding the flare with its brightest channel as alpha, the image's
// own layer untouched. Over black the tool paints the flare itself, which the layer's colour
// times its alpha gives back to within a level.
TEST_F(GimpPlugin, FlareOnlyMakesANewLayer) {
    const FlareCall call{120, 90, 255, 220, 180};
    RunGimp({"(let ((image (vellux-load " + Scheme("plate8a.png") + "))) " + ScriptCall("image", call, true) +
             " (if (= (vellux-layers image) 2) (begin (vellux-save image (vellux-active image) " + Scheme("layer.png") +
             ") (vellux-save image (vector-ref (cadr (gimp-image-get-layers image)) 1) " + Scheme("below.png") +
             "))))"});
    ASSERT_TRUE(fs::exists(Path("layer.png"))) << "no second layer\n" << gimp_->log();
    OIIO::ImageBuf black(OIIO::ImageSpec(kWidth, kHeight, 3, OIIO::TypeUInt8), OIIO::InitializePixels::Yes);
    ASSERT_TRUE(black.write(Path("black.png").string()));
    Render("black.png", call, "flare.png");
    const Pixels layer = ReadPixels(Path("layer.png")), flare = ReadPixels(Path("flare.png"));
    ASSERT_TRUE(layer.channels == 4 && layer.width == kWidth && flare.width == kWidth);
    EXPECT_EQ(Compare(ReadPixels(Path("below.png")), ReadPixels(Path("plate8a.png")), 4).count, 0u);
    size_t painted = 0, wrongAlpha = 0, wrongColour = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const float alpha = layer.at(x, y, 3);
            wrongAlpha += alpha != std::max({flare.at(x, y, 0), flare.at(x, y, 1), flare.at(x, y, 2)});
            painted += alpha > 0.0f;
            for (int c = 0; c < 3; ++c) wrongColour += std::fabs(layer.at(x, y, c) * alpha - flare.at(x, y, c)) > 1.0f / 255.0f;
        }
    EXPECT_GT(painted, 1000u);
    EXPECT_EQ(wrongAlpha, 0u);
    EXPECT_EQ(wrongColour, 0u);
}

// What the plug-in refuses comes back as GIMP's error with its reason, and the image is left as
// it was.
TEST_F(GimpPlugin, RefusesBadArgumentsLeavingTheImage) {
    struct Case {
        FlareCall call;
        const char* said;
    };
    const std::vector<Case> cases = {
        {{100, 70, 255, 255, 255, 1.0, "NoSuchTable"}, "no flare table named 'NoSuchTable'"},
        {{100, 70, 255, 255, 255, 1.0, "", "ring-sise=2"}, "\"ring-sise\" is not a setting (did you mean ring-size?)"},
        {{100, 70, 255, 255, 255, 1.0, "", "ring-size=-1"}, "ring-size: -1 is out of range"},
        {{100, 70, 255, 255, 255, 1.0, "", "", "multiply"}, "blend: 'multiply' is not a blend mode"},
        {{100, 70, 255, 255, 255, -2.0}, "intensity: -2 is out of range"},
    };
    std::vector<std::string> script;
    for (size_t i = 0; i < cases.size(); ++i) {
        const std::string after = Scheme("refused" + std::to_string(i) + ".png");
        script.push_back("(let ((image (vellux-load " + Scheme("plate8a.png") + "))) (catch #f " +
                         ScriptCall("image", cases[i].call, false) + ") (if (= (vellux-layers image) 1) " +
                         "(vellux-save image (vellux-active image) " + after + ")))");
    }
    RunGimp(script);
    const std::string log = gimp_->log();
    const Pixels plate = ReadPixels(Path("plate8a.png"));
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(cases[i].said);
        EXPECT_NE(log.find(std::string("Vellux Lens Flare: ") + cases[i].said), std::string::npos) << log;
        const Pixels after = ReadPixels(Path("refused" + std::to_string(i) + ".png"));
        ASSERT_TRUE(SameSize(after, plate)) << log;
        EXPECT_EQ(Compare(after, plate, 4).count, 0u);
    }
}

}  // namespace
