// How an output image is compressed, as a person asks for it: "png:0".."png:9" (zlib levels),
// "exr:none|rle|zips|zip|piz|pxr24|b44|b44a|dwaa|dwab" (zip and dwaa/dwab may add a level, as in
// "exr:zip:4" or "exr:dwaa:45"), "tif:none|lzw|zip|packbits". Only pxr24, b44(a) and dwaa/dwab
// lose anything.
//
// Without a choice a file is written losslessly and fast: PNG at zlib level 1, EXR with PIZ,
// TIFF with zip (or, for a plate written back, the compression its file had).
#ifndef VELLUX_ENGINE_COMPRESSION_H
#define VELLUX_ENGINE_COMPRESSION_H

#include <filesystem>
#include <string>

namespace vellux::engine {

struct Compression {
    std::string format;   // "png", "exr" or "tif"; empty: no choice made
    std::string method;   // the image library's name for it: "zip", "piz", "dwaa:45"...; PNG: empty
    int level = -1;       // PNG's zlib level
};

// Parses `text` (empty: no choice); throws std::invalid_argument naming `option` and the choices.
Compression ParseCompression(const std::string& option, const std::string& text);

// Throws std::invalid_argument naming `option` unless `output`'s format is the one compressed.
void CheckCompressionFor(const std::string& option, const Compression& compression, const std::filesystem::path& output);

// A file's format by its extension, as compressions name it: "png", "exr", "tif" (.tif and
// .tiff), else the extension in lower case without its dot ("(none)" without one).
std::string ImageFormatOf(const std::filesystem::path& file);

// "png:1", "exr:piz": the choice as it is written.
std::string CompressionText(const Compression& compression);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_COMPRESSION_H
