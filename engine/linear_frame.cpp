#include "engine/linear_frame.h"

#include <stdexcept>

#include <OpenImageIO/imagebufalgo.h>

#include "engine/colour.h"
#include "engine/frame_image.h"
#include "engine/plate.h"

namespace vellux::engine {

LinearFrame ReadLinearFrame(const std::filesystem::path& file, const std::string& colorspace) {
    const PlateFile plate = ReadPlateFile(file);
    const OIIO::ImageBuf& part = plate.parts[plate.flarePart];
    const OIIO::ImageBuf colour = OIIO::ImageBufAlgo::channels(FrameColour(part, LayoutOf(part.spec())), 3, {0, 1, 2});
    OIIO::ImageBuf rgb;
    if (colour.has_error() || !OIIO::ImageBufAlgo::copy(rgb, colour, OIIO::TypeFloat))
        throw std::runtime_error(file.string() + ": " + ImageErrorText(colour.has_error() ? colour : rgb));
    const std::string space = ChooseColorspace("--colorspace", colorspace, part.spec().format.is_floating_point());
    const OIIO::ColorProcessorHandle processor = ColourProcessor(space, kLinearSpace);
    if (processor && !processor->isNoOp() && !OIIO::ImageBufAlgo::colorconvert(rgb, rgb, processor.get(), false))
        throw std::runtime_error(file.string() + ": cannot convert from " + space + " to linear: " + ImageErrorText(rgb));
    LinearFrame frame;
    frame.width = rgb.spec().width;
    frame.height = rgb.spec().height;
    frame.rgb.resize(size_t(frame.width) * size_t(frame.height) * 3);
    if (!rgb.get_pixels(OIIO::ROI(0, frame.width, 0, frame.height, 0, 1, 0, 3), OIIO::TypeFloat, frame.rgb.data()))
        throw std::runtime_error(file.string() + ": " + ImageErrorText(rgb));
    return frame;
}

}  // namespace vellux::engine
