// A picture read from an image file or made black, kept in the file's own pixel type, its colour
// as RGB (a grey image has its one channel repeated) with its alpha, if any; and the checks every
// image file goes through on the way in and out (files that are missing, damaged or too large,
// formats that cannot be written), each failure a message naming the file.
#ifndef VELLUX_ENGINE_FRAME_IMAGE_H
#define VELLUX_ENGINE_FRAME_IMAGE_H

#include <filesystem>
#include <string>

#include <OpenImageIO/imagebuf.h>

#include "engine/option_values.h"
#include "engine/plugin_pixels.h"

namespace vellux::engine {

class FrameImage {
public:
    static FrameImage Read(const std::filesystem::path& file);   // throws naming the file
    static FrameImage Black(FrameSize size);                      // 16-bit RGB
    static FrameImage FromImage(OIIO::ImageBuf image);            // an image already in memory

    const OIIO::ImageBuf& image() const& { return image_; }
    OIIO::ImageBuf image() && { return std::move(image_); }   // a frame's pixels handed on, not copied

    int32_t width() const { return image_.spec().width; }
    int32_t height() const { return image_.spec().height; }

    // Writes to `file` in the format named by `format` (a format name, an extension, or a file
    // name whose extension names it), in the image's pixel type where that format has it;
    // throws with the image library's reason.
    void Write(const std::filesystem::path& file, const std::string& format) const;

private:
    explicit FrameImage(OIIO::ImageBuf image) : image_(std::move(image)) {}

    OIIO::ImageBuf image_;
};

// A 48-bit frame painted onto black as a 16-bit RGB image: what FrameImage::Black gives after
// painting, made straight from the plug-in's pixels.
OIIO::ImageBuf Image16FromPlugin(const PluginPixels& painted);

// Throws a message naming `what` and the memory a frame of this size needs, at `bytesPerPixel`,
// when that is more than the machine can give (its available memory and the process's limit).
void CheckFrameMemory(FrameSize size, double bytesPerPixel, const std::string& what);

// The size of the frame in `file` (the display window of the part a flare goes on, plate.h), from
// its header; throws naming the file as Read does.
FrameSize ReadImageSize(const std::filesystem::path& file);

// An image file's part opened for reading (its header read, no pixels yet), colour and
// alpha to be read as stored; throws naming the file when it is missing, damaged or unreadable.
OIIO::ImageBuf OpenImageFile(const std::filesystem::path& file, int part);

// The image library's message for what failed on `image`, as OneLine makes it.
std::string ImageErrorText(const OIIO::ImageBuf& image);

// The image library's lines of a message joined with "; ", each only once.
std::string OneLine(const std::string& text);

// Throws unless the image library can write files with this name's extension.
void CheckOutputFormat(const std::filesystem::path& output);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FRAME_IMAGE_H
