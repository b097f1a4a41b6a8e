// The tool's work on images, in a module of its own (libvellux_tool_images.so) that the tool loads
// when a command reaches such work: rendering, the sample frame, the settings dialog's preview, a
// lens's contact sheet. The tool itself links only the engine's core, so that starting it (--help,
// info, scene show, the resource commands, lens show and compile, settings show and set) does not
// load the image library and the ~260 libraries behind it. Option parsing stays in the tool: --help
// lists every command and a usage error is reported before anything is loaded.
//
// The module is looked for beside the tool (the build's tools folder) and in ../lib (an installed
// tree: bin/vellux, lib/libvellux_tool_images.so). It exports one function, kImageActionsEntry,
// returning the table below; the two are built together, so the table is the whole interface.
#ifndef VELLUX_TOOLS_IMAGE_ACTIONS_H
#define VELLUX_TOOLS_IMAGE_ACTIONS_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "engine/footage_tracking.h"
#include "engine/lens_sheet.h"
#include "engine/look_sheet.h"
#include "engine/option_values.h"
#include "engine/preview_plate.h"
#include "engine/render_request.h"
#include "host/image_backdrop.h"

namespace vellux::tool {

struct ImageActions {
    // `vellux render` (render_command.h): a frame or a scene's sequence, with the progress bar
    // unless quiet; `cancel` is the tool's Ctrl-C flag.
    void (*render)(const engine::RenderRequest& request, bool quiet, const std::atomic<bool>* cancel);
    // `vellux sample-frame` (engine/sample_frame.h).
    void (*writeSampleFrame)(const std::filesystem::path& output, engine::FrameSize size, uint32_t seed);
    // `vellux sample-frame --frames` (engine/sample_shot.h): the sample shot, a frame pattern's frames.
    void (*writeSampleShot)(const std::filesystem::path& output, const std::vector<int32_t>& frames, engine::FrameSize size,
                            uint32_t seed);
    // A --frames list read (engine/frame_list.h), by the image library as the other tools read it.
    std::vector<int32_t> (*parseFrameList)(const std::string& option, const std::string& text);
    // 8-bit RGBA pixels written atomically to an image file, its format by extension.
    void (*writeRgba)(const std::filesystem::path& file, int32_t width, int32_t height, const std::vector<uint8_t>& rgba);
    // `vellux lens preview` (engine/lens_sheet.h): a contact sheet of a lens's own flare.
    void (*writeLensSheet)(const engine::LensSheetRequest& request);
    // `vellux tables --sheet` (engine/look_sheet.h): a contact sheet of every table and lens.
    void (*writeLookSheet)(const engine::LookSheetRequest& request);
    // The settings dialog's preview on the artist's plate (engine/preview_plate.h): the backdrop
    // the host draws the preview over. Reads the plate; throws naming the file.
    std::unique_ptr<host::ImageBackdrop> (*previewPlate)(const engine::PreviewPlateOptions& options);
    // `vellux track` (engine/footage_tracking.h): the lights' scenes written, with the progress bar
    // unless quiet; `cancel` is the tool's Ctrl-C flag.
    void (*track)(const engine::TrackRequest& request, bool quiet, const std::atomic<bool>* cancel);
};

inline constexpr const char* kImageActionsModule = "libvellux_tool_images.so";
inline constexpr const char* kImageActionsEntry = "VelluxToolImageActions";
using ImageActionsEntry = const ImageActions* (*)();

// The module's table, loaded on first use and kept until the process ends. Throws
// std::runtime_error naming the places looked in, and the loader's reason, when it cannot be loaded.
const ImageActions& LoadImageActions();

// Where LoadImageActions looks, in order.
std::vector<std::filesystem::path> ImageActionsCandidates();

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_IMAGE_ACTIONS_H
