// Table source compilation: what a valid source becomes, and every class of problem reported
// with the JSON path of the value concerned.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "host/dialog_resource.h"
#include "host/flare_records.h"
#include "host/table_source.h"

namespace vellux::rsc {
namespace {

using Severity = Diagnostic::Severity;

// A flare of two rings, a resource given as hex and a dialog, valid and free of warnings.
Json ValidSource() {
    return Json::parse(R"({"resources": [
      {"type": "FLAR", "id": 1001, "name": "Flare", "flare": {"elements": [{"type": "RING", "first": 2001, "last": 2002}]}},
      {"type": "RING", "id": 2001, "ring": {"name": "Glow", "type": 1, "mode": 0, "units": 1000, "offset": 1000,
        "inside": 0, "outside": 350, "stops": [{"position": 0, "red": 65535, "green": 65535, "blue": 65535},
                                               {"position": 350, "alpha": 0, "red": 0, "green": 0, "blue": 0}]}},
      {"type": "RING", "id": 2002, "attributes": 32, "ring": {"name": "Disc", "type": 4, "units": 1000, "offset": -500,
        "outside": 40, "stops": [{"position": 0, "red": 6000, "green": 9000, "blue": 5000},
                                 {"position": 40, "red": 0, "green": 0, "blue": 0}]}},
      {"type": "PICT", "id": 128, "hex": "0a0B0c"},
      {"type": "DLOG", "id": 16001, "dialog": {"title": "Settings", "width": 320, "height": 200, "items": [
        {"id": 100, "type": "static", "bounds": [8, 12, 80, 28], "title": "Filter", "for": 22},
        {"id": 22, "type": "popup", "bounds": [88, 8, 200, 32], "value": 1,
         "menu": [{"value": 0, "text": "None"}, {"value": 1, "text": "Two"}]},
        {"id": 5, "type": "checkbox", "bounds": [8, 40, 200, 64], "title": "Glow", "value": 1},
        {"id": 17, "type": "edit", "bounds": [8, 72, 64, 96]},
        {"id": 1, "type": "button", "bounds": [232, 168, 312, 192], "title": "OK"}]}}
    ]})");
}

Json& Ring(Json& source, size_t i) { return source["resources"][i]["ring"]; }
Json& Dialog(Json& source) { return source["resources"][4]["dialog"]; }
Json& Item(Json& source, size_t i) { return Dialog(source)["items"][i]; }

std::string Messages(const Diagnostics& diagnostics) {
    std::string text;
    for (const Diagnostic& d : diagnostics.All())
        text += (d.severity == Severity::error ? "error: " : "warning: ") + d.Text() + "\n";
    return text;
}

// The diagnostic at `path` whose message contains `words`, or null.
const Diagnostic* Find(const Diagnostics& diagnostics, const std::string& path, const std::string& words) {
    for (const Diagnostic& d : diagnostics.All())
        if (d.path == path && d.message.find(words) != std::string::npos) return &d;
    return nullptr;
}

