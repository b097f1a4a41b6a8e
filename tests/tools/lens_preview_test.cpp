// The contact sheets, end to end. vellux lens preview: a cell per light position across and a row
// per f-number (the lens's widest, 4 and 8 unless asked for others); every cell holds a flare, the
// cells of a row differ as their lights do and the rows as their apertures do; on a plate the
// plate shows round the flare; bad input exits 1 with one line naming the value, writing nothing.
// vellux tables --sheet: a cell for every table and every lens, each its own look.
#include <gtest/gtest.h>

#include <OpenImageIO/imagebufalgo.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/tools/tool_fixture.h"

namespace {

constexpr int kColumns = 3;   // light positions: near the centre, upper left, near the right edge

class VelluxLensPreview : public ScratchTest {
protected:
    // Each sheet has a file of its own: the image library's cache knows a file by its name and
    // its time of change to the second, and would hand back a sheet written over within a second.
    OIIO::ImageBuf Preview(const std::string& arguments) { return Sheet("lens preview " + arguments + " -o "); }
    OIIO::ImageBuf LookSheet(const std::string& arguments) { return Sheet("tables " + arguments + " --sheet "); }

private:
    OIIO::ImageBuf Sheet(const std::string& command) {
        const std::string output = Path("sheet" + std::to_string(++sheets_) + ".png").string();
        const ToolRun run = RunTool(command + output);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        OIIO::ImageBuf sheet(output);
        sheet.read(0, 0, true, OIIO::TypeFloat);
        return sheet;
    }
    int sheets_ = 0;
};

// One cell of the sheet, inset by a few pixels so that a neighbour's edge does not count.
OIIO::ImageBuf Cell(const OIIO::ImageBuf& sheet, int column, int row, int width, int height) {
    const int inset = 3;
    return OIIO::ImageBufAlgo::cut(sheet, OIIO::ROI(column * width + inset, (column + 1) * width - inset,
                                                    row * height + inset, (row + 1) * height - inset, 0, 1, 0, 3));
}

float Brightest(const OIIO::ImageBuf& image) {
    const auto stats = OIIO::ImageBufAlgo::computePixelStats(image);
    return *std::max_element(stats.max.begin(), stats.max.end());
}

// The mean of |a - b| over every pixel and channel.
double MeanDifference(const OIIO::ImageBuf& a, const OIIO::ImageBuf& b) {
    const OIIO::ImageBuf difference = OIIO::ImageBufAlgo::absdiff(a, b);
    const auto stats = OIIO::ImageBufAlgo::computePixelStats(difference);
    return (stats.avg[0] + stats.avg[1] + stats.avg[2]) / 3.0;
}

struct SheetCase {
    const char* arguments;
    int cellWidth, cellHeight;
    std::vector<double> rows;   // the f-numbers the sheet should have, top down
};

TEST_F(VelluxLensPreview, SheetsHaveACellPerLightAndFNumberEachLitAndDifferent) {
    const SheetCase cases[] = {
        {"double-gauss-50mm --size 96x54", 96, 54, {2, 4, 8}},   // f/2: its widest, 4 and 8
        {"fisheye-10mm --size 96x54", 96, 54, {4, 8}},           // f/4 opens no wider than 4
        {"vintage-58mm --size 96x54", 96, 54, {2.37, 4, 8}},     // states f/2, opens to f/2.37
        {"vintage-58mm --f-numbers 2.8,11 --blades 5 --size 80x60", 80, 60, {2.8, 11}},
        {"wide-angle-22mm --f-numbers 8 --size 64x64", 64, 64, {8}},
    };
    for (const SheetCase& sheetCase : cases) {
        SCOPED_TRACE(sheetCase.arguments);
        const OIIO::ImageBuf sheet = Preview(sheetCase.arguments);
        const int rows = int(sheetCase.rows.size());
        ASSERT_EQ(sheet.spec().width, kColumns * sheetCase.cellWidth);
        ASSERT_EQ(sheet.spec().height, rows * sheetCase.cellHeight);
        for (int row = 0; row < rows; ++row) {
            std::vector<OIIO::ImageBuf> cells;
            for (int column = 0; column < kColumns; ++column) {
                cells.push_back(Cell(sheet, column, row, sheetCase.cellWidth, sheetCase.cellHeight));
                // The light's core is far past white: every cell has white in it.
                EXPECT_GE(Brightest(cells.back()), 0.99f) << "row " << row << " column " << column;
            }
            for (int a = 0; a < kColumns; ++a)
                for (int b = a + 1; b < kColumns; ++b)
                    EXPECT_GT(MeanDifference(cells[size_t(a)], cells[size_t(b)]), 0.002)
                        << "row " << row << " columns " << a << " and " << b;
        }
        // Stopping down changes every column's flare.
        for (int column = 0; column < kColumns && rows > 1; ++column)
            EXPECT_GT(MeanDifference(Cell(sheet, column, 0, sheetCase.cellWidth, sheetCase.cellHeight),
                                     Cell(sheet, column, rows - 1, sheetCase.cellWidth, sheetCase.cellHeight)),
                      0.0005)
                << "column " << column;
    }
}

TEST_F(VelluxLensPreview, APlateShowsRoundTheFlare) {
    // The plate, twice the cell's size, is scaled down into each cell: a cell is nearer the plate
    // than the flare on black is, lighter than the plate only where the flare adds light, and
    // far from the flare on black.
    const std::string plate = Path("plate.png").string();
    ASSERT_TRUE(Succeeded(RunTool("sample-frame --size 192x108 -o " + plate)));
    const OIIO::ImageBuf sheet = Preview("double-gauss-50mm --f-numbers 8 --size 96x54 -i " + plate);
    ASSERT_EQ(sheet.spec().width, kColumns * 96);
    ASSERT_EQ(sheet.spec().height, 54);
    OIIO::ImageBuf source(plate);
    source.read(0, 0, true, OIIO::TypeFloat);
    OIIO::ImageBuf scaled(OIIO::ImageSpec(96, 54, 3, OIIO::TypeFloat));
    ASSERT_TRUE(OIIO::ImageBufAlgo::resize(scaled, source));
    const OIIO::ImageBuf flat = Preview("double-gauss-50mm --f-numbers 8 --size 96x54");
    for (int column = 0; column < kColumns; ++column) {
        SCOPED_TRACE("column " + std::to_string(column));
        const OIIO::ImageBuf cell = Cell(sheet, column, 0, 96, 54);
        const OIIO::ImageBuf plateCell = OIIO::ImageBufAlgo::cut(scaled, OIIO::ROI(3, 93, 3, 51, 0, 1, 0, 3));
        EXPECT_LT(MeanDifference(cell, plateCell), MeanDifference(Cell(flat, column, 0, 96, 54), plateCell));
        // Above the label (lower left, with its shadow) the flare only adds light to the plate.
        const OIIO::ROI upper(0, 90, 0, 24, 0, 1, 0, 3);
        const OIIO::ImageBuf darker = OIIO::ImageBufAlgo::sub(OIIO::ImageBufAlgo::cut(plateCell, upper),
                                                              OIIO::ImageBufAlgo::cut(cell, upper));
        const auto stats = OIIO::ImageBufAlgo::computePixelStats(darker);
        EXPECT_LT(*std::max_element(stats.max.begin(), stats.max.end()), 0.02f);
        EXPECT_GT(MeanDifference(cell, Cell(flat, column, 0, 96, 54)), 0.05);
    }
}

struct BadCase {
    const char* arguments;
    const char* named;   // what the message names
};

TEST_F(VelluxLensPreview, BadInputExitsNamingTheValueAndWritesNothing) {
    const BadCase cases[] = {
        {"no-such-lens --size 32x18", "no-such-lens"},
        {"double-gauss-50mm --f-numbers 4,1.4 --size 32x18", "1.4"},   // wider than the lens's f/2
        {"fisheye-10mm --f-numbers 2.8 --size 32x18", "2.8"},          // wider than f/4
        {"double-gauss-50mm --blades 2 --size 32x18", "--blades: 2"},
        {"double-gauss-50mm --blades 40 --size 32x18", "--blades: 40"},
        {"double-gauss-50mm --size 0x10", "0x10"},
        {"double-gauss-50mm -i missing-plate.png --size 32x18", "missing-plate.png"},
    };
    for (const BadCase& bad : cases) {
        SCOPED_TRACE(bad.arguments);
        const ToolRun run = RunTool("lens preview " + std::string(bad.arguments) + " -o " + Path("sheet.png").string());
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.err.rfind("vellux: ", 0), 0u) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_NE(run.err.find(bad.named), std::string::npos) << run.err;
        for (const auto& entry : std::filesystem::directory_iterator(dir_))
            EXPECT_TRUE(entry.path().filename() == "out" || entry.path().filename() == "err") << entry.path();
    }
}

