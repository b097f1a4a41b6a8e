#include "engine/frame_render.h"

#include <stdexcept>

#include "engine/colour.h"
#include "engine/flare_pass.h"
#include "engine/frame_image.h"
#include "engine/occlusion.h"
#include "engine/pending_output.h"
#include "engine/plugin_location.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Interrupted(const fs::path& output) {
    throw std::runtime_error("interrupted; " + output.string() + " not written");
}

bool Cancelled(const std::atomic<bool>* cancel) { return cancel != nullptr && cancel->load(); }

}  // namespace

FlareLight RequestLight(const RenderRequest& request, FrameSize size) {
    FlareLight light;
    light.x = request.lightIsFraction ? request.lightX * size.width : request.lightX;
    light.y = request.lightIsFraction ? request.lightY * size.height : request.lightY;
    light.color = request.color;
    light.intensity = request.intensity;
    light.radius = request.radius;
    if (!request.occlusion.empty()) light = OccludedLight(light, OcclusionMask::Read(request.occlusion, size));
    return light;
}

FlareSetup RequestSetup(const RenderRequest& request) {
    FlareSetup setup;
    setup.plugin = FindPlugin(request.plugin);
    setup.table = request.table;
    setup.edits = request.settings;
    return setup;
}

void RenderFlareImage(const RenderRequest& request, const RenderReporting& reporting) {
    const FlareSetup setup = RequestSetup(request);
    if (!request.table.empty()) CheckFlareTable(request.table);
    CheckOutputFormat(request.output);
    if (!request.input.empty() && !fs::exists(request.input))
        throw std::runtime_error(request.input.string() + ": no such file");
    const bool floatPlate = !request.passMode && !request.input.empty() && IsFloatImage(request.input);
    const bool integerPlate = !request.passMode && !floatPlate;
    // Integer plates and black frames are in sRGB unless said otherwise; float plates and passes
    // are linear unless said otherwise, except passes into integer files.
    const bool floatDefault = floatPlate || (request.passMode && PassFileType(request.output, request.halfFloat) != OIIO::TypeUInt16);
    const std::string space = ChooseColorspace("--colorspace", request.colorspace, integerPlate ? false : floatDefault);

    Flare flare(setup);
    flare.SetProgress(reporting.progress);
    flare.SetCancel(reporting.cancel);
    OIIO::ImageBuf result;
    OIIO::TypeDesc type = OIIO::TypeUnknown;
    try {
        if (request.passMode) {
            const FrameSize size = request.input.empty() ? request.blackFrame : ReadImageSize(request.input);
            result = flare.Pass(size, RequestLight(request, size), request.bandRows);
            ConvertPass(result, space);
            type = PassFileType(request.output, request.halfFloat);
        } else {
            const OIIO::ImageBuf plate = floatPlate ? ReadFloatPlate(request.input)
                                         : request.input.empty() ? FrameImage::Black(request.blackFrame).image()
                                                                 : FrameImage::Read(request.input).image();
            const FrameSize size{plate.spec().width, plate.spec().height};
            result = flare.Composite(plate, RequestLight(request, size), {request.bandRows, space});
            type = floatPlate ? plate.nativespec().format : plate.spec().format;
        }
    } catch (const PluginError& error) {
        throw PluginError(std::string(error.what()) + "; " + request.output.string() + " not written", error.code);
    }
    flare.Finish();
    if (Cancelled(reporting.cancel)) Interrupted(request.output);
    WriteImageFile(result, request.output, type, reporting.cancel);
}

}  // namespace vellux::engine
