// The plug-in's settings dialog and preview, run in process by the host library's scripted runner
// on the real plug-in, with the dialog of the built table file or a dialog made for the test.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "host/dialog_resource.h"
#include "host/host_session.h"
#include "host/plugin_library.h"
#include "host/resource_file.h"
#include "host/scripted_dialog_runner.h"
#include "plugin/plugin_data.h"
#include "engine/flare.h"
#include "engine/scene.h"
#include "engine/scene_keys.h"
#include "engine/setting_names.h"
#include "tools/vellux/render_command.h"
#include "tools/vellux/settings_command.h"
#include "tool_fixture.h"

namespace vellux::tool {
namespace {

namespace fs = std::filesystem;
using host::ScriptStep;

const fs::path kTable = fs::path(VELLUX_COMPILED_TABLES_DIR) / "Vellux.rsc";

class SettingsDialogTest : public ScratchTest {
protected:
    void SetUp() override {
        ScratchTest::SetUp();
        UseTable(kTable);
    }

    void UseTable(const fs::path& table) {
        instance_.reset();
        CheckFlareTable(table);
        host_.SetFileSubstitute("Vellux.rsc", fs::absolute(table));
        instance_.emplace(plugin_, host_);
    }

    // The built table file with the preview of dialog 16001 resized to show an image of
    // width x height (its top-left corner stays where it was).
    fs::path TableWithPreview(int width, int height) {
        rsc::ResourceFile file = rsc::ReadResourceFile(kTable);
        for (rsc::Resource& resource : file.resources) {
            if (resource.type != host::kDialogResourceType || resource.id != 16001) continue;
            auto layout = std::get<host::DialogTemplate>(host::DecodeDialog(resource.data));
            for (host::DialogItem& item : layout.items) {
                if (item.id != 24) continue;
                item.bounds.right = item.bounds.left + width + 2;
                item.bounds.bottom = item.bounds.top + height + 2;
                origin_ = {item.bounds.left + 1, item.bounds.top + 1};
            }
            resource.data = host::EncodeDialog(layout);
        }
        const fs::path path = Path("Dialog.rsc");
        rsc::WriteResourceFile(path, file);
        return path;
    }
    // A point of the preview's image in dialog coordinates.
    std::pair<int, int> At(int x, int y) const { return {origin_.first + x, origin_.second + y}; }

    int32_t Open(host::ScriptedDialogRunner& runner) {
        resetsBefore_ = host_.channelResets();   // INIT with a defaulted record resets them too
        host::ScopedDialogRunner installed(runner);
        const int32_t result = instance_->Interface();
        if (const std::exception_ptr failure = host::TakeRunnerFailure()) std::rethrow_exception(failure);
        return result;
    }
    int32_t Play(std::vector<ScriptStep> steps, bool accept) {
        host::ScriptedDialogRunner runner(std::move(steps), accept);
        return Open(runner);
    }

    ControlDataRec Control() const {
        ControlDataRec control;
        std::memcpy(&control, host_.controlData().data(), sizeof(control));
        return control;
    }
    void SetControl(const ControlDataRec& control) {
        std::vector<uint8_t> bytes(sizeof(control));
        std::memcpy(bytes.data(), &control, sizeof(control));
        host_.SetControlData(std::move(bytes));
    }
    PluginDataRec Working() const {
        PluginDataRec data;
        std::memcpy(static_cast<void*>(&data), host_.pluginData().data(), sizeof(data));
        return data;
    }

    int ChannelResets() const { return host_.channelResets() - resetsBefore_; }   // by the last dialog

