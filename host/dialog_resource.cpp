#include "host/dialog_resource.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

#include "host/big_endian.h"

namespace vellux::host {

namespace {

constexpr size_t kMaxString = 255;
constexpr size_t kMaxCount = 0xFFFF;
constexpr size_t kHeaderSize = 6;        // version, width, height
constexpr size_t kItemFieldsSize = 16;   // id, type, bounds, value, label for

struct TypeNames {
    const char* key;
    const char* name;
};

// Indexed by KV_ControlType - 1.
constexpr TypeNames kTypes[] = {
    {"button", "push button"},   {"checkbox", "check box"},         {"radio", "radio group"},
    {"divider", "divider line"}, {"group", "group box"},            {"tabs", "tab group"},
    {"colorslider", "colour slider"}, {"scroller", "scroller"},      {"static", "static text"},
    {"edit", "edit text"},       {"color", "colour button"},        {"list", "list box"},
    {"popup", "pop-up menu"},    {"picture", "picture"},            {"user", "user control"},
    {"gl", "GL control"},
};
static_assert(std::size(kTypes) == cKV_OpenGLControl);

bool IsKnownType(int type) { return type >= cKV_PushButton && type <= cKV_OpenGLControl; }

// ---- Paths in the source's terms ----

std::string ItemPath(size_t i) { return "items[" + std::to_string(i) + "]"; }
std::string ItemField(size_t i, const char* field) { return ItemPath(i) + "." + field; }
std::string BoundsPath(size_t i, int side) { return ItemField(i, "bounds") + "[" + std::to_string(side) + "]"; }
std::string MenuPath(size_t i, size_t k) { return ItemField(i, "menu") + "[" + std::to_string(k) + "]"; }

std::string TooLong(const std::string& text) {
    return "is " + std::to_string(text.size()) + " bytes long; at most 255 fit";
}

// ---- Checking ----

class Checker {
public:
    explicit Checker(const DialogTemplate& dialog) : dialog_(dialog) {}

    std::vector<DialogProblem> Run() {
        if (dialog_.width < 1) Add("width", "must be 1 or more, not " + std::to_string(dialog_.width));
        if (dialog_.height < 1) Add("height", "must be 1 or more, not " + std::to_string(dialog_.height));
        if (dialog_.title.size() > kMaxString) Add("title", TooLong(dialog_.title));
        if (dialog_.items.size() > kMaxCount)
            Add("items", std::to_string(dialog_.items.size()) + " items; at most 65535 fit");
        for (size_t i = 0; i < dialog_.items.size(); ++i) {
            CheckIdentity(i);
            CheckBounds(i);
            CheckMenu(i);
            CheckValue(i);
        }
        for (size_t i = 0; i < dialog_.items.size(); ++i) CheckLabel(i);
        return std::move(problems_);
    }

private:
    void Add(std::string where, std::string message, std::vector<std::string> inputs = {}) {
        problems_.push_back({std::move(where), std::move(message), std::move(inputs)});
    }

    void CheckIdentity(size_t i) {
        const DialogItem& item = dialog_.items[i];
        if (item.id < 1) {
            Add(ItemField(i, "id"), "must be 1 or more, not " + std::to_string(item.id));
        } else if (const auto [at, inserted] = firstWithID_.emplace(item.id, i); !inserted) {
            Add(ItemField(i, "id"), std::to_string(item.id) + " is also the ID of " + ItemPath(at->second),
                {ItemField(at->second, "id")});
        }
        if (!IsKnownType(item.type))
            Add(ItemField(i, "type"), "control type " + std::to_string(int(item.type)) + " is not one of 1..16");
        if (item.title.size() > kMaxString) Add(ItemField(i, "title"), TooLong(item.title));
    }

    void CheckBounds(size_t i) {
        const KV_Rect& r = dialog_.items[i].bounds;
        if (r.left < 0) Add(BoundsPath(i, 0), "left (" + std::to_string(r.left) + ") is outside the dialog");
        if (r.top < 0) Add(BoundsPath(i, 1), "top (" + std::to_string(r.top) + ") is outside the dialog");
        if (r.right > dialog_.width)
            Add(BoundsPath(i, 2), "right (" + std::to_string(r.right) + ") is beyond the dialog's width (" +
                                      std::to_string(dialog_.width) + ")", {"width"});
        if (r.bottom > dialog_.height)
            Add(BoundsPath(i, 3), "bottom (" + std::to_string(r.bottom) + ") is beyond the dialog's height (" +
                                      std::to_string(dialog_.height) + ")", {"height"});
        if (r.right <= r.left)
            Add(BoundsPath(i, 2), "right (" + std::to_string(r.right) + ") must be more than left (" +
                                      std::to_string(r.left) + "): the control would be empty", {BoundsPath(i, 0)});
        if (r.bottom <= r.top)
            Add(BoundsPath(i, 3), "bottom (" + std::to_string(r.bottom) + ") must be more than top (" +
                                      std::to_string(r.top) + "): the control would be empty", {BoundsPath(i, 1)});
    }

