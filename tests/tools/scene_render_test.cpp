// Scenes rendered and keyed through the plug-in: frame patterns and ranges, the channel commands
// in process, `scene key` and `scene show`, and the built tool rendering sequences end to end.
#include <gtest/gtest.h>

#include "tool_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include "host/resource_services.h"
#include "engine/frame_sequence.h"
#include "tools/vellux/scene_command.h"
#include "engine/scene_render.h"

namespace {

using namespace vellux::tool;
namespace fs = std::filesystem;

const std::string kCompiledTable = std::string(VELLUX_COMPILED_TABLES_DIR) + "/Vellux.rsc";

TEST(FramePattern, NamesFramesAsCompositingToolsDo) {
    EXPECT_EQ(FramePattern::Parse("out/shot.####.exr").For(7), "out/shot.0007.exr");
    EXPECT_EQ(FramePattern::Parse("shot.##.exr").For(123), "shot.123.exr");
    EXPECT_EQ(FramePattern::Parse("shot.%04d.exr").For(42), "shot.0042.exr");
    EXPECT_EQ(FramePattern::Parse("100%%_%d.png").For(9), "100%_9.png");
    const FramePattern still = FramePattern::Parse("still.exr");
    EXPECT_FALSE(still.HasField());
    EXPECT_EQ(still.For(3), "still.exr");
    for (const char* bad : {"a.##.%d.exr", "a.%5.exr", "a.%00d.exr", "a.%x.exr", "50%.exr"})
        EXPECT_THROW(FramePattern::Parse(bad), std::invalid_argument) << bad;

    const FrameRange range = ParseFrameRange("--frames", "3-5");
    EXPECT_EQ(range.first, 3);
    EXPECT_EQ(range.Count(), 3);
    EXPECT_EQ(ParseFrameRange("--frames", "7").last, 7);
    for (const char* bad : {"5-3", "-3", "3-", "a-b", "1-2-3", "99999999999"})
        EXPECT_THROW(ParseFrameRange("--frames", bad), std::invalid_argument) << bad;
}

// A scene of `frames` black 64x48 frames, the light still at the centre; Intensity keyed at the ends.
Scene RisingScene(int32_t frames) {
    Scene scene;
    scene.firstFrame = 1;
    scene.lastFrame = frames;
    scene.width = 64;
    scene.height = 48;
    scene.lightUnits = LightUnits::fraction;
    scene.light[1] = LightKey{0.4, 0.45, {255, 230, 200}, 1.0, 0.0};
    scene.channels["Intensity"] = {{1, 0.1}, {frames, 1.0}};
    return scene;
}

// The default settings record with another flare intensity and star filter, in `order`.
SettingsRecord Settings(ByteOrder order, double intensity, int32_t starFilter) {
    ControlDataRec c{kVelluxOwner, kVelluxVersion, intensity, 0.0, 1.77, 0.22, 0.0, 50.0, 0.03, 6.0,
                     {-1, 20560, 5140, 2570}, 0x7B000000u, starFilter};
    SettingsRecord record{order, std::vector<uint8_t>(sizeof(c))};
    std::memcpy(record.bytes.data(), &c, sizeof(c));
    if (order != NativeByteOrder()) {   // every field reversed in place
        const size_t sizes[] = {4, 4, 8, 8, 8, 8, 8, 8, 8, 8, 2, 2, 2, 2, 4, 4};
        uint8_t* at = record.bytes.data();
        for (size_t size : sizes) std::reverse(at, at + size), at += size;
    }
    return record;
}

using SceneFiles = ScratchTest;

TEST_F(SceneFiles, LoadingChannelsBeforePublishingIsOutOfSequence) {
    vellux::host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR);
    const vellux::host::PluginLibrary plugin(VELLUX_PLUGIN_PATH);
    vellux::host::HostSession host;
    PluginInstance instance(plugin, host);
    try {
        instance.LoadChannels(1, 10, 1);
        FAIL() << "LCHN before ICHN was accepted";
    } catch (const PluginError& error) {
        EXPECT_EQ(error.code, kOutOfSequence);
        EXPECT_NE(std::string(error.what()).find("LCHN: A plug-in command was received out of sequence (5)"),
                  std::string::npos)
            << error.what();
    }
    instance.InitializeChannels(1, 10);
    EXPECT_NO_THROW(instance.LoadChannels(1, 10, 1));
}

