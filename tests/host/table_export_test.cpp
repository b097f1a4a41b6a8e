// From resources back to table source: field by field where that is faithful, hex otherwise,
// and always compiling to the same bytes.
#include <gtest/gtest.h>

#include <sstream>

#include "host/dialog_resource.h"
#include "host/flare_records.h"
#include "host/table_export.h"
#include "host/table_source.h"

namespace vellux::rsc {
namespace {

std::vector<uint8_t> Bytes(const rsc::ResourceFile& file) { return rsc::SerializeResourceFile(file); }

// Exports `file`, compiles the text again and expects no error (warnings are the caller's
// business) and the same file bytes.
Json ExpectRoundTrip(const rsc::ResourceFile& file) {
    const Json source = TableSourceFromFile(file);
    const CompiledTable again = CompileTableSource(FormatTableSource(source));
    for (const Diagnostic& d : again.diagnostics.All())
        if (d.severity == Diagnostic::Severity::error) ADD_FAILURE() << d.Text();
    EXPECT_EQ(Bytes(again.file), Bytes(file));
    return source;
}

RingRecord Disc() {
    RingRecord ring;
    ring.name = "Disc";
    ring.type = 4;
    ring.units = 1000;
    ring.offset = -500;
    ring.outside = 40;
    ring.stops = {{0, 0xFFFF, 6000, 9000, 5000}, {40, 0, 0, 0, 0}};
    return ring;
}

rsc::Resource Resource(const char* type, int16_t id, std::vector<uint8_t> data) {
    return {rsc::TypeCode(type), id, std::nullopt, 0, std::move(data)};
}

TEST(TableExport, WellFormedRecordsAreWrittenFieldByField) {
    rsc::ResourceFile file;
    file.resources.push_back(Resource("FLAR", 1001, EncodeFlare({{{kRingType, 2001, 2001}}})));
    file.resources.back().name = "Flare";
    file.resources.push_back(Resource("RING", 2001, EncodeRing(Disc())));
    file.resources.back().attributes = 0x20;
    file.resources.push_back(Resource("DLOG", 16001, {0x0a, 0xff}));
    const Json source = ExpectRoundTrip(file);

    const Json& resources = source["resources"];
    EXPECT_EQ(resources[0]["name"], "Flare");
    EXPECT_EQ(resources[0]["flare"]["elements"][0]["last"], 2001);
    EXPECT_EQ(resources[1]["attributes"], 0x20);
    EXPECT_EQ(resources[1]["ring"]["offset"], -500);
    EXPECT_FALSE(resources[1]["ring"]["stops"][0].contains("alpha"));   // 65535 is the default
    EXPECT_EQ(resources[1]["ring"]["stops"][1]["alpha"], 0);
    EXPECT_EQ(resources[2]["hex"], "0aff");
    EXPECT_FALSE(resources[2].contains("attributes"));
}

// Records the compiler would refuse, or bytes it would not reproduce, fall back to hex.
TEST(TableExport, RecordsThatWouldNotComeBackTheSameAreWrittenAsHex) {
    RingRecord divides = Disc();
    divides.units = 0;
    RingRecord foreignName = Disc();
    foreignName.name = "Gl\xA9w";
    std::vector<uint8_t> trailing = EncodeRing(Disc());
    trailing.push_back(0);

    rsc::ResourceFile file;
    file.resources.push_back(Resource("FLAR", 1001, EncodeFlare({})));   // 4 bytes: refused
    file.resources.push_back(Resource("RING", 2001, EncodeRing(divides)));
    file.resources.push_back(Resource("RING", 2002, EncodeRing(foreignName)));
    file.resources.push_back(Resource("RING", 2003, trailing));
    file.resources.push_back(Resource("RING", 2004, {1, 2, 3}));
    const Json source = ExpectRoundTrip(file);
    for (const Json& resource : source["resources"]) EXPECT_TRUE(resource.contains("hex")) << resource.dump();
}

host::DialogTemplate SmallDialog() {
    host::DialogTemplate dialog;
    dialog.width = 200;
    dialog.height = 100;
    dialog.title = "Small";
    host::DialogItem label{101, cKV_StaticText, {8, 8, 60, 24}, 0, 22, "Filter", {}};
    host::DialogItem popup{22, cKV_PopupMenu, {68, 8, 190, 32}, 3, 0, "", {{0, "None"}, {3, "Three"}}};
    host::DialogItem ok{1, cKV_PushButton, {110, 68, 190, 92}, 0, 0, "OK", {}};
    dialog.items = {label, popup, ok};
    return dialog;
}

TEST(TableExport, DialogsAreWrittenFieldByFieldWithoutTheDefaults) {
    rsc::ResourceFile file;
    file.resources.push_back(Resource("DLOG", 16001, host::EncodeDialog(SmallDialog())));
    file.resources.back().name = "Settings";
    const Json source = ExpectRoundTrip(file);
    const Json& dialog = source["resources"][0]["dialog"];
    EXPECT_EQ(dialog["title"], "Small");
    EXPECT_EQ(dialog["width"], 200);
    const Json& items = dialog["items"];
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0], Json::parse(R"({"id": 101, "type": "static", "bounds": [8, 8, 60, 24], "title": "Filter", "for": 22})"));
    EXPECT_EQ(items[1]["type"], "popup");
    EXPECT_EQ(items[1]["value"], 3);
    EXPECT_FALSE(items[1].contains("title"));
    EXPECT_EQ(items[1]["menu"][1], Json::parse(R"({"value": 3, "text": "Three"})"));
    EXPECT_FALSE(items[2].contains("menu"));
    EXPECT_FALSE(items[2].contains("value"));
    EXPECT_FALSE(items[2].contains("for"));
}

TEST(TableExport, DialogsThatCannotBeTextAreWrittenAsHex) {
    host::DialogTemplate foreign = SmallDialog();
    foreign.items[1].menu[0].text = "N\xA9ne";
    std::vector<uint8_t> trailing = host::EncodeDialog(SmallDialog());
    trailing.push_back(0);
    rsc::ResourceFile file;
    file.resources.push_back(Resource("DLOG", 1, host::EncodeDialog(foreign)));
    file.resources.push_back(Resource("DLOG", 2, trailing));
    const Json source = ExpectRoundTrip(file);
    for (const Json& resource : source["resources"]) EXPECT_TRUE(resource.contains("hex")) << resource.dump();
}

TEST(TableExport, NamesThatAreNotUtf8CannotBeWritten) {
    rsc::ResourceFile file;
    file.resources.push_back(Resource("DLOG", 1, {}));
    file.resources.back().name = "Gl\xA9w";
    EXPECT_THROW(TableSourceFromFile(file), std::runtime_error);
}

TEST(TableExport, LayoutKeepsEachStopOnOneLineAndParsesBack) {
    rsc::ResourceFile file;
    file.resources.push_back(Resource("RING", 2001, EncodeRing(Disc())));
    const Json source = TableSourceFromFile(file);
    const std::string text = FormatTableSource(source);
    EXPECT_EQ(Json::parse(text), source);
    EXPECT_EQ(text.back(), '\n');
    std::istringstream lines(text);
    int stopLines = 0;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 100u) << line;
        if (line.find("\"position\"") != std::string::npos) {
            ++stopLines;
            EXPECT_NE(line.find("\"blue\""), std::string::npos) << line;
        }
    }
    EXPECT_EQ(stopLines, 2);
}

}  // namespace
}  // namespace vellux::rsc