    void CheckMenu(size_t i) {
        const DialogItem& item = dialog_.items[i];
        if (item.type != cKV_PopupMenu) {
            if (!item.menu.empty())
                Add(ItemField(i, "menu"), "only a pop-up menu has menu items, not a " + ControlTypeName(item.type),
                    {ItemField(i, "type")});
            return;
        }
        if (item.menu.empty()) Add(ItemField(i, "menu"), "a pop-up menu needs at least one item");
        if (item.menu.size() > kMaxCount)
            Add(ItemField(i, "menu"), std::to_string(item.menu.size()) + " menu items; at most 65535 fit");
        std::map<int16_t, size_t> firstWithValue;
        for (size_t k = 0; k < item.menu.size(); ++k) {
            const DialogMenuItem& entry = item.menu[k];
            if (entry.text.size() > kMaxString) Add(MenuPath(i, k) + ".text", TooLong(entry.text));
            if (const auto [at, inserted] = firstWithValue.emplace(entry.value, k); !inserted)
                Add(MenuPath(i, k) + ".value", std::to_string(entry.value) + " is also the value of menu[" +
                                                   std::to_string(at->second) + "]",
                    {MenuPath(i, at->second) + ".value"});
        }
    }

    void CheckValue(size_t i) {
        const DialogItem& item = dialog_.items[i];
        if (item.type == cKV_CheckBox && item.value != 0 && item.value != 1)
            Add(ItemField(i, "value"), "a check box is 0 or 1, not " + std::to_string(item.value),
                {ItemField(i, "type")});
        if (item.type == cKV_PopupMenu && !item.menu.empty() &&
            std::none_of(item.menu.begin(), item.menu.end(),
                         [&](const DialogMenuItem& entry) { return entry.value == item.value; }))
            Add(ItemField(i, "value"), std::to_string(item.value) + " is not the value of any of the pop-up's items",
                {ItemField(i, "type"), ItemField(i, "menu")});
    }

    void CheckLabel(size_t i) {
        const DialogItem& item = dialog_.items[i];
        if (item.labelFor == 0) return;
        if (item.type != cKV_StaticText) {
            Add(ItemField(i, "for"), "only a static text labels another control, not a " + ControlTypeName(item.type),
                {ItemField(i, "type")});
            return;
        }
        if (firstWithID_.contains(item.labelFor)) return;
        std::vector<std::string> ids;
        for (size_t k = 0; k < dialog_.items.size(); ++k) ids.push_back(ItemField(k, "id"));
        Add(ItemField(i, "for"), "names ID " + std::to_string(item.labelFor) + ", which no item has", std::move(ids));
    }

    const DialogTemplate& dialog_;
    std::map<int16_t, size_t> firstWithID_;
    std::vector<DialogProblem> problems_;
};

// ---- Big-endian fields ----

// A length byte and the bytes, padded with a zero to an even whole.
void WriteString(BigEndianWriter& out, const std::string& text) {
    assert(text.size() <= kMaxString);
    out.U8(uint8_t(text.size()));
    out.Bytes().insert(out.Bytes().end(), text.begin(), text.end());
    if (text.size() % 2 == 0) out.U8(0);
}

// Every read is preceded by a check of what is left; a failed check names what was cut off.
// Reads a string into `text`; the reason when it cannot, in words about `what`.
std::optional<std::string> ReadString(BigEndianReader& in, const std::string& what, std::string& text) {
    if (!in.Has(1)) return "the resource ends before " + what;
    const size_t length = in.U8();
    const size_t padded = length + (length % 2 == 0 ? 1 : 0);
    if (!in.Has(padded)) return "the resource ends inside " + what + " (" + std::to_string(length) + " bytes long)";
    const std::span<const uint8_t> bytes = in.Peek(length);
    text.assign(reinterpret_cast<const char*>(bytes.data()), length);
    in.Skip(length);
    if (length % 2 == 0) {
        if (const uint8_t pad = in.U8(); pad != 0) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "0x%02x", pad);
            return "the pad byte after " + what + " is " + hex + ", not 0";
        }
    }
    return std::nullopt;
}

