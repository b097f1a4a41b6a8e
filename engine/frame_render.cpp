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

RenderedFrame RenderRequestedFrame(Flare& flare, const RenderRequest& request, const std::string& plateFile,
                                   FrameSize size, const FlareLight& light, const fs::path& target) {
    if (request.passMode) {
        // A pass is linear unless said otherwise, except in the integer files (PNG, TIFF).
        const OIIO::TypeDesc type = PassFileType(target, request.halfFloat);
        OIIO::ImageBuf pass = flare.Pass(size, light, request.bandRows);
        ConvertPass(pass, ChooseColorspace("--colorspace", request.colorspace, type != OIIO::TypeUInt16));
        return {std::move(pass), type};
    }
    const bool floatPlate = !plateFile.empty() && IsFloatImage(plateFile);
    const OIIO::ImageBuf plate = floatPlate          ? ReadFloatPlate(plateFile)
                                 : plateFile.empty() ? FrameImage::Black(size).image()
                                                     : FrameImage::Read(plateFile).image();
    if (plate.spec().width != size.width || plate.spec().height != size.height)   // changed since it was checked
        throw std::runtime_error(plateFile + ": is no longer " + std::to_string(size.width) + "x" +
                                 std::to_string(size.height));
    // The plate's colour space defaults by its pixel type (colour.h).
    OIIO::ImageBuf painted = flare.Composite(plate, light, {request.bandRows, request.colorspace});
    return {std::move(painted), floatPlate ? plate.nativespec().format : plate.spec().format};
}

void RenderFlareImage(const RenderRequest& request, const RenderReporting& reporting) {
    const FlareSetup setup = RequestSetup(request);
    if (!request.table.empty()) CheckFlareTable(request.table);
    CheckOutputFormat(request.output);
    if (!request.input.empty() && !fs::exists(request.input))
        throw std::runtime_error(request.input.string() + ": no such file");
    if (request.passMode) PassFileType(request.output, request.halfFloat);   // a wrong pass format, before the render
    if (!request.colorspace.empty()) ChooseColorspace("--colorspace", request.colorspace, true);
    const FrameSize size = request.input.empty() ? request.blackFrame : ReadImageSize(request.input);

    Flare flare(setup);
    flare.SetProgress(reporting.progress);
    flare.SetCancel(reporting.cancel);
    RenderedFrame frame;
    try {
        frame = RenderRequestedFrame(flare, request, request.input.string(), size, RequestLight(request, size),
                                     request.output);
    } catch (const PluginError& error) {
        throw PluginError(std::string(error.what()) + "; " + request.output.string() + " not written", error.code);
    }
    flare.Finish();
    if (Cancelled(reporting.cancel)) Interrupted(request.output);
    WriteImageFile(frame.image, request.output, frame.type, reporting.cancel);
}

}  // namespace vellux::engine
