// The built vellux tool, run as a user runs it: exit codes, messages, and the files it leaves.
// The render command finds Vellux.so one folder above the tool and the tables beside it.
#include <gtest/gtest.h>

#include "tool_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include "host/resource_file.h"

namespace {

namespace fs = std::filesystem;

void Write(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

class VelluxTool : public ScratchTest {
protected:
    ToolRun Vellux(const std::string& arguments) const { return RunTool(arguments); }
    static std::string Quote(const fs::path& path) { return "'" + path.string() + "'"; }
};

const std::string kDefaultTable = std::string(VELLUX_TABLES_DIR) + "/Vellux.json";

TEST_F(VelluxTool, CompilesDumpsAndRoundTripsTheDefaultTable) {
    const fs::path rsc = Path("Vellux.rsc");
    const ToolRun compile = Vellux("rsc compile '" + kDefaultTable + "' -o " + Quote(rsc));
    ASSERT_EQ(compile.exitCode, 0) << compile.err;
    EXPECT_EQ(compile.err, "");
    EXPECT_NO_THROW(vellux::rsc::ReadResourceFile(rsc));

    const ToolRun listing = Vellux("rsc dump " + Quote(rsc));
    ASSERT_EQ(listing.exitCode, 0) << listing.err;
    EXPECT_NE(listing.out.find("FLAR 1001 \"The default: a bright glow and halo, a chain of soft coloured reflections\", 12 bytes"), std::string::npos) << listing.out;
    EXPECT_NE(listing.out.find("type      1  white glow"), std::string::npos);
    EXPECT_NE(listing.out.find("offset    10000  = 1.0000 along the axis"), std::string::npos);
    EXPECT_NE(listing.out.find("radius   alpha     red   green    blue"), std::string::npos);

    const ToolRun json = Vellux("rsc dump --json " + Quote(rsc));
    ASSERT_EQ(json.exitCode, 0) << json.err;
    Write(Path("again.json"), json.out);
    const ToolRun again = Vellux("rsc compile " + Quote(Path("again.json")) + " -o " + Quote(Path("again.rsc")));
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(Slurp(Path("again.rsc")), Slurp(rsc));
}

TEST_F(VelluxTool, FailedCompileReportsEveryErrorAndLeavesTheOutputUntouched) {
    const fs::path source = Path("bad.json");
    Write(source, R"({"resources": [
      {"type": "FLAR", "id": 1001, "flare": {"elements": [{"type": "RING", "first": 2001, "last": 2001}]}},
      {"type": "RING", "id": 2001, "ring": {"type": 1, "units": 0, "offset": 0, "outside": 10,
        "stops": [{"position": 0, "red": 70000, "green": 0, "blue": 0}]}}]})");
    const fs::path output = Path("out.rsc");
    Write(output, "the previous table");
    const ToolRun run = Vellux("rsc compile " + Quote(source) + " -o " + Quote(output));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find(source.string() + ": error: resources[1].ring.units: must not be 0"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("resources[1].ring.stops[0].red"), std::string::npos) << run.err;
    EXPECT_EQ(Slurp(output), "the previous table");
}

const std::string kDialogSource = std::string(VELLUX_TABLES_DIR) + "/dialogs/settings.json";