// Reads one item's fields; the reason when the bytes end or a pad byte is wrong.
std::optional<std::string> ReadItem(BigEndianReader& in, size_t i, size_t count, DialogItem& item) {
    const std::string words = "item " + std::to_string(i) + " of " + std::to_string(count);
    if (!in.Has(kItemFieldsSize)) return "the resource ends inside the fields of " + words;
    item.id = in.I16();
    item.type = KV_ControlType(in.I16());
    item.bounds.left = in.I16();
    item.bounds.top = in.I16();
    item.bounds.right = in.I16();
    item.bounds.bottom = in.I16();
    item.value = in.I16();
    item.labelFor = in.I16();
    if (auto problem = ReadString(in, "the title of " + words, item.title)) return problem;
    if (!in.Has(2)) return "the resource ends before the menu count of " + words;
    const size_t entries = in.U16();
    for (size_t k = 0; k < entries; ++k) {
        const std::string entryWords = "menu item " + std::to_string(k) + " of " + std::to_string(entries) +
                                       " of " + words;
        if (!in.Has(2)) return "the resource ends before " + entryWords;
        DialogMenuItem entry;
        entry.value = in.I16();
        if (auto problem = ReadString(in, "the text of " + entryWords, entry.text)) return problem;
        item.menu.push_back(std::move(entry));
    }
    return std::nullopt;
}

}  // namespace

// ---- Checking ----

std::string DialogProblem::Text() const { return where.empty() ? message : where + ": " + message; }

std::vector<DialogProblem> CheckDialog(const DialogTemplate& dialog) { return Checker(dialog).Run(); }

// ---- Encoding and decoding ----

std::vector<uint8_t> EncodeDialog(const DialogTemplate& dialog) {
    if (const std::vector<DialogProblem> problems = CheckDialog(dialog); !problems.empty()) {
        std::string reason = problems.front().Text();
        if (problems.size() > 1) reason += " (and " + std::to_string(problems.size() - 1) + " more)";
        throw std::invalid_argument("not a valid dialog: " + reason);
    }
    BigEndianWriter out;
    out.U16(kDialogResourceVersion);
    out.I16(dialog.width);
    out.I16(dialog.height);
    WriteString(out, dialog.title);
    out.U16(uint16_t(dialog.items.size()));
    for (const DialogItem& item : dialog.items) {
        out.I16(item.id);
        out.I16(int16_t(item.type));
        out.I16(int16_t(item.bounds.left));
        out.I16(int16_t(item.bounds.top));
        out.I16(int16_t(item.bounds.right));
        out.I16(int16_t(item.bounds.bottom));
        out.I16(item.value);
        out.I16(item.labelFor);
        WriteString(out, item.title);
        out.U16(uint16_t(item.menu.size()));
        for (const DialogMenuItem& entry : item.menu) {
            out.I16(entry.value);
            WriteString(out, entry.text);
        }
    }
    return out.Take();
}

std::variant<DialogTemplate, std::string> DecodeDialog(std::span<const uint8_t> bytes) {
    BigEndianReader in(bytes);
    if (!in.Has(kHeaderSize))
        return std::to_string(bytes.size()) + (bytes.size() == 1 ? " byte" : " bytes") +
               ", too short for the version, width and height";
    if (const uint16_t version = in.U16(); version != kDialogResourceVersion)
        return "version " + std::to_string(version) + "; only version 1 is known";
    DialogTemplate dialog;
    dialog.width = in.I16();
    dialog.height = in.I16();
    if (auto problem = ReadString(in, "the title", dialog.title)) return *problem;
    if (!in.Has(2)) return "the resource ends before the item count";
    const size_t count = in.U16();
    for (size_t i = 0; i < count; ++i) {
        DialogItem item;
        if (auto problem = ReadItem(in, i, count, item)) return *problem;
        dialog.items.push_back(std::move(item));
    }
    if (in.Left() > 0)
        return std::to_string(in.Left()) + (in.Left() == 1 ? " byte follows" : " bytes follow") + " the items";
    if (const std::vector<DialogProblem> problems = CheckDialog(dialog); !problems.empty())
        return problems.front().Text();
    return dialog;
}

// ---- Control types ----

std::string ControlTypeName(int type) {
    return IsKnownType(type) ? kTypes[type - 1].name : "type " + std::to_string(type);
}

const char* ControlTypeKey(KV_ControlType type) { return IsKnownType(type) ? kTypes[type - 1].key : nullptr; }

KV_ControlType ControlTypeFromKey(std::string_view key) {
    for (size_t i = 0; i < std::size(kTypes); ++i)
        if (key == kTypes[i].key) return KV_ControlType(i + 1);
    return cKV_NoControlType;
}

}  // namespace vellux::host
