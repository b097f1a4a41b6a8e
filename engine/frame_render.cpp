#include "engine/frame_render.h"

#include <stdexcept>

#include <nlohmann/json.hpp>

#include "engine/colour.h"
#include "engine/flare_pass.h"
#include "engine/frame_image.h"
#include "engine/occlusion.h"
#include "engine/pending_output.h"
#include "engine/plugin_about.h"
#include "engine/scene.h"
#include "engine/table_search.h"
#include "engine/plugin_location.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Interrupted(const fs::path& output) {
    throw std::runtime_error("interrupted; " + output.string() + " not written");
}

bool Cancelled(const std::atomic<bool>* cancel) { return cancel != nullptr && cancel->load(); }

OIIO::ImageBuf FloatBlack(FrameSize size) {
    CheckFrameMemory(size, 12.0 + 6.0 + 12.0, "--size");
    return OIIO::ImageBuf(OIIO::ImageSpec(size.width, size.height, 3, OIIO::TypeFloat), OIIO::InitializePixels::Yes);
}

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
    if (!request.table.empty()) setup.table = FindTable(request.table.string());
    if (!request.settingsFile.empty()) setup.settings = LoadSettingsFile(request.settingsFile);
    setup.edits = request.settings;
    setup.lens = request.lens;
    return setup;
}

RenderRequest WithNamedSource(RenderRequest request, const std::string& sceneTable) {
    if (!request.table.empty() || request.lens) return request;
    LookSource source;
    if (!request.settingsFile.empty()) source = LoadLookFile(request.settingsFile).source;
    else source.table = sceneTable;
    if (!source.table.empty()) request.table = source.table;
    if (source.lens) {
        LensLookOptions lens;
        lens.lens = source.lens->name;
        lens.fNumber = source.lens->fNumber;
        lens.blades = source.lens->blades;
        lens.bladeCurvature = source.lens->bladeCurvature;
        lens.apertureRotation = source.lens->apertureRotation;
        request.lens = lens;
    }
    return request;
}

LookSource RequestLookSource(const RenderRequest& request) {
    LookSource source;
    if (request.lens) {
        const LensLookOptions& lens = *request.lens;
        source.lens = LookLens{lens.lens, lens.fNumber, lens.bladeCurvature, lens.apertureRotation, lens.blades};
        return source;
    }
    const std::string table = request.table.string();
    const bool path = table.find('/') != std::string::npos || request.table.extension() == ".rsc";
    if (!path) source.table = table;
    return source;
}

namespace {

// What made the image, as an image tool records it: the program, and the flare's settings record
// (as a settings file holds it, so that it can be saved and rendered with again) and light.
void Describe(OIIO::ImageBuf& image, Flare& flare, const FlareLight& light, const RenderRequest& request) {
    OIIO::ImageSpec& spec = image.specmod();
    spec.attribute("Software", "Vellux " + VelluxVersion());
    spec.attribute("Vellux:Settings",
                   WriteSettingsText({NativeByteOrder(), flare.host().controlData()}, RequestLookSource(request)));
    const nlohmann::json described = {{"x", light.x},
                                      {"y", light.y},
                                      {"color", {light.color.red, light.color.green, light.color.blue}},
                                      {"intensity", light.intensity},
                                      {"radius", light.radius}};
    spec.attribute("Vellux:Light", described.dump());
}

}  // namespace

PlateFile RenderRequestedFrame(Flare& flare, const RenderRequest& request, const std::string& plateFile, FrameSize size,
                               const FlareLight& light, const fs::path& target) {
    if (request.passMode) {
        // A pass is linear unless said otherwise, except in the integer files (PNG, TIFF).
        const OIIO::TypeDesc type = PassFileType(target, request.halfFloat);
        const std::string space = ChooseColorspace("--colorspace", request.colorspace, type != OIIO::TypeUInt16);
        OIIO::ImageBuf pass = flare.Pass(size, light, request.bandRows, space);
        Describe(pass, flare, light, request);
        return SinglePart(std::move(pass), type);
    }
    const FrameOptions options{request.bandRows, request.colorspace, request.blend};   // the colour space defaults by pixel type (colour.h)
    if (plateFile.empty()) {
        // A black frame for a float file is a float, scene-linear frame: exactly the linear pass
        // over black. For the others it is the plug-in's frame in 16-bit sRGB.
        PlateFile black = SinglePart(ImageFormatOf(target) == "exr"
                                         ? flare.Composite(FloatBlack(size), light, options)
                                         : flare.CompositeBlack(size, light, options));
        Describe(black.parts[0], flare, light, request);
        return black;
    }
    PlateFile plate = ReadPlateFile(plateFile);
    OIIO::ImageBuf& part = plate.parts[plate.flarePart];
    const FrameSize frame{part.spec().full_width, part.spec().full_height};
    if (frame.width != size.width || frame.height != size.height)   // changed since it was checked
        throw std::runtime_error(plateFile + ": is no longer " + std::to_string(size.width) + "x" +
                                 std::to_string(size.height));
    part = flare.Composite(std::move(part), light, options);
    Describe(part, flare, light, request);
    return plate;
}

void RenderFlareImage(const RenderRequest& asked, const RenderReporting& reporting) {
    const RenderRequest request = WithNamedSource(asked);
    const FlareSetup setup = RequestSetup(request);
    if (!setup.table.empty()) CheckFlareTable(setup.table);
    CheckOutputFormat(request.output);
    CheckCompressionFor("--compression", request.compression, request.output);
    if (!request.input.empty() && !fs::exists(request.input))
        throw std::runtime_error(request.input.string() + ": no such file");
    if (request.passMode) PassFileType(request.output, request.halfFloat);   // a wrong pass format, before the render
    if (!request.colorspace.empty()) ChooseColorspace("--colorspace", request.colorspace, true);
    const FrameSize size = request.input.empty() ? request.blackFrame : ReadImageSize(request.input);

    Flare flare(setup);
    flare.SetProgress(reporting.progress);
    flare.SetCancel(reporting.cancel);
    flare.SetThreads(request.threads);
    PlateFile frame;
    try {
        frame = RenderRequestedFrame(flare, request, request.input.string(), size, RequestLight(request, size),
                                     request.output);
    } catch (const PluginError& error) {
        throw PluginError(std::string(error.what()) + "; " + request.output.string() + " not written", error.code);
    }
    flare.Finish();
    if (Cancelled(reporting.cancel)) Interrupted(request.output);
    WritePlateFile(frame, request.output, reporting.cancel, request.compression);
}

}  // namespace vellux::engine