TEST(TableSource, ValidSourceBecomesResourcesInOrderWithTheirBytes) {
    const CompiledTable table = CompileTableSource(ValidSource().dump());
    ASSERT_TRUE(table.diagnostics.All().empty()) << Messages(table.diagnostics);
    const auto& resources = table.file.resources;
    ASSERT_EQ(resources.size(), 5u);
    EXPECT_EQ(resources[0].name, "Flare");
    EXPECT_EQ(resources[0].data, EncodeFlare({{{kRingType, 2001, 2002}}}));
    EXPECT_EQ(resources[1].data.size(), kRingHeaderSize + 2 * kColorStopSize);
    EXPECT_FALSE(resources[1].name.has_value());
    EXPECT_EQ(resources[2].attributes, 32);
    EXPECT_EQ(resources[3].type, rsc::TypeCode("PICT"));
    EXPECT_EQ(resources[3].data, (std::vector<uint8_t>{0x0a, 0x0b, 0x0c}));

    // Left-out fields take their defaults: mode 0, inside 0, alpha 65535.
    const auto disc = DecodeRing(resources[2].data);
    ASSERT_TRUE(std::holds_alternative<RingRecord>(disc));
    EXPECT_EQ(std::get<RingRecord>(disc).mode, 0u);
    EXPECT_EQ(std::get<RingRecord>(disc).inside, 0);
    EXPECT_EQ(std::get<RingRecord>(disc).stops[0].alpha, 0xFFFF);

    // The dialog, with the left-out fields at "", 0, 0 and no menu.
    const auto decoded = host::DecodeDialog(resources[4].data);
    ASSERT_TRUE(std::holds_alternative<host::DialogTemplate>(decoded)) << std::get<std::string>(decoded);
    const host::DialogTemplate& dialog = std::get<host::DialogTemplate>(decoded);
    EXPECT_EQ(dialog.title, "Settings");
    ASSERT_EQ(dialog.items.size(), 5u);
    EXPECT_EQ(dialog.items[0].type, cKV_StaticText);
    EXPECT_EQ(dialog.items[0].labelFor, 22);
    EXPECT_EQ(dialog.items[1].menu[1].text, "Two");
    EXPECT_EQ(dialog.items[4].bounds.bottom, 192);
    const host::DialogItem& edit = dialog.items[3];
    EXPECT_TRUE(edit.title.empty() && edit.value == 0 && edit.labelFor == 0 && edit.menu.empty());
}

TEST(TableSource, CommentsAreAllowed) {
    const CompiledTable table = CompileTableSource("// the dialog only\n{\"resources\": [ /* none */ ]}");
    EXPECT_EQ(table.diagnostics.ErrorCount(), 0u) << Messages(table.diagnostics);
}

TEST(TableSource, SyntaxErrorsGiveLineAndColumn) {
    const CompiledTable table = CompileTableSource("{\"resources\": [\n  {\"type\": }\n]}");
    ASSERT_EQ(table.diagnostics.ErrorCount(), 1u);
    EXPECT_EQ(table.diagnostics.All()[0].path, "");
    EXPECT_NE(table.diagnostics.All()[0].message.find("line 2"), std::string::npos);
}

// An edit of the valid source, and the diagnostic it must cause.
struct SourceEdit {
    const char* name;
    std::function<void(Json&)> edit;
    const char* path;
    const char* words;
};

std::string EditName(const testing::TestParamInfo<SourceEdit>& param) { return param.param.name; }

// Each edit of the valid source makes one error, reported at its path; nothing is produced.
class TableSourceError : public testing::TestWithParam<SourceEdit> {};

TEST_P(TableSourceError, IsReportedAtItsPath) {
    Json source = ValidSource();
    GetParam().edit(source);
    const CompiledTable table = CompileTableSource(source.dump());
    const Diagnostic* found = Find(table.diagnostics, GetParam().path, GetParam().words);
    ASSERT_NE(found, nullptr) << Messages(table.diagnostics);
    EXPECT_EQ(found->severity, Severity::error);
    EXPECT_TRUE(table.file.resources.empty());
}

const std::string k32Bytes(32, 'n');

