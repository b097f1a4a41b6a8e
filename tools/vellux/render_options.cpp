#include "tools/vellux/render_options.h"

#include <cmath>
#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <thread>

#include "engine/setting_names.h"
#include "tools/vellux/image_actions.h"

namespace vellux::tool {

namespace {

// Returns --scene, which the light options exclude (the scene animates the light).
CLI::Option* AddFrameOptions(CLI::App& render, RenderOptions& options) {
    CLI::Option_group* frame = render.add_option_group("frame", "What to paint the flare into (one of)");
    frame->add_option("-i,--input", options.input,
                      "Image to render onto (any format the image library reads), or a frame pattern "
                      "(plate.####.exr) for a sequence under a fixed light")
        ->type_name("IMAGE");
    frame->add_option("--size", options.size, "A black frame of this size instead, e.g. 1920x1080")
        ->type_name("WxH");
    CLI::Option* scene = frame->add_option("--scene", options.scene, "A scene: render its frames as a sequence")
        ->type_name("SCENE.json");
    frame->require_option(1);
    render.add_option("--frames", options.frames,
                      "With --scene or an -i frame pattern: only these frames, e.g. 1-48, 1-48x2, 1,5,10-20 "
                      "(default: all of the scene's, or every input frame found)")
        ->type_name("LIST");
    render.add_option("--jobs", options.jobs,
                      "For a sequence: frames rendered at once (default: the number of cores, or with --threads "
                      "the cores over N)")
        ->type_name("N");
    render.add_option("--threads", options.threads,
                      "Threads painting each frame, each band of rows by its own copy of the plug-in; the picture "
                      "is the same on any number (default: every core; for a sequence the cores over the --jobs "
                      "workers, at least one each; 0: the default)")
        ->type_name("N");
    render.add_option("-o,--output", options.output,
                      "Image to write; its extension picks the format; a missing folder is made. For a sequence a frame "
                      "pattern: ####, %04d or %d")
        ->type_name("IMAGE")
        ->required();
    return scene;
}

void AddLightOptions(CLI::App& render, RenderOptions& options, CLI::Option* scene) {
    CLI::Option* pixels = render.add_option("--light", options.light, "Light position in pixels")->type_name("X,Y");
    render.add_option("--light-fraction", options.lightFraction, "Light position as fractions of width and height")
        ->type_name("X,Y")
        ->default_str("0.3,0.35")
        ->excludes(pixels);
    render.add_option("--color", options.color, "Light colour: R,G,B from 0 to 255, or #RRGGBB")
        ->type_name("R,G,B")
        ->capture_default_str();
    render.add_option("--intensity", options.intensity, "Light intensity")->capture_default_str();
    render.add_option("--radius", options.radius, "The light's radius on the frame in pixels (with --follow-light-size)")
        ->capture_default_str();
    for (const char* light : {"--light", "--light-fraction", "--color", "--intensity", "--radius"})
        render.get_option(light)->excludes(scene);
}

// Every setting of setting_names.h under its name; a switch given alone (--halo) is on.
void AddSettingOptions(CLI::App& render, SettingEdits& edits) {
    for (const SettingName& setting : SettingNames()) {
        const auto take = [&edits, &setting](const std::string& text) {
            try {
                SetEdit(setting, ParseSettingText(setting, text.empty() ? "on" : text), edits);
            } catch (const std::invalid_argument& error) {
                throw CLI::ValidationError(error.what());
            }
        };
        CLI::Option* option = render.add_option_function<std::string>("--" + std::string(setting.name), take,
                                                                      std::string(setting.meaning));
        switch (setting.kind) {
        case SettingKind::number: option->type_name("X"); break;
        case SettingKind::whole: option->type_name("N"); break;
        case SettingKind::color: option->type_name("R,G,B"); break;
        case SettingKind::onOff: option->type_name("on|off")->expected(0, 1); break;
        }
    }
}

void AddRunOptions(CLI::App& render, RenderOptions& options) {
    render.add_option("--table", options.table, "Flare table: a name (vellux tables lists them) or a .rsc file (default: Vellux)")->type_name("NAME");
    render.add_option("--lens", options.lens,
                      "Paint the lens's own flare from its prescription instead of a table's: a lens's name "
                      "(double-gauss-50mm, ...) or a .json file")
        ->type_name("NAME");
    render.add_option("--f-number", options.fNumber, "With --lens: the aperture (default: the lens's stated one)")->type_name("N");
    render.add_option("--blades", options.blades, "With --lens: the iris's blades, 0 for round, 3 to 32 (default 0)")->type_name("K");
    render.add_option("--blade-curvature", options.bladeCurvature,
                      "With --lens: 0 straight blades to 1 round (default 0)")->type_name("C");
    render.add_option("--aperture-rotation", options.apertureRotation, "With --lens: the iris turned, degrees (default 0)")
        ->type_name("DEG");
    render.add_option("--settings", options.settingsFile,
                      "Start from a saved settings file (as `vellux settings set` or `vellux edit` write it); "
                      "the setting options above then change it")
        ->type_name("LOOK.json");
    render.add_option_function<int32_t>("--band-rows", [&options](const int32_t& rows) { options.bandRows = rows; },
                                        "Hand the frame over in bands of N rows (default: all at once)")
        ->type_name("N");
    render.add_option("--plugin", options.plugin, "The plug-in (default: Vellux.so beside the tool or one folder up)")
        ->type_name("PATH");
    render.add_flag("-q,--quiet", options.quiet, "No progress bar (with --scene, no frame lines either)");
    render.add_option("--mode", options.mode,
                      "composite: paint the flare into the frame; pass: the flare alone on black with alpha")
        ->check(CLI::IsMember({"composite", "pass"}))
        ->capture_default_str();
    render.add_flag("--half", options.half, "With --mode pass and an .exr output: half floats instead of floats");
    render.add_option("--blend", options.blend,
                      "How the flare goes over the plate: display (the plug-in's own add on display levels, the "
                      "same picture on a PNG and its linear EXR), add (in scene-linear light), screen")
        ->capture_default_str()
        ->type_name("MODE");
    render.add_option("--colorspace", options.colorspace,
                      "The plate's colour space (default: linear for float images, sRGB for others); "
                      "a pass is written in it (default: linear for .exr)")
        ->type_name("NAME");
    render.add_option("--compression", options.compression,
                      "How the output is compressed: png:0 to png:9, exr:none|rle|zips|zip|piz|pxr24|b44|b44a|dwaa|dwab, "
                      "tif:none|lzw|zip|packbits (default: lossless and fast: png:1, exr:piz, or the plate's own)")
        ->type_name("FORMAT:METHOD");
    render.add_option("--occlusion", options.occlusion,
                      "Mask image (alpha, else luminance; 1 = hidden): dims the light by the hidden part of its disc")
        ->type_name("MASK");
}

void RequireFinite(const char* option, double value, double min) {
    if (!std::isfinite(value) || value < min)
        throw std::invalid_argument(std::string(option) + ": " + NumberText(value) + " is out of range (at least " +
                                    NumberText(min) + ")");
}

void TakeLight(const RenderOptions& options, RenderRequest& request) {
    if (!options.light.empty()) {
        const std::vector<double> xy = ParseNumbers("--light", options.light, 2);
        request.lightIsFraction = false;
        request.lightX = xy[0];
        request.lightY = xy[1];
    } else if (!options.lightFraction.empty()) {
        const std::vector<double> xy = ParseNumbers("--light-fraction", options.lightFraction, 2);
        request.lightX = xy[0];
        request.lightY = xy[1];
    }
}

}  // namespace

void AddRenderOptions(CLI::App& render, RenderOptions& options) {
    CLI::Option* scene = AddFrameOptions(render, options);
    AddLightOptions(render, options, scene);
    AddSettingOptions(render, options.settings);
    AddRunOptions(render, options);
}

// A light given in pixels whose both coordinates lie within 0..1 is almost surely a pair of
// fractions typed to --light: the flare would sit in the frame's top left corner. Whole numbers
// (0,0 or 1,1: a corner asked for on purpose) are taken at their word.
std::vector<std::string> RenderWarnings(const RenderOptions& options) {
    std::vector<std::string> warnings;
    if (options.light.empty()) return warnings;
    std::vector<double> xy;
    try {
        xy = ParseNumbers("--light", options.light, 2);
    } catch (const std::invalid_argument&) {
        return warnings;   // CheckRenderOptions reports it
    }
    const auto unit = [](double v) { return v >= 0.0 && v <= 1.0; };
    const auto whole = [](double v) { return v == std::floor(v); };
    if (unit(xy[0]) && unit(xy[1]) && !(whole(xy[0]) && whole(xy[1])))
        warnings.push_back("--light " + options.light + " is in pixels, which puts the light in the frame's top left corner; "
                           "did you mean --light-fraction " + options.light + "?");
    return warnings;
}

RenderRequest CheckRenderOptions(const RenderOptions& options) {
    RenderRequest request;
    request.input = options.input;
    request.scene = options.scene;
    if (!options.frames.empty()) {
        if (options.input.empty() && options.scene.empty())
            throw std::invalid_argument("--frames: only with --scene or an -i frame pattern");
        request.frames = LoadImageActions().parseFrameList("--frames", options.frames);   // read as the other tools do
    }
    if (options.jobs && *options.jobs < 1)
        throw std::invalid_argument("--jobs: " + std::to_string(*options.jobs) + " must be at least 1");
    if (options.threads && *options.threads < 0)
        throw std::invalid_argument("--threads: " + std::to_string(*options.threads) + " must be at least 0 (0: every core)");
    const int32_t cores = int32_t(std::max(1u, std::thread::hardware_concurrency()));
    request.threads = options.threads.value_or(0);
    request.jobs = options.jobs.value_or(request.threads > 0 ? std::max(1, cores / request.threads) : cores);
    request.colorspace = options.colorspace;
    request.blend = ParseBlend("--blend", options.blend);
    if (options.input.empty() && options.scene.empty()) request.blackFrame = ParseFrameSize("--size", options.size);
    request.output = options.output;
    request.compression = ParseCompression("--compression", options.compression);
    TakeLight(options, request);
    request.color = ParseColor("--color", options.color);
    RequireFinite("--intensity", options.intensity, 0.0);
    request.intensity = options.intensity;
    RequireFinite("--radius", options.radius, 0.0);
    request.radius = options.radius;
    request.table = options.table;
    if (!options.lens.empty()) {
        LensLookOptions lens;
        lens.lens = options.lens;
        lens.fNumber = options.fNumber;
        lens.blades = options.blades;
        lens.bladeCurvature = options.bladeCurvature;
        lens.apertureRotation = options.apertureRotation;
        request.lens = lens;
    } else if (options.fNumber || options.blades || options.bladeCurvature || options.apertureRotation) {
        throw std::invalid_argument("--f-number, --blades, --blade-curvature and --aperture-rotation: only with --lens");
    }
    if (options.bandRows && *options.bandRows < 1)
        throw std::invalid_argument("--band-rows: " + std::to_string(*options.bandRows) + " must be at least 1");
    request.bandRows = options.bandRows.value_or(0);
    request.plugin = options.plugin;
    request.passMode = options.mode == "pass";
    request.halfFloat = options.half;
    if (options.half && !request.passMode) throw std::invalid_argument("--half: only with --mode pass");
    request.occlusion = options.occlusion;
    CheckSettingEdits(options.settings);
    request.settings = options.settings;
    request.settingsFile = options.settingsFile;
    return request;
}

}  // namespace vellux::tool
