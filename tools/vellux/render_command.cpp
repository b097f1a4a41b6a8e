#include "tools/vellux/render_command.h"

#include <iostream>
#include <memory>
#include <stdexcept>

#include "host/plugin_library.h"
#include "host/progress_bar.h"
#include "host/resource_file.h"
#include "host/resource_services.h"
#include "tools/vellux/flare_pass.h"
#include "tools/vellux/flare_render.h"
#include "tools/vellux/frame_image.h"
#include "tools/vellux/interrupt_guard.h"
#include "tools/vellux/occlusion.h"
#include "tools/vellux/pending_output.h"
#include "tools/vellux/plugin_location.h"
#include "tools/vellux/scene_render.h"

namespace vellux::tool {

namespace {

namespace fs = std::filesystem;

constexpr int16_t kFlareListId = 1001;

[[noreturn]] void Interrupted(const fs::path& output) {
    throw std::runtime_error("interrupted; " + output.string() + " not written");
}

FlareLight LightOf(const RenderRequest& request, FrameSize size) {
    FlareLight light;
    light.x = request.lightIsFraction ? request.lightX * size.width : request.lightX;
    light.y = request.lightIsFraction ? request.lightY * size.height : request.lightY;
    light.color = request.color;
    light.intensity = request.intensity;
    light.radius = request.radius;
    if (!request.occlusion.empty()) light = OccludedLight(light, OcclusionMask::Read(request.occlusion, size));
    return light;
}

// One plug-in instance for one frame: loaded, settings edited, `work` run, finished.
template <typename Work>
void WithPlugin(const fs::path& pluginPath, const RenderRequest& request, Work work) {
    const host::PluginLibrary plugin(pluginPath.string());
    host::HostSession host;
    host::ProgressBar bar(std::cerr, !request.quiet && host::StderrIsTerminal());
    host.SetProgressSink(bar.Sink());
    host.SetInterruptFlag(&InterruptGuard::Flag());
    PluginInstance instance(plugin, host);
    instance.EditSettings(request.settings);
    try {
        work(instance);
    } catch (const PluginError& error) {
        throw PluginError(std::string(error.what()) + "; " + request.output.string() + " not written", error.code);
    }
    instance.Finish();
}

// The flare alone, or added to a float plate in float so that its values above 1.0 survive.
void RenderPassOrFloatPlate(const fs::path& pluginPath, const RenderRequest& request) {
    const bool floatPlate = !request.passMode;
    const FrameSize size = request.input.empty() ? request.blackFrame : ReadImageSize(request.input);
    OIIO::ImageBuf pass;
    WithPlugin(pluginPath, request, [&](PluginInstance& instance) {
        pass = RenderFlarePass(instance, LightOf(request, size), size, request.bandRows);
    });
    if (InterruptGuard::Requested()) Interrupted(request.output);
    if (!floatPlate) return WriteFlarePass(pass, request.output, request.halfFloat);
    const OIIO::ImageBuf plate = ReadFloatPlate(request.input);
    WriteImageFile(CompositeFlarePass(plate, pass), request.output, plate.nativespec().format);
}

}  // namespace

// The plug-in still asks for Vellux.rsc; the host answers with the chosen table, checked first so
// that a wrong file gets a message about the file rather than the plug-in's "missing resource".
void UseFlareTable(const fs::path& table) {
    const rsc::ResourceFile file = rsc::ReadResourceFile(table);
    if (file.Find(rsc::TypeCode("FLAR"), kFlareListId) == nullptr)
        throw std::runtime_error(table.string() + ": not a flare table: it has no FLAR " + std::to_string(kFlareListId));
    host::SetFileSubstitute("Vellux.rsc", fs::absolute(table));
}

void PaintFrame(PluginInstance& instance, FrameImage& image, const FlareLight& light, int32_t bandRows) {
    PluginPixels pixels = image.ToPlugin();
    RenderFrame(instance, light, pixels, bandRows);
    image.TakeFromPlugin(pixels);
}

void WriteRenderedImage(const FrameImage& image, const fs::path& output) {
    PendingOutput pending(output);
    try {
        image.Write(pending.temporary(), output.string());
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(output.string() + ": " + error.what());
    }
    if (InterruptGuard::Requested()) Interrupted(output);
    pending.Commit();
}

void AddRenderCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<RenderOptions>();
    CLI::App* render = app.add_subcommand(
        "render", "Render the flare onto an image or a black frame, or a scene's frames as a sequence");
    AddRenderOptions(*render, *options);
    render->callback([options, &action] {
        action = [options] {
            const RenderRequest request = CheckRenderOptions(*options);
            if (request.scene.empty()) RenderFlareImage(request);
            else RenderSceneSequence(request);
            return 0;
        };
    });
}

void RenderFlareImage(const RenderRequest& request) {
    const fs::path pluginPath = FindPlugin(request.plugin, RunningToolFolder());
    if (!request.table.empty()) UseFlareTable(request.table);
    CheckOutputFormat(request.output);
    const InterruptGuard interrupt;
    if (!request.input.empty() && !fs::exists(request.input))
        throw std::runtime_error(request.input.string() + ": no such file");
    if (request.passMode || (!request.input.empty() && IsFloatImage(request.input)))
        return RenderPassOrFloatPlate(pluginPath, request);
    FrameImage image = request.input.empty() ? FrameImage::Black(request.blackFrame) : FrameImage::Read(request.input);
    const FrameSize size{image.width(), image.height()};
    WithPlugin(pluginPath, request, [&](PluginInstance& instance) {
        PaintFrame(instance, image, LightOf(request, size), request.bandRows);
    });
    WriteRenderedImage(image, request.output);
}

}  // namespace vellux::tool