INSTANTIATE_TEST_SUITE_P(Classes, TableSourceError, testing::Values(
    // structure and JSON types
    SourceEdit{"UnknownTopKey", [](Json& s) { s["version"] = 1; }, "version", "unknown key"},
    SourceEdit{"UnknownRingKey", [](Json& s) { Ring(s, 1)["colour"] = 1; }, "resources[1].ring.colour", "unknown key"},
    SourceEdit{"UnknownStopKey", [](Json& s) { Ring(s, 1)["stops"][0]["hue"] = 1; }, "resources[1].ring.stops[0].hue", "unknown key"},
    SourceEdit{"ResourcesNotArray", [](Json& s) { s["resources"] = Json::object(); }, "resources", "must be an array"},
    SourceEdit{"EntryNotObject", [](Json& s) { s["resources"][3] = 3; }, "resources[3]", "must be an object"},
    SourceEdit{"UnitsAsText", [](Json& s) { Ring(s, 1)["units"] = "1000"; }, "resources[1].ring.units", "must be an integer"},
    SourceEdit{"OffsetFraction", [](Json& s) { Ring(s, 1)["offset"] = 0.5; }, "resources[1].ring.offset", "must be an integer"},
    SourceEdit{"StopsNotArray", [](Json& s) { Ring(s, 1)["stops"] = Json::object(); }, "resources[1].ring.stops", "must be an array"},
    SourceEdit{"MissingOutside", [](Json& s) { Ring(s, 1).erase("outside"); }, "resources[1].ring.outside", "is missing"},
    SourceEdit{"MissingContent", [](Json& s) { s["resources"][1].erase("ring"); }, "resources[1]", "needs \"ring\" or \"hex\""},
    SourceEdit{"RingAndHex", [](Json& s) { s["resources"][1]["hex"] = "00"; }, "resources[1]", "not both"},
    SourceEdit{"RingOnOtherType", [](Json& s) { s["resources"][3]["ring"] = Json::object(); }, "resources[3].ring", "only a RING"},
    SourceEdit{"DialogOnRing", [](Json& s) { s["resources"][1]["dialog"] = Json::object(); }, "resources[1].dialog", "only a DLOG resource takes \"dialog\""},
    SourceEdit{"DialogAndHex", [](Json& s) { s["resources"][4]["hex"] = "00"; }, "resources[4]", "not both"},
    // identities
    SourceEdit{"IdAbove16Bits", [](Json& s) { s["resources"][2]["id"] = 32768; }, "resources[2].id", "-32768..32767"},
    SourceEdit{"DuplicateTypeAndId", [](Json& s) { s["resources"][2]["id"] = 2001; }, "resources[2].id", "already defined at resources[1]"},
    SourceEdit{"TypeCodeShort", [](Json& s) { s["resources"][3]["type"] = "DLG"; }, "resources[3].type", "exactly four bytes"},
    SourceEdit{"TypeCodeLong", [](Json& s) { s["resources"][0]["flare"]["elements"][0]["type"] = "RINGS"; },
              "resources[0].flare.elements[0].type", "exactly four bytes"},
    SourceEdit{"MapNameTooLong", [](Json& s) { s["resources"][0]["name"] = std::string(256, 'x'); }, "resources[0].name", "at most 255"},
    SourceEdit{"AttributesAboveByte", [](Json& s) { s["resources"][2]["attributes"] = 256; }, "resources[2].attributes", "0..255"},
    // ring fields
    SourceEdit{"RingNameTooLong", [](Json& s) { Ring(s, 1)["name"] = k32Bytes; }, "resources[1].ring.name", "at most 31"},
    SourceEdit{"UnitsZero", [](Json& s) { Ring(s, 1)["units"] = 0; }, "resources[1].ring.units", "must not be 0"},
    SourceEdit{"UnitsNegative", [](Json& s) { Ring(s, 1)["units"] = -1000; }, "resources[1].ring.units", "must be positive"},
    SourceEdit{"OutsideZero", [](Json& s) { Ring(s, 2)["outside"] = 0; }, "resources[2].ring.outside", "must not be 0"},
    SourceEdit{"OutsideNegative", [](Json& s) { Ring(s, 2)["outside"] = -40; }, "resources[2].ring.outside", "must not be negative"},
    SourceEdit{"InsideNegative", [](Json& s) { Ring(s, 2)["inside"] = -1; }, "resources[2].ring.inside", "must not be negative"},
    SourceEdit{"InsideBeyondOutside", [](Json& s) { Ring(s, 2)["inside"] = 41; }, "resources[2].ring.inside", "must not exceed outside"},
    SourceEdit{"OffsetBeyondInt32", [](Json& s) { Ring(s, 1)["offset"] = 2147483648LL; }, "resources[1].ring.offset", "-2147483648..2147483647"},
    SourceEdit{"ModeBeyondUInt32", [](Json& s) { Ring(s, 1)["mode"] = 4294967296LL; }, "resources[1].ring.mode", "0..4294967295"},
    SourceEdit{"ModeOtherBit", [](Json& s) { Ring(s, 1)["mode"] = 0x80000001u; }, "resources[1].ring.mode", "only bit 31"},
    SourceEdit{"HugeNumber", [](Json& s) { Ring(s, 1)["units"] = 18446744073709551615ull; }, "resources[1].ring.units", "must be in"},
    // stops
    SourceEdit{"StopBeyondOutside", [](Json& s) { Ring(s, 2)["stops"][1]["position"] = 41; }, "resources[2].ring.stops[1].position", "0..outside (0..40)"},
    SourceEdit{"ColourAbove16Bits", [](Json& s) { Ring(s, 1)["stops"][0]["green"] = 65536; }, "resources[1].ring.stops[0].green", "0..65535"},
    SourceEdit{"AlphaNegative", [](Json& s) { Ring(s, 1)["stops"][1]["alpha"] = -1; }, "resources[1].ring.stops[1].alpha", "0..65535"},
    SourceEdit{"TooManyStops", [](Json& s) { Ring(s, 1)["stops"] = Json::array(); for (int i = 0; i <= 1000; ++i) Ring(s, 1)["stops"].push_back({{"position", 0}, {"red", 0}, {"green", 0}, {"blue", 0}}); },
              "resources[1].ring.stops", "at most 1000"},
    // flare
    SourceEdit{"RunNamesMissingRing", [](Json& s) { s["resources"][0]["flare"]["elements"][0]["last"] = 2004; },
              "resources[0].flare.elements[0]", "names RING 2003 and 1 more"},
    SourceEdit{"NoElements", [](Json& s) { s["resources"][0]["flare"]["elements"] = Json::array(); }, "resources[0].flare.elements", "at least one element"},
    // hex
    SourceEdit{"HexOddLength", [](Json& s) { s["resources"][3]["hex"] = "0a0b0"; }, "resources[3].hex", "odd number"},
    SourceEdit{"HexBadDigit", [](Json& s) { s["resources"][3]["hex"] = "0a0g"; }, "resources[3].hex", "character 3 (\"g\")"},
    // dialog: structure and JSON types
    SourceEdit{"DialogItemUnknownKey", [](Json& s) { Item(s, 3)["label"] = "x"; }, "resources[4].dialog.items[3].label", "unknown key"},
    SourceEdit{"DialogWidthMissing", [](Json& s) { Dialog(s).erase("width"); }, "resources[4].dialog.width", "is missing"},
    SourceEdit{"DialogItemNotObject", [](Json& s) { Item(s, 2) = 5; }, "resources[4].dialog.items[2]", "must be an object"},
    SourceEdit{"DialogTypeUnknown", [](Json& s) { Item(s, 0)["type"] = "label"; }, "resources[4].dialog.items[0].type",
               "unknown control type \"label\"; the types are button, checkbox, radio"},
    SourceEdit{"DialogBoundsThree", [](Json& s) { Item(s, 3)["bounds"] = {8, 72, 64}; }, "resources[4].dialog.items[3].bounds", "four integers"},
    SourceEdit{"DialogBoundsFraction", [](Json& s) { Item(s, 3)["bounds"][2] = 64.5; }, "resources[4].dialog.items[3].bounds[2]", "must be an integer"},
    SourceEdit{"DialogMenuTextMissing", [](Json& s) { Item(s, 1)["menu"][0].erase("text"); }, "resources[4].dialog.items[1].menu[0].text", "is missing"},
    // dialog: the resource's rules (each class is in the codec's tests), at the value's path
    SourceEdit{"DialogDuplicateId", [](Json& s) { Item(s, 4)["id"] = 5; }, "resources[4].dialog.items[4].id", "5 is also the ID of items[2]"},
    SourceEdit{"DialogRightBeyondWidth", [](Json& s) { Item(s, 3)["bounds"][2] = 321; }, "resources[4].dialog.items[3].bounds[2]", "beyond the dialog's width (320)"},
    SourceEdit{"DialogLabelForMissing", [](Json& s) { Item(s, 0)["for"] = 99; }, "resources[4].dialog.items[0].for", "names ID 99, which no item has"},
    SourceEdit{"DialogDuplicateMenuValue", [](Json& s) { Item(s, 1)["menu"][1]["value"] = 0; }, "resources[4].dialog.items[1].menu[1].value",
               "0 is also the value of menu[0]"}
), EditName);

