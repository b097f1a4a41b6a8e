#include "lens/glass.h"

namespace vellux::lens {

double IndexAt(double nd, std::optional<double> abbe, double wavelength) {
    if (nd == 1.0) return 1.0;
    const double v = abbe.value_or(kDefaultAbbe);
    // nF - nC = (nd - 1) / V = B (1/F^2 - 1/C^2); nd = A + B / d^2.
    const double b = (nd - 1.0) / v / (1.0 / (kLineF * kLineF) - 1.0 / (kLineC * kLineC));
    const double a = nd - b / (kLineD * kLineD);
    return a + b / (wavelength * wavelength);
}

}  // namespace vellux::lens
