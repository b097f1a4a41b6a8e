#include "tools/vellux/render_command.h"

#include <iostream>
#include <memory>

#include "tools/vellux/image_actions.h"
#include "tools/vellux/interrupt_guard.h"

namespace vellux::tool {

void AddRenderCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<RenderOptions>();
    CLI::App* render = app.add_subcommand(
        "render", "Render the flare onto an image or a black frame, or a scene's frames as a sequence");
    AddRenderOptions(*render, *options);
    render->callback([options, &action] {
        action = [options] {
            const RenderRequest request = CheckRenderOptions(*options);
            for (const std::string& warning : RenderWarnings(*options)) std::cerr << "vellux: warning: " << warning << "\n";
            RunRender(request, options->quiet);
            return 0;
        };
    });
}

void RunRender(const RenderRequest& request, bool quiet) {
    LoadImageActions().render(request, quiet, &InterruptGuard::Flag());
}

}  // namespace vellux::tool
