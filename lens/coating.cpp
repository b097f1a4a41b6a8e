#include "lens/coating.h"

#include <cmath>
#include <complex>

namespace vellux::lens {

std::optional<Coating> CoatingNamed(const std::string& word) {
    if (word == "none") return Coating::none;
    if (word == "mgf2") return Coating::singleLayer;
    if (word == "multi") return Coating::multiLayer;
    return std::nullopt;
}

const char* CoatingName(Coating coating) {
    switch (coating) {
        case Coating::none: return "none";
        case Coating::singleLayer: return "mgf2";
        case Coating::multiLayer: return "multi";
    }
    return "none";
}

std::vector<Layer> CoatingLayers(Coating coating) {
    const double quarter = kCoatingDesignWavelength / 4.0;
    switch (coating) {
        case Coating::none: return {};
        case Coating::singleLayer: return {{1.38, quarter / 1.38}};
        case Coating::multiLayer: return {{1.38, quarter / 1.38}, {2.10, 2.0 * quarter / 2.10}, {1.62, quarter / 1.62}};
    }
    return {};
}

double Reflectance(double outer, double inner, const std::vector<Layer>& layers, double wavelength) {
    using Complex = std::complex<double>;
    const double pi = std::acos(-1.0);
    // The stack's characteristic matrix, outermost layer first.
    Complex m00 = 1.0, m01 = 0.0, m10 = 0.0, m11 = 1.0;
    for (const Layer& layer : layers) {
        const double phase = 2.0 * pi * layer.index * layer.thickness / wavelength;
        const Complex a = std::cos(phase), b = Complex(0.0, std::sin(phase) / layer.index);
        const Complex c = Complex(0.0, layer.index * std::sin(phase)), d = std::cos(phase);
        const Complex n00 = m00 * a + m01 * c, n01 = m00 * b + m01 * d;
        const Complex n10 = m10 * a + m11 * c, n11 = m10 * b + m11 * d;
        m00 = n00, m01 = n01, m10 = n10, m11 = n11;
    }
    const Complex big_b = m00 + m01 * inner, big_c = m10 + m11 * inner;
    const Complex r = (outer * big_b - big_c) / (outer * big_b + big_c);
    return std::norm(r);
}

double SurfaceReflectance(double n1, double n2, Coating coating, double wavelength) {
    // A lossless stack reflects the same from either side: the coating faces the air.
    const bool airGlass = (n1 == 1.0) != (n2 == 1.0);
    if (!airGlass) return Reflectance(n1, n2, {}, wavelength);
    const double glass = n1 == 1.0 ? n2 : n1;
    return Reflectance(1.0, glass, CoatingLayers(coating), wavelength);
}

}  // namespace vellux::lens
