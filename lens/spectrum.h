// The spectrum a physical flare is computed over, and how it is seen: the wavelengths sampled,
// the CIE 1931 standard observer's colour-matching functions at any wavelength, XYZ to linear
// Rec.709 primaries, and the fold of per-wavelength quantities into linear RGB.
//
// The samples: 16 wavelengths every 20 nm from 405 to 705 nm, each standing for the 20 nm band
// around it (395 to 715 nm in all). The observer's x, y and z outside that band add up to under
// 0.2% of each function's whole, and a 20 nm step is well under the width of the narrowest
// colour-matching lobe (z, about 55 nm at half height): summed at these samples, each function
// comes within 0.4% of its integral over the CIE table's 5 nm rows. The diffraction pattern's
// size grows in proportion to the wavelength; steps of 20 nm are 3 to 5% of it, fine enough that
// the colour fringes at the ends of the starburst's rays blend instead of showing as copies.
#ifndef VELLUX_LENS_SPECTRUM_H
#define VELLUX_LENS_SPECTRUM_H

#include <array>

namespace vellux::lens {

inline constexpr int kSpectralSamples = 16;
inline constexpr double kFirstWavelength = 405.0;   // nm
inline constexpr double kWavelengthStep = 20.0;     // nm

// The i-th sampled wavelength in nm, 0 <= i < kSpectralSamples, shortest first.
constexpr double SpectralWavelength(int i) { return kFirstWavelength + kWavelengthStep * i; }

// A quantity at each sampled wavelength.
using Spectrum = std::array<double, kSpectralSamples>;

struct Xyz {
    double x = 0.0, y = 0.0, z = 0.0;
};

struct LinearRgb {
    double r = 0.0, g = 0.0, b = 0.0;
};

// The CIE 1931 2-degree observer's x, y, z at `nanometres`, interpolated linearly between the
// table's 5 nm rows; zero outside 380 to 780 nm.
Xyz ColourMatching(double nanometres);

// XYZ to linear Rec.709 / sRGB primaries with the D65 white.
LinearRgb XyzToRgb(const Xyz& xyz);

// What one unit at each sampled wavelength contributes to linear RGB: the colour-matching
// functions over the sample's band, in Rec.709 primaries, scaled per channel so that the weights
// of each channel add up to 1. A spectrally flat light or reflector is therefore white (1, 1, 1)
// rather than the pink an equal-energy spectrum is against a D65 white. Single wavelengths fall
// outside the Rec.709 gamut and have negative components.
std::array<LinearRgb, kSpectralSamples> SpectralWeights();

// Per-wavelength values folded into linear RGB with those weights: a flat 1 gives (1, 1, 1).
LinearRgb FoldSpectrum(const Spectrum& values);

}  // namespace vellux::lens

#endif  // VELLUX_LENS_SPECTRUM_H
