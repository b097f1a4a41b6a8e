// How the flare is put over a plate.
//
// The flare is painted alone, on black, and then blended in: that way the plug-in's dissolve
// ceiling can only ever limit the flare, never the plate, and every blend starts from the same
// painting. The flare's values are the plug-in's display-referred levels (sRGB-encoded, 1.0 = the
// plug-in's full level, above 1.0 where a float route recovered them, hdr_pass.h).
//
//   display  the plug-in's own: the flare's levels added to the plate's display (sRGB) levels. On
//            an 8-bit or 16-bit sRGB plate this is exactly what the plug-in paints onto the plate
//            itself (adding with saturation commutes with painting: the 32-bit dither depends on
//            the added amount only). The default everywhere, so a look set up on a PNG is the
//            same picture on its linear EXR viewed through the sRGB transform.
//   add      scene-linear light: plate + flare with both in linear light (the flare's levels
//            decoded from sRGB). Light adds, so this is the physical one; a bright plate changes
//            less under it than under display, and faint ghosts fade on bright skies.
//   screen   1 - (1 - plate)(1 - flare) on display levels: never brighter than display, it
//            keeps highlights from burning out.
//
// On float plates the display-level blends work on the plate's values up to display white; what
// a plate holds above that is kept and the flare adds to it what it adds to white, so a highlight
// of 40 stays 40 and a little more, never 40 raised by the sRGB curve.
//
// Everywhere, a pixel the flare does not reach keeps its value exactly.
#ifndef VELLUX_ENGINE_BLEND_H
#define VELLUX_ENGINE_BLEND_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vellux::engine {

enum class Blend { display, add, screen };

inline constexpr Blend kDefaultBlend = Blend::display;

// "display", "add", "screen"; throws std::invalid_argument naming `option` and the modes.
Blend ParseBlend(const std::string& option, const std::string& text);
const char* BlendName(Blend blend);
std::string BlendNames();   // "display, add, screen"

// ---- Integer sRGB plates, with the plug-in's own pixels of the flare painted on black ----------

// `count` pixels of 8-bit colour (`channels` values a pixel, red, green, blue first) and the
// flare painted on black at 32 bits (alpha, red, green, blue bytes; alpha not read).
void BlendBytes(uint8_t* plate, size_t channels, const uint8_t* flareArgb, size_t count, Blend blend);

// The same for 16-bit colour and the flare painted on black at 48 bits (16320 = full).
void BlendShorts(uint16_t* plate, size_t channels, const uint16_t* flareRgb, size_t count, Blend blend);

// ---- Float plates and plates in any colour space: the flare as float display levels -------------

// Blends float levels into float values of a plate in colour space `space` (a name the colour
// configuration knows). Holds its colour processors and its scratch rows: make one per frame (or
// keep one per thread), then call Blend band by band.
class LevelBlender {
public:
    LevelBlender(const std::string& space, Blend blend);
    ~LevelBlender();
    LevelBlender(const LevelBlender&) = delete;
    LevelBlender& operator=(const LevelBlender&) = delete;

    // `count` pixels: `plate` with `channels` floats a pixel (red, green, blue first), changed in
    // place; `levels` three floats a pixel.
    void Blend(float* plate, size_t channels, const float* levels, size_t count);

private:
    struct Processors;
    Processors* processors_;
    engine::Blend blend_;
    std::vector<float> scratch_;   // the band's reached pixels: blended, base, flare
    std::vector<size_t> reached_;  // which pixels of the band the flare reaches
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_BLEND_H
