// The dialogs every shipped table file carries (tables/dialogs/settings.json, compiled into each
// table by the build): the settings dialog has every control the plug-in addresses, with the
// right types, labels a script can tell apart and a layout without collisions; the kit's message
// dialogs have their placeholder and buttons.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <variant>

#include "host/dialog_resource.h"
#include "host/table_export.h"
#include "host/table_source.h"

namespace vellux::rsc {
namespace {

using host::DialogItem;
using host::DialogTemplate;

const char* const kTables[] = {"Vellux", "LongZoom", "CleanPrime"};

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in) << path;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The dialog as the built table file holds it; an empty template (reported) when it is missing.
DialogTemplate ShippedDialog(const std::string& table, int16_t id) {
    const rsc::ResourceFile file =
        rsc::ReadResourceFile(std::string(VELLUX_COMPILED_TABLES_DIR) + "/" + table + ".rsc");
    const rsc::Resource* resource = file.Find(host::kDialogResourceType, id);
    if (!resource) {
        ADD_FAILURE() << table << ".rsc has no DLOG " << id;
        return {};
    }
    auto decoded = host::DecodeDialog(resource->data);
    if (const auto* reason = std::get_if<std::string>(&decoded)) {
        ADD_FAILURE() << table << ".rsc: DLOG " << id << ": " << *reason;
        return {};
    }
    return std::get<DialogTemplate>(std::move(decoded));
}

const DialogItem* FindItem(const DialogTemplate& dialog, int id) {
    for (const DialogItem& item : dialog.items)
        if (item.id == id) return &item;
    return nullptr;
}

// The static text that labels the item, or null.
const DialogItem* LabelOf(const DialogTemplate& dialog, const DialogItem& item) {
    for (const DialogItem& other : dialog.items)
        if (other.type == cKV_StaticText && other.labelFor == item.id) return &other;
    return nullptr;
}

// The name a script uses for a control: its label's text, else its own title (not an edit
// text's, which is its content), else "#ID".
std::string ScriptName(const DialogTemplate& dialog, const DialogItem& item) {
    if (const DialogItem* label = LabelOf(dialog, item); label && !label->title.empty()) return label->title;
    if (!item.title.empty() && item.type != cKV_EditText) return item.title;
    return "#" + std::to_string(item.id);
}

bool Overlap(const KV_Rect& a, const KV_Rect& b) {
    return a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;
}

bool Inside(const KV_Rect& inner, const KV_Rect& outer) {
    return inner.left >= outer.left && inner.right <= outer.right && inner.top >= outer.top &&
           inner.bottom <= outer.bottom;
}

struct Expected {   // a control the plug-in addresses, and the name scripts know it by
    int id;
    KV_ControlType type;
    const char* name;
};

const Expected kControls[] = {
    {5, cKV_CheckBox, "Follow light size"},   {6, cKV_CheckBox, "Anamorphic"},
    {7, cKV_CheckBox, "Glow"},                {8, cKV_CheckBox, "Glow in light colour"},
    {9, cKV_CheckBox, "Halo"},                {10, cKV_CheckBox, "Reflections"},
    {11, cKV_CheckBox, "Anamorphic streak"},  {12, cKV_CheckBox, "Streaks when off screen"},
    {13, cKV_CheckBox, "Random streaks"},     {14, cKV_EditText, "Ring size"},
    {15, cKV_EditText, "Star rotation"},      {16, cKV_EditText, "Dissolve"},
    {17, cKV_EditText, "Intensity"},          {18, cKV_EditText, "Streak density"},
    {19, cKV_EditText, "Streak intensity"},   {20, cKV_EditText, "Streak sharpness"},
    {25, cKV_EditText, "Anamorphic factor"},  {21, cKV_ColorButton, "Ring colour"},
    {22, cKV_PopupMenu, "Star filter"},       {24, cKV_UserControl, "Preview"},
    {23, cKV_StaticText, "Click or drag in the preview to place the light."},
    {26, cKV_CheckBox, "Painted preview"},    {1, cKV_PushButton, "OK"},
    {2, cKV_PushButton, "Cancel"},
};

class ShippedDialogs : public testing::TestWithParam<const char*> {};

TEST_P(ShippedDialogs, SettingsDialogHasEveryControlThePlugInAddresses) {
    const DialogTemplate dialog = ShippedDialog(GetParam(), 16001);
    EXPECT_EQ(dialog.title, "Vellux Lens Flare");
    EXPECT_NEAR(dialog.width, 720, 40);
    EXPECT_NEAR(dialog.height, 460, 40);
    for (const Expected& expected : kControls) {
        SCOPED_TRACE(expected.name);
        const DialogItem* item = FindItem(dialog, expected.id);
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->type, expected.type);
        EXPECT_EQ(ScriptName(dialog, *item), expected.name);
        const DialogItem* label = LabelOf(dialog, *item);
        if (expected.type == cKV_EditText || expected.type == cKV_ColorButton || expected.type == cKV_PopupMenu) {
            ASSERT_NE(label, nullptr);
            EXPECT_GE(label->id, 100);
            // On the field's row and before it.
            EXPECT_LE(label->bounds.right, item->bounds.left);
            EXPECT_GE(label->bounds.top, item->bounds.top);
            EXPECT_LE(label->bounds.bottom, item->bounds.bottom);
        }
        if (expected.type == cKV_EditText) {
            EXPECT_EQ(item->title, "");   // its initial text
        }
    }
    const DialogItem* preview = FindItem(dialog, 24);
    ASSERT_NE(preview, nullptr);
    EXPECT_EQ(preview->bounds.right - preview->bounds.left, 402);
    EXPECT_EQ(preview->bounds.bottom - preview->bounds.top, 228);
    for (const DialogItem& item : dialog.items) {
        EXPECT_GE(item.bounds.left, preview->bounds.left) << item.id;   // the preview is top-left
        EXPECT_GE(item.bounds.top, preview->bounds.top) << item.id;
    }
    for (const int below : {23, 26}) {
        const DialogItem* item = FindItem(dialog, below);
        ASSERT_NE(item, nullptr);
        EXPECT_GE(item->bounds.top, preview->bounds.bottom) << below;
        EXPECT_LE(item->bounds.right, preview->bounds.right) << below;
    }
}