TEST_F(SceneFiles, KeyStoresTheSettingsOverTheRangeAndRoundTrips) {
    Scene scene = RisingScene(10);
    scene.settings = Settings(NativeByteOrder() == ByteOrder::little ? ByteOrder::big : ByteOrder::little, 0.8, 3);
    WriteSceneFile(Path("s.json"), scene);
    const Scene keyed = KeySceneFrames({Path("s.json"), {3, 5}, VELLUX_PLUGIN_PATH, kCompiledTable});

    // The scene's own keys stay, the range gets the settings (converted from the other byte order).
    const ChannelKeys expected{{1, 0.1}, {3, 0.8}, {4, 0.8}, {5, 0.8}, {10, 1.0}};
    EXPECT_EQ(keyed.channels.at("Intensity"), expected);
    EXPECT_EQ(keyed.channels.size(), SceneChannels().size());
    const ChannelKeys color{{3, std::array<int16_t, 3>{20560, 5140, 2570}},
                            {4, std::array<int16_t, 3>{20560, 5140, 2570}},
                            {5, std::array<int16_t, 3>{20560, 5140, 2570}}};
    EXPECT_EQ(keyed.channels.at("Ring Color"), color);
    EXPECT_EQ(keyed.settings->bytes, scene.settings->bytes);

    const SceneReadResult back = ReadSceneFile(Path("s.json"));
    ASSERT_TRUE(back.scene) << back.errors.front().Text();
    EXPECT_EQ(WriteScene(*back.scene), WriteScene(keyed));
    // Keying again is stable; a range outside the scene is refused and leaves the file as it was.
    const std::string text = WriteScene(keyed);
    KeySceneFrames({Path("s.json"), {3, 5}, VELLUX_PLUGIN_PATH, kCompiledTable});
    std::ifstream file(Path("s.json"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), text);
    EXPECT_THROW(KeySceneFrames({Path("s.json"), {9, 11}, VELLUX_PLUGIN_PATH, kCompiledTable}), std::invalid_argument);
}

TEST(SceneShow, DecodesTheSettingsFieldByFieldInEitherByteOrder) {
    for (const ByteOrder order : {ByteOrder::little, ByteOrder::big}) {
        Scene scene = RisingScene(4);
        scene.settings = Settings(order, 0.75, -7);
        const std::string listing = SceneListing(scene);
        for (const char* line : {"frames    1-4 (4 frames)", "image     64x48 black frames", "Intensity          1: 0.1  4: 1",
                                 "ownerType              VLUX", "ownerVersion           1", "flareIntensity         0.75",
                                 "flareAnamorphicFactor  1.77", "flareRingColor         alpha -1, red 20560, green 5140, blue 2570",
                                 "flareFlags             0x7b000000 (glow,", "flareStarFilter        -7"})
            EXPECT_NE(listing.find(line), std::string::npos) << line << "\n" << listing;
        EXPECT_EQ(listing.find("not this machine's") != std::string::npos, order != NativeByteOrder()) << listing;
    }
}

// ---- The built tool ----

std::vector<float> Pixels(const fs::path& path) {
    OIIO::ImageBuf image(path.string());
    std::vector<float> values;
    if (!image.read(0, 0, true, OIIO::TypeFloat)) return values;
    values.resize(image.spec().image_pixels() * size_t(image.nchannels()));
    image.get_pixels(image.roi(), OIIO::TypeFloat, values.data());
    return values;
}

double Sum(const std::vector<float>& values) { return std::accumulate(values.begin(), values.end(), 0.0); }

class SceneTool : public SceneFiles {
protected:
    ToolRun Vellux(const std::string& arguments) const {
        const ToolRun run = RunTool(arguments);
        fs::remove(Path("out"));
        fs::remove(Path("err"));
        return run;
    }
    std::string Q(const std::string& name) const { return "'" + Path(name).string() + "'"; }
    size_t Files() const { return size_t(std::distance(fs::directory_iterator(dir_), fs::directory_iterator())); }
};

