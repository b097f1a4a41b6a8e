#include "host/table_source.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <utility>

#include "host/dialog_resource.h"
#include "host/flare_records.h"

namespace vellux::rsc {

using Severity = Diagnostic::Severity;

// ---- Diagnostics ----

std::string Diagnostic::Text() const {
    return path.empty() ? message : path + ": " + message;
}

void Diagnostics::Error(std::string path, std::string message) {
    all_.push_back({Severity::error, std::move(path), std::move(message), source_});
}

void Diagnostics::Warning(std::string path, std::string message) {
    all_.push_back({Severity::warning, std::move(path), std::move(message), source_});
}

size_t Diagnostics::ErrorCount() const {
    return size_t(std::count_if(all_.begin(), all_.end(),
                                [](const Diagnostic& d) { return d.severity == Severity::error; }));
}

namespace {

// ---- Paths ----

std::string Key(const std::string& path, std::string_view key) {
    return path.empty() ? std::string(key) : path + "." + std::string(key);
}

std::string Index(const std::string& path, size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

std::string InQuotes(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::string ResourceLabel(uint32_t type, int16_t id) {
    return rsc::TypeText(type) + " " + std::to_string(id);
}

// ---- Parsing ----

// Follows the parser's events to know the path of every key, so that a key given twice in one
// object, which the JSON library would silently resolve to the last value, is reported.
class DuplicateKeyCheck {
public:
    explicit DuplicateKeyCheck(Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

    bool operator()(int, Json::parse_event_t event, Json& parsed) {
        using Event = Json::parse_event_t;
        switch (event) {
            case Event::object_start: OnOpen(false); break;
            case Event::array_start: OnOpen(true); break;
            case Event::object_end:
            case Event::array_end: frames_.pop_back(); break;
            case Event::key: OnKey(parsed.get<std::string>()); break;
            case Event::value: ChildPath(); break;
        }
        return true;
    }

private:
    struct Frame {
        bool array = false;
        std::string path;
        size_t next = 0;
        std::string key;
        std::set<std::string> keys;
    };

    std::string ChildPath() {
        if (frames_.empty()) return {};
        Frame& top = frames_.back();
        return top.array ? Index(top.path, top.next++) : Key(top.path, top.key);
    }
    void OnOpen(bool array) {
        std::string path = ChildPath();
        frames_.push_back({array, std::move(path), 0, {}, {}});
    }
    void OnKey(const std::string& key) {
        Frame& top = frames_.back();
        top.key = key;
        if (!top.keys.insert(key).second) diagnostics_.Error(Key(top.path, key), "given more than once");
    }

    Diagnostics& diagnostics_;
    std::vector<Frame> frames_;
};

// The library's message without its exception tag: "parse error at line 3, column 5: ...".
std::string ParseErrorText(const Json::parse_error& error) {
    std::string text = error.what();
    if (const size_t tag = text.find("] "); text.starts_with("[json.exception") && tag != std::string::npos)
        text.erase(0, tag + 2);
    return text;
}

std::optional<Json> ParseSource(std::string_view text, Diagnostics& diagnostics) {
    try {
        return Json::parse(text, DuplicateKeyCheck(diagnostics), true, true);
    } catch (const Json::parse_error& error) {
        diagnostics.Error("", ParseErrorText(error));
        return std::nullopt;
    }
}

// ---- Reading values ----

struct IntRange {
    int64_t low;
    int64_t high;
};

constexpr IntRange kInt16Range{std::numeric_limits<int16_t>::min(), std::numeric_limits<int16_t>::max()};
constexpr IntRange kInt32Range{std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};
constexpr IntRange kUInt32Range{0, std::numeric_limits<uint32_t>::max()};
constexpr IntRange kUInt16Range{0, std::numeric_limits<uint16_t>::max()};
constexpr IntRange kByteRange{0, 255};

// A whole number within `range`, or nothing with the reason reported at `path`.
std::optional<int64_t> ReadInteger(const Json& value, const std::string& path, IntRange range,
                                   Diagnostics& diagnostics) {
    if (!value.is_number_integer()) {
        diagnostics.Error(path, "must be an integer");
        return std::nullopt;
    }
    const bool tooLarge = value.is_number_unsigned() &&
                          value.get<uint64_t>() > uint64_t(std::numeric_limits<int64_t>::max());
    const int64_t number = tooLarge ? 0 : value.get<int64_t>();
    if (tooLarge || number < range.low || number > range.high) {
        diagnostics.Error(path, "must be in " + std::to_string(range.low) + ".." + std::to_string(range.high) +
                                    ", not " + value.dump());
        return std::nullopt;
    }
    return number;
}

// Reads the members of one JSON object, reporting each problem under the member's path.
class ObjectReader {
public:
    ObjectReader(const Json& object, std::string path, Diagnostics& diagnostics)
        : object_(object), path_(std::move(path)), diagnostics_(diagnostics) {}

    // False (reported) unless the value is an object whose keys are all among `known`.
    bool Check(std::initializer_list<std::string_view> known) {
        if (!object_.is_object()) {
            diagnostics_.Error(path_, "must be an object");
            return false;
        }
        for (const auto& [key, value] : object_.items())
            if (std::find(known.begin(), known.end(), key) == known.end())
                diagnostics_.Error(Path(key), "unknown key");
        return true;
    }

    bool Has(std::string_view key) const { return object_.contains(key); }
    const Json& At(std::string_view key) const { return object_.at(key); }
    std::string Path(std::string_view key) const { return vellux::rsc::Key(path_, key); }
    const std::string& path() const { return path_; }

    std::optional<int64_t> Integer(std::string_view key, IntRange range, bool required = true) {
        if (!Has(key)) {
            if (required) diagnostics_.Error(Path(key), "is missing");
            return std::nullopt;
        }
        return ReadInteger(At(key), Path(key), range, diagnostics_);
    }

    std::optional<std::string> String(std::string_view key, bool required = true) {
        if (!Has(key)) {
            if (required) diagnostics_.Error(Path(key), "is missing");
            return std::nullopt;
        }
        if (!At(key).is_string()) {
            diagnostics_.Error(Path(key), "must be a string");
            return std::nullopt;
        }
        return At(key).get<std::string>();
    }

    std::optional<uint32_t> TypeCode(std::string_view key) {
        const std::optional<std::string> text = String(key);
        if (!text) return std::nullopt;
        if (text->size() != 4) {
            diagnostics_.Error(Path(key), "a type code is exactly four bytes; " + InQuotes(*text) +
                                              " has " + std::to_string(text->size()));
            return std::nullopt;
        }
        return rsc::TypeCode(*text);
    }

    const Json* Array(std::string_view key) {
        if (!Has(key)) {
            diagnostics_.Error(Path(key), "is missing");
            return nullptr;
        }
        if (!At(key).is_array()) {
            diagnostics_.Error(Path(key), "must be an array");
            return nullptr;
        }
        return &At(key);
    }

private:
    const Json& object_;
    std::string path_;
    Diagnostics& diagnostics_;
};

// ---- Hex ----

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::optional<std::vector<uint8_t>> ReadHex(const std::string& text, const std::string& path,
                                             Diagnostics& diagnostics) {
    if (text.size() % 2 != 0) {
        diagnostics.Error(path, "has an odd number of hex digits (" + std::to_string(text.size()) + ")");
        return std::nullopt;
    }
    std::vector<uint8_t> bytes(text.size() / 2);
    for (size_t i = 0; i < text.size(); ++i) {
        const int digit = HexDigit(text[i]);
        if (digit < 0) {
            diagnostics.Error(path, "character " + std::to_string(i) + " (" + InQuotes(text.substr(i, 1)) +
                                        ") is not a hex digit");
            return std::nullopt;
        }
        bytes[i / 2] = uint8_t(bytes[i / 2] << 4 | digit);
    }
    return bytes;
}

// ---- Colour stops ----

std::optional<ColorStop> ReadStop(const Json& value, const std::string& path,
                                  std::optional<int32_t> outside, Diagnostics& diagnostics) {
    const size_t errorsBefore = diagnostics.ErrorCount();
    ObjectReader in(value, path, diagnostics);
    if (!in.Check({"position", "alpha", "red", "green", "blue"})) return std::nullopt;
    const auto position = in.Integer("position", kInt32Range);
    const auto alpha = in.Integer("alpha", kUInt16Range, false);
    const auto red = in.Integer("red", kUInt16Range);
    const auto green = in.Integer("green", kUInt16Range);
    const auto blue = in.Integer("blue", kUInt16Range);
    if (position && outside && (*position < 0 || *position > *outside))
        diagnostics.Error(in.Path("position"), "must lie in 0..outside (0.." + std::to_string(*outside) +
                                                   "), not " + std::to_string(*position));
    if (diagnostics.ErrorCount() != errorsBefore) return std::nullopt;
    return ColorStop{int32_t(*position), uint16_t(alpha.value_or(0xFFFF)), uint16_t(*red),
                     uint16_t(*green), uint16_t(*blue)};
}

bool IsBlack(const ColorStop& stop) { return stop.red == 0 && stop.green == 0 && stop.blue == 0; }

// Legal ramps that do not draw what they seem to say; the halo's stops are never drawn.
void CheckRamp(const RingRecord& ring, const std::string& path, Diagnostics& diagnostics) {
    if (ring.type == 3) return;
    if (ring.stops.size() < 2) {
        diagnostics.Warning(path, "fewer than two stops: the plug-in draws nothing for this element");
        return;
    }
    const auto first = std::min_element(ring.stops.begin(), ring.stops.end(),
                                         [](const ColorStop& a, const ColorStop& b) { return a.position < b.position; });
    if (first->position > 0 && !IsBlack(*first))
        diagnostics.Warning(Index(path, size_t(first - ring.stops.begin())),
                            "the ramp starts beyond the centre with a colour that is not black: the "
                            "plug-in fills the inside with it untinted and adds it again at the stop; "
                            "start the ramp with a stop at position 0");
}

// `outside` is known only when it is valid; stop positions are checked against it then.
std::vector<ColorStop> ReadStops(ObjectReader& in, std::optional<int32_t> outside, Diagnostics& diagnostics) {
    const Json* stops = in.Array("stops");
    if (!stops) return {};
    if (stops->size() > kMaxStops) {
        diagnostics.Error(in.Path("stops"), std::to_string(stops->size()) + " stops; at most " +
                                                std::to_string(kMaxStops) + " are allowed");
        return {};
    }
    std::vector<ColorStop> read;
    for (size_t k = 0; k < stops->size(); ++k)
        if (auto stop = ReadStop((*stops)[k], Index(in.Path("stops"), k), outside, diagnostics))
            read.push_back(*stop);
    return read;
}

// ---- RING ----

// The checks that keep the plug-in's arithmetic finite: it divides by units and by outside.
void CheckRingSizes(ObjectReader& in, std::optional<int64_t> units, std::optional<int64_t> inside,
                    std::optional<int64_t> outside, Diagnostics& diagnostics) {
    if (units && *units == 0)
        diagnostics.Error(in.Path("units"), "must not be 0");
    else if (units && *units < 0)
        diagnostics.Error(in.Path("units"), "must be positive: a negative unit mirrors the element and its radii");
    if (outside && *outside == 0)
        diagnostics.Error(in.Path("outside"), "must not be 0: every stop radius is a fraction of it");
    else if (outside && *outside < 0)
        diagnostics.Error(in.Path("outside"), "must not be negative");
    if (inside && *inside < 0)
        diagnostics.Error(in.Path("inside"), "must not be negative");
    else if (inside && outside && *outside > 0 && *inside > *outside)
        diagnostics.Error(in.Path("inside"), "must not exceed outside (" + std::to_string(*outside) + ")");
}

// The header fields. Fields that fail are reported and left at 0.
void ReadRingHeader(ObjectReader& in, RingRecord& ring, Diagnostics& diagnostics) {
    const auto type = in.Integer("type", kInt32Range);
    const auto mode = in.Integer("mode", kUInt32Range, false);
    const auto units = in.Integer("units", kInt32Range);
    const auto offset = in.Integer("offset", kInt32Range);
    const auto inside = in.Integer("inside", kInt32Range, false);
    const auto outside = in.Integer("outside", kInt32Range);
    if (mode && (*mode & ~int64_t(kRingHiddenBit)) != 0)
        diagnostics.Error(in.Path("mode"), "only bit 31 (2147483648, never drawn) has a meaning; other bits must be 0");
    CheckRingSizes(in, units, inside, outside, diagnostics);
    ring.type = int32_t(type.value_or(0));
    ring.mode = uint32_t(mode.value_or(0));
    ring.units = int32_t(units.value_or(0));
    ring.offset = int32_t(offset.value_or(0));
    ring.inside = int32_t(inside.value_or(0));
    ring.outside = int32_t(outside.value_or(0));
}

std::optional<RingRecord> ReadRing(const Json& value, const std::string& path, Diagnostics& diagnostics) {
    const size_t errorsBefore = diagnostics.ErrorCount();
    ObjectReader in(value, path, diagnostics);
    if (!in.Check({"name", "type", "mode", "units", "offset", "inside", "outside", "stops"}))
        return std::nullopt;
    RingRecord ring;
    ring.name = in.String("name", false).value_or("");
    if (ring.name.size() > kRingNameCapacity)
        diagnostics.Error(in.Path("name"), "is " + std::to_string(ring.name.size()) + " bytes long; at most 31 fit");
    ReadRingHeader(in, ring, diagnostics);
    ring.stops = ReadStops(in, ring.outside > 0 ? std::optional(ring.outside) : std::nullopt, diagnostics);
    if (diagnostics.ErrorCount() != errorsBefore) return std::nullopt;
    CheckRamp(ring, in.Path("stops"), diagnostics);
    return ring;
}

// ---- FLAR ----

std::optional<FlareRun> ReadRun(const Json& value, const std::string& path, Diagnostics& diagnostics) {
    ObjectReader in(value, path, diagnostics);
    if (!in.Check({"type", "first", "last"})) return std::nullopt;
    const auto type = in.TypeCode("type");
    const auto first = in.Integer("first", kInt16Range);
    const auto last = in.Integer("last", kInt16Range);
    if (!type || !first || !last) return std::nullopt;
    return FlareRun{*type, int16_t(*first), int16_t(*last)};
}

std::optional<FlareRecord> ReadFlare(const Json& value, const std::string& path, Diagnostics& diagnostics) {
    const size_t errorsBefore = diagnostics.ErrorCount();
    ObjectReader in(value, path, diagnostics);
    if (!in.Check({"elements"})) return std::nullopt;
    const Json* elements = in.Array("elements");
    if (!elements) return std::nullopt;
    if (elements->empty())
        diagnostics.Error(in.Path("elements"), "must hold at least one element: the plug-in refuses a flare "
                                               "shorter than 12 bytes");
    FlareRecord flare;
    for (size_t i = 0; i < elements->size(); ++i)
        if (auto run = ReadRun((*elements)[i], Index(in.Path("elements"), i), diagnostics))
            flare.elements.push_back(*run);
    if (diagnostics.ErrorCount() != errorsBefore) return std::nullopt;
    return flare;
}

// ---- DLOG ----

// The dialog's rules live with its codec (host/dialog_resource.h): this reader only turns the
// JSON into a template and reports the codec's verdicts at the paths of the values concerned.

// `path` is `outer` or lies inside it ("items[3].bounds[2]" inside "items[3]").
bool IsWithin(const std::string& path, const std::string& outer) {
    if (!path.starts_with(outer)) return false;
    return path.size() == outer.size() || path[outer.size()] == '.' || path[outer.size()] == '[';
}

bool Related(const std::string& a, const std::string& b) { return IsWithin(a, b) || IsWithin(b, a); }

std::string ControlTypeKeys() {
    std::string keys;
    for (int type = cKV_PushButton; type <= cKV_OpenGLControl; ++type)
        keys += std::string(keys.empty() ? "" : ", ") + host::ControlTypeKey(KV_ControlType(type));
    return keys;
}

void ReadBounds(ObjectReader& in, KV_Rect& bounds, Diagnostics& diagnostics) {
    if (!in.Has("bounds")) {
        diagnostics.Error(in.Path("bounds"), "is missing");
        return;
    }
    const Json& value = in.At("bounds");
    if (!value.is_array() || value.size() != 4) {
        diagnostics.Error(in.Path("bounds"), "must be four integers: [left, top, right, bottom]");
        return;
    }
    int* const sides[] = {&bounds.left, &bounds.top, &bounds.right, &bounds.bottom};
    for (size_t k = 0; k < 4; ++k)
        if (const auto side = ReadInteger(value[k], Index(in.Path("bounds"), k), kInt16Range, diagnostics))
            *sides[k] = int(*side);
}

void ReadMenuItem(const Json& value, const std::string& path, host::DialogMenuItem& entry,
                  Diagnostics& diagnostics) {
    ObjectReader in(value, path, diagnostics);
    if (!in.Check({"value", "text"})) return;
    entry.value = int16_t(in.Integer("value", kInt16Range).value_or(0));
    entry.text = in.String("text").value_or("");
}

void ReadDialogItem(const Json& value, const std::string& path, host::DialogItem& item,
                    Diagnostics& diagnostics) {
    ObjectReader in(value, path, diagnostics);
    if (!in.Check({"id", "type", "bounds", "title", "value", "for", "menu"})) return;
    item.id = int16_t(in.Integer("id", kInt16Range).value_or(0));
    if (const auto type = in.String("type")) {
        item.type = host::ControlTypeFromKey(*type);
        if (item.type == cKV_NoControlType)
            diagnostics.Error(in.Path("type"), "unknown control type " + InQuotes(*type) + "; the types are " +
                                                   ControlTypeKeys());
    }
    ReadBounds(in, item.bounds, diagnostics);
    item.title = in.String("title", false).value_or("");
    item.value = int16_t(in.Integer("value", kInt16Range, false).value_or(0));
    item.labelFor = int16_t(in.Integer("for", kInt16Range, false).value_or(0));
    if (!in.Has("menu")) return;
    const Json* menu = in.Array("menu");
    if (!menu) return;
    item.menu.resize(menu->size());
    for (size_t k = 0; k < menu->size(); ++k)
        ReadMenuItem((*menu)[k], Index(in.Path("menu"), k), item.menu[k], diagnostics);
}

// The template's problems, except those that rest on a value already reported as unreadable
// (`failed`, relative to the dialog): those would only repeat the first error in other words.
void ReportDialogProblems(const host::DialogTemplate& dialog, const std::string& path,
                          const std::vector<std::string>& failed, Diagnostics& diagnostics) {
    auto rests_on_failed = [&](const host::DialogProblem& problem) {
        return std::any_of(failed.begin(), failed.end(), [&](const std::string& bad) {
            return Related(problem.where, bad) ||
                   std::any_of(problem.inputs.begin(), problem.inputs.end(),
                               [&](const std::string& input) { return Related(input, bad); });
        });
    };
    for (const host::DialogProblem& problem : host::CheckDialog(dialog))
        if (!rests_on_failed(problem)) diagnostics.Error(Key(path, problem.where), problem.message);
}

std::optional<std::vector<uint8_t>> ReadDialog(const Json& value, const std::string& path,
                                               Diagnostics& diagnostics) {
    const size_t reportedBefore = diagnostics.All().size();
    const size_t errorsBefore = diagnostics.ErrorCount();
    ObjectReader in(value, path, diagnostics);
    if (!in.Check({"title", "width", "height", "items"})) return std::nullopt;
    host::DialogTemplate dialog;
    dialog.title = in.String("title", false).value_or("");
    dialog.width = int16_t(in.Integer("width", kInt16Range).value_or(0));
    dialog.height = int16_t(in.Integer("height", kInt16Range).value_or(0));
    if (const Json* items = in.Array("items")) {
        dialog.items.resize(items->size());
        for (size_t i = 0; i < items->size(); ++i)
            ReadDialogItem((*items)[i], Index(in.Path("items"), i), dialog.items[i], diagnostics);
    }
    std::vector<std::string> failed;
    for (size_t k = reportedBefore; k < diagnostics.All().size(); ++k) {
        const Diagnostic& reported = diagnostics.All()[k];
        if (reported.severity == Severity::error && IsWithin(reported.path, path) && reported.path != path)
            failed.push_back(reported.path.substr(path.size() + 1));
    }
    ReportDialogProblems(dialog, path, failed, diagnostics);
    if (diagnostics.ErrorCount() != errorsBefore) return std::nullopt;
    return host::EncodeDialog(dialog);
}

// ---- Resource entries ----

// What one entry contributes: its identity even when its content is wrong (so that references
// to it are not reported as missing too), and for a flare its runs for the cross-checks.
struct Entry {
    size_t source = 0;                   // index of the source text it came from
    std::string path;
    std::optional<uint32_t> type;
    std::optional<int16_t> id;
    std::optional<FlareRecord> flare;
    std::string runsPath;                // the runs' array, or the hex string they were decoded from
    bool runsFromHex = false;
    std::optional<rsc::Resource> resource;
};

// Bytes given as hex for a FLAR or RING are passed through, with a warning when they are not the
// record they claim to be; a well-formed FLAR still takes part in the cross-checks.
void InspectHexRecord(Entry& entry, const std::vector<uint8_t>& bytes, const std::string& path,
                      Diagnostics& diagnostics) {
    if (entry.type == kFlareType) {
        Decoded<FlareRecord> decoded = DecodeFlare(bytes);
        if (auto* problem = std::get_if<std::string>(&decoded)) {
            diagnostics.Warning(path, "not a well-formed FLAR: " + *problem);
        } else if (bytes.size() < kFlareMinimumSize) {
            diagnostics.Warning(path, "the plug-in refuses a FLAR shorter than 12 bytes");
        } else {
            entry.flare = std::get<FlareRecord>(std::move(decoded));
            entry.runsPath = path;
            entry.runsFromHex = true;
        }
    } else if (entry.type == kRingType) {
        const Decoded<RingRecord> decoded = DecodeRing(bytes);
        if (const auto* problem = std::get_if<std::string>(&decoded))
            diagnostics.Warning(path, "not a well-formed RING: " + *problem);
    } else if (entry.type == host::kDialogResourceType) {
        const auto decoded = host::DecodeDialog(bytes);
        if (const auto* problem = std::get_if<std::string>(&decoded))
            diagnostics.Warning(path, "not a well-formed DLOG: " + *problem);
    }
}

// The types that may be written field by field, under which key.
struct StructuredForm {
    uint32_t type;
    const char* key;
};

constexpr StructuredForm kStructuredForms[] = {
    {kFlareType, "flare"}, {kRingType, "ring"}, {host::kDialogResourceType, "dialog"}};

const char* StructuredKey(std::optional<uint32_t> type) {
    for (const StructuredForm& form : kStructuredForms)
        if (type == form.type) return form.key;
    return nullptr;
}

std::optional<std::vector<uint8_t>> ReadStructured(ObjectReader& in, Entry& entry, Diagnostics& diagnostics) {
    if (entry.type == kFlareType) {
        entry.flare = ReadFlare(in.At("flare"), in.Path("flare"), diagnostics);
        entry.runsPath = in.Path("flare.elements");
        if (entry.flare) return EncodeFlare(*entry.flare);
        return std::nullopt;
    }
    if (entry.type == host::kDialogResourceType) return ReadDialog(in.At("dialog"), in.Path("dialog"), diagnostics);
    if (const auto ring = ReadRing(in.At("ring"), in.Path("ring"), diagnostics)) return EncodeRing(*ring);
    return std::nullopt;
}

// The resource's bytes: from "flare", "ring", "dialog" or "hex", whichever the type allows and the entry gives.
std::optional<std::vector<uint8_t>> ReadContent(ObjectReader& in, Entry& entry, Diagnostics& diagnostics) {
    if (!entry.type) {   // still check the bytes, so that one run reports everything
        if (in.Has("hex") && in.At("hex").is_string()) ReadHex(in.At("hex").get<std::string>(), in.Path("hex"), diagnostics);
        return std::nullopt;
    }
    const char* structured = StructuredKey(entry.type);
    for (const StructuredForm& form : kStructuredForms)
        if (in.Has(form.key) && form.type != entry.type)
            diagnostics.Error(in.Path(form.key), "only a " + rsc::TypeText(form.type) + " resource takes \"" +
                                                     form.key + "\"");
    const bool hasStructured = structured && in.Has(structured);
    if (hasStructured && in.Has("hex")) {
        diagnostics.Error(in.path(), std::string("give either \"") + structured + "\" or \"hex\", not both");
        return std::nullopt;
    }
    if (hasStructured) return ReadStructured(in, entry, diagnostics);
    if (!in.Has("hex")) {
        diagnostics.Error(in.path(), structured ? std::string("needs \"") + structured + "\" or \"hex\""
                                                : std::string("needs \"hex\""));
        return std::nullopt;
    }
    const std::optional<std::string> hex = in.String("hex");
    if (!hex) return std::nullopt;
    std::optional<std::vector<uint8_t>> bytes = ReadHex(*hex, in.Path("hex"), diagnostics);
    if (bytes) InspectHexRecord(entry, *bytes, in.Path("hex"), diagnostics);
    return bytes;
}

Entry ReadEntry(const Json& value, const std::string& path, Diagnostics& diagnostics) {
    const size_t errorsBefore = diagnostics.ErrorCount();
    Entry entry;
    entry.path = path;
    ObjectReader in(value, path, diagnostics);
    if (!in.Check({"type", "id", "name", "attributes", "flare", "ring", "dialog", "hex"})) return entry;
    entry.type = in.TypeCode("type");
    if (const auto id = in.Integer("id", kInt16Range)) entry.id = int16_t(*id);
    const std::optional<std::string> name = in.String("name", false);
    if (name && name->size() > 255)
        diagnostics.Error(in.Path("name"), "is " + std::to_string(name->size()) + " bytes long; at most 255 fit");
    const auto attributes = in.Integer("attributes", kByteRange, false);
    std::optional<std::vector<uint8_t>> bytes = ReadContent(in, entry, diagnostics);
    if (!bytes || diagnostics.ErrorCount() != errorsBefore) return entry;
    entry.resource = rsc::Resource{*entry.type, *entry.id, name, uint8_t(attributes.value_or(0)), std::move(*bytes)};
    return entry;
}

// ---- Cross-checks ----

// The sources' names, and which one the diagnostics being made are about.
class Sources {
public:
    Sources(const std::vector<SourceText>& texts, Diagnostics& diagnostics) : diagnostics_(diagnostics) {
        for (const SourceText& text : texts) names_.push_back(text.name);
    }
    Diagnostics& About(const Entry& entry) {
        diagnostics_.SetSource(names_[entry.source]);
        return diagnostics_;
    }
    Diagnostics& AboutAll() {
        diagnostics_.SetSource("");
        return diagnostics_;
    }
    // Where an entry is, as seen from another entry: its path, with its source's name when the
    // two come from different sources.
    std::string Place(const Entry& entry, const Entry& from) const {
        return entry.source == from.source ? entry.path : names_[entry.source] + ": " + entry.path;
    }

private:
    std::vector<std::string> names_;
    Diagnostics& diagnostics_;
};

void CheckDuplicates(const std::vector<Entry>& entries, Sources& sources) {
    std::map<std::pair<uint32_t, int16_t>, const Entry*> seen;
    for (const Entry& entry : entries) {
        if (!entry.type || !entry.id) continue;
        const auto [at, inserted] = seen.emplace(std::pair(*entry.type, *entry.id), &entry);
        if (!inserted)
            sources.About(entry).Error(Key(entry.path, "id"), ResourceLabel(*entry.type, *entry.id) +
                                                                  " is already defined at " +
                                                                  sources.Place(*at->second, entry));
    }
}

// Each RING run of a flare must name resources that exist: the plug-in stops loading at the first
// that is missing.
void CheckRun(const FlareRun& run, const std::string& path, const std::set<int16_t>& rings,
              Diagnostics& diagnostics) {
    if (run.type != kRingType) {
        diagnostics.Warning(path, "the plug-in reads only RING entries; this " + rsc::TypeText(run.type) +
                                      " entry is skipped");
        return;
    }
    if (run.first > run.last) {
        diagnostics.Warning(path, "first (" + std::to_string(run.first) + ") is after last (" +
                                      std::to_string(run.last) + "): the run loads nothing");
        return;
    }
    std::vector<int> missing;
    for (int id = run.first; id <= run.last; ++id)
        if (!rings.contains(int16_t(id))) missing.push_back(id);
    if (missing.empty()) return;
    std::string message = "names RING " + std::to_string(missing.front());
    if (missing.size() > 1) message += " and " + std::to_string(missing.size() - 1) + " more";
    diagnostics.Error(path, message + (missing.size() > 1 ? ", which are" : ", which is") + " not in the file");
}

std::set<int16_t> NamedRings(const FlareRecord& flare) {
    std::set<int16_t> named;
    for (const FlareRun& run : flare.elements)
        if (run.type == kRingType)
            for (int id = run.first; id <= run.last; ++id) named.insert(int16_t(id));
    return named;
}

void CheckReferences(const std::vector<Entry>& entries, Sources& sources) {
    std::set<int16_t> rings;
    for (const Entry& entry : entries)
        if (entry.type == kRingType && entry.id) rings.insert(*entry.id);
    const Entry* mainFlare = nullptr;
    for (const Entry& entry : entries) {
        if (entry.type == kFlareType && entry.id == kFlareID) mainFlare = &entry;
        if (!entry.flare) continue;
        for (size_t i = 0; i < entry.flare->elements.size(); ++i)
            CheckRun(entry.flare->elements[i], entry.runsFromHex ? entry.runsPath : Index(entry.runsPath, i),
                     rings, sources.About(entry));
    }
    if (!mainFlare) {
        sources.AboutAll().Warning("resources", "no FLAR 1001: the plug-in finds no flare in this file");
        return;
    }
    if (!mainFlare->flare) return;
    const std::set<int16_t> named = NamedRings(*mainFlare->flare);
    for (const Entry& entry : entries)
        if (entry.type == kRingType && entry.id && !named.contains(*entry.id))
            sources.About(entry).Warning(entry.path, "RING " + std::to_string(*entry.id) +
                                                         " is not named by FLAR 1001 and is never loaded");
}

// Reads one source's entries into `entries`; a source that does not parse contributes none.
void ReadSource(const SourceText& text, size_t index, std::vector<Entry>& entries, Diagnostics& diagnostics) {
    diagnostics.SetSource(text.name);
    const std::optional<Json> source = ParseSource(text.text, diagnostics);
    if (!source) return;
    ObjectReader root(*source, "", diagnostics);
    if (!root.Check({"resources"})) return;
    const Json* resources = root.Array("resources");
    if (!resources) return;
    for (size_t i = 0; i < resources->size(); ++i) {
        entries.push_back(ReadEntry((*resources)[i], Index("resources", i), diagnostics));
        entries.back().source = index;
    }
}

}  // namespace

// ---- Compilation ----

std::optional<rsc::Resource> CompileResourceEntry(const Json& entry, const std::string& path,
                                                  Diagnostics& diagnostics) {
    return ReadEntry(entry, path, diagnostics).resource;
}

CompiledTable CompileTableSources(const std::vector<SourceText>& texts) {
    CompiledTable table;
    Diagnostics& diagnostics = table.diagnostics;
    std::vector<Entry> entries;
    for (size_t i = 0; i < texts.size(); ++i) ReadSource(texts[i], i, entries, diagnostics);
    Sources sources(texts, diagnostics);
    CheckDuplicates(entries, sources);
    CheckReferences(entries, sources);
    diagnostics.SetSource("");
    if (diagnostics.HasErrors()) return table;
    for (Entry& entry : entries) table.file.resources.push_back(std::move(*entry.resource));
    return table;
}

CompiledTable CompileTableSource(std::string_view text) {
    return CompileTableSources({SourceText{"", std::string(text)}});
}

}  // namespace vellux::rsc
