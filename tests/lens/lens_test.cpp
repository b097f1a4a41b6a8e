// The lens model: the shipped prescriptions' focal lengths, dispersion, reflectances against
// worked values, the paraxial ghosts against the exact tracer, tables, and bad prescriptions.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>

#include "lens/exact_trace.h"
#include "lens/ghosts.h"
#include "lens/glass.h"
#include "lens/lens_table.h"
#include "lens/paraxial.h"
#include "lens/prescription.h"

namespace vellux::lens {
namespace {

const std::string kLenses = VELLUX_LENS_DIR;

struct ShippedLens {
    const char* file;
    double focalLength;   // stated in the file, and what a matrix computation gives
};
const ShippedLens kShipped[] = {
    {"double-gauss-50mm.json", 50.36}, {"wide-angle-22mm.json", 22.02}, {"fisheye-10mm.json", 9.99}, {"vintage-58mm.json", 57.95}};

TEST(Prescriptions, ReproduceTheirFocalLengthsParaxiallyAndExactly) {
    for (const ShippedLens& shipped : kShipped) {
        const Prescription lens = ReadPrescription(kLenses + "/" + shipped.file);
        const ParaxialData data = Paraxial(lens, kLineD);
        EXPECT_NEAR(data.focalLength, lens.focalLength, 0.01 * lens.focalLength) << shipped.file;
        EXPECT_NEAR(data.focalLength, shipped.focalLength, 0.005) << shipped.file;
        EXPECT_GT(data.backFocus, 0.0) << shipped.file;
        EXPECT_GT(data.pupilDiameter, 0.0) << shipped.file;
        const double height = 0.01 * lens.surfaces[lens.stopIndex].diameter;
        EXPECT_NEAR(ExactFocalLength(lens, kLineD, height), data.focalLength, 0.01 * data.focalLength) << shipped.file;
        // The back focal distance: where a traced ray parallel to the axis crosses it.
        const Path path = LightPath(lens);
        const auto at = [&](double distance) { return TraceRay(lens, path, kLineD, distance, height, 0.0)->sensorHeight; };
        const double focus = at(0.0) / (at(0.0) - at(1.0));
        EXPECT_NEAR(focus, data.backFocus, 0.01 * data.backFocus) << shipped.file;
    }
}

TEST(Glass, DispersionPassesThroughTheLinesOfItsAbbeNumber) {
    const double nd = 1.67, abbe = 47.2;
    EXPECT_NEAR(IndexAt(nd, abbe, kLineD), nd, 1e-12);
    EXPECT_NEAR(IndexAt(nd, abbe, kLineF) - IndexAt(nd, abbe, kLineC), (nd - 1.0) / abbe, 1e-12);
    EXPECT_GT(IndexAt(nd, std::nullopt, 450.0), IndexAt(nd, std::nullopt, 650.0));   // the default dispersion
    EXPECT_EQ(IndexAt(1.0, std::nullopt, 450.0), 1.0);
}

TEST(Coatings, ReflectancesMatchWorkedValues) {
    EXPECT_NEAR(Reflectance(1.0, 1.52, {}, 550.0), 0.0426, 0.0005);   // bare crown: about 4.3%
    EXPECT_NEAR(SurfaceReflectance(1.0, 1.52, Coating::singleLayer, 550.0), 0.0126, 0.0005);   // MgF2: about 1.3%
    EXPECT_NEAR(SurfaceReflectance(1.52, 1.0, Coating::singleLayer, 550.0), 0.0126, 0.0005);   // from inside the glass
    EXPECT_LT(SurfaceReflectance(1.0, 1.52, Coating::multiLayer, 550.0), 0.005);
    // The film tints: a quarter wave at 550 nm reflects more of the blue and red ends than the green.
    EXPECT_GT(SurfaceReflectance(1.0, 1.52, Coating::singleLayer, 420.0), SurfaceReflectance(1.0, 1.52, Coating::singleLayer, 550.0));
    EXPECT_GT(SurfaceReflectance(1.0, 1.52, Coating::singleLayer, 700.0), SurfaceReflectance(1.0, 1.52, Coating::singleLayer, 550.0));
    EXPECT_NEAR(SurfaceReflectance(1.67, 1.7, Coating::multiLayer, 550.0), Reflectance(1.67, 1.7, {}, 550.0), 1e-15);   // cemented: bare
}

TEST(Ghosts, ParaxialModelAgreesWithTheExactTracer) {
    for (const ShippedLens& shipped : kShipped) {
        const Prescription lens = ReadPrescription(kLenses + "/" + shipped.file);
        const ParaxialData data = Paraxial(lens, kLineD);
        const double stop = StopRadius(lens, UsedFNumber(lens, {}));
        int compared = 0;
        for (size_t i = 0; i < lens.surfaces.size(); ++i) {
            for (size_t j = i + 1; j < lens.surfaces.size(); ++j) {
                if (lens.surfaces[i].stop || lens.surfaces[j].stop) continue;
                const auto paraxial = ParaxialGhost(lens, i, j, kGreen, stop, data.backFocus);
                const auto exact = ExactGhost(lens, i, j, kGreen, stop, data.backFocus, 1e-4);
                if (!paraxial || !exact) continue;
                ++compared;
                const std::string ghost = std::string(shipped.file) + " ghost " + std::to_string(i + 1) + "-" + std::to_string(j + 1);
                EXPECT_NEAR(exact->position, paraxial->position, 0.01 * std::max(1.0, std::abs(paraxial->position))) << ghost;
                EXPECT_NEAR(exact->radius, paraxial->radius, 0.01 * std::max(paraxial->radius, 0.1)) << ghost;
            }
        }
        EXPECT_GT(compared, 20) << shipped.file;
    }
}

// A light's direction from where its image lies: the chief ray's landing, so a rectilinear lens
// puts a light near f tan(angle) (its distortion aside; 20 mm off the double Gauss's axis is 21.8
// degrees by f tan alone) and the fisheye at nearly f angle, out to
// the edge of its 156 degree field; each angle found lands where it was asked to.
TEST(FieldAngles, PutTheChiefRayWhereTheLightsImageLies) {
    constexpr double kDegree = 3.14159265358979 / 180.0;
    const struct {
        const char* file;
        double height;           // mm from the sensor's centre
        double expected, within;   // the angle the lens gives, degrees
    } cases[] = {
        {"double-gauss-50mm.json", 5.0, 5.67, 0.1},     // little distortion near the axis
        {"double-gauss-50mm.json", 20.0, 21.66, 0.5},
        {"wide-angle-22mm.json", 18.0, 39.3, 1.0},
        {"fisheye-10mm.json", 5.0, 5.0 / 10.0 / kDegree, 1.0},   // equidistant: f angle
        {"fisheye-10mm.json", 12.0, 12.0 / 10.0 / kDegree, 3.0},
    };
    for (const auto& c : cases) {
        const Prescription lens = ReadPrescription(kLenses + "/" + c.file);
        const double sensor = Paraxial(lens, kLineD).backFocus;
        const double angle = FieldAngle(lens, c.height, kLineD, sensor);
        EXPECT_NEAR(angle / kDegree, c.expected, c.within) << c.file << " at " << c.height;
        EXPECT_NEAR(FieldAngle(lens, -c.height, kLineD, sensor), -angle, 1e-12) << c.file;
        const std::optional<double> landed = ChiefRayHeight(lens, kLineD, sensor, angle);
        ASSERT_TRUE(landed) << c.file;
        EXPECT_NEAR(*landed, c.height, 1e-6 * c.height) << c.file;
    }
    // The fisheye's image circle: 78 degrees at f angle, within the scan's two degrees.
    const Prescription fisheye = ReadPrescription(kLenses + "/fisheye-10mm.json");
    const double circle = FieldRadius(fisheye, kLineD, Paraxial(fisheye, kLineD).backFocus);
    EXPECT_NEAR(circle, 10.0 * 78.0 * kDegree, 0.5);
    // Past it the angle goes on growing, short of a right angle.
    const double beyond = FieldAngle(fisheye, circle + 2.0, kLineD, Paraxial(fisheye, kLineD).backFocus);
    EXPECT_GT(beyond, 78.0 * kDegree);
    EXPECT_LT(beyond, 90.0 * kDegree);
}

TEST(Ghosts, AreSortedBrightestFirstWithColourFromTheCoating) {
    const Prescription lens = ReadPrescription(kLenses + "/double-gauss-50mm.json");
    const std::vector<Ghost> ghosts = Ghosts(lens, {});
    ASSERT_EQ(ghosts.size(), 45u);   // 10 surfaces without the stop: 10 * 9 / 2 pairs
    for (size_t g = 1; g < ghosts.size(); ++g) EXPECT_GE(ghosts[g - 1].Brightest(), ghosts[g].Brightest());
    GhostOptions bare;
    bare.coating = Coating::none;
    EXPECT_GT(Ghosts(lens, bare)[0].Brightest(), 5.0 * ghosts[0].Brightest());
    bool tinted = false;
    for (const Ghost& ghost : ghosts) tinted |= std::abs(ghost.brightness[0] - ghost.brightness[1]) > 0.2 * ghost.brightness[1];
    EXPECT_TRUE(tinted);
}

TEST(Tables, HoldTheBrightestGhostsAfterGlowAndHaloThenAGreyVeil) {
    const Prescription lens = ReadPrescription(kLenses + "/double-gauss-50mm.json");
    const std::vector<Ghost> ghosts = Ghosts(lens, {});
    const auto source = LensTableSource(lens, ghosts, 2.0, {8, 1.0});
    const auto& resources = source["resources"];
    ASSERT_EQ(resources.size(), 1u + 3u + 8u + 1u);   // the lens has ghosts wider than the frame
    EXPECT_EQ(resources[0]["flare"]["elements"][0]["last"], 2012);
    const auto& first = resources[4]["ring"];
    EXPECT_EQ(first["type"], 4);
    EXPECT_EQ(first["offset"], std::lround(ghosts[0].position[1] * kTableUnits));
    EXPECT_EQ(first["stops"].back()["red"], 0);
    const auto& veil = resources.back()["ring"];
    EXPECT_EQ(veil["offset"], 0);   // centred on the frame
    const auto& level = veil["stops"][0];
    EXPECT_GT(level["green"], 0);
    EXPECT_EQ(level["red"], level["green"]);
    EXPECT_EQ(level["blue"], level["green"]);
}

struct BadLens {
    const char* text;
    const char* message;
};
const char* const kGood = R"({"name": "t", "focalLength": 50, "surfaces": [
    {"radius": 30, "thickness": 4, "n": 1.6, "diameter": 20}, {"stop": true, "thickness": 2, "diameter": 10},
    {"radius": -30, "thickness": 0, "n": 1, "diameter": 20}]})";