TEST_F(SceneTool, EachFrameDependsOnlyOnTheSceneAndItsNumber) {
    WriteSceneFile(Path("rise.json"), RisingScene(10));
    const ToolRun all = Vellux("render --scene " + Q("rise.json") + " -o " + Q("all.####.tif"));
    ASSERT_EQ(all.exitCode, 0) << all.err;
    // One line per finished frame; with several workers frames may finish out of order.
    EXPECT_NE(all.err.find(" (10 of 10)\n"), std::string::npos) << all.err;
    for (int frame = 1; frame <= 10; ++frame)
        EXPECT_NE(all.err.find("frame " + std::to_string(frame) + " ("), std::string::npos) << all.err;
    double previous = 0.0;
    for (int frame = 1; frame <= 10; ++frame) {   // the Intensity channel rises: every frame is brighter
        const double sum = Sum(Pixels(Path("all.00" + std::string(frame < 10 ? "0" : "") + std::to_string(frame) + ".tif")));
        EXPECT_GT(sum, previous) << "frame " << frame;
        previous = sum;
    }
    const ToolRun part = Vellux("render -q --scene " + Q("rise.json") + " --frames 3-5 --band-rows 7 -o " + Q("part.%d.tif"));
    ASSERT_EQ(part.exitCode, 0) << part.err;
    EXPECT_EQ(part.err, "");
    for (int frame = 3; frame <= 5; ++frame) {
        const std::vector<float> alone = Pixels(Path("part." + std::to_string(frame) + ".tif"));
        ASSERT_FALSE(alone.empty());
        EXPECT_EQ(alone, Pixels(Path("all.000" + std::to_string(frame) + ".tif"))) << "frame " << frame;
    }
    EXPECT_EQ(Files(), 14u);
}

// An aperture pull: the lens look follows the scene's keyed f-number frame by frame, each frame the
// picture a single render at that f-number makes; without --lens the keys are refused.
TEST_F(SceneTool, ALensLookFollowsTheScenesKeyedFNumber) {
    Scene scene = RisingScene(3);
    scene.width = 160, scene.height = 100;
    scene.fNumber = {{1, 2.0}, {3, 8.0}};
    WriteSceneFile(Path("pull.json"), scene);
    const std::string lens = " --lens double-gauss-50mm --blades 6";
    const ToolRun pull = Vellux("render -q --scene " + Q("pull.json") + lens + " -o " + Q("pull.#.exr"));
    ASSERT_EQ(pull.exitCode, 0) << pull.err;
    const ToolRun one = Vellux("render -q --size 160x100 --light 64,45 --color 255,230,200 --f-number 8" + lens + " -o " + Q("one.exr"));
    ASSERT_EQ(one.exitCode, 0) << one.err;
    EXPECT_EQ(Pixels(Path("pull.3.exr")), Pixels(Path("one.exr")));
    EXPECT_NE(Pixels(Path("pull.1.exr")), Pixels(Path("pull.3.exr")));
    const ToolRun plain = Vellux("render -q --scene " + Q("pull.json") + " -o " + Q("plain.#.png"));
    EXPECT_EQ(plain.exitCode, 1);
    EXPECT_NE(plain.err.find("the scene keys the lens's f-number (lens.fNumber): render it with --lens"), std::string::npos)
        << plain.err;
}

TEST_F(SceneTool, ImageSequencesAreReadFrameByFrameBesideTheScene) {
    Scene scene = RisingScene(3);
    scene.input = "plate.#.png";
    WriteSceneFile(Path("plate.json"), scene);
    for (int frame = 1; frame <= 3; ++frame) {
        OIIO::ImageBuf plate(OIIO::ImageSpec(frame == 3 ? 40 : 64, 48, 3, OIIO::TypeDesc::UINT8));
        const float grey[] = {0.2f, 0.2f, 0.2f};
        OIIO::ImageBufAlgo::fill(plate, grey);
        plate.write(Path("plate." + std::to_string(frame) + ".png").string());
    }
    const ToolRun good = Vellux("render -q --scene " + Q("plate.json") + " --frames 1-2 -o " + Q("lit.#.png"));
    ASSERT_EQ(good.exitCode, 0) << good.err;
    EXPECT_GT(Sum(Pixels(Path("lit.2.png"))), Sum(Pixels(Path("plate.2.png"))));
    EXPECT_EQ(Pixels(Path("lit.2.png")).size(), 64u * 48u * 3u);

    const ToolRun changed = Vellux("render -q --scene " + Q("plate.json") + " -o " + Q("bad.#.png"));
    EXPECT_EQ(changed.exitCode, 1);
    EXPECT_NE(changed.err.find(Path("plate.3.png").string() + ": frame 3 is 40x48"), std::string::npos) << changed.err;
    EXPECT_FALSE(fs::exists(Path("bad.1.png")));
}

