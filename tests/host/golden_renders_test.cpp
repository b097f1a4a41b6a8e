// Golden renders: canonical frames whose exact pixels are pinned by hashes in golden_hashes.txt.
// A changed hash is a changed picture: explain it, or it is a bug. To pin new pictures after a
// deliberate change (say, a retuned table), run the suite with VELLUX_UPDATE_GOLDEN=1 and commit
// the file with the reason.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>

#include "render_support.h"

namespace {

const char* const kHashFile = VELLUX_SOURCE_DIR "/tests/host/golden_hashes.txt";

// Random streaks far brighter than the ceiling a dissolve of 0.4 sets (16320 * 0.6 = 9792).
RenderJob BrightStreaksUnderDissolve() {
    RenderJob job;
    job.settings = [](ControlDataRec& c) {
        c.flareDissolve = 0.4;
        c.flareStreakIntensity = 1.5;
        c.flareStarFilter = 4;
        c.flareFlags |= kFlagAnamorphicStreak;
    };
    return job;
}

std::map<std::string, RenderJob> Canonical() {
    std::map<std::string, RenderJob> jobs;
    jobs["default-48"] = RenderJob{};
    RenderJob star;
    star.settings = [](ControlDataRec& c) {
        c.flareStarFilter = 4;
        c.flareFlags |= kFlagAnamorphicStreak;
    };
    jobs["star4-anamorphic-48"] = star;
    RenderJob dissolve;
    dissolve.settings = [](ControlDataRec& c) { c.flareDissolve = 0.5; };
    jobs["dissolve-half-48"] = dissolve;
    RenderJob eight;
    eight.depth = 32;
    eight.settings = star.settings;
    jobs["star4-anamorphic-32"] = eight;
    RenderJob outside;
    outside.lightX = 1.15;
    outside.lightY = -0.1;
    jobs["light-outside-48"] = outside;
    jobs["streaks-dissolve-48"] = BrightStreaksUnderDissolve();
    return jobs;
}

// Star filter 8 with the anamorphic streak: edges everywhere for the band tests.
RenderJob StarEight(int16_t depth) {
    RenderJob job;
    job.depth = depth;
    job.settings = [](ControlDataRec& c) {
        c.flareStarFilter = 8;
        c.flareFlags |= kFlagAnamorphicStreak;
    };
    return job;
}

std::map<std::string, std::string> ReadHashes() {
    std::map<std::string, std::string> hashes;
    std::ifstream in(kHashFile);
    std::string name, hash;
    while (in >> name >> hash) hashes[name] = hash;
    return hashes;
}

}  // namespace

TEST(GoldenRenders, PixelsMatchThePinnedHashes) {
    const std::map<std::string, std::string> pinned = ReadHashes();
    std::ostringstream measured;
    for (const auto& [name, job] : Canonical()) {
        const std::vector<uint8_t> pixels = Render(job);
        ASSERT_FALSE(pixels.empty()) << name << ": the render failed";
        ASSERT_TRUE(std::any_of(pixels.begin(), pixels.end(), [](uint8_t b) { return b != 0; })) << name << ": black";
        const std::string hash = PixelHash(pixels);
        measured << name << ' ' << hash << '\n';
        if (std::getenv("VELLUX_UPDATE_GOLDEN") == nullptr) {
            ASSERT_TRUE(pinned.count(name)) << name << " is not pinned";
            EXPECT_EQ(hash, pinned.at(name)) << name;
        }
    }
    if (std::getenv("VELLUX_UPDATE_GOLDEN") != nullptr) std::ofstream(kHashFile) << measured.str();
}

// Rings and streaks alike stop at the dissolve's ceiling, and these streaks are bright enough to
// reach it.
TEST(GoldenRenders, DissolveHoldsBrightStreaksAtItsCeiling) {
    const std::vector<uint8_t> pixels = Render(BrightStreaksUnderDissolve());
    ASSERT_FALSE(pixels.empty());
    uint16_t brightest = 0;
    for (size_t i = 0; i + 1 < pixels.size(); i += 2) {
        uint16_t channel;
        std::memcpy(&channel, &pixels[i], 2);
        brightest = std::max(brightest, channel);
    }
    EXPECT_EQ(brightest, 9792);
}

// The host may hand the frame over in bands; the streak edges carry on from band to band and
// the 32-bit dither restarts on every row, so the picture is the same however it is cut.
TEST(GoldenRenders, BandsPaintTheSameFrameAsAWhole) {
    for (int16_t depth : {int16_t(48), int16_t(32)}) {
        RenderJob job = StarEight(depth);
        const std::vector<uint8_t> whole = Render(job);
        ASSERT_FALSE(whole.empty());
        for (int32_t rows : {1, 7, 100}) {
            job.bandRows = rows;
            EXPECT_TRUE(Render(job) == whole) << depth << "-bit in bands of " << rows;
        }
    }
}

// A host may leave rows out between bands (rows it does not need). Every row either side of the
// gap must still come out as in the whole frame: the streak edges step over the rows not painted.
TEST(GoldenRenders, RowsLeftOutBetweenBandsChangeNoOtherRow) {
    for (int16_t depth : {int16_t(48), int16_t(32)}) {
        RenderJob job = StarEight(depth);
        const std::vector<uint8_t> whole = Render(job);
        ASSERT_FALSE(whole.empty());
        const size_t rowBytes = size_t(job.width) * size_t(depth / 8);
        // Around the light (row 94): one row left out, then two, then one again.
        for (int32_t gap : {70, 90, 94, 101, 115}) {
            for (int32_t rows : {1, 2}) {
                SCOPED_TRACE(::testing::Message() << depth << "-bit, rows " << gap << " to " << gap + rows - 1
                                                  << " left out");
                RenderJob gapped = job;
                gapped.bands = {{0, gap}, {gap + rows, 150}, {150, job.height}};
                const std::vector<uint8_t> banded = Render(gapped);
                ASSERT_EQ(banded.size(), whole.size());
                std::vector<uint8_t> expected = whole;
                std::fill(expected.begin() + ptrdiff_t(size_t(gap) * rowBytes),
                          expected.begin() + ptrdiff_t(size_t(gap + rows) * rowBytes), uint8_t(0));
                EXPECT_TRUE(banded == expected);
            }
        }
    }
}