TEST(TableSource, KeyGivenTwiceIsAnError) {
    const CompiledTable table = CompileTableSource(R"({"resources": [{"type": "DLOG", "id": 1, "id": 2, "hex": ""}]})");
    EXPECT_NE(Find(table.diagnostics, "resources[0].id", "more than once"), nullptr) << Messages(table.diagnostics);
}

TEST(TableSource, EveryErrorIsReportedInOneRun) {
    Json source = ValidSource();
    Ring(source, 1)["units"] = 0;
    Ring(source, 2)["stops"][0]["red"] = -5;
    source["resources"][3]["hex"] = "abc";
    const CompiledTable table = CompileTableSource(source.dump());
    EXPECT_EQ(table.diagnostics.ErrorCount(), 3u) << Messages(table.diagnostics);
}

TEST(TableSource, BoundaryValuesAreAccepted) {
    Json source = ValidSource();
    Ring(source, 1)["name"] = std::string(31, 'n');
    Ring(source, 1)["mode"] = 0x80000000u;
    Ring(source, 1)["offset"] = -2147483648LL;
    Ring(source, 2)["inside"] = 40;
    source["resources"][3]["id"] = -32768;
    source["resources"][3]["attributes"] = 255;
    Dialog(source)["width"] = 32767;
    Item(source, 4)["bounds"] = {0, 0, 32767, 200};
    Item(source, 4)["title"] = std::string(255, 'o');
    Ring(source, 2)["stops"] = Json::array();
    for (int i = 0; i < 1000; ++i) Ring(source, 2)["stops"].push_back({{"position", i % 41}, {"red", 65535}, {"green", 0}, {"blue", 0}});
    const CompiledTable table = CompileTableSource(source.dump());
    EXPECT_EQ(table.diagnostics.ErrorCount(), 0u) << Messages(table.diagnostics);
    EXPECT_EQ(table.file.resources.size(), 5u);
}