    host::PluginLibrary plugin_{VELLUX_PLUGIN_PATH};
    host::HostSession host_;
    std::optional<PluginInstance> instance_;
    int resetsBefore_ = 0;
    std::pair<int, int> origin_;   // the preview image's top-left pixel in the dialog
};

// ---- What the dialog shows ----

TEST_F(SettingsDialogTest, ShowsTheRecordTrimmedWithTheAnamorphicFieldSelected) {
    ControlDataRec control = Control();
    control.flareStarRotation = -0.000000001;   // shows as 0, not -0
    control.flareStarFilter = 0x10008;          // the pop-up gets the low 16 bits
    SetControl(control);
    std::string listing;
    host::ScriptedDialogRunner runner({}, false);
    runner.SetInspector([&](host::Dialog& dialog) {
        listing = DialogListing(dialog);
        ASSERT_NE(dialog.keyControl, nullptr);
        EXPECT_EQ(dialog.keyControl->id(), 25);
        EXPECT_EQ(dialog.keyControl->selectionStart, 0);
        EXPECT_EQ(dialog.keyControl->selectionEnd, 4);   // "1.77", wholly selected
        EXPECT_EQ(host::FindControl(dialog, 22)->value, 8);
    });
    EXPECT_EQ(Open(runner), kUserCanceled);
    for (const char* line : {"Anamorphic factor         1.77\n", "Streak intensity          0.03\n",
                             "Streak density            50\n", "Star rotation             0\n", "Intensity                 0.5\n",
                             "Star filter               8 points + 8 minor\n", "Painted preview           on\n"})
        EXPECT_NE(listing.find(line), std::string::npos) << line << "\nin:\n" << listing;
}

// ---- Edits, OK and Cancel ----

TEST_F(SettingsDialogTest, EditsReachTheRecordAtEachHitAndDissolveIsClamped) {
    std::vector<double> seen;
    host::ScriptedDialogRunner runner({ScriptStep::Edit("Intensity", "2.5"), ScriptStep::Edit("Dissolve", "-0.5")}, true);
    runner.SetInspector([&](host::Dialog& dialog) {
        seen = {Control().flareIntensity, Control().flareDissolve};
        EXPECT_EQ(host::FindControl(dialog, 16)->text, "-0.5");   // shown again only when reopened
        runner.Play(dialog, ScriptStep::Edit("16", "3"));
        seen.push_back(Control().flareDissolve);
        runner.Play(dialog, ScriptStep::Edit("Streak density", "abc"));
        seen.push_back(Control().flareStreakDensity);
    });
    EXPECT_EQ(Open(runner), kNoError);
    EXPECT_EQ(seen, (std::vector<double>{2.5, 0.0, 1.0, 0.0}));
    EXPECT_EQ(Control().flareIntensity, 2.5);
    EXPECT_EQ(Control().flareDissolve, 1.0);
    EXPECT_EQ(ChannelResets(), 0);
}

TEST_F(SettingsDialogTest, CancelRestoresEverythingButThePreviewMode) {
    const ControlDataRec before = Control();
    ASSERT_EQ(before.flareFlags & kFlagWireframePreview, 0u);
    EXPECT_EQ(Play({ScriptStep::Edit("Intensity", "3"), ScriptStep::Edit("Halo", "off"),
                    ScriptStep::Edit("Painted preview", "off"), ScriptStep::Edit("Star filter", "4")},
                   false),
              kUserCanceled);
    const ControlDataRec after = Control();
    EXPECT_EQ(after.flareIntensity, before.flareIntensity);
    EXPECT_EQ(after.flareStarFilter, before.flareStarFilter);
    EXPECT_EQ(after.flareFlags, before.flareFlags | kFlagWireframePreview);
    EXPECT_EQ(ChannelResets(), 0);
}

TEST_F(SettingsDialogTest, OnlyAStarFilterChangeResetsTheChannels) {
    EXPECT_EQ(Play({ScriptStep::Edit("Random streaks", "off"), ScriptStep::Edit("Ring size", "0.4")}, true), kNoError);
    EXPECT_EQ(ChannelResets(), 0);
    EXPECT_EQ(Control().flareRingSize, 0.4);
    EXPECT_EQ(Control().flareFlags & kFlagRandomStreaks, 0u);

    EXPECT_EQ(Play({ScriptStep::Edit("Star filter", "6 points + 6 minor")}, true), kNoError);
    EXPECT_EQ(ChannelResets(), 1);
    EXPECT_EQ(Control().flareStarFilter, 6);
    // The rebuilt working record renders: a frame set up and painted without error.
    PluginPixels pixels(64, 36, 32);
    RenderFrame(*instance_, FlareLight{20.0, 10.0, {255, 255, 255}, 1.0, 0.0}, pixels, 0);
}

TEST_F(SettingsDialogTest, RingColourKeepsItsLowBitsUnlessTheButtonReportsAColour) {
    ControlDataRec control = Control();
    control.flareRingColor = {0x0777, 0x1234, 0x1234, 0x1234};
    SetControl(control);
    std::string shown;
    host::ScriptedDialogRunner look({ScriptStep::Edit("Intensity", "1")}, true);
    look.SetInspector([&](host::Dialog& dialog) { shown = host::ValueText(*host::FindControl(dialog, 21)); });
    EXPECT_EQ(Open(look), kNoError);
    EXPECT_EQ(shown, "#121212");
    EXPECT_EQ(Control().flareRingColor.red, 0x1234);   // other edits leave it as it was

    EXPECT_EQ(Play({ScriptStep::Edit("Ring colour", "#121212")}, true), kNoError);
    EXPECT_EQ(Control().flareRingColor.red, 0x1212);
    EXPECT_EQ(Control().flareRingColor.blue, 0x1212);
    EXPECT_EQ(Control().flareRingColor.alpha, 0x0777);   // never touched
}

TEST_F(SettingsDialogTest, BadScriptStepsStopWithAReasonAndSaveNothing) {
    const std::vector<uint8_t> before = host_.controlData();
    for (const ScriptStep& step : {ScriptStep::Edit("Brightness", "1"), ScriptStep::Edit("Halo", "maybe"),
                                   ScriptStep::Edit("Star filter", "7 points"), ScriptStep::Edit("Ring colour", "red"),
                                   ScriptStep::Edit("23", "x")}) {
        EXPECT_THROW(Play({ScriptStep::Edit("Intensity", "9"), step}, true), host::ScriptError) << step.control;
        EXPECT_EQ(host_.controlData(), before) << step.control;
    }
}

// ---- The preview ----

TEST_F(SettingsDialogTest, PreviewDescribesItsOwnFrameAndClampsClicksToTheImage) {
    UseTable(TableWithPreview(200, 100));
    std::vector<std::pair<float, float>> lights;
    host::ScriptedDialogRunner runner({}, false);
    const auto light = [&] { lights.emplace_back(Working().flareXPosition, Working().flareYPosition); };
    runner.SetInspector([&](host::Dialog& dialog) {
        const PluginDataRec data = Working();
        EXPECT_EQ(data.flareXScale, 100.0f);
        EXPECT_EQ(data.flareYScale, 100.0f);
        EXPECT_EQ(data.flareXCenter, 100.0f);
        EXPECT_EQ(data.flareYCenter, 50.0f);
        EXPECT_EQ(data.flareRect.right, 200);
        EXPECT_EQ(data.flareRect.bottom, 100);
        light();
        runner.Play(dialog, ScriptStep::Click("24", {At(200, 100)}));   // just past the right and bottom edge
        light();
        runner.Play(dialog, ScriptStep::Click("24", {At(-5, -1)}));     // outside, above and left
        light();
        runner.Play(dialog, ScriptStep::Click("24", {At(50, 25)}));
        light();
    });
    Open(runner);
    EXPECT_EQ(lights, (std::vector<std::pair<float, float>>{{50.0f, 25.0f}, {199.0f, 99.0f}, {0.0f, 0.0f}, {50.0f, 25.0f}}));
}

// The brightest pixel of the preview image inside the control's frame.
std::pair<int, int> Brightest(const host::Dialog& dialog) {
    const KV_Rect& b = host::FindControl(const_cast<host::Dialog&>(dialog), 24)->item.bounds;
    int best = -1, bx = 0, by = 0;
    for (int y = b.top + 1; y < b.bottom - 1; ++y) {
        for (int x = b.left + 1; x < b.right - 1; ++x) {
            const uint8_t* p = dialog.canvas.rgba.data() + (size_t(y) * dialog.canvas.width + x) * 4;
            if (p[0] + p[1] + p[2] > best) best = p[0] + p[1] + p[2], bx = x, by = y;
        }
    }
    return {bx, by};
}

TEST_F(SettingsDialogTest, DragRendersAndDrawsAtEveryPositionAndLeavesTheLightAtTheLast) {
    UseTable(TableWithPreview(200, 100));
    host::ScriptedDialogRunner runner({}, false);
    runner.SetInspector([&](host::Dialog& dialog) { EXPECT_EQ(Brightest(dialog), At(50, 25)); });
    Open(runner);   // drawn when the dialog opened, the light a quarter of the way in

    host::ScriptedDialogRunner drag({ScriptStep::Click("24", {At(30, 30), At(90, 50), At(170, 80)})}, false);
    uint64_t drawn = 0;
    drag.SetInspector([&](host::Dialog& dialog) {
        drawn = dialog.canvas.version;
        EXPECT_EQ(Brightest(dialog), At(170, 80));
    });
    Open(drag);
    EXPECT_EQ(drag.mouseReports(), 4);   // three positions held, then the release
    // Opening draws the frame and the image once, each of the three positions draws both again,
    // and the hit after the click once more (with nothing left to render).
    EXPECT_EQ(drawn, 1u + 2u + 3u * 2u + 2u);
}

TEST_F(SettingsDialogTest, SketchIsWhiteDotsOnBlackToTheLastShortBand) {
    UseTable(TableWithPreview(160, 95));   // 9 bands of 10 rows and one of 5
    host::ScriptedDialogRunner runner({ScriptStep::Edit("Painted preview", "off")}, false);
    runner.SetInspector([&](host::Dialog& dialog) {
        EXPECT_EQ(Working().flareLightColor.a, 0);
        const KV_Rect image{At(0, 0).first, At(0, 0).second, At(160, 95).first, At(160, 95).second};
        const std::vector<uint8_t> pixels = dialog.canvas.Copy(image);
        size_t white = 0, whiteInLastBand = 0;
        for (size_t i = 0; i < pixels.size(); i += 4) {
            const bool isWhite = pixels[i] == 255 && pixels[i + 1] == 255 && pixels[i + 2] == 255;
            const bool isBlack = pixels[i] == 0 && pixels[i + 1] == 0 && pixels[i + 2] == 0;
            ASSERT_TRUE(isWhite || isBlack) << "pixel " << i / 4;
            white += isWhite;
            if (isWhite && i / 4 / 160 >= 90) ++whiteInLastBand;
        }
        EXPECT_GT(white, 200u);
        EXPECT_GT(whiteInLastBand, 0u);   // the large outer reflections cross the last rows
    });
    Open(runner);
}

TEST_F(SettingsDialogTest, PaintedPreviewLeavesUntouchedPixelsBlack) {
    UseTable(TableWithPreview(200, 100));
    ControlDataRec control = Control();
    control.flareFlags &= ~(kFlagReflections | kFlagHalo | kFlagRandomStreaks | kFlagAnamorphicStreak);
    SetControl(control);
    host::ScriptedDialogRunner runner({}, false);
    runner.SetInspector([&](host::Dialog& dialog) {
        const std::vector<uint8_t> corner = dialog.canvas.Copy({At(195, 95).first, At(195, 95).second, At(200, 100).first, At(200, 100).second});
        for (size_t i = 0; i < corner.size(); i += 4) EXPECT_EQ(corner[i] + corner[i + 1] + corner[i + 2], 0);
        const std::vector<uint8_t> frame = dialog.canvas.Copy({At(-1, -1).first, At(-1, -1).second, At(0, 0).first, At(0, 0).second});
        EXPECT_NE(frame[0] + frame[1] + frame[2], 0);   // the 1-pixel frame around the image
    });
    Open(runner);
}

// ---- The command line ----

// On a plate of the preview's own size the preview is what `vellux render` makes of that plate,
// pixel for pixel, with the light where the preview starts it (a quarter across and down) and the
// same blend: the host adds the plug-in's preview to the plate as the render adds its frame.
TEST_F(SettingsDialogTest, OnAPlateOfItsOwnSizeThePreviewIsTheRendersPicture) {
    const fs::path plate = Path("plate.png");
    ASSERT_TRUE(Succeeded(RunTool("sample-frame --size 400x226 -o '" + plate.string() + "'")));
    const auto rgb = [](const fs::path& file, OIIO::ROI roi) {
        OIIO::ImageBuf image(file.string());
        std::vector<uint8_t> values(roi.npixels() * 3);
        roi.chbegin = 0, roi.chend = 3;
        EXPECT_TRUE(image.get_pixels(roi, OIIO::TypeUInt8, values.data())) << image.geterror();
        return values;
    };
    const std::vector<uint8_t> bare = rgb(plate, OIIO::ROI(0, 400, 0, 226));
    for (const char* blend : {"display", "add", "screen"}) {
        const fs::path preview = Path(std::string("preview-") + blend + ".png"), render = Path(std::string("render-") + blend + ".png");
        ASSERT_TRUE(Succeeded(RunTool("settings preview -i '" + plate.string() + "' --blend " + blend + " -o '" +
                                      preview.string() + "' 'Star filter=4'")));
        ASSERT_TRUE(Succeeded(RunTool("render -q -i '" + plate.string() + "' --light-fraction 0.25,0.25 --star-filter 4 --blend " +
                                      blend + " -o '" + render.string() + "'")));
        const std::vector<uint8_t> shown = rgb(preview, OIIO::ROI(1, 401, 1, 227)), rendered = rgb(render, OIIO::ROI(0, 400, 0, 226));
        ASSERT_EQ(shown.size(), rendered.size());
        EXPECT_TRUE(shown == rendered) << blend;
        // The flare lightens much of the plate and leaves the rest exactly as it was.
        size_t lighter = 0, same = 0;
        for (size_t i = 0; i < shown.size(); ++i) {
            ASSERT_GE(shown[i], bare[i]) << blend << " value " << i;
            lighter += shown[i] > bare[i];
            same += shown[i] == bare[i];
        }
        EXPECT_GT(lighter, shown.size() / 20) << blend;
        EXPECT_GT(same, shown.size() / 20) << blend;
    }
}

TEST_F(SettingsDialogTest, SetSavesAndShowReadsBackAndCancelledRunsLeaveTheFileAlone) {
    const fs::path look = Path("look.json");
    ToolRun run = RunTool("settings set --settings '" + look.string() + "' Intensity=1.25 Halo=off 'Star filter=4'");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::string saved = Slurp(look);
    run = RunTool("settings show --settings '" + look.string() + "'");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("Intensity                 1.25\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("Halo                      off\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("Star filter               4 points + 4 minor\n"), std::string::npos) << run.out;

    run = RunTool("settings set --settings '" + look.string() + "' Intensity=2 Nonsense=1");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("Nonsense"), std::string::npos) << run.err;
    EXPECT_EQ(Slurp(look), saved);
    run = RunTool("settings preview --settings '" + look.string() + "' -o '" + Path("p.png").string() + "' --light 0.5,0.5");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(fs::exists(Path("p.png")));
    EXPECT_EQ(Slurp(look), saved);
}

// Every setting by the name its render option has: each reaches the saved look as that option
// would set it (the painted-preview box the other way round); a bad value is named and saves nothing.
TEST_F(SettingsDialogTest, SetTakesTheSettingsByTheirNames) {
    const std::pair<const char*, const char*> values[] = {
        {"flare-intensity", "0.8"},  {"dissolve", "0.25"},           {"anamorphic-factor", "2.4"},
        {"ring-size", "0.3"},        {"ring-color", "255,128,0"},    {"star-rotation", "-30"},
        {"star-filter", "4"},        {"streak-density", "40"},       {"streak-intensity", "0.05"},
        {"streak-sharpness", "4"},   {"glow", "off"},                {"glow-in-light-color", "off"},
        {"halo", "off"},             {"reflections", "off"},         {"anamorphic", "on"},
        {"anamorphic-streak", "on"}, {"random-streaks", "off"},      {"streaks-off-frame", "off"},
        {"follow-light-size", "on"}, {"wireframe-preview", "on"},
    };
    ASSERT_EQ(std::size(values), engine::SettingNames().size());
    const fs::path look = Path("named.json");
    std::string command = "settings set --settings '" + look.string() + "'";
    for (const auto& [name, text] : values) command += std::string(" '") + name + "=" + text + "'";
    ToolRun run = RunTool(command);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const engine::SettingsReadResult read = engine::ReadSettingsText(Slurp(look));
    ASSERT_TRUE(read.settings) << read.errors.front().Text();
    const ControlDataRec saved = engine::DecodeSettings(*read.settings);
    for (const auto& [name, text] : values) {
        const engine::SettingName& setting = *engine::FindSetting(name);
        const std::optional<engine::SettingValue> got = engine::RecordValue(setting, saved);
        ASSERT_TRUE(got) << name;
        EXPECT_EQ(engine::SettingJson(*got), engine::SettingJson(engine::ParseSettingText(setting, text))) << name;
    }

    const std::string savedText = Slurp(look);
    const std::pair<const char*, const char*> refused[] = {
        {"halo=maybe", "halo: 'maybe' is not on or off"},
        {"dissolve=1.5", "dissolve: 1.5 is out of range (from 0 to 1)"},
        {"streak-density=many", "streak-density: 'many' is not a number"},
    };
    for (const auto& [assignment, message] : refused) {
        run = RunTool("settings set --settings '" + look.string() + "' Intensity=2 " + assignment);
        EXPECT_EQ(run.exitCode, 1) << assignment;
        EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
        EXPECT_EQ(Slurp(look), savedText) << assignment;
    }
}

}  // namespace
}  // namespace vellux::tool
