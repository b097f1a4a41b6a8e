// One frame painted on several threads (engine/frame_bands.h): the same pixels on any number of
// them, progress serialised, a cancel stopping every thread with nothing written, and a copy of
// the plug-in that will not load leaving the frame to the others, said once.
#include <gtest/gtest.h>

#include <unistd.h>

#include <OpenImageIO/imagebufalgo.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine/flare.h"
#include "engine/frame_bands.h"
#include "engine/frame_render.h"
#include "engine/row_parts.h"
#include "engine/scene.h"
#include "engine/scene_render.h"
#include "host/resource_services.h"

namespace {

namespace fs = std::filesystem;
using namespace vellux::engine;
using vellux::host::ProgressReport;

// ---- The partition -----------------------------------------------------------------------------

TEST(FrameBands, CoverEveryRowOnceInFixedBandsFromTheTop) {
    for (const int32_t height : {1, 63, 64, 65, 128, 517}) {
        int32_t next = 0;
        for (const Band band : FrameBands(height)) {
            ASSERT_EQ(band.top, next);
            ASSERT_EQ(band.top % kFrameBandRows, 0);
            ASSERT_EQ(band.bottom, std::min(height, band.top + kFrameBandRows));
            next = band.bottom;
        }
        EXPECT_EQ(next, height);
    }
}

TEST(FrameBands, RowsAreCoveredByWholeBands) {
    struct Case {
        Band rows;
        int32_t height;
        Band covered;
    };
    for (const Case& c : {Case{{0, 1}, 200, {0, 64}}, Case{{63, 65}, 200, {0, 128}}, Case{{64, 128}, 200, {64, 128}},
                          Case{{150, 400}, 200, {128, 200}}, Case{{-5, 3}, 200, {0, 64}}, Case{{90, 90}, 200, {90, 90}}}) {
        const Band covered = CoveringBands(c.rows, c.height);
        EXPECT_EQ(covered.top, c.covered.top) << c.rows.top << ".." << c.rows.bottom;
        EXPECT_EQ(covered.bottom, c.covered.bottom) << c.rows.top << ".." << c.rows.bottom;
    }
}

TEST(FrameBands, ThreadsAreCappedByTheBandsAndZeroIsEveryCore) {
    EXPECT_EQ(FrameThreads(8, 64), 1);
    EXPECT_EQ(FrameThreads(8, 65), 2);
    EXPECT_EQ(FrameThreads(3, 1000), 3);
    EXPECT_GE(FrameThreads(0, 100000), 1);
    EXPECT_THROW(FrameThreads(-1, 100), std::invalid_argument);
}

// Row-by-row work: parts cover the rows once, in order, no more than the threads and none shorter
// than asked unless the rows are; every part runs, and a failing part's exception comes back.
TEST(RowParts, CoverTheRowsOnceAndEveryPartRuns) {
    struct Case {
        Band rows;
        int32_t threads, leastRows;
        size_t parts;
    };
    for (const Case& c : {Case{{0, 100}, 2, 32, 2}, Case{{0, 100}, 8, 32, 3}, Case{{10, 20}, 4, 32, 1},
                          Case{{5, 5}, 3, 1, 1}, Case{{0, 7}, 3, 1, 3}}) {
        SCOPED_TRACE(std::to_string(c.rows.top) + ".." + std::to_string(c.rows.bottom) + " on " + std::to_string(c.threads));
        const std::vector<Band> parts = RowParts(c.rows, c.threads, c.leastRows);
        ASSERT_EQ(parts.size(), c.parts);
        EXPECT_EQ(parts.front().top, c.rows.top);
        EXPECT_EQ(parts.back().bottom, c.rows.bottom);
        for (size_t i = 1; i < parts.size(); ++i) EXPECT_EQ(parts[i].top, parts[i - 1].bottom);
        std::atomic<int32_t> rows{0};
        ForRowParts(c.rows, c.threads, c.leastRows, [&](Band part) { rows += part.bottom - part.top; });
        EXPECT_EQ(rows.load(), c.rows.bottom - c.rows.top);
    }
    EXPECT_GE(RowParts({0, 1000}, 0, 1).size(), 1u);
    EXPECT_THROW(RowParts({0, 10}, -1, 1), std::invalid_argument);
    EXPECT_THROW(ForRowParts({0, 100}, 3, 1, [](Band part) { if (part.top > 0) throw std::runtime_error("part"); }),
                 std::runtime_error);
}

// ---- Flares on several threads -----------------------------------------------------------------

class FrameThreadsTest : public testing::Test {
protected:
    static void SetUpTestSuite() { vellux::host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR); }