// Legal but suspicious: reported as a warning, and the resources are still produced.
class TableSourceWarning : public testing::TestWithParam<SourceEdit> {};

TEST_P(TableSourceWarning, IsReportedAndTheTableStillCompiles) {
    Json source = ValidSource();
    GetParam().edit(source);
    const CompiledTable table = CompileTableSource(source.dump());
    const Diagnostic* found = Find(table.diagnostics, GetParam().path, GetParam().words);
    ASSERT_NE(found, nullptr) << Messages(table.diagnostics);
    EXPECT_EQ(found->severity, Severity::warning);
    EXPECT_EQ(table.diagnostics.ErrorCount(), 0u) << Messages(table.diagnostics);
    EXPECT_FALSE(table.file.resources.empty());
}

INSTANTIATE_TEST_SUITE_P(Classes, TableSourceWarning, testing::Values(
    SourceEdit{"FirstAfterLast", [](Json& s) { s["resources"][0]["flare"]["elements"].push_back({{"type", "RING"}, {"first", 9}, {"last", 3}}); },
                "resources[0].flare.elements[1]", "loads nothing"},
    SourceEdit{"OtherEntryType", [](Json& s) { s["resources"][0]["flare"]["elements"].push_back({{"type", "PICT"}, {"first", 1}, {"last", 1}}); },
                "resources[0].flare.elements[1]", "skipped"},
    SourceEdit{"NoMainFlare", [](Json& s) { s["resources"][0]["id"] = 1002; }, "resources", "no FLAR 1001"},
    SourceEdit{"RingNotNamed", [](Json& s) { s["resources"][0]["flare"]["elements"][0]["last"] = 2001; }, "resources[2]", "never loaded"},
    SourceEdit{"OneStop", [](Json& s) { Ring(s, 2)["stops"].erase(1); }, "resources[2].ring.stops", "fewer than two stops"},
    SourceEdit{"RampStartsBeyondCentre", [](Json& s) { Ring(s, 2)["stops"][0]["position"] = 10; }, "resources[2].ring.stops[0]", "beyond the centre"},
    SourceEdit{"ShortRingAsHex", [](Json& s) { s["resources"][2].erase("ring"); s["resources"][2]["hex"] = "0000"; },
                "resources[2].hex", "shorter than the 60-byte"},
    SourceEdit{"ShortFlareAsHex", [](Json& s) { s["resources"][0].erase("flare"); s["resources"][0]["hex"] = "00000000"; },
                "resources[0].hex", "shorter than 12 bytes"},
    SourceEdit{"MalformedDialogAsHex", [](Json& s) { s["resources"][4].erase("dialog"); s["resources"][4]["hex"] = "0002000a000a0000"; },
                "resources[4].hex", "not a well-formed DLOG: version 2; only version 1 is known"}
), EditName);