// A plate sequence needs no scene: every frame is the single-frame render of its plate, the frames
// found on disk unless --frames says which, and missing output folders are made.
TEST_F(SceneTool, PlateSequencesRenderWithoutAScene) {
    for (int frame = 1; frame <= 3; ++frame) {
        OIIO::ImageBuf plate(OIIO::ImageSpec(64, 48, 3, OIIO::TypeDesc::UINT16));
        const float grey[] = {0.1f * float(frame), 0.2f, 0.3f};
        OIIO::ImageBufAlgo::fill(plate, grey);
        plate.write(Path("plate." + std::to_string(frame) + ".tif").string());
    }
    const std::string light = " --light 20,30 --color '#ffc080' --star-filter 6 -q";
    const ToolRun found = Vellux("render -i " + Q("plate.#.tif") + light + " --jobs 2 -o " + Q("new/lit.####.tif"));
    ASSERT_EQ(found.exitCode, 0) << found.err << found.out;
    const ToolRun listed = Vellux("render -i " + Q("plate.#.tif") + light + " --frames 3,1 -o " + Q("two.#.tif"));
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    EXPECT_FALSE(fs::exists(Path("two.2.tif")));
    for (int frame = 1; frame <= 3; ++frame) {
        const std::string n = std::to_string(frame);
        ASSERT_EQ(Vellux("render -i " + Q("plate." + n + ".tif") + light + " -o " + Q("one." + n + ".tif")).exitCode, 0);
        const std::vector<float> single = Pixels(Path("one." + n + ".tif"));
        EXPECT_GT(Sum(single), Sum(Pixels(Path("plate." + n + ".tif"))));
        EXPECT_EQ(Pixels(Path("new/lit.000" + n + ".tif")), single) << "frame " << n;
        if (frame != 2) {
            EXPECT_EQ(Pixels(Path("two." + n + ".tif")), single) << "frame " << n;
        }
    }
    const ToolRun none = Vellux("render -i " + Q("none.#.tif") + " -o " + Q("x.#.tif"));
    EXPECT_EQ(none.exitCode, 1);
}

// A saved settings file renders as the same settings typed as options, and options change it.
TEST_F(SceneTool, SavedSettingsRenderAsTheirOptionsWould) {
    std::ofstream(Path("look.json")) << WriteSettingsText(Settings(NativeByteOrder(), 0.75, 6));
    const std::string frame = "render -q --size 96x64 --light 30,20";
    ASSERT_EQ(Vellux(frame + " --settings " + Q("look.json") + " -o " + Q("saved.tif")).exitCode, 0);
    ASSERT_EQ(Vellux(frame + " --flare-intensity 0.75 --star-filter 6 -o " + Q("typed.tif")).exitCode, 0);
    ASSERT_EQ(Vellux(frame + " --settings " + Q("look.json") + " --star-filter 0 -o " + Q("edited.tif")).exitCode, 0);
    EXPECT_EQ(Pixels(Path("saved.tif")), Pixels(Path("typed.tif")));
    EXPECT_NE(Pixels(Path("saved.tif")), Pixels(Path("edited.tif")));
    const ToolRun missing = RunTool(frame + " --settings " + Q("none.json") + " -o " + Q("x.tif"));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find(Path("none.json").string() + ": cannot read"), std::string::npos) << missing.err;
}

