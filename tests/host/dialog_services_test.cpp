// The host's dialog, control, drawing and image-buffer services as a plug-in calls them (through
// their exported C names), and the model operations the dialog runners share.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "dialog_test_support.h"
#include "host/dialog_model.h"
#include "host/dialog_runner.h"
#include "host/dialog_services_pvt.h"
#include "host/image_backdrop.h"
#include "host/resource_services.h"
#include "host/resource_services_pvt.h"
#include "host_test_support.h"

namespace {

using namespace vellux::host;

using dialog_test::Item;

DialogTemplate SampleLayout() {
    DialogTemplate layout;
    layout.width = 64;
    layout.height = 48;
    layout.title = "Sample";
    DialogItem label = Item(100, cKV_StaticText, {0, 0, 30, 10}, "Gain");
    label.labelFor = 3;
    DialogItem popup = Item(4, cKV_PopupMenu, {0, 20, 30, 30}, "", 2);
    popup.menu = {{0, "None"}, {2, "Two"}, {-1, "Minus"}};
    layout.items = {label,
                    Item(3, cKV_EditText, {30, 0, 60, 10}, "0.5"),
                    popup,
                    Item(5, cKV_CheckBox, {0, 30, 30, 40}, "Halo", 1),
                    Item(6, cKV_ColorButton, {30, 30, 40, 40}, "Tint"),
                    Item(7, cKV_UserControl, {40, 20, 60, 44}, "Picture")};
    return layout;
}

class DialogServicesTest : public testing::Test {
protected:
    void SetUp() override { dialog_ = MakeDialog(16001, SampleLayout()); }
    void TearDown() override { DestroyDialog(dialog_); }

    KV_Dialog* handle() { return &dialog_->handle; }
    KV_Control* control(int id) { return KV_FindControlByID(handle(), id); }

    Dialog* dialog_ = nullptr;
};

// ---- Controls and text ----

TEST_F(DialogServicesTest, ControlsStartFromTheResourceAndAnswerByID) {
    EXPECT_EQ(KV_CountControls(handle()), 6);
    EXPECT_EQ(KV_GetControlType(control(3)), cKV_EditText);
    EXPECT_EQ(KV_GetControlValue(control(4)), 2);
    EXPECT_EQ(KV_GetControlValue(control(5)), 1);
    EXPECT_EQ(KV_GetEditTextStringSize(control(3)), 3);
    EXPECT_EQ(KV_GetControlDialog(control(7)), handle());
    EXPECT_EQ(KV_FindControlByID(handle(), 99), nullptr);
    KV_Rect bounds{};
    KV_GetControlBounds(control(7), &bounds);
    EXPECT_EQ(bounds.right, 60);
    EXPECT_EQ(bounds.bottom, 44);
}

TEST_F(DialogServicesTest, TextComesBackNulTerminatedWithinTheCallersCapacity) {
    KV_SetEditTextString(control(3), "1.77000");
    char text[8];
    std::memset(text, 'x', sizeof(text));
    int capacity = 5;
    KV_GetEditTextString(control(3), text, &capacity);
    EXPECT_STREQ(text, "1.77");
    EXPECT_EQ(capacity, 4);
    EXPECT_EQ(text[5], 'x');   // nothing written past the capacity
    capacity = 0;
    KV_GetEditTextString(control(3), text, &capacity);   // no room even for the NUL: nothing
    EXPECT_STREQ(text, "1.77");
    KV_GetEditTextString(control(3), nullptr, &capacity);
    KV_SetEditTextSelection(control(3), 0, 10000);   // select all
    int start = -1, end = -1;
    KV_GetEditTextSelection(control(3), &start, &end);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 7);
    const std::string longText(400, 'a');
    KV_SetEditTextString(control(3), longText.c_str());
    EXPECT_EQ(KV_GetEditTextStringSize(control(3)), 255);
}

TEST_F(DialogServicesTest, UnknownNullAndDestroyedHandlesGetTheNeutralAnswer) {
    KV_Control bogus{};
    EXPECT_EQ(KV_FindControlByID(nullptr, 3), nullptr);
    EXPECT_EQ(KV_GetControlValue(&bogus), 0);
    EXPECT_EQ(KV_GetControlType(nullptr), cKV_NoControlType);
    KV_SetControlValue(&bogus, 5);
    KV_InvalControl(nullptr);
    KV_GetControlBounds(control(3), nullptr);
    int red = -1;
    KV_GetColorButtonColor(&bogus, &red, nullptr, nullptr, nullptr);
    EXPECT_EQ(red, -1);
    EXPECT_EQ(KV_TrackMouseDown(&bogus, nullptr, nullptr), 0);

    KV_Control* edit = control(3);
    Dialog* other = MakeDialog(1, SampleLayout());
    DestroyDialog(other);
    DestroyDialog(dialog_);
    dialog_ = nullptr;
    EXPECT_EQ(KV_GetControlValue(edit), 0);
    EXPECT_EQ(KV_GetControlDialog(edit), nullptr);
    EXPECT_EQ(KV_ExecuteDialog(nullptr), 0);
}

