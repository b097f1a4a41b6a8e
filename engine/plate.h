// A plate kept whole: an image file's every part (subimage), channel, attribute and window, with
// the flare added to the colour of one part and everything else as it was read.
//
// Where the flare goes
//   part      the first part with a channel named R (else the first part); the other parts are
//             written back unchanged where the output format holds several
//   channels  R, G and B by name, else the first three channels that are not alpha (a grey
//             plate's one channel becomes R, G and B, the other channels following); alpha and
//             every other channel (Z, AOV layers) keep their values
//   frame     the display window. The flare is laid out on it, so a plate with overscan gets the
//             same flare as the plate without; the overscan (data window outside the display
//             window) keeps its pixels, and the windows themselves are written as they were read.
//
// Written back: the metadata (with the caller's additions), the pixel type of each channel, the
// tiling and the compression, where the output format has them.
#ifndef VELLUX_ENGINE_PLATE_H
#define VELLUX_ENGINE_PLATE_H

#include <array>
#include <atomic>
#include <filesystem>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "engine/compression.h"

namespace vellux::engine {

// Where in a part's buffer the flare goes.
struct PlateLayout {
    std::array<int, 3> colour{};   // the channels taken as red, green and blue
    int alpha = -1;                // the alpha channel, -1 for none
    OIIO::ROI frame;               // the display window, which the flare is laid out on
    OIIO::ROI painted;             // the pixels stored and inside the frame
    bool plain = false;            // R, G, B (, A) as channels 0 to 2 (3), stored exactly over the frame
};

// Throws std::runtime_error when the image has no colour channel.
PlateLayout LayoutOf(const OIIO::ImageSpec& spec);

// The plate's colour and alpha over its frame: an image of the frame's size at origin (0, 0) in
// the plate's pixel type, channels R, G, B (, A), black where the plate stores nothing.
OIIO::ImageBuf FrameColour(const OIIO::ImageBuf& plate, const PlateLayout& layout);

// The plate with the colour channels of its painted pixels taken from `colour` (an image shaped as
// FrameColour makes it); every other pixel, channel and attribute as it was.
OIIO::ImageBuf WithFrameColour(const OIIO::ImageBuf& plate, const PlateLayout& layout, const OIIO::ImageBuf& colour);

// An image file as read: every part, integer parts in their own type and float ones as float,
// with the layouts they were stored with (per-channel types, tiles).
struct PlateFile {
    std::vector<OIIO::ImageBuf> parts;
    std::vector<OIIO::ImageSpec> stored;   // each part's layout in the file
    size_t flarePart = 0;
};

// Throws std::runtime_error naming the file when it cannot be read or will not fit in memory.
PlateFile ReadPlateFile(const std::filesystem::path& file);

// One image to be written in `type` (TypeUnknown: its own), as a file of one part.
PlateFile SinglePart(OIIO::ImageBuf image, OIIO::TypeDesc type = OIIO::TypeUnknown);

// Writes the parts under a temporary name, renamed to `output` only when complete (nothing is
// renamed once `cancel` is set): each part in its stored pixel types and tiling where the format
// has them, compressed as `compression` says (compression.h; no choice: as the part's attributes
// name it, else losslessly and fast: PNG at zlib level 1, EXR with PIZ). A format that holds one
// image gets the flare's part alone.
void WritePlateFile(const PlateFile& plate, const std::filesystem::path& output,
                    const std::atomic<bool>* cancel = nullptr, const Compression& compression = {});

// Writes one image as WritePlateFile does, in `type` (TypeUnknown: the image's own).
void WriteImageFile(const OIIO::ImageBuf& image, const std::filesystem::path& output, OIIO::TypeDesc type,
                    const std::atomic<bool>* cancel = nullptr, const Compression& compression = {});

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_PLATE_H