// A look file of an earlier version (the record as hex) renders as its settings typed as options,
// and so does the readable look the tool writes from it (an EXR's Vellux:Settings); a scene
// naming its table renders as --table would.
TEST_F(SceneTool, HexLooksAndNamedTablesRenderTheSame) {
    const std::string hexLook = std::string(VELLUX_SOURCE_DIR) + "/tests/tools/looks/hex-look.json";
    const std::string frame = "render -q --size 96x64 --light 30,20 --table " + Q(kCompiledTable);
    ASSERT_EQ(Vellux(frame + " --settings " + Q(hexLook) + " -o " + Q("hex.exr")).exitCode, 0);
    ASSERT_EQ(Vellux(frame + " --flare-intensity 0.8 --dissolve 0.25 --ring-size 0.3 --star-rotation 15 "
                             "--streak-density 40 --streak-intensity 0.05 --streak-sharpness 4 --ring-color 255,128,0 "
                             "--halo off --anamorphic-streak --star-filter 6 -o " + Q("typed.exr")).exitCode, 0);
    EXPECT_EQ(Pixels(Path("hex.exr")), Pixels(Path("typed.exr")));

    OIIO::ImageBuf written(Path("hex.exr").string());
    const std::string look = written.spec().get_string_attribute("Vellux:Settings");
    EXPECT_EQ(look.find("\"hex\""), std::string::npos) << look;
    EXPECT_NE(look.find("\"star-rotation\": 15"), std::string::npos) << look;
    std::ofstream(Path("readable.json")) << look;
    ASSERT_EQ(Vellux(frame + " --settings " + Q("readable.json") + " -o " + Q("readable.exr")).exitCode, 0);
    EXPECT_EQ(Pixels(Path("readable.exr")), Pixels(Path("hex.exr")));

    Scene scene = RisingScene(2);
    scene.table = kCompiledTable;
    WriteSceneFile(Path("named.json"), scene);
    ASSERT_EQ(Vellux("render -q --scene " + Q("named.json") + " -o " + Q("named.#.tif")).exitCode, 0);
    ASSERT_EQ(Vellux("render -q --scene " + Q("named.json") + " --table " + Q(kCompiledTable) + " -o " + Q("given.#.tif")).exitCode, 0);
    EXPECT_EQ(Pixels(Path("named.2.tif")), Pixels(Path("given.2.tif")));
}