// Every shipped table (the sources, and one computed from each lens) and every lens's own flare, a
// cell each, in rows of --columns; each cell lit and its own look; on a plate, the plate round it.
TEST_F(VelluxLensPreview, TheLookSheetHasACellForEveryTableAndLens) {
    namespace fs = std::filesystem;
    size_t looks = 0;
    for (const auto& entry : fs::directory_iterator(VELLUX_TABLES_DIR)) looks += entry.path().extension() == ".json";
    for (const auto& entry : fs::directory_iterator(VELLUX_SOURCE_DIR "/lenses")) looks += 2 * (entry.path().extension() == ".json");
    const OIIO::ImageBuf sheet = LookSheet("--size 96x54 --columns 1");
    ASSERT_EQ(sheet.spec().width, 96);
    ASSERT_EQ(sheet.spec().height, int(looks) * 54);
    std::vector<OIIO::ImageBuf> cells;
    for (int row = 0; row < int(looks); ++row) {
        cells.push_back(Cell(sheet, 0, row, 96, 54));
        // Above its label a cell on black holds only its flare, which lights it.
        EXPECT_GE(Brightest(OIIO::ImageBufAlgo::cut(cells.back(), OIIO::ROI(0, 90, 0, 28, 0, 1, 0, 3))), 0.5f) << "row " << row;
    }
    for (size_t a = 0; a < cells.size(); ++a)
        for (size_t b = a + 1; b < cells.size(); ++b) EXPECT_GT(MeanDifference(cells[a], cells[b]), 1e-4) << a << " and " << b;
    // Four across: the rows it takes; on the sample frame, each cell nearer it than on black.
    const std::string plate = Path("plate.png").string();
    ASSERT_TRUE(Succeeded(RunTool("sample-frame --size 96x54 -o " + plate)));
    const OIIO::ImageBuf onPlate = LookSheet("--size 96x54 -i " + plate);
    ASSERT_EQ(onPlate.spec().width, 4 * 96);
    ASSERT_EQ(onPlate.spec().height, int((looks + 3) / 4) * 54);
    OIIO::ImageBuf source(plate);
    source.read(0, 0, true, OIIO::TypeFloat);
    const OIIO::ImageBuf plateCell = Cell(source, 0, 0, 96, 54);
    for (size_t k = 0; k < looks; ++k)
        EXPECT_LT(MeanDifference(Cell(onPlate, int(k % 4), int(k / 4), 96, 54), plateCell),
                  MeanDifference(cells[k], plateCell)) << k;
    const ToolRun bad = RunTool("tables --sheet " + Path("bad.png").string() + " --columns 0");
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_NE(bad.err.find("--columns: 0"), std::string::npos) << bad.err;
    EXPECT_FALSE(fs::exists(Path("bad.png")));
}

TEST_F(VelluxLensPreview, AnUnwritableFormatIsRefusedBeforePainting) {
    const ToolRun run = RunTool("lens preview double-gauss-50mm --size 32x18 -o " + Path("sheet.nosuchformat").string());
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("sheet.nosuchformat"), std::string::npos) << run.err;
    EXPECT_FALSE(std::filesystem::exists(Path("sheet.nosuchformat")));
}

}  // namespace
