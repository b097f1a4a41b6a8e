// `vellux track` end to end on synthetic footage written to disk (tests/support/light_footage.h):
// the scene it writes follows the light and renders as it is; bad input is one line, exit 1 and
// no scene.
#include <gtest/gtest.h>

#include "tool_fixture.h"

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "engine/frame_sequence.h"
#include "engine/sample_shot.h"
#include "engine/scene.h"
#include "tests/support/light_footage.h"
#include "tools/vellux/track_command.h"

namespace {

using namespace vellux::engine;
namespace fs = std::filesystem;

// A frame written as a float EXR, or as an 8-bit sRGB PNG (the frame already rounded to 8 bits).
void WriteFrame(const fs::path& file, const LinearFrame& frame, bool eightBit) {
    OIIO::ImageBuf image(OIIO::ImageSpec(frame.width, frame.height, 3, OIIO::TypeFloat));
    std::vector<float> pixels = frame.rgb;
    if (eightBit)
        for (float& v : pixels) v = float(v <= 0.0031308f ? 12.92 * v : 1.055 * std::pow(double(v), 1.0 / 2.4) - 0.055);
    image.set_pixels(OIIO::ROI(0, frame.width, 0, frame.height, 0, 1, 0, 3), OIIO::TypeFloat, pixels.data());
    ASSERT_TRUE(image.write(file.string(), eightBit ? OIIO::TypeUInt8 : OIIO::TypeHalf)) << image.geterror();
}

class Track : public ScratchTest {
protected:
    // The shot's frames as plate.0001.EXT on; returns the pattern.
    std::string WriteShot(const footage::Shot& shot, bool eightBit, int frames, const std::vector<footage::Disc>& extra = {}) {
        const std::string pattern = Path(std::string("plate.####.") + (eightBit ? "png" : "exr")).string();
        for (int t = 0; t < frames; ++t) {
            std::vector<footage::Disc> discs{shot.DiscAt(t)};
            discs.insert(discs.end(), extra.begin(), extra.end());
            WriteFrame(FramePattern::Parse(pattern).For(t + 1),
                       footage::MakeFrame(shot.width, shot.height, discs, shot.BarAt(t), uint32_t(500 + t), eightBit), eightBit);
        }
        return pattern;
    }

    bool OnlyTheFramesAndRunOutput() const {
        for (const auto& entry : fs::directory_iterator(dir_)) {
            const std::string name = entry.path().filename().string();
            if (name != "out" && name != "err" && name.rfind("plate.", 0) != 0) return false;
        }
        return true;
    }
};

class TrackPlates : public Track, public testing::WithParamInterface<bool> {};

// Positions and intensities from the footage on disk, and the scene renders on its own plate.
TEST_P(TrackPlates, WritesASceneThatFollowsTheLightAndRenders) {
    const bool eightBit = GetParam();
    const footage::Shot shot;
    const std::string pattern = WriteShot(shot, eightBit, shot.frames);
    ASSERT_TRUE(Succeeded(RunTool("track -q -i '" + pattern + "' -o '" + Path("lights.json").string() + "'")));
    const SceneReadResult read = ReadSceneFile(Path("lights.json"));
    ASSERT_TRUE(read.scene) << (read.errors.empty() ? "" : read.errors[0].Text());
    const Scene& scene = *read.scene;
    EXPECT_EQ(scene.firstFrame, 1);
    EXPECT_EQ(scene.lastFrame, shot.frames);
    EXPECT_EQ(scene.input, fs::path(pattern).filename().string());
    ASSERT_EQ(scene.light.size(), size_t(shot.frames));
    double squared = 0.0;
    for (int t = 0; t < shot.frames; ++t) {
        const LightKey& key = scene.light.at(t + 1);
        const footage::Disc truth = shot.DiscAt(t);
        squared += std::pow(key.x - truth.x, 2) + std::pow(key.y - truth.y, 2);
        const double visible = footage::VisibleFraction(truth, shot.BarAt(t), shot.width, shot.height, eightBit);
        EXPECT_NEAR(key.intensity, visible, 0.05) << "frame " << t + 1;
        EXPECT_GT(key.color[0], key.color[2]);   // the warm light's colour
    }
    EXPECT_LE(std::sqrt(squared / shot.frames), 0.25);
    ASSERT_TRUE(Succeeded(RunTool("render -q --scene '" + Path("lights.json").string() + "' --frames 1-2 -o '" +
                                  Path("out.####.exr").string() + "'")));
    EXPECT_TRUE(fs::exists(Path("out.0002.exr")));
}

INSTANTIATE_TEST_SUITE_P(Plates, TrackPlates, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool>& info) { return info.param ? "Clipped8Bit" : "LinearFloat"; });