    static FlareSetup Setup(const SettingEdits& edits = {}) {
        FlareSetup setup;
        setup.plugin = VELLUX_PLUGIN_PATH;
        setup.edits = edits;
        return setup;
    }

    // The flare's host offers the plug-in 4 MiB rather than 64 for its working record: every
    // band's SETF grows the record to what is offered, which unoptimised builds (the sanitizers')
    // pay for byte by byte. The copies are offered the same.
    static void OfferLittleMemory(Flare& flare) { flare.host().SetFreeBytes(4 << 20); }

    static PluginPixels Painted(Flare& flare, FrameSize size, const FlareLight& light, int16_t depth, int32_t bandRows) {
        PluginPixels pixels(size.width, size.height, depth);
        flare.Paint(pixels.View(), light, bandRows);
        return pixels;
    }

    static int32_t PaintedRows(const PluginPixels& pixels) {
        int32_t rows = 0;
        for (int32_t y = 0; y < pixels.height; ++y)
            rows += std::any_of(pixels.Row(y), pixels.Row(y) + pixels.RowBytes(), [](uint8_t b) { return b != 0; });
        return rows;
    }
};

// The heavy look of the benchmarks: star filter 8, the anamorphic streak, 300 random streaks.
SettingEdits HeavyLook() {
    SettingEdits edits;
    edits.starFilter = 8;
    edits.anamorphicStreak = true;
    edits.randomStreaks = true;
    edits.streakDensity = 300.0;
    edits.flareIntensity = 1.0;
    return edits;
}

struct PictureCase {
    const char* name;
    bool heavy;
    FrameSize size;
    double lightX, lightY;   // fractions of the frame
    int32_t bandRows;
    int16_t depth;
};

TEST_F(FrameThreadsTest, EveryThreadCountPaintsTheSamePixels) {
    const PictureCase cases[] = {
        {"default, even, inside", false, {160, 520}, 0.3, 0.35, 0, 48},
        {"default, odd, inside, bands of 1 row", false, {121, 515}, 0.6, 0.45, 1, 32},
        {"default, odd, outside", false, {121, 515}, 1.15, -0.1, 0, 48},
        {"heavy, even, inside", true, {160, 520}, 0.3, 0.35, 0, 48},
        {"heavy, odd, inside, bands of 1 row", true, {121, 515}, 0.45, 0.6, 1, 32},
        {"heavy, even, outside", true, {160, 520}, -0.2, 1.3, 7, 32},
    };
    for (const PictureCase& c : cases) {
        SCOPED_TRACE(c.name);
        Flare flare(Setup(c.heavy ? HeavyLook() : SettingEdits{}));
        OfferLittleMemory(flare);
        const FlareLight light{c.lightX * c.size.width, c.lightY * c.size.height, {255, 240, 220}, 1.0, 0.0};
        flare.SetThreads(1);
        const PluginPixels one = Painted(flare, c.size, light, c.depth, c.bandRows);
        ASSERT_GT(PaintedRows(one), 0);
        for (const int32_t threads : {2, 3, 8}) {
            flare.SetThreads(threads);
            EXPECT_TRUE(Painted(flare, c.size, light, c.depth, c.bandRows).bytes == one.bytes) << threads << " threads";
        }
        // And on fresh flares, whose copies painted nothing before.
        Flare fresh(Setup(c.heavy ? HeavyLook() : SettingEdits{}));
        OfferLittleMemory(fresh);
        fresh.SetThreads(3);
        EXPECT_TRUE(Painted(fresh, c.size, light, c.depth, c.bandRows).bytes == one.bytes) << "a fresh flare";
    }
}

