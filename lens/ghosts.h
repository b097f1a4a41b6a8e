// Ghosts: light reflected twice inside the lens, between surfaces i < j (the stop excluded), and
// landing defocused on the sensor. For a light at infinity each ghost is, per wavelength, a disc:
// the image of the aperture stop where the ghost path first crosses it.
//
//   position    its centre over the light's own image, along the line through the frame centre:
//               1 at the light, 0 at the centre, negative beyond it (a table element's offset)
//   radius      in flare units (the frame's smaller side), from the sensor's size
//   brightness  the two reflectances, spread over the disc: R_i R_j (pupil radius / disc radius)^2,
//               the disc's irradiance over the light's at the lens
//   light       what the ghost carries, against a frame exposed for a white surface lit by the same
//               light (whose image has the light's irradiance over 4 N^2): the area, in flare
//               units squared, of that white which holds as much, R_i R_j pi (focal length / flare
//               unit)^2. It is the same at every f-number: stopping down gathers it into a smaller,
//               brighter disc.
#ifndef VELLUX_LENS_GHOSTS_H
#define VELLUX_LENS_GHOSTS_H

#include <array>
#include <optional>
#include <vector>

#include "lens/coating.h"
#include "lens/paraxial.h"
#include "lens/prescription.h"

namespace vellux::lens {

inline constexpr std::array<double, 3> kWavelengths{650.0, 550.0, 450.0};   // red, green, blue, nm

struct GhostOptions {
    double fNumber = 0.0;               // 0: the lens's stated f-number, else its full aperture
    double sensorWidth = 36.0;          // mm (full frame)
    double sensorHeight = 24.0;
    std::optional<Coating> coating;     // every surface's, over the prescription's own
};

struct Ghost {
    size_t first = 0, second = 0;              // surfaces, 0-based in the file's order (the stop counted)
    std::array<double, 3> position{};          // per wavelength
    std::array<double, 3> radius{};            // flare units
    std::array<double, 3> brightness{};
    std::array<double, 3> light{};
    double Brightest() const;
};

// What a ghost is at one wavelength, in the paraxial model: the centre over the light's image and
// the disc's radius on the sensor (mm) for a stop of radius `stopRadius`.
struct GhostImage {
    double position = 0.0;
    double radius = 0.0;
};
std::optional<GhostImage> ParaxialGhost(const Prescription& lens, size_t i, size_t j, double wavelength,
                                        double stopRadius, double sensorDistance);

double UsedFNumber(const Prescription& lens, const GhostOptions& options);

// The reflectance of surface k at a wavelength: with `coating` where given, else the surface's own
// or the lens's.
double ReflectanceOf(const Prescription& lens, size_t k, const std::optional<Coating>& coating, double wavelength);

// Every ghost of the lens, brightest first.
std::vector<Ghost> Ghosts(const Prescription& lens, const GhostOptions& options);

}  // namespace vellux::lens

#endif  // VELLUX_LENS_GHOSTS_H