TEST_F(DialogServicesTest, ColourButtonsClampTheirComponents) {
    KV_SetColorButtonColor(control(6), 300, -4, 18, 255);
    int red = 0, green = 0, blue = 0;
    KV_GetColorButtonColor(control(6), &red, &green, &blue, nullptr);
    EXPECT_EQ(red, 255);
    EXPECT_EQ(green, 0);
    EXPECT_EQ(blue, 18);
}

// ---- Edits as runners make them ----

TEST_F(DialogServicesTest, EditsTakeTheirControlsFormsAndRefuseTheRestUnchanged) {
    Control& popup = *FindControl(*dialog_, 4);
    EXPECT_FALSE(EditControl(popup, "minus"));
    EXPECT_EQ(popup.value, -1);
    EXPECT_FALSE(EditControl(popup, "0"));
    EXPECT_EQ(popup.value, 0);
    EXPECT_TRUE(EditControl(popup, "1"));   // not an item's value
    EXPECT_TRUE(EditControl(popup, "Three"));
    EXPECT_EQ(popup.value, 0);

    Control& box = *FindControl(*dialog_, 5);
    EXPECT_FALSE(EditControl(box, " OFF "));
    EXPECT_EQ(ValueText(box), "off");
    EXPECT_TRUE(EditControl(box, "2"));
    EXPECT_EQ(box.value, 0);

    Control& color = *FindControl(*dialog_, 6);
    EXPECT_FALSE(EditControl(color, "#12aBff"));
    EXPECT_EQ(ValueText(color), "#12ABFF");
    for (const char* bad : {"12ABFF", "#12ABF", "#12ABFG", "#12ABFF0"}) EXPECT_TRUE(EditControl(color, bad)) << bad;
    EXPECT_EQ(ValueText(color), "#12ABFF");

    Control& edit = *FindControl(*dialog_, 3);
    EXPECT_FALSE(EditControl(edit, "abc"));   // any text: the plug-in decides what it means
    EXPECT_TRUE(EditControl(edit, std::string(256, '1')));
    EXPECT_EQ(edit.text, "abc");
    EXPECT_TRUE(EditControl(*FindControl(*dialog_, 100), "x"));   // a static text is not edited
}

TEST_F(DialogServicesTest, ControlsAreNamedByTheirLabelTitleOrID) {
    EXPECT_EQ(FindControlByName(*dialog_, "gain"), FindControl(*dialog_, 3));
    EXPECT_EQ(FindControlByName(*dialog_, "HALO"), FindControl(*dialog_, 5));
    EXPECT_EQ(FindControlByName(*dialog_, " 4 "), FindControl(*dialog_, 4));
    EXPECT_EQ(FindControlByName(*dialog_, "Gai"), nullptr);
    EXPECT_EQ(ControlLabel(*dialog_, *FindControl(*dialog_, 4)), "#4");
}

// ---- Drawing and image buffers ----

TEST_F(DialogServicesTest, ImageBuffersAreClearedArgbRowsAndRefuseSillySizes) {
    const int before = LiveImageBuffers();
    const KV_Rect bounds{5, 6, 9, 8};
    KV_ImageBuffer* image = KV_MakeImageBuffer(&bounds);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(KV_GetBufferRowBytes(image), 16);
    KV_Rect back{};
    KV_GetBufferBounds(image, &back);
    EXPECT_EQ(back.left, 5);
    EXPECT_EQ(back.bottom, 8);
    const uint8_t* pixels = KV_GetBufferBaseAddress(image);
    for (int i = 0; i < 32; ++i) EXPECT_EQ(pixels[i], 0);
    for (const KV_Rect& silly : {KV_Rect{0, 0, 0, 5}, KV_Rect{4, 0, 2, 5}, KV_Rect{0, 0, 100000, 100000}})
        EXPECT_EQ(KV_MakeImageBuffer(&silly), nullptr);
    EXPECT_EQ(KV_MakeImageBuffer(nullptr), nullptr);
    KV_DestroyImageBuffer(image);
    EXPECT_EQ(KV_GetBufferBaseAddress(image), nullptr);
    EXPECT_EQ(LiveImageBuffers(), before);
}