// A host's hook readies each band just before it is painted, on the painting thread (the frei0r
// filter copies its input there): the frame is the one painted over the readied whole, on any
// number of threads, and every band is readied once.
TEST_F(FrameThreadsTest, EachBandIsReadiedOnceBeforeItIsPainted) {
    const FrameSize size{97, 300};
    const FlareLight light{40.0, 120.0, {255, 255, 255}, 1.0, 0.0};
    PluginPixels plate(size.width, size.height, 32);
    for (size_t i = 0; i < plate.bytes.size(); ++i) plate.bytes[i] = uint8_t(i * 7 % 251);
    Flare flare(Setup(HeavyLook()));
    OfferLittleMemory(flare);
    PluginPixels whole = plate;
    flare.Paint(whole.View(), light);
    for (const int32_t threads : {1, 2, 3}) {
        SCOPED_TRACE(std::to_string(threads) + " threads");
        flare.SetThreads(threads);
        PluginPixels readied(size.width, size.height, 32);
        std::atomic<int32_t> rows{0};
        flare.Paint(readied.View(), light, 0, [&](Band band) {
            const size_t from = size_t(band.top) * size_t(plate.RowBytes()), to = size_t(band.bottom) * size_t(plate.RowBytes());
            std::copy(plate.bytes.begin() + ptrdiff_t(from), plate.bytes.begin() + ptrdiff_t(to), readied.bytes.begin() + ptrdiff_t(from));
            rows += band.bottom - band.top;
        });
        EXPECT_EQ(rows.load(), size.height);
        EXPECT_TRUE(readied.bytes == whole.bytes);
    }
}

// The first band is painted as one run of the whole frame paints it, and the partition paints
// every band as that band's own run after a SETF.
TEST_F(FrameThreadsTest, EachBandIsItsOwnRunAfterASetup) {
    const FrameSize size{150, 200};
    const FlareLight light{60.0, 90.0, {255, 255, 255}, 1.0, 0.0};
    Flare flare(Setup(HeavyLook()));
    OfferLittleMemory(flare);
    flare.SetThreads(3);
    const PluginPixels banded = Painted(flare, size, light, 48, 0);
    for (const Band band : FrameBands(size.height)) {
        PluginPixels alone(size.width, size.height, 48);
        flare.instance().Setup(MakeFrameSetup(size.width, size.height, light));
        flare.instance().Generate(alone.View(), band);
        const size_t from = size_t(band.top) * size_t(alone.RowBytes()), to = size_t(band.bottom) * size_t(alone.RowBytes());
        EXPECT_TRUE(std::equal(alone.bytes.begin() + ptrdiff_t(from), alone.bytes.begin() + ptrdiff_t(to),
                               banded.bytes.begin() + ptrdiff_t(from)))
            << "rows " << band.top << " to " << band.bottom;
    }
}