TEST_F(VelluxTool, CompilesSeveralSourcesIntoOneFileAndDumpsTheDialogs) {
    const fs::path rsc = Path("Vellux.rsc");
    const ToolRun compile = Vellux("rsc compile '" + kDefaultTable + "' '" + kDialogSource + "' -o " + Quote(rsc));
    ASSERT_EQ(compile.exitCode, 0) << compile.err;
    EXPECT_EQ(compile.err, "");
    const vellux::rsc::ResourceFile file = vellux::rsc::ReadResourceFile(rsc);
    EXPECT_NE(file.Find(vellux::rsc::TypeCode("FLAR"), 1001), nullptr);
    EXPECT_NE(file.Find(vellux::rsc::TypeCode("DLOG"), 16001), nullptr);
    EXPECT_EQ(file.resources.back().id, 9004);   // the second source's resources come last

    const ToolRun listing = Vellux("rsc dump " + Quote(rsc));
    ASSERT_EQ(listing.exitCode, 0) << listing.err;
    EXPECT_NE(listing.out.find("  title     \"Vellux Lens Flare\"\n  size      720 x 460\n"), std::string::npos) << listing.out;
    EXPECT_NE(listing.out.find("ID 22  pop-up menu"), std::string::npos);
    EXPECT_NE(listing.out.find("menu     10  \"10 points + 10 minor\""), std::string::npos);

    const ToolRun json = Vellux("rsc dump --json " + Quote(rsc));
    ASSERT_EQ(json.exitCode, 0) << json.err;
    EXPECT_NE(json.out.find("\"dialog\": {"), std::string::npos);
    Write(Path("again.json"), json.out);
    const ToolRun again = Vellux("rsc compile " + Quote(Path("again.json")) + " -o " + Quote(Path("again.rsc")));
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(again.err, "");
    EXPECT_EQ(Slurp(Path("again.rsc")), Slurp(rsc));
}

TEST_F(VelluxTool, AResourceInTwoSourcesIsAnErrorNamingBoth) {
    Write(Path("extra.json"), R"({"resources": [{"type": "DLOG", "id": 9003, "hex": ""}]})");
    const fs::path output = Path("out.rsc");
    const ToolRun run = Vellux("rsc compile '" + kDialogSource + "' " + Quote(Path("extra.json")) + " -o " + Quote(output));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find(Path("extra.json").string() + ": error: resources[0].id: DLOG 9003 is already defined at " +
                           kDialogSource + ": resources[3]"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find(Path("extra.json").string() + ": warning: resources[0].hex: not a well-formed DLOG"),
              std::string::npos) << run.err;
    EXPECT_NE(run.err.find(kDialogSource + ", " + Path("extra.json").string() + ": 1 error; "), std::string::npos) << run.err;
    EXPECT_FALSE(fs::exists(output));
}

TEST_F(VelluxTool, UnreadableInputsExitOneNamingTheFile) {
    const ToolRun missing = Vellux("rsc compile " + Quote(Path("none.json")) + " -o " + Quote(Path("x.rsc")));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find(Path("none.json").string()), std::string::npos) << missing.err;
    EXPECT_FALSE(fs::exists(Path("x.rsc")));

    Write(Path("text.rsc"), "not a resource file at all");
    const ToolRun notResources = Vellux("rsc dump " + Quote(Path("text.rsc")));
    EXPECT_EQ(notResources.exitCode, 1);
    EXPECT_NE(notResources.err.find(Path("text.rsc").string()), std::string::npos) << notResources.err;
}

TEST_F(VelluxTool, UsageErrorsExitTwoAndHelpZero) {
    EXPECT_EQ(Vellux("rsc compile '" + kDefaultTable + "'").exitCode, 2);   // no -o
    EXPECT_EQ(Vellux("rsc").exitCode, 2);
    EXPECT_EQ(Vellux("render").exitCode, 2);
    const ToolRun help = Vellux("rsc --help");
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("compile"), std::string::npos);
    const ToolRun compileHelp = Vellux("rsc compile --help");
    EXPECT_EQ(compileHelp.exitCode, 0);
    EXPECT_NE(compileHelp.out.find("several sources are merged in order"), std::string::npos) << compileHelp.out;

    const struct {
        const char* typed;
        const char* message;
    } mistyped[] = {{"rendr", "unknown command 'rendr'; did you mean 'render'?"},
                    {"Scene", "unknown command 'Scene'; did you mean 'scene'?"},
                    {"xyzzy", "unknown command 'xyzzy'\n"}};
    for (const auto& c : mistyped) {
        const ToolRun run = Vellux(std::string(c.typed) + " -o x.png");
        EXPECT_EQ(run.exitCode, 2) << c.typed;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    }
    const ToolRun version = Vellux("--version");
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out.rfind("vellux " VELLUX_VERSION "\nplug-in ", 0), 0u) << version.out;
    EXPECT_NE(version.out.find(" version 1 ("), std::string::npos) << version.out;
}

