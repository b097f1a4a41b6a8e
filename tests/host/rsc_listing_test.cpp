// The listing of dialog resources: every field of every item, and a hex dump with the reason for
// bytes that are not a dialog.
#include <gtest/gtest.h>

#include <sstream>

#include "host/dialog_resource.h"
#include "host/rsc_listing.h"

namespace vellux::rsc {
namespace {

std::string Listing(const rsc::ResourceFile& file) {
    std::ostringstream out;
    WriteListing(out, "dialogs.rsc", file);
    return out.str();
}

rsc::Resource Dialog(int16_t id, std::vector<uint8_t> data) {
    return {host::kDialogResourceType, id, std::nullopt, 0, std::move(data)};
}

TEST(RscListing, ListsADialogItemByItem) {
    host::DialogTemplate dialog;
    dialog.width = 320;
    dialog.height = 200;
    dialog.title = "Vellux \"Lens\"";
    dialog.items.push_back({101, cKV_StaticText, {8, 12, 80, 28}, 0, 22, "Star filter", {}});
    dialog.items.push_back({22, cKV_PopupMenu, {88, 8, 200, 32}, 4, 0, "", {{0, "None"}, {4, "4 points"}}});
    dialog.items.push_back({5, cKV_CheckBox, {8, 40, 200, 64}, 1, 0, "Glow", {}});
    rsc::ResourceFile file;
    file.resources.push_back(Dialog(16001, host::EncodeDialog(dialog)));
    file.resources.back().name = "Settings";
    const std::string text = Listing(file);
    const size_t size = file.resources[0].data.size();

    std::istringstream lines(text);
    std::vector<std::string> got;
    for (std::string line; std::getline(lines, line);) got.push_back(line);
    const std::vector<std::string> expected = {
        "dialogs.rsc: 1 resource",
        "DLOG 16001 \"Settings\", " + std::to_string(size) + " bytes",
        "  title     \"Vellux \\\"Lens\\\"\"",
        "  size      320 x 200",
        "  items     3",
        "    [0] ID 101  static text  8,12..80,28 (72 x 16)  value 0  labels ID 22  \"Star filter\"",
        "    [1] ID 22  pop-up menu  88,8..200,32 (112 x 24)  value 4  \"\"",
        "          menu      0  \"None\"",
        "          menu      4  \"4 points\"",
        "    [2] ID 5  check box  8,40..200,64 (192 x 24)  value 1  \"Glow\"",
    };
    EXPECT_EQ(got, expected) << text;
}

TEST(RscListing, ShowsBytesThatAreNotADialogAsHexWithTheReason) {
    rsc::ResourceFile file;
    file.resources.push_back(Dialog(9000, {0x00, 0x02, 0x00, 0x10, 0x00, 0x10, 0x00, 0x00}));
    const std::string text = Listing(file);
    EXPECT_NE(text.find("  not a well-formed DLOG: version 2; only version 1 is known\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  000000  00 02 00 10 00 10 00 00"), std::string::npos) << text;
}

}  // namespace
}  // namespace vellux::rsc