// Every front end's composite goes through the same bands: a black 16-bit frame, a float pass;
// and a linear pass of a light bright enough to clip, whose levels come from the darker exposures
// painted on the same threads and worked out a part of the rows on each.
TEST_F(FrameThreadsTest, CompositesAndPassesAreTheSameOnEveryThreadCount) {
    const FrameSize size{131, 201};
    const FlareLight light{50.0, 80.0, {255, 255, 255}, 1.0, 0.0}, bright{70.0, 110.0, {255, 255, 255}, 4.0, 0.0};
    Flare flare(Setup(HeavyLook()));
    OfferLittleMemory(flare);
    std::vector<float> one(size_t(size.width) * size_t(size.height) * 4), many(one.size());
    std::vector<float> linear(one.size()), linearMany(one.size());
    flare.SetThreads(1);
    const OIIO::ImageBuf black = flare.CompositeBlack(size, light, {});
    flare.PassInto(size, light, kDisplaySpace, one.data());
    flare.PassInto(size, bright, "linear", linear.data(), true);
    ASSERT_GT(*std::max_element(linear.begin(), linear.end()), 1.0f) << "the bright light does not clip";
    for (const int32_t threads : {2, 3, 8}) {
        SCOPED_TRACE(std::to_string(threads) + " threads");
        flare.SetThreads(threads);
        const OIIO::ImageBuf blackMany = flare.CompositeBlack(size, light, {});
        flare.PassInto(size, light, kDisplaySpace, many.data());
        flare.PassInto(size, bright, "linear", linearMany.data(), true);
        EXPECT_EQ(OIIO::ImageBufAlgo::compare(black, blackMany, 0.0f, 0.0f).nfail, 0u);
        EXPECT_TRUE(one == many);
        EXPECT_TRUE(linear == linearMany);
    }
}

// Plates are blended a run of bands on each thread, float plates with a blender of their own each.
TEST_F(FrameThreadsTest, PlatesAreBlendedTheSameOnEveryThreadCount) {
    const FrameSize size{157, 301};
    const FlareLight light{60.0, 150.0, {255, 255, 255}, 3.0, 0.0};
    Flare flare(Setup(HeavyLook()));
    OfferLittleMemory(flare);
    for (const OIIO::TypeDesc type : {OIIO::TypeUInt8, OIIO::TypeFloat}) {
        OIIO::ImageBuf plate(OIIO::ImageSpec(size.width, size.height, 3, type));
        const float grey[3] = {0.3f, 0.4f, 0.5f};
        OIIO::ImageBufAlgo::fill(plate, grey);
        for (const Blend blend : {Blend::display, Blend::add}) {
            SCOPED_TRACE(std::string(type.c_str()) + " " + BlendName(blend));
            flare.SetThreads(1);
            const OIIO::ImageBuf one = flare.Composite(plate, light, {0, "", blend});
            for (const int32_t threads : {2, 3, 8}) {
                flare.SetThreads(threads);
                const OIIO::ImageBuf many = flare.Composite(plate, light, {0, "", blend});
                EXPECT_EQ(OIIO::ImageBufAlgo::compare(one, many, 0.0f, 0.0f).nfail, 0u) << threads << " threads";
            }
        }
    }
}

// A lens's own flare is painted a part of the rows on each thread, each part with a ghost canvas
// of its own: the same floats on any number of threads, at an odd size, with the light inside the
// frame and outside it, its ghosts large (gathered coarsely) and small (spread on the frame), the
// starburst's rays crossing the parts.
TEST_F(FrameThreadsTest, ALensLookIsTheSameOnEveryThreadCount) {
    FlareSetup setup = Setup();
    setup.lens = LensLookOptions{std::string(VELLUX_LENS_DIR "/double-gauss-50mm.json")};
    setup.lens->fNumber = 8.0, setup.lens->blades = 6;   // a starburst with rays
    Flare flare(setup);
    const FrameSize size{301, 203};
    for (const FlareLight& light : {FlareLight{90.0, 70.0, {255, 230, 200}, 1.0, 0.0},
                                    FlareLight{312.0, 120.0, {255, 255, 255}, 2.0, 0.0}}) {
        SCOPED_TRACE(std::to_string(light.x) + "," + std::to_string(light.y));
        std::vector<float> one(size_t(size.width) * size_t(size.height) * 4), many(one.size());
        flare.SetThreads(1);
        flare.PassInto(size, light, "linear", one.data());
        ASSERT_GT(*std::max_element(one.begin(), one.end()), 0.0f);
        for (const int32_t threads : {2, 3, 8}) {
            flare.SetThreads(threads);
            flare.PassInto(size, light, "linear", many.data());
            EXPECT_TRUE(many == one) << threads << " threads";
        }
    }
}