// The tool starts without the image library (its whole point: --help, info and the table
// commands start in milliseconds); the commands on images load the tool's image module, and a
// tool without one says so and exits 1 having written nothing.
TEST_F(VelluxTool, LoadsTheImageLibraryOnlyForCommandsOnImages) {
    const std::string ldd = "ldd '" + std::string(VELLUX_TOOL_PATH) + "' >'" + Path("ldd").string() + "'";
    ASSERT_EQ(std::system(ldd.c_str()), 0);
    const std::string libraries = Slurp(Path("ldd"));
    EXPECT_NE(libraries.find("libvellux_engine_core.so"), std::string::npos) << libraries;
    for (const char* image : {"libOpenImageIO.so", "libOpenImageIO_Util.so", "libvellux_engine.so"})
        EXPECT_EQ(libraries.find(image), std::string::npos) << image << " in\n" << libraries;

    const fs::path alone = Path("bin") / "vellux";   // no module beside it, nor in ../lib
    fs::create_directories(alone.parent_path());
    fs::copy_file(VELLUX_TOOL_PATH, alone);
    for (const char* command : {"sample-frame -o out.png", "render --size 8x8 -q -o out.png"}) {
        const std::string run = "cd '" + dir_.string() + "' && '" + alone.string() + "' " + command + " 2>err";
        const int status = std::system(run.c_str());
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1) << command;
        const std::string err = Slurp(Path("err"));
        EXPECT_NE(err.find("needs the tool's image module, libvellux_tool_images.so"), std::string::npos) << err;
        EXPECT_NE(err.find((Path("bin") / "libvellux_tool_images.so").string() + ": not found"), std::string::npos) << err;
        EXPECT_FALSE(fs::exists(Path("out.png"))) << command;
    }
}

}  // namespace

// ---- vellux render ----

