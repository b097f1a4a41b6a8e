#include "tools/vellux/render_command.h"

#include <iostream>
#include <memory>
#include <stdexcept>

#include "host/plugin_library.h"
#include "host/progress_bar.h"
#include "host/resource_file.h"
#include "host/resource_services.h"
#include "tools/vellux/flare_render.h"
#include "tools/vellux/frame_image.h"
#include "tools/vellux/interrupt_guard.h"
#include "tools/vellux/pending_output.h"
#include "tools/vellux/plugin_location.h"
#include "tools/vellux/scene_render.h"

namespace vellux::tool {

namespace {

namespace fs = std::filesystem;

constexpr int16_t kFlareListId = 1001;

FlareLight LightOf(const RenderRequest& request, const FrameImage& image) {
    FlareLight light;
    light.x = request.lightIsFraction ? request.lightX * image.width() : request.lightX;
    light.y = request.lightIsFraction ? request.lightY * image.height() : request.lightY;
    light.color = request.color;
    light.intensity = request.intensity;
    light.radius = request.radius;
    return light;
}

[[noreturn]] void Interrupted(const fs::path& output) {
    throw std::runtime_error("interrupted; " + output.string() + " not written");
}

void Paint(const fs::path& pluginPath, const RenderRequest& request, FrameImage& image) {
    const host::PluginLibrary plugin(pluginPath.string());
    host::HostSession host;
    host::ProgressBar bar(std::cerr, !request.quiet && host::StderrIsTerminal());
    host.SetProgressSink(bar.Sink());
    host.SetInterruptFlag(&InterruptGuard::Flag());
    PluginInstance instance(plugin, host);
    instance.EditSettings(request.settings);
    PaintFrame(instance, image, LightOf(request, image), request.bandRows);
    instance.Finish();
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
    FrameImage image = request.input.empty() ? FrameImage::Black(request.blackFrame) : FrameImage::Read(request.input);
    const InterruptGuard interrupt;
    try {
        Paint(pluginPath, request, image);
    } catch (const PluginError& error) {
        throw PluginError(std::string(error.what()) + "; " + request.output.string() + " not written", error.code);
    }
    WriteRenderedImage(image, request.output);
}

}  // namespace vellux::tool