TEST_F(FrameThreadsTest, ProgressIsSerialisedAndCountsTheWholeFrame) {
    const FrameSize size{100, 517};
    Flare flare(Setup(HeavyLook()));
    OfferLittleMemory(flare);
    flare.host().SetReportTicks(0);
    std::atomic<int> inside{0};
    bool overlapped = false;
    std::vector<int32_t> values;
    flare.SetProgress([&](const ProgressReport& report) {
        overlapped = overlapped || inside.fetch_add(1) != 0;
        values.push_back(report.value);
        EXPECT_EQ(report.max, size.height);
        inside.fetch_sub(1);
    });
    flare.SetThreads(3);
    Painted(flare, size, {40.0, 200.0, {255, 255, 255}, 1.0, 0.0}, 48, 5);
    EXPECT_FALSE(overlapped);
    ASSERT_FALSE(values.empty());
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    EXPECT_EQ(values.back(), size.height);
}

TEST_F(FrameThreadsTest, ACancelStopsEveryThreadAndThrowsTheCancelCode) {
    const FrameSize size{200, 640};   // 10 bands
    const FlareLight light{100.0, 60.0, {255, 255, 255}, 1.0, 0.0};
    Flare flare(Setup(HeavyLook()));
    OfferLittleMemory(flare);
    const PluginPixels whole = Painted(flare, size, light, 48, 0);
    const auto rowOf = [](const PluginPixels& p, int32_t y) { return std::vector<uint8_t>(p.Row(y), p.Row(y) + p.RowBytes()); };
    const auto blank = [](const PluginPixels& p, int32_t y) {
        return std::all_of(p.Row(y), p.Row(y) + p.RowBytes(), [](uint8_t b) { return b == 0; });
    };
    ASSERT_GT(PaintedRows(whole), 500);   // a flare on most rows: what is left out shows

    std::atomic<bool> cancel{false};
    flare.host().SetReportTicks(0);
    flare.SetCancel(&cancel);
    flare.SetProgress([&](const ProgressReport& report) {
        if (report.value >= 100) cancel = true;
    });
    for (const int32_t threads : {2, 3, 8}) {
        cancel = false;
        flare.SetThreads(threads);
        PluginPixels pixels(size.width, size.height, 48);
        try {
            flare.Paint(pixels.View(), light, 1);
            FAIL() << threads << " threads: the frame was not stopped";
        } catch (const PluginError& error) {
            EXPECT_EQ(error.code, kUserCanceled) << error.what();
        }
        // Every thread stopped within a row of the cancel: about 100 rows painted, as the whole
        // frame has them, and no others.
        int32_t finished = 0;
        for (int32_t y = 0; y < size.height; ++y) finished += !blank(whole, y) && rowOf(pixels, y) == rowOf(whole, y);
        EXPECT_GE(finished, 50) << threads << " threads";
        EXPECT_LE(PaintedRows(pixels), 100 + 2 * threads) << threads << " threads";
    }
    // The flare paints the next frame whole.
    cancel = false;
    flare.SetProgress({});
    EXPECT_TRUE(Painted(flare, size, light, 48, 0).bytes == whole.bytes);
}