// --lights 2 writes a scene a light, the brightest first; --at picks the one nearest the point.
TEST_F(Track, MoreLightsAndALightByPoint) {
    const footage::Shot shot;
    footage::Disc lamp{130.0, 15.0, 4.0};
    lamp.level = 10.0;
    const std::string pattern = WriteShot(shot, false, 6, {lamp});
    ASSERT_TRUE(Succeeded(RunTool("track -q -i '" + pattern + "' -o '" + Path("lights.json").string() + "' --lights 2")));
    const SceneReadResult second = ReadSceneFile(Path("lights.2.json"));
    ASSERT_TRUE(second.scene);
    EXPECT_NEAR(second.scene->light.at(6).x, lamp.x, 0.1);
    ASSERT_TRUE(Succeeded(RunTool("track -q -i '" + pattern + "' -o '" + Path("lamp.json").string() + "' --at 125,20@4")));
    const SceneReadResult byPoint = ReadSceneFile(Path("lamp.json"));
    ASSERT_TRUE(byPoint.scene);
    ASSERT_EQ(byPoint.scene->light.size(), 6u);   // followed backward from frame 4 as well as forward
    for (const auto& [frame, key] : byPoint.scene->light) EXPECT_NEAR(key.y, lamp.y, 0.1) << "frame " << frame;
}

// A shot that opens before its light comes into view: the light is found on the first frame that
// has it and followed from there; the frames before are keyed hidden.
TEST_F(Track, ALightThatComesLaterIsFoundWhereItComes) {
    const footage::Shot shot;
    const int frames = 10, dark = 3;
    const std::string pattern = Path("plate.####.exr").string();
    for (int t = 0; t < frames; ++t) {
        std::vector<footage::Disc> discs;
        if (t >= dark) discs.push_back(shot.DiscAt(t));
        WriteFrame(FramePattern::Parse(pattern).For(t + 1), footage::MakeFrame(shot.width, shot.height, discs, std::nullopt, 40, false), false);
    }
    ASSERT_TRUE(Succeeded(RunTool("track -q -i '" + pattern + "' -o '" + Path("lights.json").string() + "'")));
    const SceneReadResult read = ReadSceneFile(Path("lights.json"));
    ASSERT_TRUE(read.scene);
    ASSERT_EQ(read.scene->light.size(), size_t(frames));
    for (int t = 0; t < frames; ++t) {
        const LightKey& key = read.scene->light.at(t + 1);
        EXPECT_EQ(key.intensity > 0.0, t >= dark) << "frame " << t + 1;
        if (t >= dark) EXPECT_NEAR(std::hypot(key.x - shot.DiscAt(t).x, key.y - shot.DiscAt(t).y), 0.0, 0.25) << "frame " << t + 1;
    }
}