TEST_F(DialogServicesTest, FramesAndImagesLandOnTheCanvasClippedAndOpaque) {
    KV_DrawContext* context = &dialog_->context;
    const KV_Color green{0, 200, 0};
    KV_SetForeColor(context, &green);
    const uint64_t version = dialog_->canvas.version;
    const KV_Rect frame{60, 40, 70, 50};   // runs past the canvas's right and bottom edges
    KV_FrameRect(context, &frame);
    EXPECT_EQ(dialog_->canvas.Pixel(60, 40)[1], 200);
    EXPECT_EQ(dialog_->canvas.Pixel(63, 40)[3], 255);
    EXPECT_EQ(dialog_->canvas.Pixel(61, 41)[3], 0);   // inside the frame: untouched

    const KV_Rect bounds{0, 0, 2, 2};
    KV_ImageBuffer* image = KV_MakeImageBuffer(&bounds);
    uint8_t* pixels = KV_GetBufferBaseAddress(image);
    const uint8_t argb[4][4] = {{0, 10, 20, 30}, {0, 40, 50, 60}, {7, 70, 80, 90}, {0, 1, 2, 3}};
    std::memcpy(pixels, argb, sizeof(argb));
    const KV_Rect one{10, 10, 12, 12}, twice{20, 20, 24, 24};
    KV_DrawImage(context, image, &bounds, &one);
    KV_DrawImage(context, image, &bounds, &twice);
    const uint8_t* copied = dialog_->canvas.Pixel(11, 11);
    EXPECT_EQ((std::vector<int>{copied[0], copied[1], copied[2], copied[3]}), (std::vector<int>{1, 2, 3, 255}));
    const uint8_t* scaled = dialog_->canvas.Pixel(21, 22);   // second row, first column
    EXPECT_EQ((std::vector<int>{scaled[0], scaled[1], scaled[2]}), (std::vector<int>{70, 80, 90}));
    // At its own size, cut by the canvas's left edge: the image's second column lands in column 0;
    // and from a source a column wider than the image, whose last column shows nothing.
    const KV_Rect leftOff{-1, 30, 1, 32}, wider{0, 0, 3, 2}, widerDest{30, 30, 33, 32};
    KV_DrawImage(context, image, &bounds, &leftOff);
    KV_DrawImage(context, image, &wider, &widerDest);
    const uint8_t* cut = dialog_->canvas.Pixel(0, 31);
    EXPECT_EQ((std::vector<int>{cut[0], cut[1], cut[2], cut[3]}), (std::vector<int>{1, 2, 3, 255}));
    EXPECT_EQ(dialog_->canvas.Pixel(31, 30)[0], 40);
    EXPECT_EQ(dialog_->canvas.Pixel(32, 30)[3], 0);
    EXPECT_EQ(dialog_->canvas.version, version + 5);
    KV_DestroyImageBuffer(image);
    KV_DrawImage(context, image, &bounds, &one);   // a destroyed image draws nothing
    EXPECT_EQ(dialog_->canvas.version, version + 5);
}

// Shows each pixel as its red inverted and its alpha in green, noting what it was handed.
class TestBackdrop : public ImageBackdrop {
public:
    void Compose(uint8_t* pixels, int width, int height) override {
        if (fail) throw std::runtime_error("the backdrop failed");
        seen.assign(pixels, pixels + size_t(width) * size_t(height) * 4);
        size = {width, height};
        for (int i = 0; i < width * height; ++i) {
            uint8_t* argb = pixels + i * 4;
            argb[1] = uint8_t(255 - argb[1]);
            argb[2] = argb[0];
        }
    }
    bool fail = false;
    std::vector<uint8_t> seen;
    std::pair<int, int> size;
};

