#include "tools/vellux/sample_frame_command.h"

#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "engine/option_values.h"
#include "tools/vellux/image_actions.h"

namespace vellux::tool {

void AddSampleFrameCommand(CLI::App& app, Action& action) {
    struct Options {
        std::string output;
        std::string size = "960x540";
        uint32_t seed = 1;
        std::string frames;
    };
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("sample-frame", "Make the sample frame: a dusk landscape (8-bit RGB)");
    command->add_option("-o,--output", options->output, "Image to write; its extension picks the format")->required();
    command->add_option("--size", options->size, "Size")->type_name("WxH")->capture_default_str();
    command->add_option("--seed", options->seed, "Another seed gives other hills and clouds")->capture_default_str();
    command->add_option("--frames", options->frames,
                        "Make these frames of the sample shot instead, a lamp crossing the landscape behind a post "
                        "(-o a frame pattern)");
    command->callback([options, &action] {
        action = [options] {
            const ImageActions& actions = LoadImageActions();
            const FrameSize size = ParseFrameSize("--size", options->size);
            if (options->frames.empty()) actions.writeSampleFrame(options->output, size, options->seed);
            else actions.writeSampleShot(options->output, actions.parseFrameList("--frames", options->frames), size, options->seed);
            return 0;
        };
    });
}

}  // namespace vellux::tool
