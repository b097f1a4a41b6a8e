// Sequences on several workers: frame lists, the same pixels on any number of workers, and a
// failing frame or a cancel stopping every worker without leaving a partial file.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include "engine/engine.h"
#include "host/resource_services.h"

namespace {

using namespace vellux::engine;
namespace fs = std::filesystem;

TEST(FrameLists, ReadWhatArtistsTypeAndRefuseTheRest) {
    const struct {
        const char* text;
        std::vector<int32_t> frames;
    } good[] = {
        {"7", {7}},
        {"1-4", {1, 2, 3, 4}},
        {"1-9x3", {1, 4, 7}},
        {"1-6y2", {2, 4, 6}},
        {"1,5,10-12", {1, 5, 10, 11, 12}},
        {"4-2", {4, 3, 2}},
    };
    for (const auto& c : good) EXPECT_EQ(ParseFrameList("--frames", c.text), c.frames) << c.text;
    for (const char* bad : {"", "a", "1-", "5-x", "1,,2x", "1,1", "-3", "0-100000000", "99999999999", "1-4 x2", "3a",
                            "1-4x", "7,", "1--3", "5-5y1"})
        EXPECT_THROW(ParseFrameList("--frames", bad), std::invalid_argument) << bad;
}

// A pattern finds the frames whose files exist: at least the field's width of digits, the text
// around the field matched exactly, other names and folders left alone.
TEST(FramePatterns, FindTheFramesOnDisk) {
    const fs::path dir = fs::temp_directory_path() / ("vellux_frames_on_disk_" + std::to_string(getpid()));
    fs::create_directories(dir / "sub");
    for (const char* name : {"a.1.exr", "a.01.exr", "a.0002.exr", "a.12345.exr", "a.x.exr", "a..exr", "a.0003.exrx",
                             "b%7.exr", "sub/s.0005.png"})
        std::ofstream(dir / name) << "";
    const struct {
        const char* pattern;
        std::vector<int32_t> frames;
    } cases[] = {
        {"a.####.exr", {2, 12345}},
        {"a.%02d.exr", {1, 2, 12345}},
        {"a.#.exr", {1, 2, 12345}},
        {"a.%d.exr", {1, 2, 12345}},
        {"b%%#.exr", {7}},
        {"sub/s.####.png", {5}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(FramePattern::Parse((dir / c.pattern).string()).FramesOnDisk(), c.frames) << c.pattern;
    EXPECT_THROW(FramePattern::Parse((dir / "none.####.exr").string()).FramesOnDisk(), std::runtime_error);
    fs::remove_all(dir);
}

class Sequences : public testing::Test {
protected:
    void SetUp() override {
        vellux::host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR);
        dir_ = fs::temp_directory_path() / ("vellux_sequences_" + std::to_string(getpid()) + "_" +
                                            testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // `frames` half-float plates (a gradient that differs per frame, values above 1 included) and a
    // scene over them: the light moves and warms, Intensity and Star Rotation are keyed.
    fs::path PlateScene(int32_t frames) {
        for (int32_t frame = 1; frame <= frames; ++frame) {
            OIIO::ImageBuf plate(OIIO::ImageSpec(96, 54, 4, OIIO::TypeHalf));
            const float top[] = {0.1f * float(frame), 0.2f, 0.3f, 1.0f}, bottom[] = {1.5f, 0.05f, 0.0f, 0.5f};
            OIIO::ImageBufAlgo::fill(plate, top, bottom);
            plate.write((dir_ / ("plate." + std::to_string(frame) + ".exr")).string());
        }
        Scene scene;
        scene.firstFrame = 1;
        scene.lastFrame = frames;
        scene.input = "plate.#.exr";
        scene.light[1] = LightKey{20.0, 10.0, {255, 255, 255}, 1.0, 2.0};
        scene.light[frames] = LightKey{80.0, 40.0, {255, 180, 120}, 1.5, 4.0};
        scene.channels["Intensity"] = {{1, 0.2}, {frames, 0.9}};
        scene.channels["Star Rotation"] = {{1, 0.0}, {frames, 40.0}};
        WriteSceneFile(dir_ / "shot.json", scene);
        return dir_ / "shot.json";
    }

    RenderRequest Request(const fs::path& scene, const std::string& output, int32_t jobs) const {
        RenderRequest request;
        request.scene = scene;
        request.output = dir_ / output;
        request.plugin = VELLUX_PLUGIN_PATH;
        request.bandRows = 7;
        request.jobs = jobs;
        request.settings.starFilter = 6;
        return request;
    }

    std::vector<float> Pixels(const std::string& name) const {
        OIIO::ImageBuf image((dir_ / name).string());
        std::vector<float> values(size_t(image.spec().image_pixels()) * size_t(image.nchannels()));
        EXPECT_TRUE(image.get_pixels(image.roi(), OIIO::TypeFloat, values.data())) << name << image.geterror();
        return values;
    }

    // Hidden temporary files left in the folder.
    int Temporaries() const {
        int count = 0;
        for (const auto& entry : fs::directory_iterator(dir_)) count += entry.path().filename().string()[0] == '.';
        return count;
    }

    fs::path dir_;
};

TEST_F(Sequences, EveryNumberOfWorkersGivesTheSamePixels) {
    const fs::path scene = PlateScene(8);
    std::vector<int32_t> done;
    RenderReporting reporting;
    reporting.frameDone = [&](int32_t, int32_t k, int32_t m) { done.push_back(k * 100 + m); };
    const SequenceResult one = RenderSceneSequence(Request(scene, "one.#.exr", 1), reporting);
    EXPECT_EQ(done, (std::vector<int32_t>{108, 208, 308, 408, 508, 608, 708, 808}));
    for (const int32_t jobs : {2, 3}) {
        const std::string prefix = "jobs" + std::to_string(jobs);
        const SequenceResult many = RenderSceneSequence(Request(scene, prefix + ".#.exr", jobs));
        EXPECT_EQ(std::set<int32_t>(many.written.begin(), many.written.end()),
                  std::set<int32_t>(one.written.begin(), one.written.end()));
        for (int32_t frame = 1; frame <= 8; ++frame) {
            const std::string n = std::to_string(frame);
            EXPECT_EQ(Pixels(prefix + "." + n + ".exr"), Pixels("one." + n + ".exr")) << prefix << " frame " << n;
        }
    }
    // The frames differ from each other: the test would catch workers rendering the wrong frame.
    EXPECT_NE(Pixels("one.2.exr"), Pixels("one.7.exr"));
}

TEST_F(Sequences, AFailingFrameStopsEveryWorkerAndNamesTheFrame) {
    const fs::path scene = PlateScene(8);
    // Frame 5's header reads (so the checks before the render pass) but its pixels are cut off.
    const fs::path broken = dir_ / "plate.5.exr";
    fs::resize_file(broken, fs::file_size(broken) / 2);
    RenderRequest request = Request(scene, "out.#.exr", 2);
    try {
        RenderSceneSequence(request);
        FAIL() << "the broken frame rendered";
    } catch (const std::runtime_error& error) {
        const std::string message = error.what();
        EXPECT_NE(message.find("frame 5 (" + (dir_ / "out.5.exr").string() + ") not written"), std::string::npos) << message;
        EXPECT_NE(message.find(broken.string()), std::string::npos) << message;
    }
    EXPECT_FALSE(fs::exists(dir_ / "out.5.exr"));
    EXPECT_EQ(Temporaries(), 0);
}

TEST_F(Sequences, ACancelStopsEveryWorkerAndKeepsTheFinishedFrames) {
    const fs::path scene = PlateScene(8);
    std::atomic<bool> cancel{false};
    RenderReporting reporting;
    reporting.cancel = &cancel;
    int32_t reported = 0;
    reporting.frameDone = [&](int32_t, int32_t done, int32_t) {
        reported = done;
        cancel = true;
    };
    EXPECT_THROW(RenderSceneSequence(Request(scene, "out.#.exr", 2), reporting), std::runtime_error);
    int written = 0;
    for (int32_t frame = 1; frame <= 8; ++frame) written += fs::exists(dir_ / ("out." + std::to_string(frame) + ".exr"));
    EXPECT_GE(reported, 1);
    EXPECT_GE(written, reported);
    EXPECT_LT(written, 8);
    EXPECT_EQ(Temporaries(), 0);
}

}  // namespace