TEST(TableSource, FlareGivenAsHexIsStillCheckedForMissingRings) {
    Json source = ValidSource();
    source["resources"][0].erase("flare");
    source["resources"][0]["hex"] = "00000001" "52494e47" "07d1" "07d5";   // RING 2001..2005
    const CompiledTable table = CompileTableSource(source.dump());
    EXPECT_NE(Find(table.diagnostics, "resources[0].hex", "names RING 2003 and 2 more"), nullptr)
        << Messages(table.diagnostics);
}

TEST(TableSource, HaloStopsAreNotJudged) {
    Json source = ValidSource();
    Ring(source, 2)["type"] = 3;
    Ring(source, 2)["stops"] = Json::array();
    const CompiledTable table = CompileTableSource(source.dump());
    EXPECT_TRUE(table.diagnostics.All().empty()) << Messages(table.diagnostics);
}

// ---- Dialogs ----

// A value that cannot be read is reported once; verdicts that rest on it are left out rather
// than reported as consequences.
TEST(TableSource, AnUnreadableDialogValueIsReportedOnce) {
    const std::vector<std::pair<std::string, std::function<void(Json&)>>> edits = {
        {"resources[4].dialog.width", [](Json& s) { Dialog(s)["width"] = "wide"; }},
        {"resources[4].dialog.items[2].id", [](Json& s) { Item(s, 2)["id"] = "five"; Item(s, 0)["for"] = 5; }},
        {"resources[4].dialog.items[1].menu[1]", [](Json& s) { Item(s, 1)["menu"][1] = "Two"; }},
        {"resources[4].dialog.items[0].type", [](Json& s) { Item(s, 0)["type"] = "label"; }},
        {"resources[4].dialog.items[2]", [](Json& s) { Item(s, 2) = Json::array(); Item(s, 4)["id"] = 5; }},
    };
    for (const auto& [path, edit] : edits) {
        Json source = ValidSource();
        edit(source);
        const CompiledTable table = CompileTableSource(source.dump());
        EXPECT_EQ(table.diagnostics.ErrorCount(), 1u) << Messages(table.diagnostics);
        ASSERT_FALSE(table.diagnostics.All().empty());
        EXPECT_EQ(table.diagnostics.All()[0].path, path);
    }
}