TEST_F(FrameThreadsTest, ACancelledRenderWritesNoFile) {
    const fs::path folder = fs::temp_directory_path() / ("vellux-threads-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    RenderRequest request;
    request.blackFrame = {320, 900};
    request.plugin = VELLUX_PLUGIN_PATH;
    request.output = folder / "cancelled.tif";
    request.bandRows = 1;
    request.threads = 3;
    std::atomic<bool> cancel{false};
    RenderReporting reporting;
    reporting.cancel = &cancel;
    reporting.progress = [&](const ProgressReport& report) {
        if (report.value >= 50) cancel = true;
    };
    EXPECT_THROW(RenderFlareImage(request, reporting), PluginError);
    EXPECT_TRUE(fs::is_empty(folder));
    fs::remove_all(folder);
}

TEST_F(FrameThreadsTest, ACopyThatWillNotLoadLeavesTheFrameToTheOthersAndSaysSoOnce) {
    const fs::path folder = fs::temp_directory_path() / ("vellux-copy-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    const fs::path plugin = folder / "Vellux.so";
    fs::copy_file(VELLUX_PLUGIN_PATH, plugin, fs::copy_options::overwrite_existing);
    FlareSetup setup = Setup(HeavyLook());
    setup.plugin = plugin;
    Flare flare(setup);
    OfferLittleMemory(flare);
    std::vector<std::string> warnings;
    flare.SetWarning([&](const std::string& text) { warnings.push_back(text); });
    const FrameSize size{120, 400};
    const FlareLight light{40.0, 150.0, {255, 255, 255}, 1.0, 0.0};
    flare.SetThreads(2);   // one copy loads while the file is whole
    const PluginPixels two = Painted(flare, size, light, 48, 0);
    std::ofstream(plugin, std::ios::trunc) << "not a library";
    flare.SetThreads(4);
    EXPECT_TRUE(Painted(flare, size, light, 48, 0).bytes == two.bytes);
    EXPECT_TRUE(Painted(flare, size, light, 32, 3).bytes == [&] {
        Flare whole(Setup(HeavyLook()));
        return Painted(whole, size, light, 32, 3).bytes;
    }());
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find("painted on 2 of the 4 threads"), std::string::npos) << warnings[0];
    fs::remove_all(folder);
}

// A sequence's workers paint their frames on threads of their own: the keyed channels reach every
// copy of the plug-in, and each frame is the one a single thread paints.
TEST_F(FrameThreadsTest, SequencesGiveTheSameFramesOnAnyWorkersAndThreads) {
    const fs::path folder = fs::temp_directory_path() / ("vellux-threads-scene-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    Scene scene;
    scene.firstFrame = 1;
    scene.lastFrame = 3;
    scene.width = 100;
    scene.height = 300;   // 5 bands
    scene.light[1] = LightKey{40.0, 60.0, {255, 255, 255}, 1.0, 0.0};
    scene.light[3] = LightKey{80.0, 220.0, {255, 180, 120}, 1.5, 0.0};
    scene.channels["Intensity"] = {{1, 0.2}, {3, 0.9}};
    scene.channels["Star Rotation"] = {{1, 0.0}, {3, 40.0}};
    WriteSceneFile(folder / "shot.json", scene);
    const auto render = [&](const std::string& name, int32_t jobs, int32_t threads) {
        RenderRequest request;
        request.scene = folder / "shot.json";
        request.output = folder / (name + ".#.tif");
        request.plugin = VELLUX_PLUGIN_PATH;
        request.settings.starFilter = 6;
        request.jobs = jobs;
        request.threads = threads;
        RenderSceneSequence(request);
    };
    const auto pixels = [&](const std::string& file) {
        OIIO::ImageBuf image((folder / file).string());
        std::vector<uint16_t> values(size_t(image.spec().image_pixels()) * size_t(image.nchannels()));
        EXPECT_TRUE(image.get_pixels(image.roi(), OIIO::TypeUInt16, values.data())) << file;
        return values;
    };
    render("one", 1, 1);
    render("many", 2, 3);
    for (const char* frame : {"1", "2", "3"})
        EXPECT_EQ(pixels(std::string("many.") + frame + ".tif"), pixels(std::string("one.") + frame + ".tif")) << frame;
    EXPECT_NE(pixels("one.1.tif"), pixels("one.3.tif"));
    fs::remove_all(folder);
}

}  // namespace
