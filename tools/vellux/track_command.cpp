#include "tools/vellux/track_command.h"

#include <charconv>
#include <cmath>
#include <iostream>
#include <memory>

#include "engine/frame_sequence.h"
#include "tools/vellux/image_actions.h"
#include "tools/vellux/interrupt_guard.h"

namespace vellux::tool {

namespace {

struct TrackOptions {
    std::string input, output, frames, at, colorspace;
    size_t lights = 1;
    double threshold = kDefaultLightThreshold;
    double smooth = 0.0;
    bool quiet = false;
};

TrackRequest CheckTrackOptions(const TrackOptions& options) {
    TrackRequest request;
    request.input = options.input;
    request.output = options.output;
    if (options.lights == 0) throw std::invalid_argument("--lights: must be 1 or more");
    if (!options.at.empty() && options.lights != 1) throw std::invalid_argument("--at: follows one light; leave out --lights");
    if (!(options.threshold > 0.0) || !std::isfinite(options.threshold))
        throw std::invalid_argument("--threshold: must be above 0");
    if (!(options.smooth >= 0.0) || !std::isfinite(options.smooth)) throw std::invalid_argument("--smooth: must be 0 or more");
    request.lights = options.lights;
    request.threshold = options.threshold;
    request.smooth = options.smooth;
    request.colorspace = options.colorspace;
    if (!options.at.empty()) request.at = ParseTrackPoint(options.at);
    if (!options.frames.empty()) request.frames = LoadImageActions().parseFrameList("--frames", options.frames);
    return request;
}

}  // namespace

TrackPoint ParseTrackPoint(const std::string& text) {
    const auto bad = [&text] {
        return std::invalid_argument("--at: \"" + text + "\" is not X,Y or X,Y@FRAME (pixels from the top-left)");
    };
    // A whole decimal number, spaces around it allowed.
    const auto number = [&bad](const std::string& part) {
        const size_t first = part.find_first_not_of(' '), last = part.find_last_not_of(' ');
        if (first == std::string::npos) throw bad();
        const std::string digits = part.substr(first, last - first + 1);
        double value = 0.0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        if (error != std::errc() || end != digits.data() + digits.size() || !std::isfinite(value)) throw bad();
        return value;
    };
    const size_t at = text.find('@'), comma = text.find(',');
    if (comma == std::string::npos || comma > at) throw bad();
    TrackPoint point;
    point.x = number(text.substr(0, comma));
    point.y = number(text.substr(comma + 1, at == std::string::npos ? std::string::npos : at - comma - 1));
    if (at != std::string::npos) {
        const double frame = number(text.substr(at + 1));
        if (frame < 0.0 || frame > kMaxFrameNumber || frame != std::floor(frame))
            throw std::invalid_argument("--at: frame " + text.substr(at + 1) + " is not a frame number");
        point.frame = int32_t(frame);
    }
    return point;
}

void AddTrackCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<TrackOptions>();
    CLI::App* command = app.add_subcommand("track", "Find lights in an image sequence and follow them, as scenes to render");
    command->add_option("-i,--input", options->input, "The plate: a frame pattern (####, %04d)")->required();
    command->add_option("-o,--output", options->output, "The scene to write (more lights: NAME.2.json, ...)")->required();
    command->add_option("--frames", options->frames, "Only these frames, e.g. 1-48, 1-48x2 (default: every frame on disk)");
    command->add_option("--lights", options->lights, "How many of the brightest lights to follow")->capture_default_str();
    command->add_option("--at", options->at, "Follow the light nearest this point instead (on FRAME, else the first)")
        ->type_name("X,Y[@FRAME]");
    command->add_option("--threshold", options->threshold, "Linear luminance at and above which a pixel is part of a light")
        ->capture_default_str();
    command->add_option("--smooth", options->smooth, "Steady the path over this many frames (0: as measured)")
        ->capture_default_str();
    command->add_option("--colorspace", options->colorspace, "The plate's colour space (default: linear for float, sRGB else)");
    command->add_flag("-q,--quiet", options->quiet, "No progress bar");
    command->callback([options, &action] {
        action = [options] {
            const TrackRequest request = CheckTrackOptions(*options);
            LoadImageActions().track(request, options->quiet, &InterruptGuard::Flag());
            return 0;
        };
    });
}

}  // namespace vellux::tool
