// A lens's physical flare, painted by the engine from the lens's prescription (the plug-in and its
// flare tables take no part): the diffraction starburst the aperture makes of the light, and the
// lens's ghosts as images of its aperture, each computed over the spectrum and folded into linear
// Rec.709 light. The frame is the sensor: its smaller side spans the sensor's smaller side.
//
// Brightness: the light's intensity is its energy on the sensor in units of a pixel at white of a
// frame kReferenceRows high, times kLightEnergy: the same on the sensor at every resolution, so a
// frame looks alike at any size. The starburst holds (nearly) all of it, so its core goes far past
// white as a bright light's does on a photograph, and its rays show where they fall to the level of
// the frame; a ghost holds the light's energy times its two surfaces' reflectances.
//
// Errors throw std::invalid_argument naming the option and value (a blade count, an f-number
// beyond the lens's widest) and std::runtime_error naming the file (a prescription that cannot be
// read or has no stop).
#ifndef VELLUX_ENGINE_LENS_LOOK_H
#define VELLUX_ENGINE_LENS_LOOK_H

#include <array>
#include <cmath>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "engine/flare_instance.h"
#include "engine/ghost_canvas.h"
#include "engine/starburst_painting.h"
#include "engine/option_values.h"
#include "lens/aperture.h"
#include "lens/ghost_footprint.h"
#include "lens/prescription.h"
#include "lens/starburst.h"

namespace vellux::engine {

// A light of intensity 1 carries this many pixels' worth of white of a frame kReferenceRows high
// (its smaller side): a bright light, whose starburst rays reach well out into the frame.
inline constexpr double kLightEnergy = 2.0e6;
inline constexpr double kReferenceRows = 540.0;

struct LensLookOptions {
    std::string lens;                      // a lens's name (LensFolders) or a prescription file (.json)
    std::optional<double> fNumber;         // default: the lens's stated one, else its widest
    std::optional<int> blades;             // default: the lens's, else 0 (round)
    std::optional<double> bladeCurvature;  // 0..1; default: the lens's, else 0
    std::optional<double> apertureRotation;   // degrees; default: the lens's, else 0
    double sensorWidth = 36.0, sensorHeight = 24.0;   // mm
};

// The folders lenses are looked up in: $VELLUX_LENS_PATH's, then the shipped ones (share/vellux/lenses
// of an installed tree, lenses/ in the build folder).
std::vector<std::filesystem::path> LensFolders();

// Every lens found, in search order, a name shadowed by an earlier folder left out.
struct LensEntry {
    std::string name;   // the file name without .json: what --lens takes
    std::filesystem::path file;
};
std::vector<LensEntry> ListLenses();

// The prescription a name or path names; throws std::runtime_error listing the lenses there are.
std::filesystem::path FindLens(const std::string& nameOrPath);

// The lens's widest f-number, as its prescription traces it (a stated f/2 may trace as f/2.03).
double WidestFNumber(const lens::Prescription& prescription);

// How the look traces a light's ghosts at `fNumber` through `aperture` for a light in the direction
// (angleX, angleY), radians: its wavelengths, rays and raster.
lens::FootprintSettings GhostSettings(double fNumber, const lens::Aperture& aperture, double angleX, double angleY);

class LensLook {
public:
    explicit LensLook(const LensLookOptions& options);

    const lens::Prescription& prescription() const { return lens_; }
    double fNumber() const { return fNumber_; }
    const lens::Aperture& aperture() const { return aperture_; }

    // Another f-number from the next frame on (a scene's aperture pull); checked as the option is.
    void SetFNumber(double fNumber);

    // Adds the flare of `light` (its position on the frame, colour and intensity) to `rgb`:
    // packed linear RGB floats of the frame's size. On `threads` threads (0: every core), a part
    // of the frame's rows on each with a ghost canvas of its own: every pixel gets the same sums
    // in the same order whatever the number.
    void Paint(FrameSize size, const FlareLight& light, float* rgb, int32_t threads = 1);

private:
    lens::Prescription lens_;
    double fNumber_ = 0.0;
    lens::Aperture aperture_;
    double sensorWidth_, sensorHeight_;
    lens::StarburstCache starbursts_;
    double raysFNumber_ = 0.0;   // the f-number the starburst's rays were found at (the aperture stays)
    std::vector<StarburstRay> rays_;
    lens::FootprintCache footprints_;
    // The last light's place on the sensor, mm, and its direction (FootprintSettings' angles).
    std::array<double, 2> lightOnSensor_{NAN, NAN}, lightAngles_{0.0, 0.0};
    // The ghosts of the last light traced, folded for a white light of intensity 1, and what they
    // were traced for: a light that stays put is painted without folding them again.
    lens::FootprintSettings foldedFor_;
    std::vector<GhostImage> folded_;
    std::vector<GhostCanvas> canvases_;   // one a part of the frame's rows
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_LENS_LOOK_H
