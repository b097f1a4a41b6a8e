// Dialog resources: the bytes of the layout, the round trip, and every class of damaged or
// rule-breaking bytes refused with a reason, never read past their end.
#include "dialog_test_support.h"
#include "host/dialog_resource.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace {

using namespace vellux::host;
using Bytes = std::vector<uint8_t>;

// ---- A writer that follows the layout without judging the template ----

void Put16(Bytes& out, int value) {
    out.push_back(uint8_t(uint16_t(value) >> 8));
    out.push_back(uint8_t(value));
}

void PutString(Bytes& out, const std::string& text) {
    out.push_back(uint8_t(text.size()));
    out.insert(out.end(), text.begin(), text.end());
    if ((1 + text.size()) % 2 != 0) out.push_back(0);
}

Bytes RawBytes(const DialogTemplate& dialog) {
    Bytes out;
    Put16(out, 1);
    Put16(out, dialog.width);
    Put16(out, dialog.height);
    PutString(out, dialog.title);
    Put16(out, int(dialog.items.size()));
    for (const DialogItem& item : dialog.items) {
        for (int field : {int(item.id), int(item.type), item.bounds.left, item.bounds.top, item.bounds.right,
                          item.bounds.bottom, int(item.value), int(item.labelFor)})
            Put16(out, field);
        PutString(out, item.title);
        Put16(out, int(item.menu.size()));
        for (const DialogMenuItem& entry : item.menu) {
            Put16(out, entry.value);
            PutString(out, entry.text);
        }
    }
    return out;
}

using dialog_test::Item;

// A small dialog with every field in use: a labelled pop-up, a set check box, strings of odd
// and even lengths (with and without a pad byte) and an empty one.
DialogTemplate Sample() {
    DialogTemplate dialog;
    dialog.width = 320;
    dialog.height = 200;
    dialog.title = "Settings";
    DialogItem label = Item(100, cKV_StaticText, {8, 12, 80, 28}, "Filter");
    label.labelFor = 22;
    dialog.items.push_back(label);
    DialogItem popup = Item(22, cKV_PopupMenu, {88, 8, 200, 32});
    popup.value = -3;
    popup.menu = {{0, "None"}, {-3, "Odd"}, {7, ""}};
    dialog.items.push_back(popup);
    DialogItem check = Item(5, cKV_CheckBox, {8, 40, 200, 64}, "Glow");
    check.value = 1;
    dialog.items.push_back(check);
    dialog.items.push_back(Item(17, cKV_EditText, {8, 72, 64, 96}));
    dialog.items.push_back(Item(1, cKV_PushButton, {0, 168, 320, 200}, "OK"));   // touches both edges
    return dialog;
}

// The reason the bytes are refused, or "(decoded)". The bytes are copied into a buffer of
// exactly their size, so that a read past the end is caught by the address sanitizer.
std::string Refusal(const Bytes& bytes) {
    const Bytes exact(bytes.begin(), bytes.end());
    const auto decoded = DecodeDialog(exact);
    if (const auto* reason = std::get_if<std::string>(&decoded)) return *reason;
    return "(decoded)";
}

