// The diffraction starburst: the Fraunhofer pattern the aperture makes of a point light, the rays
// a stopped-down lens draws from a bright light, coloured because each wavelength spreads in
// proportion to itself.
//
// Scale: for an aperture of diameter D and focal length F the far field at sensor position x is
// the aperture's Fourier transform at spatial frequency x / (lambda F) cycles per mm. The
// transmission is sampled on a grid of kFarFieldGrid cells, kPupilRadiusCells cells to the
// aperture's radius, so a cell is D / (2 kPupilRadiusCells) mm and one frequency step of the
// grid's transform is 2 kPupilRadiusCells / (kFarFieldGrid D); on the sensor that step is
//
//     lambda F 2 kPupilRadiusCells / (kFarFieldGrid D) = 2 kPupilRadiusCells lambda N / kFarFieldGrid
//
// (N = F / D): the pattern depends on the f-number alone, not on the focal length, and a round
// aperture's first dark ring falls at 1.22 lambda N. The transform itself is the same for every
// wavelength and f-number; only its scale on the sensor changes.
#ifndef VELLUX_LENS_STARBURST_H
#define VELLUX_LENS_STARBURST_H

#include <map>
#include <tuple>
#include <vector>

#include "lens/aperture.h"

namespace vellux::lens {

// The transform's grid, and the aperture's radius on it: 96 cells across a 1024 grid put the
// round aperture's first dark ring 13 frequency steps out, finely enough sampled that linear
// interpolation between steps keeps it within about 1% of 1.22 lambda N, and the pattern shown
// reaches 39 Airy radii at the shortest wavelength (22 at the longest), room for long rays.
inline constexpr int kFarFieldGrid = 1024;
inline constexpr int kPupilRadiusCells = 48;
// The pattern's side in pixels: odd, so the light is the centre of pixel (size / 2, size / 2).
inline constexpr int kStarburstSize = kFarFieldGrid - 1;

// The aperture's far field: the power of its transmission's transform, on kFarFieldGrid squared
// frequency steps with the zero frequency at (grid / 2, grid / 2), rows along the aperture's y.
struct FarField {
    int grid = 0;
    std::vector<float> power;
    double totalPower = 0.0;
};

// Throws std::invalid_argument with CheckAperture's message ("aperture: ...") for a bad aperture.
FarField ApertureFarField(const Aperture& aperture);

// The mm on the sensor between neighbouring frequency steps at `wavelength` (nm) and f-number N.
double FarFieldStepMm(double fNumber, double wavelength);

// One wavelength's pattern on a `size` x `size` grid of `mmPerPixel` mm pixels centred on the
// light, written into `out` (resized): each pixel the fraction of the light that falls on it.
// Throws std::invalid_argument for an f-number or wavelength that is not positive.
void SampleFarField(const FarField& farField, double fNumber, double wavelength, int size, double mmPerPixel,
                    std::vector<float>& out);

// A pattern on the sensor, centred on the light's image in pixel (size / 2, size / 2).
struct Starburst {
    int size = 0;
    double mmPerPixel = 0.0;
    std::vector<float> rgb;   // size * size pixels, row after row, r g b each: linear Rec.709
};

// A pattern at one wavelength (one value a pixel in `rgb`, the fraction of the light falling
// on it), on the same pixels as the spectral starburst at that f-number.
Starburst MonochromaticStarburst(const Aperture& aperture, double fNumber, double wavelength);

// The pattern summed over the spectrum's wavelengths for a spectrally flat light, in linear RGB,
// on pixels the size of the shortest wavelength's frequency step. Each channel adds up to 1: the
// painter scales it by the light's intensity. Wavelengths outside the Rec.709 gamut leave a
// pixel slightly negative in a channel here and there; those are clipped to 0 before the sums.
Starburst SpectralStarburst(const Aperture& aperture, double fNumber);

// Starbursts already computed, by aperture and f-number. The caller owns it; nothing is shared
// between caches.
class StarburstCache {
public:
    const Starburst& Get(const Aperture& aperture, double fNumber);
    size_t Size() const { return entries_.size(); }

private:
    using Key = std::tuple<int, double, double, double>;   // blades, curvature, rotation, N
    std::map<Key, Starburst> entries_;
};

}  // namespace vellux::lens

#endif  // VELLUX_LENS_STARBURST_H
