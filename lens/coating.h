// Surface reflectance at normal incidence: the Fresnel equations for a bare surface, and thin-film
// interference for anti-reflection coatings (the characteristic-matrix method), which makes the
// reflectance depend on the wavelength: what tints real ghosts.
#ifndef VELLUX_LENS_COATING_H
#define VELLUX_LENS_COATING_H

#include <optional>
#include <string>
#include <vector>

namespace vellux::lens {

enum class Coating {
    none,          // bare glass
    singleLayer,   // a quarter-wave MgF2 layer (n 1.38) for 550 nm
    multiLayer,    // quarter-half-quarter MgF2 / ZrO2 / Al2O3 for 550 nm: low across the visible
};

inline constexpr double kCoatingDesignWavelength = 550.0;   // nm

// "none", "mgf2", "multi"; nullopt for another word.
std::optional<Coating> CoatingNamed(const std::string& word);
const char* CoatingName(Coating coating);

struct Layer {
    double index;
    double thickness;   // nm
};

// The layers a coating puts on a surface, outermost (incident side) first.
std::vector<Layer> CoatingLayers(Coating coating);

// Reflectance of a surface from a medium of index `outer` onto a substrate of index `inner`
// through `layers` (outermost first), at `wavelength` nm. With no layers: ((n1 - n2) / (n1 + n2))^2.
double Reflectance(double outer, double inner, const std::vector<Layer>& layers, double wavelength);

// The reflectance of a lens surface between indices n1 and n2: coated only where one side is air
// (a cemented surface is not), bare otherwise.
double SurfaceReflectance(double n1, double n2, Coating coating, double wavelength);

}  // namespace vellux::lens

#endif  // VELLUX_LENS_COATING_H
