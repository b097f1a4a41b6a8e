// Flare passes for compositing: the flare rendered alone on black and kept as a float RGBA
// image, written to a file of its own (how a pass goes over a plate is blend.h's).
//
// Sections: the pass; writing images.
//
// The pass is the plug-in's 48-bit render of a black frame: each channel p / 16320 (so full
// intensity is 1.0), and alpha = max(red, green, blue) clamped to 1. The colour is therefore
// premultiplied by that alpha in the usual sense, and both ways of putting the pass over a plate
// work: "plus" (plate + pass, the plate's alpha kept) is exactly what the plug-in itself does and
// is the one to use for a flare; "over" (pass + plate x (1 - alpha)) also gives a sensible
// result, darkening the plate a little under the brightest parts of the flare.
//
// Errors throw std::runtime_error naming the file.
#ifndef VELLUX_ENGINE_FLARE_PASS_H
#define VELLUX_ENGINE_FLARE_PASS_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>

#include <OpenImageIO/imagebuf.h>

#include "engine/flare_instance.h"
#include "engine/option_values.h"
#include "engine/plugin_pixels.h"
#include "engine/plate.h"

namespace vellux::engine {

// The pass ------------------------------------------------------------------------------------

// A 48-bit frame painted onto black, as a float RGBA pass (alpha channel 3).
OIIO::ImageBuf FlarePassFromPlugin(const PluginPixels& painted);

// The same values written into `rgba`: packed float RGBA of the frame's size; or of rows y0..y1-1.
void FillFlarePass(const PluginPixels& painted, float* rgba);
void FillFlarePassRows(const PluginPixels& painted, int32_t y0, int32_t y1, float* rgba);

// A pass from the flare's float levels (red, green, blue a pixel, 1.0 = 16320; above 1.0 where
// they were recovered past the plug-in's ceiling, hdr_pass.h), converted to `space`, into
// `rgba` (rows bottom up if asked), alpha the brightest channel clamped to 1: a level the plug-in
// could have painted is looked up in the space's level tables (LevelTablesFor, exactly what
// ConvertPass gives it), the others are converted through the colour configuration. On `threads`
// threads (row_parts.h; 0: every core): every pixel is converted alone, so the values do not
// depend on it.
void FillPassFromLevels(const float* levels, int32_t width, int32_t height, const std::string& space, float* rgba,
                        bool bottomUp = false, int32_t threads = 1);

// Writing images ------------------------------------------------------------------------------

// How a pass is stored, by the output's extension:
//   .exr                  32-bit float, or 16-bit half with `halfFloat`
//   .png, .tif, .tiff     16-bit integers; each format's own alpha convention is left to the
//                         image library (PNG is stored unassociated and reads back premultiplied)
// Any other extension, or `halfFloat` with anything but .exr, throws naming the file.
OIIO::TypeDesc PassFileType(const std::filesystem::path& output, bool halfFloat);

// Writes the pass, atomically (PendingOutput): on any error nothing is left at `output` but what
// was there before.
void WriteFlarePass(const OIIO::ImageBuf& pass, const std::filesystem::path& output, bool halfFloat = false);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FLARE_PASS_H
