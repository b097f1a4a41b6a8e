// The dialog's preview picture: the flare over the part of the drawable the preview shows, as the
// plug-in would paint it on the drawable scaled to the preview (preview_geometry.h). It is painted
// through the engine as a run paints the drawable (drawable_flare.h): on the preview's 8-bit
// pixels, the flare laid out on the whole scaled frame, only the shown part stored.
//
// Kept from update to update: the flare (made again only when the table, lens or settings file
// changes; the settings themselves are applied to it on each paint), so a drag repaints without
// loading anything. Free of GTK: the preview hands over its pixels.
#ifndef VELLUX_GIMP_PREVIEW_FLARE_H
#define VELLUX_GIMP_PREVIEW_FLARE_H

#include <cstdint>
#include <memory>
#include <string>

#include "engine/flare.h"
#include "engine/plugin_settings.h"
#include "engine/render_request.h"
#include "gimp/preview_geometry.h"

namespace vellux::gimp {

class PreviewFlare {
public:
    // The flare of the request's look (its table or lens and settings file), made when it differs
    // from the last; throws with the engine's message when it cannot be. The request's settings
    // are not part of the look: `settings` below carries them.
    void Prepare(const engine::RenderRequest& request);

    // The flare, with every setting as `settings` gives it (each field set), over `pixels`: the
    // preview's RGB or RGBA bytes (`channels`), width x height, at frame.visible of the scaled
    // frame, painted in place. `light` is the light on the drawable, in its pixels; the view's
    // factors scale it onto the frame.
    void Paint(uint8_t* pixels, int width, int height, int channels, const PreviewView& view, const ScaledFrame& frame,
               engine::FlareLight light, const engine::SettingEdits& settings, engine::Blend blend);

private:
    struct Look {
        std::string table, lens, settingsFile;
        bool operator==(const Look&) const = default;
    };
    Look made_;
    std::unique_ptr<engine::Flare> flare_;
};

}  // namespace vellux::gimp

#endif  // VELLUX_GIMP_PREVIEW_FLARE_H