TEST_P(ShippedDialogs, StarFilterMenuIsTheStarFilterNumbers) {
    const DialogTemplate dialog = ShippedDialog(GetParam(), 16001);
    const DialogItem* popup = FindItem(dialog, 22);
    ASSERT_NE(popup, nullptr);
    ASSERT_EQ(popup->menu.size(), 11u);
    for (size_t k = 0; k < popup->menu.size(); ++k) {
        const int points = 2 * int((k + 1) / 2);   // 0, 2, 2, 4, 4, ...
        const std::string text = k == 0 ? "None" : std::to_string(points) + " points" +
                                                       (k % 2 == 0 ? " + " + std::to_string(points) + " minor" : "");
        EXPECT_EQ(popup->menu[k].value, int(k));
        EXPECT_EQ(popup->menu[k].text, text);
    }
    EXPECT_EQ(popup->value, 0);
}

TEST_P(ShippedDialogs, ScriptsCanTellEveryControlApart) {
    const DialogTemplate dialog = ShippedDialog(GetParam(), 16001);
    std::map<std::string, int> names;
    for (const DialogItem& item : dialog.items) {
        if (item.type == cKV_StaticText) continue;   // scripts address the controls, not their labels
        std::string name = ScriptName(dialog, item);
        std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return char(std::tolower(c)); });
        const auto [at, inserted] = names.emplace(name, item.id);
        EXPECT_TRUE(inserted) << "IDs " << at->second << " and " << item.id << " are both \"" << at->first << "\"";
    }
    for (const DialogItem& item : dialog.items) {
        if (item.type == cKV_StaticText && item.labelFor != 0) {
            EXPECT_FALSE(item.title.empty()) << item.id;
            EXPECT_GE(item.id, 100) << item.id;
        }
    }
}

