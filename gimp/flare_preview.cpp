#include "gimp/flare_preview.h"

#include <cstring>

#include "engine/flare.h"
#include "engine/frame_render.h"

namespace vellux::gimp {

void PaintPreview(const PreviewPlate& plate, const FlareArguments& arguments, std::vector<uint8_t>& painted) {
    engine::RenderRequest request = engine::WithNamedSource(RequestFor(arguments, 0, 0));
    const double scale = double(plate.width) / double(plate.imageWidth);
    request.lightX = arguments.lightX * scale;
    request.lightY = arguments.lightY * double(plate.height) / double(plate.imageHeight);
    request.radius *= scale;
    const engine::FlareSetup setup = engine::RequestSetup(request);
    engine::Flare flare(setup);
    const engine::FlareLight light = engine::RequestLight(request, {plate.width, plate.height});
    painted = plate.pixels;
    OIIO::ImageBuf image(OIIO::ImageSpec(plate.width, plate.height, plate.channels, OIIO::TypeUInt8), painted.data());
    const OIIO::ImageBuf done =
        flare.Composite(std::move(image), light, {request.bandRows, request.colorspace, request.blend});
    if (done.localpixels() != painted.data())
        done.get_pixels(done.roi(), OIIO::TypeUInt8, painted.data());
}

}  // namespace vellux::gimp
