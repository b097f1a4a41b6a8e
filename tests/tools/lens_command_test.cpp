// vellux lens, end to end: tables computed from the shipped lenses load in the plug-in and paint
// their ghosts; bad prescriptions exit 1 naming the file and the place, and write nothing.
#include <gtest/gtest.h>

#include <OpenImageIO/imagebufalgo.h>

#include "tests/tools/tool_fixture.h"

namespace {

const std::string kLenses = std::string(VELLUX_SOURCE_DIR) + "/lenses/";

class VelluxLens : public ScratchTest {};

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
    ASSERT_EQ(RunTool("lens compile " + lens + " --ghosts 12 -o " + Path("wide.rsc").string()).exitCode, 0);
    ASSERT_EQ(RunTool("lens compile " + lens + " --ghosts 12 --json -o " + Path("wide.json").string()).exitCode, 0);
    ASSERT_EQ(RunTool("rsc compile " + Path("wide.json").string() + " -o " + Path("again.rsc").string()).exitCode, 0);
    EXPECT_EQ(Slurp(Path("wide.rsc")), Slurp(Path("again.rsc")));
    EXPECT_NE(Slurp(Path("wide.json")).find("\"name\": \"Ghost "), std::string::npos);

    // The ghosts lie on the far side of the centre too: the frame's lower-left quarter, far from a
    // light at the upper right, is lit by them, and not by the same lens's glow and halo alone.
    ASSERT_EQ(RunTool("lens compile " + lens + " --ghosts 0 -o " + Path("bare.rsc").string()).exitCode, 0);
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
