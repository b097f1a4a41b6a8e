// Glass dispersion: the index of a medium at any wavelength from its index at the d line and its
// Abbe number, by a two-term (Cauchy) fit n = A + B / lambda^2 through the d, F and C lines.
#ifndef VELLUX_LENS_GLASS_H
#define VELLUX_LENS_GLASS_H

#include <optional>

namespace vellux::lens {

inline constexpr double kLineD = 587.56, kLineF = 486.13, kLineC = 656.27;   // nm
// Where a prescription gives a glass no Abbe number: a middle value between crowns and flints.
inline constexpr double kDefaultAbbe = 50.0;
// The three wavelengths a ghost is computed at: red, green and blue.
inline constexpr double kRed = 650.0, kGreen = 550.0, kBlue = 450.0;

// The index at `wavelength` nm; air (nd 1) has none.
double IndexAt(double nd, std::optional<double> abbe, double wavelength);

}  // namespace vellux::lens

#endif  // VELLUX_LENS_GLASS_H