namespace {

struct Picture {
    int width = 0, height = 0, channels = 0;
    OIIO::TypeDesc format;
    std::vector<float> values;
    double Sum() const { return std::accumulate(values.begin(), values.end(), 0.0); }
};

Picture Load(const fs::path& path) {
    OIIO::ImageBuf image(path.string());
    Picture picture;
    if (!image.read(0, 0, true, OIIO::TypeFloat)) return picture;
    picture.width = image.spec().width;
    picture.height = image.spec().height;
    picture.channels = image.nchannels();
    picture.format = image.nativespec().format;   // as stored in the file
    picture.values.resize(image.spec().image_pixels() * size_t(picture.channels));
    image.get_pixels(image.roi(), OIIO::TypeFloat, picture.values.data());
    return picture;
}

// An 8-bit RGBA picture, mid grey, alpha 200/255.
void WriteGreyWithAlpha(const fs::path& path, int w, int h) {
    OIIO::ImageBuf image(OIIO::ImageSpec(w, h, 4, OIIO::TypeDesc::UINT8));
    const float grey[] = {0.25f, 0.25f, 0.25f, 200.0f / 255.0f};
    OIIO::ImageBufAlgo::fill(image, grey);
    image.write(path.string());
}

class VelluxRender : public VelluxTool {
protected:
    // Files in the test folder that are neither the tool's captured output nor the given ones.
    std::vector<std::string> Leftovers(std::initializer_list<std::string> expected) const {
        std::vector<std::string> left;
        for (const auto& entry : fs::directory_iterator(dir_)) {
            const std::string name = entry.path().filename().string();
            if (name != "out" && name != "err" && std::find(expected.begin(), expected.end(), name) == expected.end())
                left.push_back(name);
        }
        return left;
    }
};

TEST_F(VelluxRender, PaintsOntoABlackFrameAndAnEightBitImage) {
    const ToolRun black = Vellux("render --size 96x64 -q -o " + Quote(Path("black.png")));
    ASSERT_EQ(black.exitCode, 0) << black.err;
    EXPECT_EQ(black.err, "");
    const Picture painted = Load(Path("black.png"));
    EXPECT_EQ(painted.width, 96);
    EXPECT_EQ(painted.height, 64);
    EXPECT_EQ(painted.format, OIIO::TypeDesc::UINT16);
    EXPECT_GT(painted.Sum(), 0.0);

    WriteGreyWithAlpha(Path("in.png"), 80, 50);
    const ToolRun image = Vellux("render -i " + Quote(Path("in.png")) + " -o " + Quote(Path("flare.png")));
    ASSERT_EQ(image.exitCode, 0) << image.err;
    const Picture before = Load(Path("in.png"));
    const Picture after = Load(Path("flare.png"));
    ASSERT_EQ(after.width, 80);
    ASSERT_EQ(after.height, 50);
    ASSERT_EQ(after.channels, 4);
    EXPECT_EQ(after.format, OIIO::TypeDesc::UINT8);
    for (size_t i = 3; i < after.values.size(); i += 4) ASSERT_EQ(after.values[i], before.values[i]) << i;
    EXPECT_GT(after.Sum(), before.Sum());
    EXPECT_EQ(Leftovers({"black.png", "in.png", "flare.png"}), std::vector<std::string>{});
}

TEST_F(VelluxRender, BandsAndThreadsGiveTheImageOfOneThread) {
    ASSERT_EQ(Vellux("render --size 90x261 --threads 1 -o " + Quote(Path("whole.tif"))).exitCode, 0);
    for (const char* options : {"--band-rows 7", "--threads 3", "--threads 8 --band-rows 1", "--threads 0"}) {
        const ToolRun run = Vellux("render --size 90x261 --star-filter 8 --anamorphic-streak " + std::string(options) +
                                   " -o " + Quote(Path("threads.tif")));
        ASSERT_EQ(run.exitCode, 0) << run.err;
        ASSERT_EQ(Vellux("render --size 90x261 --star-filter 8 --anamorphic-streak --threads 1 -o " +
                         Quote(Path("one.tif"))).exitCode, 0);
        EXPECT_EQ(Load(Path("threads.tif")).values, Load(Path("one.tif")).values) << options;
    }
}

TEST_F(VelluxRender, SettingsAndTablesReachThePlugin) {
    ASSERT_EQ(Vellux("render --size 96x64 -o " + Quote(Path("default.exr"))).exitCode, 0);
    ASSERT_EQ(Vellux("render --size 96x64 --dissolve 0.5 -o " + Quote(Path("faded.exr"))).exitCode, 0);
    const ToolRun table = Vellux("render --size 96x64 --table '" + std::string(VELLUX_COMPILED_TABLES_DIR) +
                                 "/CleanPrime.rsc' -o " + Quote(Path("prime.exr")));
    ASSERT_EQ(table.exitCode, 0) << table.err;
    const double full = Load(Path("default.exr")).Sum();
    EXPECT_LT(Load(Path("faded.exr")).Sum(), full * 0.75);
    EXPECT_NE(Load(Path("prime.exr")).Sum(), full);
}

// A uniform float image with `channels` channels, every value `value`.
void WriteUniform(const fs::path& path, int w, int h, int channels, float value) {
    OIIO::ImageBuf image(OIIO::ImageSpec(w, h, channels, OIIO::TypeDesc::FLOAT));
    const std::vector<float> fill(size_t(channels), value);
    OIIO::ImageBufAlgo::fill(image, fill);
    image.write(path.string());
}

// The dissolve fades the flare on 8-bit, 16-bit and float files alike: the plate is never
// darkened and is all that is left at 1; and a black frame written to EXR is the linear pass.
TEST_F(VelluxRender, DissolveFadesTheFlareOnEveryFileAndBlackExrIsThePass) {
    for (const char* name : {"plate8.png", "plate16.tif", "plate.exr"}) {
        SCOPED_TRACE(name);
        const OIIO::TypeDesc type = std::string(name) == "plate8.png" ? OIIO::TypeUInt8
                                    : std::string(name) == "plate16.tif" ? OIIO::TypeUInt16 : OIIO::TypeHalf;
        OIIO::ImageBuf plate(OIIO::ImageSpec(96, 64, 3, OIIO::TypeFloat));
        for (OIIO::ImageBuf::Iterator<float> p(plate); !p.done(); ++p)
            for (int c = 0; c < 3; ++c) p[c] = p.x() > 60 ? 0.97f : float((p.x() + p.y() * 3 + c) % 50) / 60.0f;
        ASSERT_TRUE(plate.write(Path(name).string(), type));
        const Picture before = Load(Path(name));
        double lastAdded = 1e30;
        for (const char* dissolve : {"0", "0.5", "1"}) {
            const std::string out = std::string("faded-") + dissolve + "-" + name;
            const ToolRun run = Vellux("render -q --light 48,30 --star-filter 4 --dissolve " + std::string(dissolve) + " -i " +
                                       Quote(Path(name)) + " -o " + Quote(Path(out)));
            ASSERT_EQ(run.exitCode, 0) << run.err;
            const Picture after = Load(Path(out));
            ASSERT_EQ(after.values.size(), before.values.size());
            size_t darkened = 0;
            for (size_t i = 0; i < after.values.size(); ++i) darkened += after.values[i] < before.values[i];
            EXPECT_EQ(darkened, 0u) << "dissolve " << dissolve;
            const double added = after.Sum() - before.Sum();
            EXPECT_LT(added, lastAdded) << "dissolve " << dissolve;
            if (std::string(dissolve) == "1") EXPECT_EQ(added, 0.0);
            else EXPECT_GT(added, 1.0);
            lastAdded = added;
        }
    }
    const std::string frame = "render -q --size 96x64 --light 60,20 --intensity 3 -o ";
    ASSERT_EQ(Vellux(frame + Quote(Path("black.exr"))).exitCode, 0);
    ASSERT_EQ(Vellux(frame + Quote(Path("pass.exr")) + " --mode pass").exitCode, 0);
    const Picture black = Load(Path("black.exr")), pass = Load(Path("pass.exr"));
    ASSERT_EQ(black.channels, 3);
    ASSERT_EQ(pass.values.size(), black.values.size() / 3 * 4);
    for (size_t i = 0; i < black.values.size(); ++i) ASSERT_EQ(black.values[i], pass.values[i / 3 * 4 + i % 3]) << i;
    EXPECT_GT(*std::max_element(black.values.begin(), black.values.end()), 1.0f);   // linear, and past 1
}

// The lens's own flare: rendered onto a frame, and bad lenses and apertures refused with the value
// named and nothing written.
TEST_F(VelluxRender, TheLensLookRendersAndRefusesBadLensesAndApertures) {
    const std::string lens = " --lens double-gauss-50mm -o ";
    const ToolRun good = Vellux("render -q --size 160x100 --light 110,30 --f-number 8 --blades 6" + lens + Quote(Path("lens.exr")));
    ASSERT_EQ(good.exitCode, 0) << good.err;
    const Picture picture = Load(Path("lens.exr"));
    EXPECT_GT(*std::max_element(picture.values.begin(), picture.values.end()), 100.0f);   // the light's core
    std::ofstream(Path("no-stop.json")) << R"({"name": "no stop", "focalLength": 50,
        "surfaces": [{"radius": 30, "thickness": 4, "n": 1.5, "diameter": 20}, {"radius": -30, "thickness": 40, "n": 1, "diameter": 20}]})";
    const struct {
        std::string options;
        const char* message;
    } cases[] = {
        {"--blades 100" + lens, "--blades: 100 is not a blade count (0 for round, 3 to 32)"},
        {"--blades 0" + lens, ""},
        {"--f-number 1" + lens, "--f-number: 1 is wider than"},
        {"--lens " + Quote(Path("no-stop.json")) + " -o ", "no-stop.json"},
        {"--blades 6 -o ", "--f-number, --blades, --blade-curvature and --aperture-rotation: only with --lens"},
    };
    for (const auto& c : cases) {
        if (*c.message == '\0') continue;   // a round aperture is fine
        const fs::path out = Path("bad.exr");
        const ToolRun run = Vellux("render -q --size 64x40 " + c.options + Quote(out));
        EXPECT_NE(run.exitCode, 0) << c.options;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << c.options << ": " << run.err;
        EXPECT_FALSE(fs::exists(out)) << c.options;
    }
}