TEST_F(DialogServicesTest, ABackdropGetsTheWholeScaledImageAndSaysWhatShows) {
    KV_DrawContext* context = &dialog_->context;
    const KV_Rect bounds{0, 0, 2, 2};
    KV_ImageBuffer* image = KV_MakeImageBuffer(&bounds);
    const uint8_t argb[4][4] = {{0, 10, 20, 30}, {9, 40, 50, 60}, {7, 70, 80, 90}, {0, 1, 2, 3}};
    std::memcpy(KV_GetBufferBaseAddress(image), argb, sizeof(argb));
    TestBackdrop backdrop;
    {
        const ScopedImageBackdrop installed(&backdrop);
        // Three times the width and twice the height, two columns past the canvas's right edge,
        // from a source rectangle a column wider than the image (nothing there).
        const KV_Rect source{0, 0, 3, 2}, dest{57, 44, 66, 48};
        KV_DrawImage(context, image, &source, &dest);
        ASSERT_EQ(backdrop.size, std::make_pair(9, 4));
        const auto seenAt = [&](int x, int y) {
            const uint8_t* p = &backdrop.seen[size_t(y * 9 + x) * 4];
            return std::vector<int>{p[0], p[1], p[2], p[3]};
        };
        EXPECT_EQ(seenAt(0, 0), (std::vector<int>{0, 10, 20, 30}));
        EXPECT_EQ(seenAt(3, 1), (std::vector<int>{9, 40, 50, 60}));
        EXPECT_EQ(seenAt(1, 3), (std::vector<int>{7, 70, 80, 90}));
        EXPECT_EQ(seenAt(8, 2), (std::vector<int>{0, 0, 0, 0}));   // past the image
        const uint8_t* shown = dialog_->canvas.Pixel(60, 45);   // dest column 3, row 1
        EXPECT_EQ((std::vector<int>{shown[0], shown[1], shown[2], shown[3]}), (std::vector<int>{215, 9, 60, 255}));
        EXPECT_EQ(dialog_->canvas.Pixel(63, 47)[0], 255);   // nothing of the image, as the backdrop shows it

        // A failing backdrop: the image is shown as it is, and the failure kept for the program.
        backdrop.fail = true;
        const uint64_t version = dialog_->canvas.version;
        const KV_Rect small{10, 10, 12, 12};
        KV_DrawImage(context, image, &bounds, &small);
        EXPECT_EQ(dialog_->canvas.Pixel(11, 11)[0], 1);
        EXPECT_EQ(dialog_->canvas.version, version + 1);
        const std::exception_ptr failure = TakeRunnerFailure();
        ASSERT_TRUE(failure);
        EXPECT_THROW(std::rethrow_exception(failure), std::runtime_error);
    }
    EXPECT_EQ(CurrentImageBackdrop(), nullptr);
    KV_DestroyImageBuffer(image);
}

TEST(RectangleServices, InsetMovesEverySideInwards) {
    KV_Rect r{10, 20, 110, 70};
    KV_InsetRect(&r, 1, 2);
    EXPECT_EQ(r.left, 11);
    EXPECT_EQ(r.top, 22);
    EXPECT_EQ(r.right, 109);
    EXPECT_EQ(r.bottom, 68);
    EXPECT_EQ(KV_GetRectWidth(&r), 98);
    KV_InsetRect(nullptr, 1, 1);
}

// ---- Dialogs from resource files, and running them ----

struct FailingRunner : DialogRunner {
    bool Run(Dialog&) override { throw std::runtime_error("no screen"); }
    bool TrackMouse(Control&, int*, int*) override { return false; }
};

TEST(DialogFromResources, MadeFromTheFileRunByTheRunnerAndReleased) {
    host_test::ScratchDirectory scratch;
    vellux::rsc::ResourceFile file;
    file.resources.push_back(host_test::Res("DLOG", 16001, EncodeDialog(SampleLayout())));
    file.resources.push_back(host_test::Res("DLOG", 9000, {0, 1, 0, 5}));   // cut short
    vellux::rsc::WriteResourceFile(scratch / "Dialogs.rsc", file);
    SetHomeDirectory(scratch.path);
    KV_DirectoryRef* home = KV_GetHomeDirectory();
    KV_FileRef* ref = KV_MakeFileRef(home, "Dialogs.rsc", 0, "rsc");
    KV_ResourceFile* resources = KV_OpenResourceFile(ref);
    ASSERT_NE(resources, nullptr);
    const int dialogsBefore = LiveDialogs();

    KV_Dialog* made = KV_MakeDialog(resources, 16001);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(KV_MakeDialog(resources, 9000), nullptr);
    EXPECT_EQ(KV_MakeDialog(resources, 9002), nullptr);
    EXPECT_EQ(KV_MakeDialog(nullptr, 16001), nullptr);
    EXPECT_EQ(LiveServiceObjects().resourceCopies, 0);
    EXPECT_EQ(KV_GetControlValue(KV_FindControlByID(made, 4)), 2);

    EXPECT_EQ(KV_ExecuteDialog(made), 0);   // no runner: cancelled
    FailingRunner failing;
    {
        ScopedDialogRunner installed(failing);
        EXPECT_EQ(KV_ExecuteDialog(made), 0);
    }
    const std::exception_ptr failure = TakeRunnerFailure();
    ASSERT_TRUE(failure);
    EXPECT_THROW(std::rethrow_exception(failure), std::runtime_error);
    EXPECT_FALSE(TakeRunnerFailure());

    KV_DestroyDialog(made);
    KV_DestroyDialog(made);   // twice: the second is ignored
    EXPECT_EQ(LiveDialogs(), dialogsBefore);
    KV_CloseResourceFile(resources);
    KV_DestroyFileRef(ref);
    KV_DestroyDirectoryRef(home);
    SetHomeDirectory({});
}

}  // namespace