TEST_P(ShippedDialogs, LayoutIsInsideTheDialogWithoutCollisions) {
    const DialogTemplate dialog = ShippedDialog(GetParam(), 16001);
    std::vector<const DialogItem*> groups, controls;
    for (const DialogItem& item : dialog.items) (item.type == cKV_GroupBox ? groups : controls).push_back(&item);
    for (const DialogItem& item : dialog.items) {
        EXPECT_TRUE(Inside(item.bounds, {0, 0, dialog.width, dialog.height})) << item.id;
        EXPECT_GT(item.bounds.right, item.bounds.left) << item.id;
        EXPECT_GT(item.bounds.bottom, item.bounds.top) << item.id;
    }
    for (size_t a = 0; a < controls.size(); ++a)
        for (size_t b = a + 1; b < controls.size(); ++b)
            EXPECT_FALSE(Overlap(controls[a]->bounds, controls[b]->bounds))
                << "IDs " << controls[a]->id << " and " << controls[b]->id << " overlap";
    // A control touching a group box lies inside it; each group holds its controls.
    for (const DialogItem* group : groups) {
        EXPECT_GE(group->id, 100);
        for (const DialogItem* control : controls) {
            if (Overlap(control->bounds, group->bounds)) {
                EXPECT_TRUE(Inside(control->bounds, group->bounds)) << control->id << " straddles group " << group->id;
            }
        }
    }
    const std::map<std::string, std::vector<int>> members = {
        {"Flare", {5, 6, 7, 8, 9, 10, 14, 16, 17, 21, 25}}, {"Streaks", {11, 12, 13, 15, 18, 19, 20, 22}}};
    for (const auto& [title, ids] : members) {
        const auto group = std::find_if(groups.begin(), groups.end(), [&](const DialogItem* g) { return g->title == title; });
        ASSERT_NE(group, groups.end()) << title;
        for (const int id : ids) {
            const DialogItem* item = FindItem(dialog, id);
            ASSERT_NE(item, nullptr);
            EXPECT_TRUE(Inside(item->bounds, (*group)->bounds)) << id << " outside " << title;
        }
    }
    // Edit fields share one width; OK and Cancel sit at the bottom right, below everything else.
    std::set<int> editWidths;
    int lowest = 0;
    for (const DialogItem* control : controls) {
        if (control->type == cKV_EditText) editWidths.insert(control->bounds.right - control->bounds.left);
        if (control->type != cKV_PushButton) lowest = std::max(lowest, control->bounds.bottom);
    }
    EXPECT_EQ(editWidths.size(), 1u);
    for (const int id : {1, 2}) {
        const DialogItem* button = FindItem(dialog, id);
        ASSERT_NE(button, nullptr);
        EXPECT_GE(button->bounds.bottom, lowest) << id;
        EXPECT_GE(button->bounds.left, dialog.width / 2) << id;
        EXPECT_GE(button->bounds.bottom, dialog.height - 24) << id;
    }
}

TEST_P(ShippedDialogs, MessageDialogsHaveThePlaceholderAndTheirButtons) {
    const std::map<int, std::string> titles = {{9000, "Error"}, {9002, "Warning"}, {9003, "Message"}, {9004, "Caution"}};
    for (const auto& [id, title] : titles) {
        SCOPED_TRACE(id);
        const DialogTemplate dialog = ShippedDialog(GetParam(), int16_t(id));
        EXPECT_EQ(dialog.title, title);
        const auto text = std::find_if(dialog.items.begin(), dialog.items.end(), [](const DialogItem& item) {
            return item.type == cKV_StaticText && item.title.find("^0") != std::string::npos;
        });
        ASSERT_NE(text, dialog.items.end());
        if (id == 9000) {
            EXPECT_EQ(text->title, "^0");
        }
        const DialogItem* ok = FindItem(dialog, host::kAcceptButtonID);
        ASSERT_NE(ok, nullptr);
        EXPECT_EQ(ok->type, cKV_PushButton);
        EXPECT_EQ(ok->title, "OK");
        const DialogItem* cancel = FindItem(dialog, host::kCancelButtonID);
        if (id == 9004) {
            ASSERT_NE(cancel, nullptr);
            EXPECT_EQ(cancel->type, cKV_PushButton);
            EXPECT_EQ(cancel->title, "Cancel");
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Tables, ShippedDialogs, testing::ValuesIn(kTables));

// Each table with the dialogs compiles without a word, and its export keeps every resource
// field by field and compiles back to the same bytes.
TEST(ShippedDialogSource, CompilesWithEveryTableAndComesBackByteIdentical) {
    const std::string dialogs = std::string(VELLUX_TABLES_DIR) + "/dialogs/settings.json";
    for (const char* table : kTables) {
        SCOPED_TRACE(table);
        const std::string path = std::string(VELLUX_TABLES_DIR) + "/" + table + ".json";
        const CompiledTable compiled = CompileTableSources({{path, ReadText(path)}, {dialogs, ReadText(dialogs)}});
        for (const Diagnostic& d : compiled.diagnostics.All()) ADD_FAILURE() << d.source << ": " << d.Text();
        const std::string exported = FormatTableSource(TableSourceFromFile(compiled.file));
        EXPECT_EQ(exported.find("\"hex\""), std::string::npos);
        const CompiledTable again = CompileTableSource(exported);
        EXPECT_EQ(again.diagnostics.ErrorCount(), 0u);
        EXPECT_EQ(rsc::SerializeResourceFile(again.file), rsc::SerializeResourceFile(compiled.file));
    }
}

}  // namespace
}  // namespace vellux::rsc
