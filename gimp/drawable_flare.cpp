#include "gimp/drawable_flare.h"

#include <stdexcept>

#include <gegl.h>
#include <OpenImageIO/imagebufalgo.h>

#include "engine/flare.h"
#include "engine/flare_layer.h"
#include "engine/frame_render.h"

namespace vellux::gimp {

namespace {

// The pixels GEGL hands over, and the image library's type for them.
struct WorkingFormat {
    const Babl* babl;
    OIIO::TypeDesc type;
};

// The drawable's own layout when the engine paints it as it is (8-bit and 16-bit perceptual, float
// linear, in the built-in sRGB), so that GEGL converts nothing; otherwise linear float.
const char* OwnFormatName(GimpPrecision precision, bool alpha) {
    switch (precision) {
    case GIMP_PRECISION_U8_GAMMA: return alpha ? "R'G'B'A u8" : "R'G'B' u8";
    case GIMP_PRECISION_U16_GAMMA: return alpha ? "R'G'B'A u16" : "R'G'B' u16";
    case GIMP_PRECISION_FLOAT_LINEAR: return alpha ? "RGBA float" : "RGB float";
    default: return nullptr;
    }
}

OIIO::TypeDesc TypeOf(GimpPrecision precision) {
    switch (precision) {
    case GIMP_PRECISION_U8_GAMMA: return OIIO::TypeUInt8;
    case GIMP_PRECISION_U16_GAMMA: return OIIO::TypeUInt16;
    default: return OIIO::TypeFloat;
    }
}

// The format a layer of the image's precision is read and written in, with or without alpha.
WorkingFormat WorkingFormatOf(gint32 image, bool alpha) {
    const GimpPrecision precision = gimp_image_get_precision(image);
    const char* own = OwnFormatName(precision, alpha);
    if (own != nullptr && HasBuiltInProfile(image)) return {babl_format(own), TypeOf(precision)};
    return {babl_format(alpha ? "RGBA float" : "RGB float"), OIIO::TypeFloat};
}

// A GEGL buffer owned for the scope.
struct Buffer {
    explicit Buffer(GeglBuffer* buffer) : get(buffer) {}
    ~Buffer() { g_object_unref(get); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    GeglBuffer* get;
};

OIIO::ImageBuf ReadDrawable(gint32 drawable, const WorkingFormat& format) {
    const int width = gimp_drawable_width(drawable), height = gimp_drawable_height(drawable);
    OIIO::ImageBuf plate(OIIO::ImageSpec(width, height, babl_format_get_n_components(format.babl), format.type));
    const Buffer buffer(gimp_drawable_get_buffer(drawable));
    const GeglRectangle whole{0, 0, width, height};
    gegl_buffer_get(buffer.get, &whole, 1.0, format.babl, plate.localpixels(), GEGL_AUTO_ROWSTRIDE, GEGL_ABYSS_NONE);
    return plate;
}

OIIO::ImageBuf BlackPlate(int width, int height, const WorkingFormat& format) {
    OIIO::ImageBuf plate(OIIO::ImageSpec(width, height, 4, format.type), OIIO::InitializePixels::Yes);
    const float opaque[4] = {0.0f, 0.0f, 0.0f, 1.0f};
    OIIO::ImageBufAlgo::fill(plate, opaque);
    return plate;
}

// `painted`'s pixels within `area` into the drawable's shadow buffer, then merged: the selection
// mask applied, one undo step.
void WriteThroughShadow(gint32 drawable, const OIIO::ImageBuf& painted, const GeglRectangle& area,
                        const WorkingFormat& format) {
    const OIIO::ImageSpec& spec = painted.spec();
    const auto* pixels = static_cast<const char*>(painted.localpixels());
    const size_t stride = spec.scanline_bytes();
    const char* first = pixels + size_t(area.y) * stride + size_t(area.x) * spec.pixel_bytes();
    {
        const Buffer shadow(gimp_drawable_get_shadow_buffer(drawable));
        gegl_buffer_set(shadow.get, &area, 0, format.babl, first, gint(stride));
    }
    gimp_drawable_merge_shadow(drawable, TRUE);
    gimp_drawable_update(drawable, area.x, area.y, area.width, area.height);
}

gint32 NewFlareLayer(gint32 image, gint32 drawable) {
    gint offsetX = 0, offsetY = 0;
    gimp_drawable_offsets(drawable, &offsetX, &offsetY);
    const gint32 layer = gimp_layer_new(image, "Vellux flare", gimp_drawable_width(drawable),
                                        gimp_drawable_height(drawable), GIMP_RGBA_IMAGE, 100.0, GIMP_LAYER_MODE_NORMAL);
    gimp_layer_set_offsets(layer, offsetX, offsetY);
    gimp_image_insert_layer(image, layer, 0, -1);   // above the active layer
    return layer;
}

}  // namespace

bool HasBuiltInProfile(gint32 image) {
    GimpColorProfile* profile = gimp_image_get_color_profile(image);
    if (profile == nullptr) return true;
    g_object_unref(profile);
    return false;
}

bool TakenInItsOwnFormat(gint32 image) {
    return OwnFormatName(gimp_image_get_precision(image), true) != nullptr && HasBuiltInProfile(image);
}

void PaintDrawable(gint32 image, gint32 drawable, const engine::RenderRequest& asked, bool flareOnly,
                   const ProgressReport& progress) {
    const engine::RenderRequest request = engine::WithNamedSource(asked);
    const engine::FlareSetup setup = engine::RequestSetup(request);
    if (!setup.table.empty()) engine::CheckFlareTable(setup.table);

    gint x = 0, y = 0, width = 0, height = 0;
    if (!gimp_drawable_mask_intersect(drawable, &x, &y, &width, &height)) return;   // nothing selected here
    const GeglRectangle area{x, y, width, height};
    const WorkingFormat format = WorkingFormatOf(image, flareOnly || gimp_drawable_has_alpha(drawable));
    const engine::FrameSize size{gimp_drawable_width(drawable), gimp_drawable_height(drawable)};

    engine::Flare flare(setup);
    flare.SetThreads(0);   // the drawable painted on every core: the same pixels as on one
    flare.SetProgress([&progress](const host::ProgressReport& report) { progress(report.position); });
    const engine::FlareLight light = engine::RequestLight(request, size);
    const engine::FrameOptions options{request.bandRows, request.colorspace, request.blend};
    OIIO::ImageBuf plate = flareOnly ? BlackPlate(size.width, size.height, format) : ReadDrawable(drawable, format);
    OIIO::ImageBuf painted = flare.Composite(std::move(plate), light, options);
    if (painted.localpixels() == nullptr || painted.spec().format != format.type ||
        painted.spec().nchannels != babl_format_get_n_components(format.babl))
        throw std::runtime_error("the engine gave back pixels of another layout");
    // One undo step, opened only now: a run that GIMP stops while it paints (its progress's Cancel
    // ends the plug-in) has changed nothing and leaves no undo group open.
    if (flareOnly) engine::MakeStraightFlareLayer(painted);
    gimp_image_undo_group_start(image);
    if (flareOnly) {
        WriteThroughShadow(NewFlareLayer(image, drawable), painted, area, format);
    } else {
        WriteThroughShadow(drawable, painted, area, format);
    }
    gimp_image_undo_group_end(image);
}

}  // namespace vellux::gimp
