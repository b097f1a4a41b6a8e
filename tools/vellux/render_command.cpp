#include "tools/vellux/render_command.h"

#include <iostream>
#include <memory>

#include "engine/frame_render.h"
#include "engine/scene_render.h"
#include "host/progress_bar.h"
#include "tools/vellux/interrupt_guard.h"

namespace vellux::tool {

void AddRenderCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<RenderOptions>();
    CLI::App* render = app.add_subcommand(
        "render", "Render the flare onto an image or a black frame, or a scene's frames as a sequence");
    AddRenderOptions(*render, *options);
    render->callback([options, &action] {
        action = [options] {
            RunRender(CheckRenderOptions(*options), options->quiet);
            return 0;
        };
    });
}

void RunRender(const RenderRequest& request, bool quiet) {
    host::ProgressBar bar(std::cerr, !quiet && host::StderrIsTerminal());
    RenderReporting reporting;
    reporting.progress = bar.Sink();
    reporting.cancel = &InterruptGuard::Flag();
    if (!IsSequence(request)) return RenderFlareImage(request, reporting);
    if (!quiet) {
        reporting.frameDone = [&bar](int32_t frame, int32_t done, int32_t count) {
            bar.Finish();
            std::cerr << "frame " << frame << " (" << done << " of " << count << ")\n";
        };
    }
    RenderSceneSequence(request, reporting);
}

}  // namespace vellux::tool
