#include "host/table_export.h"

#include <optional>
#include <stdexcept>
#include <utility>
#include <variant>

#include "host/dialog_resource.h"
#include "host/flare_records.h"

namespace vellux::rsc {

namespace {

constexpr size_t kLineWidth = 100;

// ---- Records to JSON ----

Json FlareJson(const FlareRecord& flare) {
    Json elements = Json::array();
    for (const FlareRun& run : flare.elements)
        elements.push_back({{"type", rsc::TypeText(run.type)}, {"first", run.first}, {"last", run.last}});
    return {{"elements", std::move(elements)}};
}

Json StopJson(const ColorStop& stop) {
    Json json = {{"position", stop.position}};
    if (stop.alpha != 0xFFFF) json["alpha"] = stop.alpha;   // the default: most tables never set it
    json["red"] = stop.red;
    json["green"] = stop.green;
    json["blue"] = stop.blue;
    return json;
}

Json RingJson(const RingRecord& ring) {
    Json stops = Json::array();
    for (const ColorStop& stop : ring.stops) stops.push_back(StopJson(stop));
    return {{"name", ring.name},     {"type", ring.type},       {"mode", ring.mode},
            {"units", ring.units},   {"offset", ring.offset},   {"inside", ring.inside},
            {"outside", ring.outside}, {"stops", std::move(stops)}};
}

bool IsJsonText(const std::string& text) {
    try {
        (void)Json(text).dump();
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

// Left-out fields are those at their source defaults, so that the common items stay one line.
Json DialogItemJson(const host::DialogItem& item) {
    const KV_Rect& r = item.bounds;
    Json json = {{"id", item.id}, {"type", host::ControlTypeKey(item.type)},
                 {"bounds", {r.left, r.top, r.right, r.bottom}}};
    if (!item.title.empty()) json["title"] = item.title;
    if (item.value != 0) json["value"] = item.value;
    if (item.labelFor != 0) json["for"] = item.labelFor;
    if (!item.menu.empty()) {
        Json menu = Json::array();
        for (const host::DialogMenuItem& entry : item.menu) menu.push_back({{"value", entry.value}, {"text", entry.text}});
        json["menu"] = std::move(menu);
    }
    return json;
}

bool DialogTextsAreText(const host::DialogTemplate& dialog) {
    if (!IsJsonText(dialog.title)) return false;
    for (const host::DialogItem& item : dialog.items) {
        if (!IsJsonText(item.title)) return false;
        for (const host::DialogMenuItem& entry : item.menu)
            if (!IsJsonText(entry.text)) return false;
    }
    return true;
}

Json DialogJson(const host::DialogTemplate& dialog) {
    Json items = Json::array();
    for (const host::DialogItem& item : dialog.items) items.push_back(DialogItemJson(item));
    return {{"title", dialog.title}, {"width", dialog.width}, {"height", dialog.height}, {"items", std::move(items)}};
}

std::string Label(const rsc::Resource& resource) {
    return rsc::TypeText(resource.type) + " " + std::to_string(resource.id);
}

bool RunTypesAreText(const FlareRecord& flare) {
    for (const FlareRun& run : flare.elements)
        if (!IsJsonText(rsc::TypeText(run.type))) return false;
    return true;
}

// The key and field-by-field form of a FLAR, RING or DLOG, or nothing when the bytes are not one.
std::optional<std::pair<const char*, Json>> StructuredContent(const rsc::Resource& resource) {
    if (resource.type == kFlareType) {
        const Decoded<FlareRecord> flare = DecodeFlare(resource.data);
        if (const auto* record = std::get_if<FlareRecord>(&flare); record && RunTypesAreText(*record))
            return std::pair("flare", FlareJson(*record));
    } else if (resource.type == kRingType) {
        const Decoded<RingRecord> ring = DecodeRing(resource.data);
        if (const auto* record = std::get_if<RingRecord>(&ring); record && IsJsonText(record->name))
            return std::pair("ring", RingJson(*record));
    } else if (resource.type == host::kDialogResourceType) {
        const auto dialog = host::DecodeDialog(resource.data);
        if (const auto* record = std::get_if<host::DialogTemplate>(&dialog); record && DialogTextsAreText(*record))
            return std::pair("dialog", DialogJson(*record));
    }
    return std::nullopt;
}

std::string HexBytes(const std::vector<uint8_t>& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const uint8_t b : bytes) {
        text += digits[b >> 4];
        text += digits[b & 15];
    }
    return text;
}

Json ResourceJson(const rsc::Resource& resource) {
    const std::string type = rsc::TypeText(resource.type);
    if (!IsJsonText(type)) throw std::runtime_error(Label(resource) + ": the type code is not UTF-8 text");
    Json json = {{"type", type}, {"id", resource.id}};
    if (resource.name) {
        if (!IsJsonText(*resource.name))
            throw std::runtime_error(Label(resource) + ": the resource name is not UTF-8 text");
        json["name"] = *resource.name;
    }
    if (resource.attributes != 0) json["attributes"] = resource.attributes;
    if (auto content = StructuredContent(resource)) {
        // Keep the field-by-field form only when the compiler takes it back unchanged.
        Json candidate = json;
        candidate[content->first] = std::move(content->second);
        Diagnostics diagnostics;
        const auto compiled = CompileResourceEntry(candidate, "", diagnostics);
        if (compiled && compiled->data == resource.data) return candidate;
    }
    json["hex"] = HexBytes(resource.data);
    return json;
}

// ---- Layout ----

std::string Compact(const Json& value) {
    if (!value.is_structured()) return value.dump();
    const bool object = value.is_object();
    std::string text = object ? "{" : "[";
    for (auto it = value.begin(); it != value.end(); ++it) {
        if (it != value.begin()) text += ", ";
        if (object) text += Json(it.key()).dump() + ": ";
        text += Compact(*it);
    }
    return text + (object ? "}" : "]");
}

// `column` is where the value starts on its line; `indent` that line's indentation.
void Layout(const Json& value, size_t indent, size_t column, std::string& out) {
    std::string compact = Compact(value);
    if (!value.is_structured() || value.empty() || column + compact.size() <= kLineWidth) {
        out += compact;
        return;
    }
    const bool object = value.is_object();
    const std::string inner(indent + 2, ' ');
    out += object ? "{\n" : "[\n";
    for (auto it = value.begin(); it != value.end(); ++it) {
        if (it != value.begin()) out += ",\n";
        out += inner;
        const std::string key = object ? Json(it.key()).dump() + ": " : "";
        out += key;
        Layout(*it, indent + 2, inner.size() + key.size(), out);
    }
    out += "\n" + std::string(indent, ' ') + (object ? "}" : "]");
}

}  // namespace

Json TableSourceFromFile(const rsc::ResourceFile& file) {
    Json resources = Json::array();
    for (const rsc::Resource& resource : file.resources) resources.push_back(ResourceJson(resource));
    return {{"resources", std::move(resources)}};
}

std::string FormatTableSource(const Json& source) {
    std::string text;
    Layout(source, 0, 0, text);
    return text + "\n";
}

}  // namespace vellux::rsc