// Ctrl-C in a sequence: the frames written stay, nothing partial is left, and the exit code is 130.
TEST_F(SceneTool, InterruptedSequencesExit130KeepingFinishedFrames) {
    Scene scene = RisingScene(40);
    scene.width = 1280, scene.height = 720;
    WriteSceneFile(Path("s.json"), scene);
    const pid_t child = fork();
    if (child == 0) {
        const std::string err = Path("err").string();
        freopen(err.c_str(), "w", stderr);
        execl(VELLUX_TOOL_PATH, "vellux", "render", "--scene", Path("s.json").c_str(), "--jobs", "1", "--star-filter", "8",
              "-o", Path("f.##.exr").c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    while (Slurp(Path("err")).find("(1 of 40)") == std::string::npos) {   // a frame is done
        ASSERT_EQ(waitpid(child, &status, WNOHANG), 0) << "the render ended before its first frame: " << Slurp(Path("err"));
        usleep(20000);
    }
    kill(child, SIGINT);
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_NE(Slurp(Path("err")).find("interrupted;"), std::string::npos) << Slurp(Path("err"));
    size_t frames = 0;
    for (const auto& entry : fs::directory_iterator(dir_)) {
        const std::string name = entry.path().filename().string();
        EXPECT_NE(name[0], '.') << "a temporary file is left: " << name;
        frames += name.rfind("f.", 0) == 0;
    }
    EXPECT_GE(frames, 1u);
    EXPECT_LT(frames, 40u);
}

// Passes and occlusion per frame: a mask pattern with a frame field hides the light on frame 2 only.
TEST_F(SceneTool, SequencesRenderPassesAndFollowOcclusionMasks) {
    WriteSceneFile(Path("s.json"), RisingScene(3));
    const ToolRun pass = Vellux("render -q --scene " + Q("s.json") + " --mode pass -o " + Q("pass.#.exr"));
    ASSERT_EQ(pass.exitCode, 0) << pass.err;
    EXPECT_EQ(Pixels(Path("pass.2.exr")).size(), 64u * 48u * 4u);
    for (int frame = 1; frame <= 3; ++frame) {
        OIIO::ImageBuf mask(OIIO::ImageSpec(64, 48, 1, OIIO::TypeDesc::FLOAT));
        const float coverage[] = {frame == 2 ? 1.0f : 0.0f};
        OIIO::ImageBufAlgo::fill(mask, coverage);
        mask.write(Path("mask." + std::to_string(frame) + ".exr").string());
    }
    const ToolRun hidden = Vellux("render -q --scene " + Q("s.json") + " --occlusion " + Q("mask.#.exr") + " -o " + Q("o.#.tif"));
    ASSERT_EQ(hidden.exitCode, 0) << hidden.err;
    EXPECT_GT(Sum(Pixels(Path("o.1.tif"))), 0.0);
    EXPECT_EQ(Sum(Pixels(Path("o.2.tif"))), 0.0);
    EXPECT_GT(Sum(Pixels(Path("o.3.tif"))), 0.0);
}

TEST_F(SceneTool, MistakesExitOneNamingTheFileOrFrameAndWriteNothing) {
    WriteSceneFile(Path("s.json"), RisingScene(10));
    const std::string scene = "render -q --scene " + Q("s.json");
    const struct {
        std::string arguments;
        std::string message;
    } cases[] = {
        {scene + " --frames 5-x -o " + Q("f.#.tif"), "--frames: '5-x' is not a frame list"},
        {scene + " --frames 1,3,1 -o " + Q("f.#.tif"), "--frames: '1,3,1' names frame 1 twice"},
        {scene + " --frames 3-99999999 -o " + Q("f.#.tif"), "has a frame number above 9999999"},
        {scene + " --frames 8-11 -o " + Q("f.#.tif"), "--frames: frame 11 is outside the scene's frames 1-10"},
        {scene + " --jobs 0 -o " + Q("f.#.tif"), "--jobs: 0 must be at least 1"},
        {scene + " --colorspace nonsense -o " + Q("f.#.tif"), "--colorspace: 'nonsense' is not a colour space"},
        {scene + " --frames 2-3 -o " + Q("f.tif"), "-o: '" + Path("f.tif").string() + "' has no frame number field"},
        {scene + " -o " + Q("s.json/f.#.tif"), ": cannot create the folder " + Path("s.json").string()},
        {"render -q --scene " + Q("none.json") + " -o " + Q("f.#.tif"), Path("none.json").string() + ": cannot read"},
        {"scene key " + Q("s.json") + " --frames 0-2", "--frames: 0-2 is outside the scene's frames 1-10"},
    };
    const std::string before = Slurp(Path("s.json"));
    for (const auto& c : cases) {
        const ToolRun run = Vellux(c.arguments);
        EXPECT_EQ(run.exitCode, 1) << c.arguments;
        EXPECT_EQ(run.err.rfind("vellux: ", 0), 0u) << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        EXPECT_EQ(Files(), 1u) << c.arguments;
    }
    EXPECT_EQ(Slurp(Path("s.json")), before);
    // A single frame needs no field.
    EXPECT_EQ(Vellux(scene + " --frames 4 -o " + Q("four.tif")).exitCode, 0);
    EXPECT_TRUE(fs::exists(Path("four.tif")));
}

TEST_F(SceneTool, InfoShowsThePluginsOwnTextsAndItsCommands) {
    const ToolRun info = Vellux("info --plugin '" + std::string(VELLUX_PLUGIN_PATH) + "'");
    ASSERT_EQ(info.exitCode, 0) << info.err;
    EXPECT_NE(info.out.find("name         Corvane\u2122 Vellux\n"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("type         VLUX, version 1\n"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("description  This light effects plugin can simulate lens flares.  It is"), std::string::npos);
    size_t supported = 0;
    for (size_t at = 0; (at = info.out.find("  supported\n", at)) != std::string::npos; ++at) ++supported;
    EXPECT_EQ(supported, 12u) << info.out;
}

}  // namespace
