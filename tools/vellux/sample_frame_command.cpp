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
    };
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("sample-frame", "Make the sample frame: a dusk landscape (8-bit RGB)");
    command->add_option("-o,--output", options->output, "Image to write; its extension picks the format")->required();
    command->add_option("--size", options->size, "Size")->type_name("WxH")->capture_default_str();
    command->add_option("--seed", options->seed, "Another seed gives other hills and clouds")->capture_default_str();
    command->callback([options, &action] {
        action = [options] {
            LoadImageActions().writeSampleFrame(options->output, ParseFrameSize("--size", options->size), options->seed);
            return 0;
        };
    });
}

}  // namespace vellux::tool