std::string EncodeRefusal(const DialogTemplate& dialog) {
    try {
        EncodeDialog(dialog);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "(encoded)";
}

// ---- The layout ----

TEST(DialogResource, WritesTheLayoutFieldByField) {
    DialogTemplate dialog;
    dialog.width = 0x0102;
    dialog.height = 0x0304;
    dialog.title = "Hi";
    DialogItem popup = Item(0x0A0B, cKV_PopupMenu, {1, 2, 3, 4});
    popup.value = -2;
    popup.menu = {{-2, "x"}};
    dialog.items.push_back(popup);
    const Bytes expected = {
        0x00, 0x01, 0x01, 0x02, 0x03, 0x04,   // version, width, height
        0x02, 'H', 'i', 0x00,                 // title: length, bytes, pad to an even whole
        0x00, 0x01,                           // one item
        0x0A, 0x0B, 0x00, 0x0D,               // id, type 13
        0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x04,
        0xFF, 0xFE, 0x00, 0x00,               // value -2, labels nothing
        0x00, 0x00,                           // empty title: length and pad
        0x00, 0x01, 0xFF, 0xFE, 0x01, 'x',    // one menu item: value -2, "x" (even without a pad)
    };
    EXPECT_EQ(EncodeDialog(dialog), expected);
}

TEST(DialogResource, RoundTripsByteForByte) {
    const DialogTemplate sample = Sample();
    const Bytes bytes = EncodeDialog(sample);
    EXPECT_EQ(bytes, RawBytes(sample));
    // Encoding writes every field, so bytes that encode back the same mean the same template.
    const auto decoded = DecodeDialog(bytes);
    ASSERT_TRUE(std::holds_alternative<DialogTemplate>(decoded)) << std::get<std::string>(decoded);
    EXPECT_EQ(EncodeDialog(std::get<DialogTemplate>(decoded)), bytes);

    // The limits: 255-byte strings, the largest size, an empty dialog.
    DialogTemplate limits;
    limits.width = 32767;
    limits.height = 1;
    limits.title = std::string(255, 't');
    DialogItem item = Item(32767, cKV_OpenGLControl, {0, 0, 32767, 1}, std::string(255, 'i'));
    item.value = -32768;
    limits.items.push_back(item);
    const auto again = DecodeDialog(EncodeDialog(limits));
    ASSERT_TRUE(std::holds_alternative<DialogTemplate>(again)) << std::get<std::string>(again);
    EXPECT_EQ(EncodeDialog(std::get<DialogTemplate>(again)), RawBytes(limits));
    EXPECT_EQ(Refusal(EncodeDialog(DialogTemplate{1, 1, "", {}})), "(decoded)");
}

// ---- Damaged bytes ----

TEST(DialogResource, EveryTruncationIsRefused) {
    const Bytes bytes = EncodeDialog(Sample());
    for (size_t n = 0; n < bytes.size(); ++n) {
        const std::string reason = Refusal(Bytes(bytes.begin(), bytes.begin() + ptrdiff_t(n)));
        EXPECT_NE(reason, "(decoded)") << n << " bytes";
        EXPECT_FALSE(reason.empty()) << n << " bytes";
    }
}

TEST(DialogResource, DamagedBytesAreRefusedWithTheReason) {
    const Bytes good = EncodeDialog(Sample());
    auto damaged = [&](const std::function<void(Bytes&)>& damage) {
        Bytes bytes = good;
        damage(bytes);
        return Refusal(bytes);
    };
    // Offsets in Sample(): the title "Settings" (8 bytes, padded) ends at 16, the item count
    // follows; the first item's fields start at 18 and its title "Filter" at 34.
    EXPECT_EQ(damaged([](Bytes& b) { b[1] = 2; }), "version 2; only version 1 is known");
    EXPECT_EQ(damaged([](Bytes& b) { b[15] = '!'; }), "the pad byte after the title is 0x21, not 0");
    EXPECT_NE(damaged([](Bytes& b) { b[41] = 1; }).find("pad byte after the title of item 0 of 5"), std::string::npos);
    EXPECT_EQ(damaged([](Bytes& b) { b.push_back(0); }), "1 byte follows the items");
    EXPECT_EQ(damaged([](Bytes& b) { b.insert(b.end(), {0, 0, 0}); }), "3 bytes follow the items");
    EXPECT_NE(damaged([](Bytes& b) { b[17] = 6; }).find("ends inside the fields of item 5 of 6"), std::string::npos);
    EXPECT_NE(damaged([](Bytes& b) { b[17] = 0xFF; b[16] = 0xFF; }).find("of 65535"), std::string::npos);
    EXPECT_NE(damaged([](Bytes& b) { b[6] = 200; }).find("ends inside the title (200 bytes long)"), std::string::npos);
    // The pop-up's menu count (item 1) claims one more item than there is.
    const size_t menuCount = 18 + 16 + 8 + 2 + 16 + 2;
    ASSERT_EQ(good[menuCount + 1], 3);
    EXPECT_NE(damaged([&](Bytes& b) { b[menuCount + 1] = 4; }).find("menu item"), std::string::npos);
    EXPECT_EQ(Refusal({}), "0 bytes, too short for the version, width and height");
}

// ---- Rules ----

struct RuleCase {
    const char* name;
    std::function<void(DialogTemplate&)> edit;
    const char* reason;   // the whole reason the decoder gives
};

std::string RuleName(const testing::TestParamInfo<RuleCase>& param) { return param.param.name; }

class DialogRule : public testing::TestWithParam<RuleCase> {};

// A template that breaks a rule: the encoder refuses it, and its bytes (written without
// judging) are refused by the decoder with the same reason.
TEST_P(DialogRule, IsRefusedByBothDirections) {
    DialogTemplate dialog = Sample();
    GetParam().edit(dialog);
    EXPECT_EQ(Refusal(RawBytes(dialog)), GetParam().reason);
    EXPECT_NE(EncodeRefusal(dialog).find(GetParam().reason), std::string::npos) << EncodeRefusal(dialog);
}

INSTANTIATE_TEST_SUITE_P(Classes, DialogRule, testing::Values(
    RuleCase{"WidthZero", [](DialogTemplate& d) { d.width = 0; d.items.clear(); }, "width: must be 1 or more, not 0"},
    RuleCase{"HeightNegative", [](DialogTemplate& d) { d.height = -5; d.items.clear(); }, "height: must be 1 or more, not -5"},
    RuleCase{"IdZero", [](DialogTemplate& d) { d.items[3].id = 0; }, "items[3].id: must be 1 or more, not 0"},
    RuleCase{"IdNegative", [](DialogTemplate& d) { d.items[3].id = -17; }, "items[3].id: must be 1 or more, not -17"},
    RuleCase{"DuplicateId", [](DialogTemplate& d) { d.items[4].id = 5; }, "items[4].id: 5 is also the ID of items[2]"},
    RuleCase{"TypeZero", [](DialogTemplate& d) { d.items[3].type = KV_ControlType(0); }, "items[3].type: control type 0 is not one of 1..16"},
    RuleCase{"TypeSeventeen", [](DialogTemplate& d) { d.items[3].type = KV_ControlType(17); }, "items[3].type: control type 17 is not one of 1..16"},
    RuleCase{"LeftOutside", [](DialogTemplate& d) { d.items[3].bounds.left = -1; }, "items[3].bounds[0]: left (-1) is outside the dialog"},
    RuleCase{"TopOutside", [](DialogTemplate& d) { d.items[3].bounds.top = -8; }, "items[3].bounds[1]: top (-8) is outside the dialog"},
    RuleCase{"RightBeyondWidth", [](DialogTemplate& d) { d.items[3].bounds.right = 321; }, "items[3].bounds[2]: right (321) is beyond the dialog's width (320)"},
    RuleCase{"BottomBeyondHeight", [](DialogTemplate& d) { d.items[4].bounds.bottom = 201; }, "items[4].bounds[3]: bottom (201) is beyond the dialog's height (200)"},
    RuleCase{"EmptyWidth", [](DialogTemplate& d) { d.items[3].bounds.right = 8; }, "items[3].bounds[2]: right (8) must be more than left (8): the control would be empty"},
    RuleCase{"InvertedHeight", [](DialogTemplate& d) { d.items[3].bounds.bottom = 70; }, "items[3].bounds[3]: bottom (70) must be more than top (72): the control would be empty"},
    RuleCase{"MenuOnCheckBox", [](DialogTemplate& d) { d.items[2].menu = {{0, "a"}}; }, "items[2].menu: only a pop-up menu has menu items, not a check box"},
    RuleCase{"PopupWithoutItems", [](DialogTemplate& d) { d.items[1].menu.clear(); }, "items[1].menu: a pop-up menu needs at least one item"},
    RuleCase{"DuplicateMenuValue", [](DialogTemplate& d) { d.items[1].menu[2].value = 0; }, "items[1].menu[2].value: 0 is also the value of menu[0]"},
    RuleCase{"PopupValueNotAnItem", [](DialogTemplate& d) { d.items[1].value = 1; }, "items[1].value: 1 is not the value of any of the pop-up's items"},
    RuleCase{"CheckBoxValueTwo", [](DialogTemplate& d) { d.items[2].value = 2; }, "items[2].value: a check box is 0 or 1, not 2"},
    RuleCase{"CheckBoxValueNegative", [](DialogTemplate& d) { d.items[2].value = -1; }, "items[2].value: a check box is 0 or 1, not -1"},
    RuleCase{"LabelForMissing", [](DialogTemplate& d) { d.items[0].labelFor = 99; }, "items[0].for: names ID 99, which no item has"},
    RuleCase{"LabelOnButton", [](DialogTemplate& d) { d.items[4].labelFor = 5; }, "items[4].for: only a static text labels another control, not a push button"}
), RuleName);

TEST(DialogResource, EncodingRefusesWhatTheBytesCannotHold) {
    DialogTemplate dialog = Sample();
    dialog.title = std::string(256, 'x');
    EXPECT_NE(EncodeRefusal(dialog).find("title: is 256 bytes long; at most 255 fit"), std::string::npos);
    dialog = Sample();
    dialog.items[1].menu[1].text = std::string(256, 'x');
    EXPECT_NE(EncodeRefusal(dialog).find("items[1].menu[1].text: is 256 bytes long"), std::string::npos);
    dialog = Sample();
    dialog.items[2].title = std::string(300, 'x');
    dialog.items[3].id = 0;
    EXPECT_NE(EncodeRefusal(dialog).find("items[2].title: is 300 bytes long; at most 255 fit (and 1 more)"),
              std::string::npos) << EncodeRefusal(dialog);
}

// ---- Control types ----

TEST(DialogResource, ControlTypeKeysAndNames) {
    const char* keys[] = {"button", "checkbox", "radio", "divider", "group", "tabs", "colorslider", "scroller",
                          "static", "edit", "color", "list", "popup", "picture", "user", "gl"};
    for (int type = 1; type <= 16; ++type) {
        EXPECT_STREQ(ControlTypeKey(KV_ControlType(type)), keys[type - 1]);
        EXPECT_EQ(ControlTypeFromKey(keys[type - 1]), type);
    }
    EXPECT_EQ(ControlTypeName(cKV_EditText), "edit text");
    EXPECT_EQ(ControlTypeName(17), "type 17");
    EXPECT_EQ(ControlTypeKey(cKV_NoControlType), nullptr);
    EXPECT_EQ(ControlTypeFromKey("Button"), cKV_NoControlType);
}

}  // namespace