TEST_F(VelluxRender, PassesFloatPlatesAndOcclusion) {
    const ToolRun pass = Vellux("render --size 96x64 -q --mode pass -o " + Quote(Path("pass.exr")));
    ASSERT_EQ(pass.exitCode, 0) << pass.err;
    const Picture flare = Load(Path("pass.exr"));
    ASSERT_EQ(flare.channels, 4);
    EXPECT_GT(flare.Sum(), 0.0);
    for (size_t i = 0; i < flare.values.size(); i += 4)
        ASSERT_FLOAT_EQ(flare.values[i + 3], std::min(1.0f, std::max({flare.values[i], flare.values[i + 1], flare.values[i + 2]})));

    WriteUniform(Path("plate.exr"), 96, 64, 3, 3.0f);   // brighter than white: must survive
    // In scene-linear light the composite is plate + pass, whatever the plate holds.
    ASSERT_EQ(Vellux("render -q --blend add -i " + Quote(Path("plate.exr")) + " -o " + Quote(Path("lit.exr"))).exitCode, 0);
    const Picture lit = Load(Path("lit.exr"));
    EXPECT_EQ(*std::min_element(lit.values.begin(), lit.values.end()), 3.0f);
    EXPECT_NEAR(lit.Sum() - 3.0 * lit.values.size(), flare.Sum() - [&] {
        double alpha = 0;
        for (size_t i = 3; i < flare.values.size(); i += 4) alpha += flare.values[i];
        return alpha;
    }(), 1e-2 * flare.Sum());

    const std::string render = "render --size 96x64 -q -o ";
    WriteUniform(Path("hidden.exr"), 96, 64, 1, 1.0f);
    WriteUniform(Path("half.exr"), 96, 64, 1, 0.5f);
    ASSERT_EQ(Vellux(render + Quote(Path("open.exr"))).exitCode, 0);
    ASSERT_EQ(Vellux(render + Quote(Path("gone.exr")) + " --occlusion " + Quote(Path("hidden.exr"))).exitCode, 0);
    ASSERT_EQ(Vellux(render + Quote(Path("dim.exr")) + " --occlusion " + Quote(Path("half.exr"))).exitCode, 0);
    EXPECT_EQ(Load(Path("gone.exr")).Sum(), 0.0);           // a hidden light makes no flare
    const double open = Load(Path("open.exr")).Sum(), dim = Load(Path("dim.exr")).Sum();
    EXPECT_GT(dim, 0.0);
    EXPECT_LT(dim, open);
}

