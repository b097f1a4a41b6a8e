// What to render: one frame onto an image or a black frame, or a scene's frames as a sequence.
// Front ends build a RenderRequest (the vellux tool from its command line) and hand it to
// RenderFlareImage (frame_render.h) or RenderSceneSequence (sequence_render.h).
#ifndef VELLUX_ENGINE_RENDER_REQUEST_H
#define VELLUX_ENGINE_RENDER_REQUEST_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/blend.h"
#include "engine/compression.h"
#include "engine/frame_sequence.h"
#include "engine/lens_look.h"
#include "engine/option_values.h"
#include "engine/plugin_settings.h"
#include "host/host_session.h"

namespace vellux::engine {

// How a render tells its caller what it does, and how the caller stops it.
struct RenderReporting {
    host::ProgressSink progress;                   // the plug-in's reports (a frame), or frames done (a sequence)
    std::function<void(int32_t frame, int32_t done, int32_t count)> frameDone;   // a sequence's frame written
    const std::atomic<bool>* cancel = nullptr;     // once set, the render stops at the next report
};

struct RenderRequest {
    std::filesystem::path input;    // empty: a black frame of blackFrame's size; a frame pattern: a sequence
    FrameSize blackFrame;
    std::filesystem::path scene;    // a scene to render as a sequence instead (no input, no light)
    std::vector<int32_t> frames;    // with a scene: these of its frames, in order; empty: all
    std::filesystem::path output;   // with a scene: a frame pattern (frame_sequence.h)
    Compression compression;        // how the output is compressed (compression.h); none chosen: lossless and fast
    bool lightIsFraction = true;
    double lightX = 0.3;            // pixels, or a fraction of the width
    double lightY = 0.35;           // pixels, or a fraction of the height
    LightColor color;
    double intensity = 1.0;
    double radius = 0.0;            // the light's radius on the frame, pixels
    std::filesystem::path table;    // a table's name or path (table_search.h); empty: the default
    std::optional<LensLookOptions> lens;   // the lens's physical flare instead of the table's (lens_look.h)
    int32_t bandRows = 0;           // 0: the whole frame in one generate command
    std::filesystem::path plugin;   // empty: searched beside the program (plugin_location.h)
    bool passMode = false;          // the flare alone on black, with alpha, for compositing
    bool halfFloat = false;         // a pass written as half-float EXR
    std::string colorspace;         // the plate's (or the pass's) colour space; empty: by pixel type
    Blend blend = kDefaultBlend;    // how the flare goes over the plate (blend.h)
    std::filesystem::path occlusion;    // a mask hiding the light: 1 = hidden
    int32_t jobs = 1;               // a sequence's frames rendered at once (each its own plug-in copy)
    int32_t threads = 0;            // threads painting each frame (frame_bands.h); 0: every core, or in a
                                    // sequence the cores shared among its jobs (at least 1 each)
    std::filesystem::path settingsFile;   // a saved settings record to start from (a scene's is then not used)
    SettingEdits settings;                // then these changes
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_RENDER_REQUEST_H