// The sample shot (sample-frame --frames): the lamp picked by --at is followed along its path,
// behind the post too, though the landscape's sun is brighter.
TEST_F(Track, FollowsTheSampleShotsLamp) {
    const FrameSize size{480, 270};
    const int frames = 24;
    ASSERT_TRUE(Succeeded(RunTool("sample-frame --size 480x270 --frames 1-24 -o '" + Path("plate.####.png").string() + "'")));
    const std::array<double, 2> start = SampleShotLamp(size, 0, frames);
    ASSERT_TRUE(Succeeded(RunTool("track -q -i '" + Path("plate.####.png").string() + "' -o '" + Path("lamp.json").string() +
                                  "' --at " + std::to_string(int(start[0])) + "," + std::to_string(int(start[1])))));
    const SceneReadResult read = ReadSceneFile(Path("lamp.json"));
    ASSERT_TRUE(read.scene);
    double squared = 0.0;
    int hidden = 0;
    for (int i = 0; i < frames; ++i) {
        const LightKey& key = read.scene->light.at(i + 1);
        const std::array<double, 2> truth = SampleShotLamp(size, i, frames);
        squared += std::pow(key.x - truth[0], 2) + std::pow(key.y - truth[1], 2);
        hidden += key.intensity == 0.0;
    }
    EXPECT_LE(std::sqrt(squared / frames), 0.5);
    EXPECT_GE(hidden, 1);
}

struct BadInput {
    std::string name;
    std::string arguments;       // after -i PATTERN -o lights.json
    bool dark;                   // frames without a light
    int otherSizedFrame;         // 0: none
    std::string message;
};

class TrackBadInput : public Track, public testing::WithParamInterface<BadInput> {};

TEST_P(TrackBadInput, OneLineExitOneNoScene) {
    const BadInput& bad = GetParam();
    footage::Shot shot;
    shot.frames = 4;
    const std::string pattern = Path("plate.####.exr").string();
    for (int t = 0; t < shot.frames; ++t) {
        const int width = t + 1 == bad.otherSizedFrame ? shot.width / 2 : shot.width;
        std::vector<footage::Disc> discs;
        if (!bad.dark) discs.push_back(shot.DiscAt(t));
        WriteFrame(FramePattern::Parse(pattern).For(t + 1), footage::MakeFrame(width, shot.height, discs, std::nullopt, 9, false), false);
    }
    const ToolRun run = RunTool("track -i '" + pattern + "' -o '" + Path("lights.json").string() + "' " + bad.arguments);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_NE(run.err.find(bad.message), std::string::npos) << run.err;
    EXPECT_TRUE(OnlyTheFramesAndRunOutput());
}

const BadInput kBadInputs[] = {
    {"NoLight", "-q", true, 0, "no light found on frames 1 to 4"},
    {"NoLightAtThatThreshold", "-q --threshold 500", false, 0, "no light found on frames 1 to 4 (nothing at or above threshold 500)"},
    {"NoLightNearThePointsFrame", "-q --at 40,20@2 --threshold 500", false, 0, "no light found on frame 2"},
    {"FrameOfAnotherSize", "-q", false, 3, "frame 3 is 80x96, frame 1 is 160x96"},
    {"PointOutsideTheFrame", "-q --at 400,20", false, 0, "--at: 400,20 is outside frame 1 (160x96)"},
    {"PointOnAFrameNotTracked", "-q --at 40,20@9", false, 0, "--at: frame 9 is not among the frames tracked"},
};

INSTANTIATE_TEST_SUITE_P(Cases, TrackBadInput, testing::ValuesIn(kBadInputs),
                         [](const testing::TestParamInfo<BadInput>& info) { return info.param.name; });

TEST(TrackPoint, ReadsXYAndFrame) {
    const vellux::engine::TrackPoint plain = vellux::tool::ParseTrackPoint("12.5,40");
    EXPECT_EQ(plain.x, 12.5);
    EXPECT_EQ(plain.y, 40.0);
    EXPECT_FALSE(plain.frame);
    EXPECT_EQ(vellux::tool::ParseTrackPoint("3, 4 @ 17").frame, 17);
    EXPECT_EQ(vellux::tool::ParseTrackPoint("-2.5,1e1").y, 10.0);
    for (const char* bad : {"12", "a,b", "1,2@", "1,2@-3", "1,2@1.5", "1,2,3", "1@2,3", ",2"})
        EXPECT_THROW(vellux::tool::ParseTrackPoint(bad), std::invalid_argument) << bad;
}

}  // namespace
