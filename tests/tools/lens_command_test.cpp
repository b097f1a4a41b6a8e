// vellux lens, end to end: tables computed from the shipped lenses load in the plug-in and paint
// their ghosts; rendered on black, they leave the frame's corners nearly black and grey, light
// one centred core, and stopped down show small, bright ghosts; bad prescriptions exit 1 naming
// the file and the place, and write nothing.
#include <gtest/gtest.h>

#include <OpenImageIO/imagebufalgo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "tests/tools/tool_fixture.h"

namespace {

const std::string kLenses = std::string(VELLUX_SOURCE_DIR) + "/lenses/";

class VelluxLens : public ScratchTest {
protected:
    // The flare of `table` alone, on a black frame of 480x270 (a flare unit is 270 pixels).
    OIIO::ImageBuf RenderOnBlack(const std::string& table, int x, int y) const {
        const std::string output = Path("black.png").string();
        const ToolRun run = RunTool("render --size 480x270 --light " + std::to_string(x) + "," + std::to_string(y) +
                                    " -q --table " + table + " -o " + output);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        OIIO::ImageBuf image(output);
        image.read(0, 0, true);
        return image;
    }
    std::string Compiled(const std::string& lens, const std::string& options) const {
        const std::string table = Path("compiled.rsc").string();
        const ToolRun run = RunTool("lens compile " + kLenses + lens + ".json " + options + " -o " + table);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        return table;
    }
};

const char* const kShippedLenses[] = {"double-gauss-50mm", "vintage-58mm", "wide-angle-22mm", "fisheye-10mm"};

std::array<float, 3> Rgb(const OIIO::ImageBuf& image, int x, int y) {
    std::array<float, 3> rgb{};
    image.getpixel(x, y, rgb.data(), 3);
    return rgb;
}
float Grey(const std::array<float, 3>& rgb) { return (rgb[0] + rgb[1] + rgb[2]) / 3.0f; }

TEST_F(VelluxLens, ShippedTablesLeaveTheCornersOfABlackFrameNearlyBlackAndGrey) {
    // A real lens's veiling glare lifts the frame by a few tenths of a percent, about evenly and
    // without a colour cast; a light in the upper right. The lower left lies on the flare's axis,
    // where defocused ghosts may add a little of their own tint.
    for (const char* lens : kShippedLenses) {
        const OIIO::ImageBuf image = RenderOnBlack(lens, 350, 75);
        for (const auto& [x, y] : {std::pair{0, 0}, {470, 0}, {0, 260}, {470, 260}}) {
            const auto stats = OIIO::ImageBufAlgo::computePixelStats(
                OIIO::ImageBufAlgo::cut(image, OIIO::ROI(x, x + 10, y, y + 10)));
            const auto [low, high] = std::minmax({stats.avg[0], stats.avg[1], stats.avg[2]});
            EXPECT_LT(high, 0.015) << lens << " corner " << x << "," << y;
            EXPECT_LT(high - low, 0.0075) << lens << " corner " << x << "," << y;
        }
    }
}

TEST_F(VelluxLens, ShippedTablesLightOneCoreCentredOnTheLight) {
    // Around the light, the bright core (and the glare round it) is centred on it: no ghost
    // lying on the light's image makes a second core beside it. The light sits a third of a
    // flare unit from the centre, where a ghost near the light is a few pixels off it.
    const int lightX = 320, lightY = 80, reach = 40;
    for (const char* lens : kShippedLenses) {
        const OIIO::ImageBuf image = RenderOnBlack(lens, lightX, lightY);
        for (const float level : {0.9f, 0.5f}) {
            // The pixels at least this bright joined to the light's own (a separate ghost nearby
            // is not part of the core).
            ASSERT_GE(Grey(Rgb(image, lightX, lightY)), level) << lens;
            std::vector<std::pair<int, int>> core{{lightX, lightY}};
            std::vector<bool> seen(size_t(2 * reach + 1) * size_t(2 * reach + 1), false);
            seen[size_t(reach) * size_t(2 * reach + 1) + size_t(reach)] = true;
            double sumX = 0.0, sumY = 0.0;
            for (size_t k = 0; k < core.size(); ++k) {
                const auto [x, y] = core[k];
                sumX += x, sumY += y;
                for (const auto& [dx, dy] : {std::pair{1, 0}, {-1, 0}, {0, 1}, {0, -1}}) {
                    const int nx = x + dx, ny = y + dy;
                    if (std::abs(nx - lightX) > reach || std::abs(ny - lightY) > reach) continue;
                    const size_t index = size_t(ny - lightY + reach) * size_t(2 * reach + 1) + size_t(nx - lightX + reach);
                    if (seen[index] || Grey(Rgb(image, nx, ny)) < level) continue;
                    seen[index] = true;
                    core.push_back({nx, ny});
                }
            }
            EXPECT_NEAR(sumX / double(core.size()), lightX, 1.5) << lens << " at level " << level;
            EXPECT_NEAR(sumY / double(core.size()), lightY, 1.5) << lens << " at level " << level;
        }
    }
}

TEST_F(VelluxLens, StoppingDownGathersEachGhostIntoASmallerBrighterDisc) {
    // The brightest ghost well away from the light (past its glow) at each f-number: visible,
    // and brighter the more the lens is stopped down.
    const int lightX = 350, lightY = 75;
    double wider = 0.0;
    for (const char* fNumber : {"", "--f-number 4", "--f-number 5.6", "--f-number 8"}) {
        const OIIO::ImageBuf image = RenderOnBlack(Compiled("wide-angle-22mm", fNumber), lightX, lightY);
        double brightest = 0.0;
        for (int y = 0; y < 270; ++y)
            for (int x = 0; x < 480; ++x)
                if (std::hypot(x - lightX, y - lightY) > 120.0) brightest = std::max<double>(brightest, Grey(Rgb(image, x, y)));
        EXPECT_GT(brightest, 0.2) << "wide-angle-22mm " << fNumber;
        EXPECT_GT(brightest, wider) << "wide-angle-22mm " << fNumber;
        wider = brightest;
    }
}

TEST_F(VelluxLens, ShowsTheLensAndEveryGhostBrightestFirst) {
    const ToolRun run = RunTool("lens show " + kLenses + "double-gauss-50mm.json");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("focal length         50.36 mm (stated 50)"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("  2-10 "), std::string::npos) << run.out;   // the brightest: a small disc past the light
    const ToolRun json = RunTool("lens show --json --f-number 4 " + kLenses + "double-gauss-50mm.json");
    ASSERT_EQ(json.exitCode, 0) << json.err;
    EXPECT_NE(json.out.find("\"fNumber\": 4.0"), std::string::npos);
}

TEST_F(VelluxLens, CompiledTablesPaintTheirGhostsAndTheSourceCompilesToTheSameBytes) {
    const std::string lens = kLenses + "wide-angle-22mm.json";
    ASSERT_TRUE(Succeeded(RunTool("lens compile " + lens + " --ghosts 12 -o " + Path("wide.rsc").string())));
    ASSERT_TRUE(Succeeded(RunTool("lens compile " + lens + " --ghosts 12 --json -o " + Path("wide.json").string())));
    ASSERT_TRUE(Succeeded(RunTool("rsc compile " + Path("wide.json").string() + " -o " + Path("again.rsc").string())));
    EXPECT_EQ(Slurp(Path("wide.rsc")), Slurp(Path("again.rsc")));
    EXPECT_NE(Slurp(Path("wide.json")).find("\"name\": \"Ghost "), std::string::npos);

    // The ghosts lie on the far side of the centre too: the frame's lower-left quarter, far from a
    // light at the upper right, is lit by them, and not by the same lens's glow and halo alone.
    ASSERT_TRUE(Succeeded(RunTool("lens compile " + lens + " --ghosts 0 -o " + Path("bare.rsc").string())));
    for (const char* table : {"wide.rsc", "bare.rsc"}) {
        const ToolRun run = RunTool("render --size 320x180 --light 260,40 -q --table " + Path(table).string() + " -o " +
                                    Path(std::string(table) + ".png").string());
        ASSERT_EQ(run.exitCode, 0) << run.err;
    }
    const auto quarter = [&](const char* name) {
        const OIIO::ImageBuf image(Path(name).string());
        return OIIO::ImageBufAlgo::computePixelStats(OIIO::ImageBufAlgo::cut(image, OIIO::ROI(0, 120, 90, 180))).avg[2];
    };
    EXPECT_GT(quarter("wide.rsc.png"), 2.0 * quarter("bare.rsc.png") + 0.003);
}

TEST_F(VelluxLens, BadPrescriptionsExitOneAndWriteNothing) {
    struct Bad {
        const char* text;
        const char* message;
    };
    const Bad cases[] = {
        {"not json", "not JSON"},
        {R"({"focalLength": 50, "surfaces": [{"radius": 30, "thickness": 4, "n": 1.6, "diameter": 20},
             {"radius": -30, "thickness": 0, "n": 1, "diameter": 20}]})", "surfaces: no aperture stop"},
    };
    for (const Bad& bad : cases) {
        std::ofstream(Path("bad.json")) << bad.text;
        const ToolRun run = RunTool("lens compile " + Path("bad.json").string() + " -o " + Path("bad.rsc").string());
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_NE(run.err.find(Path("bad.json").string() + ": "), std::string::npos) << run.err;
        EXPECT_NE(run.err.find(bad.message), std::string::npos) << run.err;
        EXPECT_FALSE(std::filesystem::exists(Path("bad.rsc")));
    }
    EXPECT_EQ(RunTool("lens compile " + kLenses + "fisheye-10mm.json --sensor 36 -o " + Path("x.rsc").string()).exitCode, 1);
    EXPECT_EQ(RunTool("lens compile " + kLenses + "fisheye-10mm.json --coating gold -o " + Path("x.rsc").string()).exitCode, 1);
    EXPECT_FALSE(std::filesystem::exists(Path("x.rsc")));
}

}  // namespace
