// Dialog item helpers against the fake dialog host.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <tuple>

#include "fake_services/fake_dialog_host.h"
#include "kit/dialog_items.h"

namespace {

// A length-prefixed string built from test text, cut at 255 characters.
struct PText {
    PStr255 s{};
    explicit PText(const std::string& text) {
        s[0] = static_cast<unsigned char>(std::min<size_t>(text.size(), 255));
        std::memcpy(s + 1, text.data(), s[0]);
    }
    operator unsigned char*() { return s; }
};

std::string Text(const unsigned char* p) { return std::string(reinterpret_cast<const char*>(p) + 1, p[0]); }

class DialogItems : public ::testing::Test {
protected:
    void SetUp() override {
        fake_host::Reset();
        InitUtils();
        dialog = &fake_host::NewDialog();
        d = &dialog->handle;
    }
    fake_host::Control& Add(int id, KV_ControlType type) { return fake_host::AddControl(*dialog, id, type); }

    fake_host::Dialog* dialog = nullptr;
    KV_Dialog* d = nullptr;
};

void Draw(const KV_Control*, KV_DrawContext*) {}
int Click(KV_Control*, KV_DrawContext*, int, int, int) { return 0; }
void Hit(KV_Control*, KV_DrawContext*) {}

TEST(DialogItemsText, RealTrimStrTrimsOnlyTheFraction) {
    EXPECT_EQ(Text(RealTrimStr(0.0, 8)), "0");
    EXPECT_EQ(Text(RealTrimStr(-0.0000000001, 8)), "0");
    EXPECT_EQ(Text(RealTrimStr(-0.4, 0)), "0");          // "-0" without any point
    EXPECT_EQ(Text(RealTrimStr(1.77, 8)), "1.77");
    EXPECT_EQ(Text(RealTrimStr(50.0, 3)), "50");
    EXPECT_EQ(Text(RealTrimStr(100.0, 2)), "100");        // zeros before the point stay
    EXPECT_EQ(Text(RealTrimStr(20.0, 0)), "20");
    EXPECT_EQ(Text(RealTrimStr(0.5, -2)), "0.50");        // negative precision: as formatted
    EXPECT_EQ(Text(RealTrimStr(-0.001, -2)), "-0.00");
    const unsigned char* big = RealTrimStr(1e300, 8);
    EXPECT_EQ(big[0], 255);
    EXPECT_EQ(big[1], '1');
}

TEST(DialogItemsText, ParsingNeverFails) {
    EXPECT_EQ(Str2Num(PText("  3.5xyz")), 3.5);
    EXPECT_EQ(Str2Num(PText("abc")), 0.0);
    EXPECT_GT(Str2Num(PText(std::string(255, '1'))), 1e254);   // full-length text, no NUL after it
    EXPECT_EQ(Str2Int(PText("-42 apples")), -42);
    EXPECT_EQ(Str2Int(PText("x1")), 0);
    EXPECT_EQ(Str2Int(PText("99999999999")), INT32_MAX);
}

TEST(DialogItemsSetters, ChangeFlagCollectsChanges) {
    unsigned char flag = 1;
    double x = 2.0;
    SetDouble(&x, 2.0, &flag);
    EXPECT_EQ(flag, 1);                                   // never cleared
    flag = 0;
    SetDouble(&x, 2.0, &flag);
    EXPECT_EQ(flag, 0);
    SetDouble(&x, 3.0, &flag);
    EXPECT_EQ(std::tuple(flag, x), std::tuple(1, 3.0));
    x = NAN;
    flag = 0;
    SetDouble(&x, NAN, &flag);
    EXPECT_EQ(flag, 1);
    float f = NAN;
    flag = 0;
    SetReal(&f, NAN, &flag);
    EXPECT_EQ(flag, 1);

    RGB_Color rgb{1, 2, 3}, rgbNew{1, 2, 4};
    flag = 0;
    SetRGBColor(&rgb, &rgbNew, &flag);
    EXPECT_EQ(std::tuple(flag, rgb.blue), std::tuple(1, 4));
    ARGB argb{9, 1, 2, 3}, argbNew{8, 1, 2, 3};
    flag = 0;
    SetTheARGB(&argb, &argbNew, &flag);
    EXPECT_EQ(std::tuple(flag, argb.a), std::tuple(1, 8));
    char byte = 44;
    flag = 0;
    SetByte(&byte, 300, &flag);                           // 300 stores as 44: nothing changed
    EXPECT_EQ(flag, 0);
}

TEST(DialogItemsSetters, FlagBitsTakeTheirNumberModulo32) {
    uint32_t word = 0;
    SetFlag(&word, 33, 1);
    EXPECT_EQ(word, 0x2u);
    SetFlag(&word, -1, 1);
    EXPECT_EQ(word, 0x80000002u);
    SetFlag(&word, 1, 0);
    EXPECT_EQ(word, 0x80000000u);
    uint16_t half = 0;
    SetIntegerFlag(&half, 15, 1);
    SetIntegerFlag(&half, 17, 1);                         // no such bit in 16
    EXPECT_EQ(half, 0x8000u);

    unsigned char flag = 0;
    word = 1u << 20;
    SetBooleanFlag(&word, 20, 1, &flag);
    EXPECT_EQ(flag, 0);
    SetBooleanFlag(&word, 52, 0, &flag);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(word, 0u);
}

TEST_F(DialogItems, EditTextNumbersAndTruncation) {
    fake_host::Control& edit = Add(5, cKV_EditText);
    for (auto [text, want] : {std::pair{"1e999", 0.0}, {"-1e999", 0.0}, {"nan", 0.0}, {"", 0.0},
                              {"  3.5xyz", 3.5}, {"-2.25", -2.25}}) {
        edit.text = text;
        EXPECT_EQ(GetTheIReal(d, 5), want) << text;
    }
    edit.text = "-0";
    EXPECT_FALSE(std::signbit(GetTheIReal(d, 5)));

    SetTheIReal(d, 5, 12.5, 3);
    EXPECT_EQ(edit.text, "12.5");
    SetTheINum(d, 5, -17);
    EXPECT_EQ(GetTheINum(d, 5), -17);
    edit.text = std::string(50, '0') + "7";               // only 50 characters are read
    EXPECT_EQ(GetTheINum(d, 5), 0);
    edit.text = std::string(49, '0') + "7";
    EXPECT_EQ(GetTheINum(d, 5), 7);

    PStr255 read;
    edit.text = "abc";                                    // the last character is not lost
    GetTheIText(d, 5, read);
    EXPECT_EQ(Text(read), "abc");
    std::string longText;
    for (int i = 0; i < 300; ++i) longText += static_cast<char>('a' + i % 26);
    edit.text = longText;
    GetTheIText(d, 5, read);
    EXPECT_EQ(Text(read), longText.substr(0, 255));
    SetTheIText(d, 5, read);
    EXPECT_EQ(edit.text, longText.substr(0, 255));
}

TEST_F(DialogItems, SelectItemSelectsAllOnlyInEditTexts) {
    fake_host::Control& box = Add(1, cKV_CheckBox);
    fake_host::Control& edit = Add(2, cKV_EditText);
    SelectItem(d, 1);
    EXPECT_EQ(dialog->keyControl, &box);
    EXPECT_EQ(box.selectionStart, -1);
    SelectItem(d, 2);
    EXPECT_EQ(dialog->keyControl, &edit);
    EXPECT_EQ(edit.selectionStart, 0);
    EXPECT_EQ(edit.selectionEnd, 10000);
    SelectItem(d, 99);
    EXPECT_EQ(dialog->keyControl, &edit);
    EXPECT_EQ(fake_host::Log().strayCalls, 0);
}

TEST_F(DialogItems, ButtonsAndPopUps) {
    fake_host::Control& popUp = Add(3, cKV_PopupMenu);
    for (auto [value, want] : {std::pair{65535, -1}, {32768, -32768}, {70000, 4464}, {12, 12}}) {
        popUp.value = value;
        EXPECT_EQ(GetTheIPopUp(d, 3), want) << value;
    }
    SetTheIPopUp(d, 3, -2);
    EXPECT_EQ(popUp.value, -2);
    fake_host::Control& box = Add(4, cKV_CheckBox);
    EXPECT_EQ(ToggleButton(d, 4), 1);
    box.value = 7;
    EXPECT_EQ(ToggleButton(d, 4), 0);
    EXPECT_EQ(box.value, 0);
    SetButton(d, 4, 1);
    EXPECT_EQ(GetButton(d, 4), 1);
}

TEST_F(DialogItems, AbsentControlsAreTolerated) {
    fake_host::Control& edit = Add(1, cKV_EditText);
    edit.text = "5";
    for (KV_Dialog* dd : {d, static_cast<KV_Dialog*>(nullptr)}) {
        ARGB color{1, 2, 3, 4};             // getters must leave these alone
        KV_Rect rect{1, 2, 3, 4};
        SetButton(dd, 99, 1);
        SetTheIPopUp(dd, 99, 1);
        SetTheIText(dd, 99, PText("x"));
        SetTheIReal(dd, 99, 1.0, 2);
        SetTheINum(dd, 99, 1);
        SetButtonName(dd, 99, PText("x"));
        SetControlIDTitle(dd, 99, "x");
        SetEditTextIDString(dd, 99, "x");
        SetControlIDVisible(dd, 99, 0);
        SetControlIDHitFunction(dd, 99, Hit);
        SetUserControlIDFunctions(dd, 99, Draw, Click);
        SelectItem(dd, 99);
        SetColorButtonIDARGB(dd, 99, &color);
        SetTheIRect(dd, 99, &rect);
        EXPECT_EQ(GetButton(dd, 99), 0);
        EXPECT_EQ(ToggleButton(dd, 99), 0);
        EXPECT_EQ(GetTheIPopUp(dd, 99), 0);
        EXPECT_EQ(GetTheIType(dd, 99), 0);
        EXPECT_EQ(GetTheINum(dd, 99), 0);
        EXPECT_EQ(GetTheIReal(dd, 99), 0.0);
        PStr255 text = {3, 'a', 'b', 'c'};
        GetTheIText(dd, 99, text);
        EXPECT_EQ(text[0], 0);
        text[0] = 3;
        GetButtonName(dd, 99, text);
        EXPECT_EQ(text[0], 0);
        GetColorButtonIDARGB(dd, 99, &color);
        EXPECT_EQ(color.a + color.r + color.g + color.b, 10);
        GetTheIRect(dd, 99, &rect);
        EXPECT_EQ(rect.left + rect.top + rect.right + rect.bottom, 10);
    }
    EXPECT_EQ(edit.text, "5");
    EXPECT_EQ(dialog->keyControl, nullptr);
    EXPECT_EQ(fake_host::Log().strayCalls, 0);
}

TEST_F(DialogItems, ColourButtonsMapArgbBytes) {
    fake_host::Control& b = Add(7, cKV_ColorButton);
    ARGB in{0x11, 0x22, 0x33, 0x44};
    SetColorButtonIDARGB(d, 7, &in);
    EXPECT_EQ(std::tuple(b.red, b.green, b.blue, b.alpha), std::tuple(0x22, 0x33, 0x44, 0x11));
    std::tie(b.red, b.green, b.blue, b.alpha) = std::tuple(200, 0, 255, 128);
    ARGB out{};
    GetColorButtonIDARGB(d, 7, &out);
    EXPECT_EQ(std::tuple(out.a, out.r, out.g, out.b), std::tuple(128, 200, 0, 255));
}

TEST_F(DialogItems, PassThroughsReachTheRightControl) {
    Add(1, cKV_EditText);
    fake_host::Control& user = Add(8, cKV_UserControl);
    SetUserControlIDFunctions(d, 8, Draw, Click);
    SetControlIDHitFunction(d, 8, Hit);
    EXPECT_EQ(user.draw, &Draw);
    EXPECT_EQ(user.click, &Click);
    EXPECT_EQ(user.hit, &Hit);
    SetControlIDVisible(d, 8, 0);
    EXPECT_EQ(user.visible, 0);
    SetButtonName(d, 8, PText("Reset"));
    PStr255 name;
    GetButtonName(d, 8, name);
    EXPECT_EQ(Text(name), "Reset");
    KV_Rect rect{1, 2, 30, 40}, back{};
    SetTheIRect(d, 8, &rect);
    SetTheIRect(d, 8, nullptr);
    GetTheIRect(d, 8, &back);
    GetTheIRect(d, 8, nullptr);
    EXPECT_EQ(std::tuple(back.left, back.top, back.right, back.bottom), std::tuple(1, 2, 30, 40));
    EXPECT_EQ(GetTheIType(d, 8), cKV_UserControl);
    EXPECT_EQ(fake_host::Log().strayCalls, 0);
}

TEST_F(DialogItems, SetParamTextReplacesPlaceholdersInStaticTexts) {
    fake_host::Control& text = Add(1, cKV_StaticText);
    text.title = "^^0 at ^1, ^2^3 ^4 ^x end^";
    fake_host::Control& twice = Add(2, cKV_StaticText);
    twice.title = "^0^0";
    fake_host::Control& edit = Add(3, cKV_EditText);
    edit.title = "^0";
    fake_host::Control& full = Add(4, cKV_StaticText);
    full.title = "^3" + std::string(248, 'x');
    SetParamText(d, PText("A^1"), PText("B"), aEmptyPStr, PText("0123456789"));
    EXPECT_EQ(text.title, "^A^1 at B, 0123456789 ^4 ^x end^");   // inserted text is not rescanned
    EXPECT_EQ(twice.title, "A^1A^1");
    EXPECT_EQ(edit.title, "^0");
    EXPECT_EQ(full.title, "0123456789" + std::string(245, 'x'));  // cut at 255 from the end
}

TEST_F(DialogItems, MessageDialogsAreMadeRunAndDestroyed) {
    for (int id : {kCautionDialogID, kMessageDialogID, kWarningDialogID}) {
        fake_host::AddControl(fake_host::DefineDialog(id), 1, cKV_StaticText).title = "Note: ^0|^1";
    }
    fake_host::SetExecuteResult(7);
    KV_ResourceFile* res = fake_host::TheResourceFile();
    EXPECT_EQ(Caution(res, PText("hot")), 7);
    EXPECT_EQ(Message(res, PText("m")), 7);
    EXPECT_EQ(Warning(res, PText("w")), 7);
    EXPECT_EQ(Stop(res, PText("no such dialog")), 0);
    const fake_host::HostLog& log = fake_host::Log();
    EXPECT_EQ(log.dialogsMade, 3);
    EXPECT_EQ(log.dialogsDestroyed, 3);
    ASSERT_EQ(log.executed.size(), 3u);
    EXPECT_EQ(log.executed[0].dialogID, kCautionDialogID);
    EXPECT_EQ(log.executed[0].staticTexts, std::vector<std::string>{"Note: hot|"});
    EXPECT_EQ(log.executed[1].dialogID, kMessageDialogID);
    EXPECT_EQ(log.executed[2].dialogID, kWarningDialogID);
    EXPECT_EQ(fake_host::DefineDialog(kCautionDialogID).controls[0].title, "Note: ^0|^1");
}

TEST_F(DialogItems, ErrorsShowAtMostOnceBetweenInits) {
    fake_host::AddControl(fake_host::DefineDialog(kStopDialogID), 1, cKV_StaticText).title = "^0";
    KV_ResourceFile* res = fake_host::TheResourceFile();
    const auto& runs = fake_host::Log().executed;
    Error(res, PText("Disk full"), -28);
    Error(res, PText("Again"), 1);
    StandardError(res, PText("More"));
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].staticTexts[0], "Disk full: -28");

    InitUtils();
    StandardError(res, aEmptyPStr);                       // nothing to report, nothing silenced
    EXPECT_EQ(runs.size(), 1u);
    StandardError(res, PText("Lost"));
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_EQ(runs[1].staticTexts[0], "Lost");

    InitUtils();
    hideErrorFlag = 1;
    Error(res, PText("hidden"), 2);
    hideErrorFlag = 0;
    Error(res, PText("after"), 3);
    EXPECT_EQ(runs.size(), 2u);

    InitUtils();
    Error(res, PText(std::string(255, 'm')), 12345);
    ASSERT_EQ(runs.size(), 3u);
    EXPECT_EQ(runs[2].staticTexts[0], std::string(255, 'm'));
}

TEST_F(DialogItems, OpenResourceFileReleasesItsReferences) {
    EXPECT_EQ(OpenResourceFile("Vellux.rsc"), fake_host::TheResourceFile());
    const fake_host::HostLog& log = fake_host::Log();
    EXPECT_EQ(log.fileName, "Vellux.rsc");
    EXPECT_EQ(log.fileType, 0x72737263u);                 // 'rsrc'
    EXPECT_EQ(log.fileExtension, "rsc");
    fake_host::SetResourceFileAvailable(false);
    EXPECT_EQ(OpenResourceFile("Vellux.rsc"), nullptr);
    EXPECT_EQ(log.liveDirectoryRefs, 0);
    EXPECT_EQ(log.liveFileRefs, 0);
    EXPECT_EQ(log.strayCalls, 0);
}

}  // namespace
