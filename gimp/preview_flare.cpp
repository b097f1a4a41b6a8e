#include "gimp/preview_flare.h"

#include <stdexcept>

#include <OpenImageIO/imagebuf.h>

#include "engine/frame_render.h"

namespace vellux::gimp {

void PreviewFlare::Prepare(const engine::RenderRequest& asked) {
    const Look look{asked.table.string(), asked.lens ? asked.lens->lens : std::string(), asked.settingsFile.string()};
    if (flare_ && look == made_) return;
    flare_.reset();
    engine::RenderRequest request = engine::WithNamedSource(asked);
    request.settings = {};
    engine::FlareSetup setup = engine::RequestSetup(request);
    if (!setup.table.empty()) engine::CheckFlareTable(setup.table);
    flare_ = std::make_unique<engine::Flare>(setup);
    flare_->SetThreads(0);   // a drag's update painted on every core
    made_ = look;
}

void PreviewFlare::Paint(uint8_t* pixels, int width, int height, int channels, const PreviewView& view,
                         const ScaledFrame& frame, engine::FlareLight light, const engine::SettingEdits& settings,
                         engine::Blend blend) {
    if (!flare_) throw std::logic_error("the preview's flare is painted before it is prepared");
    if (width <= 0 || height <= 0 || (channels != 3 && channels != 4)) return;
    OIIO::ImageSpec spec(width, height, channels, OIIO::TypeUInt8);
    spec.x = frame.visibleX, spec.y = frame.visibleY;
    spec.full_x = 0, spec.full_y = 0;
    spec.full_width = frame.width, spec.full_height = frame.height;
    if (channels == 4) spec.alpha_channel = 3;
    light.x *= view.factorX, light.y *= view.factorY, light.radius *= view.factorY;
    light.pixelAspect *= frame.pixelAspect;
    flare_->instance().EditSettings(settings);
    const OIIO::ImageBuf painted = flare_->Composite(OIIO::ImageBuf(spec, pixels), light, {0, "", blend});
    if (painted.localpixels() != pixels) painted.get_pixels(painted.roi(), OIIO::TypeUInt8, pixels);
}

}  // namespace vellux::gimp