TEST_F(VelluxRender, ErrorsExitOneNamingTheProblemAndWriteNothing) {
    Write(Path("notes.txt"), "not a flare table");
    Write(Path("keep.png"), "the previous output");
    const std::string out = " -o " + Quote(Path("keep.png"));
    const struct {
        std::string arguments;
        std::string message;
    } cases[] = {
        {"-i " + Quote(Path("missing.png")) + out, Path("missing.png").string() + ": no such file"},
        {"-i " + Quote(Path("notes.txt")) + out, Path("notes.txt").string() + ": cannot read the image"},
        {"--size 8x8 --table " + Quote(Path("notes.txt")) + out, Path("notes.txt").string() + ": "},
        {"--size 8x8 --plugin " + Quote(Path("none.so")) + out, Path("none.so").string() + ": no such plug-in"},
        {"--size 8x8 --color 300,0,0" + out, "--color: '300,0,0'"},
        {"--size 8x8 --intensity inf" + out, "--intensity: inf"},
        {"--size 8x8 --band-rows 0" + out, "--band-rows: 0"},
        {"--size 8x8 -o " + Quote(Path("flare.unknown")), "no image format is known for the extension '.unknown'"},
    };
    for (const auto& c : cases) {
        const ToolRun run = Vellux("render " + c.arguments);
        EXPECT_EQ(run.exitCode, 1) << c.arguments;
        EXPECT_EQ(run.err.rfind("vellux: ", 0), 0u) << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_EQ(Slurp(Path("keep.png")), "the previous output");
        EXPECT_EQ(Leftovers({"notes.txt", "keep.png"}), std::vector<std::string>{}) << c.arguments;
    }
}

}  // namespace
