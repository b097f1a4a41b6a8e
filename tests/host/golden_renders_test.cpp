// Golden renders: canonical frames whose exact pixels are pinned by hashes in golden_hashes.txt.
// A changed hash is a changed picture: explain it, or it is a bug. To pin new pictures after a
// deliberate change (say, a retuned table), run the suite with VELLUX_UPDATE_GOLDEN=1 and commit
// the file with the reason.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "render_support.h"

namespace {

const char* const kHashFile = VELLUX_SOURCE_DIR "/tests/host/golden_hashes.txt";

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
    return jobs;
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

// The host may hand the frame over in bands; the streak edges carry on from band to band and
// the 32-bit dither restarts on every row, so the picture is the same however it is cut.
TEST(GoldenRenders, BandsPaintTheSameFrameAsAWhole) {
    for (int16_t depth : {int16_t(48), int16_t(32)}) {
        RenderJob job;
        job.depth = depth;
        job.settings = [](ControlDataRec& c) {
            c.flareStarFilter = 8;
            c.flareFlags |= kFlagAnamorphicStreak;
        };
        const std::vector<uint8_t> whole = Render(job);
        ASSERT_FALSE(whole.empty());
        for (int32_t rows : {1, 7, 100}) {
            job.bandRows = rows;
            EXPECT_TRUE(Render(job) == whole) << depth << "-bit in bands of " << rows;
        }
    }
}
