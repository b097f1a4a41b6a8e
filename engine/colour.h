// Colour spaces of plates and passes, by name, through the image library's colour management
// (OpenColorIO: the configuration $OCIO names, or the library's built-in one with "linear",
// "sRGB" and "Rec709").
//
// The plug-in paints display-referred levels (16320 is a full 8-bit level). They are right as
// they are for a display image; for a scene-linear plate the flare is converted from sRGB to the
// plate's space before it is added, so that it looks the same once the plate is viewed through
// an sRGB display transform.
#ifndef VELLUX_ENGINE_COLOUR_H
#define VELLUX_ENGINE_COLOUR_H

#include <array>
#include <string>
#include <vector>

#include <OpenImageIO/color.h>
#include <OpenImageIO/imagebuf.h>

namespace vellux::engine {

inline constexpr const char* kDisplaySpace = "sRGB";     // what the plug-in's levels mean
inline constexpr const char* kLinearSpace = "linear";

// The colour space to use: `requested` when given (throws std::invalid_argument naming `option`
// and the known spaces unless the configuration knows it), else linear for float pixels and sRGB
// for integer pixels.
std::string ChooseColorspace(const std::string& option, const std::string& requested, bool floatPixels);

// A processor converting float colour from one space to another (the spaces' names as the
// configuration knows them); throws std::runtime_error when the configuration has no such
// conversion.
OIIO::ColorProcessorHandle ColourProcessor(const std::string& from, const std::string& to);

// The processor, or null when it would change nothing.
OIIO::ColorProcessorHandle UnlessNoOp(OIIO::ColorProcessorHandle processor);

// Whether a space is the plug-in's own display space, so that its levels need no conversion.
bool IsDisplaySpace(const std::string& name);

// Converts a float RGBA flare pass from the plug-in's display space to `name`, in place, and
// recomputes its alpha as max(red, green, blue) clamped to 1; records the space as the image's
// "oiio:ColorSpace". Throws std::runtime_error with the library's reason.
void ConvertPass(OIIO::ImageBuf& pass, const std::string& name);

// The conversion of the plug-in's 16-bit levels to a colour space, channel by channel: the
// converted value of every level in each channel, made once per space by ConvertPass itself, so
// a value looked up is exactly the value ConvertPass gives.
struct LevelTables {
    std::array<std::vector<float>, 3> channel;   // [red, green, blue][level]
};

// The tables for `name`, made on first use and kept; null for the display space (nothing to
// convert) and for a space whose conversion mixes channels (ConvertPass converts those whole
// pixels). Safe from several threads.
const LevelTables* LevelTablesFor(const std::string& name);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_COLOUR_H