TEST(Prescriptions, BadFilesNameTheFileAndThePlace) {
    const BadLens bad[] = {
        {"{not json", "t.json: not JSON"},
        {R"({"focalLength": 50, "surfaces": [{"radius": 30, "thickness": -4, "n": 1.6, "diameter": 20},
            {"stop": true, "thickness": 2, "diameter": 10}]})", "t.json: surfaces[0].thickness: must not be negative"},
        {R"({"focalLength": 50, "surfaces": [{"radius": 30, "thickness": 4, "n": 1.6, "diameter": 20},
            {"radius": -30, "thickness": 0, "n": 1, "diameter": 20}]})", "t.json: surfaces: no aperture stop"},
        {R"({"focalLength": 50, "surfaces": [{"radius": 30, "thickness": 4, "n": 1.6, "diameter": 0},
            {"stop": true, "thickness": 2, "diameter": 10}]})", "t.json: surfaces[0].diameter: the clear aperture must be more than 0"},
        {R"({"focalLength": 50, "surfaces": [{"radius": 1e999, "thickness": 4, "n": 1.6, "diameter": 5},
            {"stop": true, "thickness": 2, "diameter": 10}]})", "t.json: not JSON"},
        {R"({"focalLength": 50, "surfaces": [{"radius": "x", "thickness": 4, "n": 1.6, "diameter": 5},
            {"stop": true, "thickness": 2, "diameter": 10}]})", "t.json: surfaces[0].radius: must be a number"},
    };
    for (const BadLens& lens : bad) {
        try {
            ParsePrescription(lens.text, "t.json");
            ADD_FAILURE() << "accepted: " << lens.text;
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find(lens.message), std::string::npos) << error.what();
        }
    }
    EXPECT_EQ(ParsePrescription(kGood, "t.json").stopIndex, 1u);
}

}  // namespace
}  // namespace vellux::lens