TEST(TableSource, EveryDialogErrorIsReportedInOneRun) {
    Json source = ValidSource();
    Item(source, 0)["for"] = 99;
    Item(source, 1)["value"] = 7;
    Item(source, 2)["type"] = "knob";
    Item(source, 3)["bounds"][2] = 400;
    Item(source, 4)["id"] = 17;
    const CompiledTable table = CompileTableSource(source.dump());
    EXPECT_EQ(table.diagnostics.ErrorCount(), 5u) << Messages(table.diagnostics);
    EXPECT_TRUE(table.file.resources.empty());
}

// ---- Several sources ----

// The flare and its rings in one source, the rest in another.
std::vector<SourceText> TwoSources() {
    Json flare = ValidSource();
    Json rest = {{"resources", Json::array()}};
    for (size_t i = 3; i < 5; ++i) rest["resources"].push_back(flare["resources"][i]);
    flare["resources"].erase(4);
    flare["resources"].erase(3);
    return {{"flare.json", flare.dump()}, {"dialogs.json", rest.dump()}};
}

TEST(TableSource, SeveralSourcesAreMergedInOrder) {
    const CompiledTable merged = CompileTableSources(TwoSources());
    EXPECT_TRUE(merged.diagnostics.All().empty()) << Messages(merged.diagnostics);
    const CompiledTable whole = CompileTableSource(ValidSource().dump());
    EXPECT_EQ(rsc::SerializeResourceFile(merged.file), rsc::SerializeResourceFile(whole.file));

    // What is about the merged file as a whole names no one source.
    const CompiledTable alone = CompileTableSources({TwoSources()[1]});
    const Diagnostic* noFlare = Find(alone.diagnostics, "resources", "no FLAR 1001");
    ASSERT_NE(noFlare, nullptr) << Messages(alone.diagnostics);
    EXPECT_EQ(noFlare->source, "");
}

TEST(TableSource, ATypeAndIdGivenInTwoSourcesNamesBothPlaces) {
    std::vector<SourceText> sources = TwoSources();
    Json rest = Json::parse(sources[1].text);
    rest["resources"][1]["type"] = "RING";
    rest["resources"][1]["id"] = 2002;
    rest["resources"][1].erase("dialog");
    rest["resources"][1]["hex"] = "";
    sources[1].text = rest.dump();
    const CompiledTable table = CompileTableSources(sources);
    const Diagnostic* found = Find(table.diagnostics, "resources[1].id", "RING 2002 is already defined at flare.json: resources[2]");
    ASSERT_NE(found, nullptr) << Messages(table.diagnostics);
    EXPECT_EQ(found->source, "dialogs.json");
    EXPECT_TRUE(table.file.resources.empty());
}

TEST(TableSource, EachDiagnosticNamesItsSourceAndNoSourceHidesAnother) {
    std::vector<SourceText> sources = TwoSources();
    Json flare = Json::parse(sources[0].text);
    Ring(flare, 1)["units"] = 0;
    sources[0].text = flare.dump();
    Json rest = Json::parse(sources[1].text);
    rest["resources"][1]["dialog"]["items"][3]["id"] = 0;
    sources[1].text = rest.dump();
    sources.push_back({"broken.json", "{\"resources\": ["});
    const CompiledTable table = CompileTableSources(sources);
    EXPECT_EQ(table.diagnostics.ErrorCount(), 3u) << Messages(table.diagnostics);
    const Diagnostic* units = Find(table.diagnostics, "resources[1].ring.units", "must not be 0");
    const Diagnostic* id = Find(table.diagnostics, "resources[1].dialog.items[3].id", "1 or more");
    ASSERT_NE(units, nullptr);
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(units->source, "flare.json");
    EXPECT_EQ(id->source, "dialogs.json");
    EXPECT_EQ(table.diagnostics.All().back().source, "broken.json");
}

}  // namespace
}  // namespace vellux::rsc
