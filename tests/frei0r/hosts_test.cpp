// The filter in the real hosts: ffmpeg's frei0r filter gives the tool's pixels, renders a 1080p
// clip, and melt (MLT) moves a keyframed light. The hosts must be installed (scripts/test-all.sh
// installs them); a missing host fails the test.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>

namespace {

namespace fs = std::filesystem;

class Frei0rHosts : public testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("vellux_frei0r_hosts_" + std::to_string(getpid()));
        fs::create_directories(dir_);
        setenv("FREI0R_PATH", VELLUX_FREI0R_DIR, 1);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // melt's consumers run with real_time=0: every frame is rendered, none dropped when the machine
    // is busy (by default a consumer that falls behind drops frames, the first one among them).
    //
    // Runs a shell command in the test folder; its output goes to "log". Now and then melt stops
    // short of starting its consumer and waits for it for ever (seen on a loaded machine, with its
    // consumer's thread gone and the filter idle), or ends without writing its first frame: a
    // command that has not ended in two minutes, or left `expected` unwritten, is run once more,
    // saying so.
    int Run(const std::string& command, const std::string& expected = "") const {
        const std::string shell = "cd '" + dir_.string() + "' && timeout 120 " + command + " >log 2>&1";
        int status = std::system(shell.c_str());
        const bool timedOut = WIFEXITED(status) && WEXITSTATUS(status) == 124;
        if (timedOut || (status == 0 && !expected.empty() && !fs::exists(dir_ / expected))) {
            std::cerr << (timedOut ? "timed out" : expected + " not written") << "; running it again: " << command << "\n";
            status = std::system(shell.c_str());
        }
        return status;
    }
    std::vector<float> Pixels(const fs::path& name, int channels = 3) const {   // in the test folder, or absolute
        OIIO::ImageBuf image((dir_ / name).string());
        std::vector<float> values;
        if (!image.read(0, 0, true, OIIO::TypeFloat)) return values;
        OIIO::ROI rgb = image.roi();
        rgb.chend = channels;
        values.resize(rgb.npixels() * size_t(channels));
        image.get_pixels(rgb, OIIO::TypeFloat, values.data());
        return values;
    }
    std::string Slurp(const std::string& name) const {
        std::ifstream in(dir_ / name);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    fs::path dir_;
};

// ffmpeg sets parameters by position: light position, colour, intensity, radius, flare intensity,
// dissolve, ring size, ring colour, star filter. With and without a dissolve, on the sample frame.
TEST_F(Frei0rHosts, FfmpegGivesTheToolsPixels) {
    for (const char* dissolve : {"0", "0.5"}) {
        SCOPED_TRACE(std::string("dissolve ") + dissolve);
        const std::string params = "0.62/0.3|1/0.75/0.5|0.25|0|0.5|" + std::string(dissolve) + "|0.22|0x50140A|0.4";
        ASSERT_EQ(Run("ffmpeg -v error -y -i '" VELLUX_SAMPLE_FRAME "' -vf 'frei0r=filter_name=vellux:filter_params=" +
                      params + "' -pix_fmt rgb24 -frames:v 1 ffmpeg.png"), 0);
        ASSERT_EQ(Run("'" VELLUX_TOOL_PATH "' render -q -i '" VELLUX_SAMPLE_FRAME "' --light-fraction 0.62,0.3 "
                      "--color 255,191,128 --flare-intensity 1 --star-filter 4 --dissolve " + std::string(dissolve) +
                      " -o tool.png"), 0);
        const std::vector<float> ffmpeg = Pixels("ffmpeg.png"), tool = Pixels("tool.png");
        ASSERT_FALSE(tool.empty());
        EXPECT_EQ(ffmpeg, tool);
        EXPECT_NE(tool, Pixels(VELLUX_SAMPLE_FRAME));
    }
}

// ffmpeg pads every row it hands a frei0r filter to 64 bytes, so a frame 950 pixels wide comes
// out skewed: the filter says so (once), and padded to 960 first and cropped after, the frame is
// the tool's on the same padded plate, pixel for pixel. A width that is a multiple of 16 is not
// warned of.
TEST_F(Frei0rHosts, FfmpegFramesNotAMultipleOf16WideArePaddedAndSaidSo) {
    const std::string filter = "frei0r=filter_name=vellux:filter_params=0.4/0.3|1/0.75/0.5|0.25|0|0.5|0|0.22|0x50140A|0.4";
    ASSERT_EQ(Run("ffmpeg -v error -y -i '" VELLUX_SAMPLE_FRAME "' -vf crop=950:ih:0:0 plate.png"), 0);
    ASSERT_EQ(Run("ffmpeg -v error -y -i plate.png -vf '" + filter + "' -pix_fmt rgb24 skewed.png"), 0);
    const std::string warned = Slurp("log");
    EXPECT_NE(warned.find("950 pixels wide"), std::string::npos) << warned;
    EXPECT_NE(warned.find("pad=ceil(iw/16)*16:ih"), std::string::npos) << warned;
    EXPECT_EQ(warned.find("pixels wide"), warned.rfind("pixels wide")) << warned;   // once
    ASSERT_EQ(Run("ffmpeg -v error -y -i plate.png -vf 'pad=ceil(iw/16)*16:ih," + filter +
                  ",crop=950:ih:0:0' -pix_fmt rgb24 padded.png"), 0);
    EXPECT_EQ(Slurp("log").find("pixels wide"), std::string::npos);
    ASSERT_EQ(Run("ffmpeg -v error -y -i plate.png -vf pad=960:ih wide.png && '" VELLUX_TOOL_PATH
                  "' render -q -i wide.png --light-fraction 0.4,0.3 --color 255,191,128 --flare-intensity 1 --star-filter 4 "
                  "-o tool-wide.png && ffmpeg -v error -y -i tool-wide.png -vf crop=950:ih:0:0 -pix_fmt rgb24 tool.png"), 0);
    const std::vector<float> tool = Pixels("tool.png");
    ASSERT_FALSE(tool.empty());
    EXPECT_EQ(Pixels("padded.png"), tool);
}

// MLT sets parameters by their names, the blend among them. On a grey frame: screen never goes above the
// plug-in's own add, and takes less where the flare is bright; neither darkens the grey.
TEST_F(Frei0rHosts, MeltBlendsAsAsked) {
    for (const char* blend : {"display", "screen"})
        // Two frames, numbered as image sequences are: a one-frame clip could end the consumer
        // before its frame was written on a busy machine.
        ASSERT_EQ(Run("melt -silent -profile atsc_720p_25 color:0x808080ff out=1 -filter frei0r.vellux blend=" +
                      std::string(blend) + " -consumer avformat:" + blend + "%02d.png vcodec=png real_time=0",
                      std::string(blend) + "01.png"),
                  0)
            << blend;
    const std::vector<float> display = Pixels("display01.png"), screen = Pixels("screen01.png");
    ASSERT_EQ(display.size(), 1280u * 720u * 3u);
    ASSERT_EQ(screen.size(), display.size());
    size_t above = 0, below = 0, darkened = 0;
    for (size_t i = 0; i < display.size(); ++i) {
        above += screen[i] > display[i] + 2.0f / 255.0f;   // the frame's trip through the consumer rounds
        below += screen[i] < display[i] - 8.0f / 255.0f;
        darkened += screen[i] < 0.5f - 3.0f / 255.0f;
    }
    EXPECT_EQ(above, 0u);
    EXPECT_GT(below, 1000u);
    EXPECT_EQ(darkened, 0u);
}

// MLT names the lens and its aperture: on black, the lens's own flare, neither black nor the
// table's look.
TEST_F(Frei0rHosts, MeltPaintsALensByName) {
    // Two frames each, as in MeltBlendsAsAsked.
    const std::string melt = "melt -silent -profile atsc_720p_25 color:black out=1 -filter frei0r.vellux light-fraction-x=0.5 ";
    ASSERT_EQ(Run(melt + "-consumer avformat:table%02d.png vcodec=png real_time=0", "table01.png"), 0);
    ASSERT_EQ(Run(melt + "lens=double-gauss-50mm f-number=0.3333 blades=0.375 -consumer avformat:lens%02d.png vcodec=png real_time=0",
                  "lens01.png"),
              0);
    const std::vector<float> table = Pixels("table01.png"), lens = Pixels("lens01.png");
    ASSERT_EQ(lens.size(), 1280u * 720u * 3u);
    ASSERT_EQ(table.size(), lens.size());
    size_t lit = 0, differ = 0;
    for (size_t i = 0; i < lens.size(); ++i) {
        lit += lens[i] > 0.0f;
        differ += std::abs(lens[i] - table[i]) > 8.0f / 255.0f;
    }
    EXPECT_GT(lit, 1000u);
    EXPECT_GT(differ, 1000u);
}

TEST_F(Frei0rHosts, FfmpegRendersA1080pClip) {
    ASSERT_EQ(Run("ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=25 -frames:v 10 "
                  "-vf frei0r=filter_name=vellux -c:v png clip%02d.png"), 0);
    EXPECT_TRUE(fs::exists(dir_ / "clip10.png"));
    EXPECT_EQ(Pixels("clip10.png").size(), 1920u * 1080u * 3u);
}

// A light keyed from left to right on black: the brightest column moves with it.
TEST_F(Frei0rHosts, MeltMovesAKeyframedLight) {
    ASSERT_EQ(Run("melt -silent -profile atsc_720p_25 color:black out=9 -filter frei0r.vellux "
                  "'light-fraction-x=0=0.15;9=0.8' light-fraction-y=0.45 -consumer avformat:melt%02d.png vcodec=png real_time=0",
                  "melt10.png"),
              0);
    const auto brightestColumn = [&](const std::string& name) {
        const std::vector<float> v = Pixels(name);
        size_t best = 0;
        for (size_t i = 0; i < v.size(); i += 3)
            if (v[i] + v[i + 1] + v[i + 2] > v[best] + v[best + 1] + v[best + 2]) best = i;
        return int(best / 3 % 1280);
    };
    const int first = brightestColumn("melt01.png"), last = brightestColumn("melt10.png");
    EXPECT_NEAR(first, 1280 * 0.15, 40);   // light-fraction-x is the fraction of the frame's width
    EXPECT_NEAR(last, 1280 * 0.8, 40);
}

// ffmpeg sets follow-brightest-light by position, last: on a white square sliding across a dark
// frame, the flare alone (its alpha) is brightest in the column of the square, frame after frame;
// switched off, it stays at light-fraction-x.
TEST_F(Frei0rHosts, FfmpegFollowsTheBrightestLight) {
    // Every parameter in order, the defaults but flare-only on; then the switch.
    const std::string params = "0.3/0.35|1/1/1|0.25|0|0.25|0|0.22|0x50140A|0|0|0.25|0.1|0.2|0.2566667|y|y|y|y|n|n|y|n|y||"
                               "0.3|0.35|display||0.3333333|0|y|";
    for (const char* follow : {"y", "n"}) {
        SCOPED_TRACE(std::string("follow ") + follow);
        ASSERT_EQ(Run("ffmpeg -v error -y -f lavfi -i color=c=0x202020:s=640x360:r=25 -f lavfi -i color=c=white:s=12x12:r=25 "
                      "-filter_complex \"[0][1]overlay=x='60+250*t':y=150,format=rgba,frei0r=filter_name=vellux:filter_params=" +
                      params + follow + "\" -frames:v 20 -pix_fmt rgba follow%02d.png"), 0) << Slurp("log");
        for (int frame = 1; frame <= 20; frame += 19) {
            char name[32];
            std::snprintf(name, sizeof(name), "follow%02d.png", frame);
            const std::vector<float> v = Pixels(name, 4);
            ASSERT_EQ(v.size(), 640u * 360u * 4u);
            std::vector<double> columns(640, 0.0);
            for (size_t i = 0; i < v.size(); i += 4) columns[i / 4 % 640] += v[i + 3];
            const int brightest = int(std::max_element(columns.begin(), columns.end()) - columns.begin());
            const double square = 60.0 + 10.0 * (frame - 1) + 5.5;   // 10 pixels a frame; the centre of its 12
            EXPECT_NEAR(brightest, *follow == 'y' ? square : 0.3 * 640, 3.0) << name;
        }
    }
}

}  // namespace
