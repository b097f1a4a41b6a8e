// A flare instance: a private copy of the plug-in with its own host session (the two records,
// the channels, the flare table), started with INIT and the settings asked for. Every front end
// renders through one; an instance serves one thread at a time, and instances on different
// threads render at once (each has its own copy of the plug-in's process statics).
//
// Errors throw: PluginError (flare_instance.h) for the plug-in's refusals in its own words,
// std::runtime_error naming the file for everything else.
//
// The plug-in side (the constructor, host(), instance(), Finish, CheckFlareTable) is in the core
// library, libvellux_engine_core.so, which does not load the image library (flare_plugin.cpp);
// the image side (Composite, Pass, PassInto, Paint) is in libvellux_engine.so (flare.cpp).
#ifndef VELLUX_ENGINE_FLARE_H
#define VELLUX_ENGINE_FLARE_H

#include <atomic>
#include <memory>
#include <filesystem>
#include <optional>
#include <string>

#include <OpenImageIO/imagebuf.h>

#include "engine/blend.h"
#include "engine/colour.h"
#include "engine/flare_instance.h"
#include "engine/frame_image.h"
#include "engine/lens_look.h"
#include "engine/option_values.h"
#include "engine/plugin_settings.h"
#include "engine/scene.h"
#include "host/host_session.h"
#include "host/plugin_library.h"

namespace vellux::engine {

class ExposureBrackets;   // hdr_pass.h

struct FlareSetup {
    std::filesystem::path plugin;                 // the plug-in file (plugin_location.h finds it)
    std::filesystem::path table;                  // a name or path (table_search.h); empty: the default
    std::optional<SettingsRecord> settings;       // the persistent record to start from; none: defaults
    SettingEdits edits;                           // then these changes
    host::PluginCopy copy = host::PluginCopy::private_;
    std::optional<LensLookOptions> lens;          // the lens's physical flare instead (lens_look.h)
};

// How a frame is handed to the plug-in, which colour space its plate is in, and how the flare
// goes over it (blend.h).
struct FrameOptions {
    int32_t bandRows = 0;        // 0: the whole frame in one GENF
    std::string colorspace;      // the plate's; empty: linear for float pixels, sRGB for integers
    Blend blend = kDefaultBlend;
};

// Throws naming the file unless it reads as a resource file with the flare list FLAR 1001.
void CheckFlareTable(const std::filesystem::path& table);

// The table file a setup's Flare reads: the one its table names (table_search.h), or the default
// one; empty when there is none (the plug-in then reads Vellux.rsc from the host's home folder).
std::filesystem::path FlareTableFile(const FlareSetup& setup);

class Flare {
public:
    explicit Flare(const FlareSetup& setup);
    Flare(const Flare&) = delete;
    Flare& operator=(const Flare&) = delete;

    host::HostSession& host() { return host_; }
    PluginInstance& instance() { return *instance_; }
    const std::string& pluginPath() const { return plugin_.path(); }

    // Where the plug-in's progress reports go, and the flag that stops the render when set.
    void SetProgress(host::ProgressSink sink) { host_.SetProgressSink(std::move(sink)); }
    void SetCancel(const std::atomic<bool>* flag) { host_.SetInterruptFlag(flag); }

    // The plate with the flare: its colour over its frame, the flare painted alone on black (so the
    // dissolve can only limit the flare) and blended in as `options.blend` says (blend.h). 8-bit
    // and 16-bit sRGB plates take the plug-in's own 32-bit and 48-bit pixels, every other plate
    // the flare's float levels. The result is the plate with its colour changed (plate.h): every
    // channel, attribute and window kept, in the plate's pixel type.
    // A plate handed over with std::move is painted in its own memory, without a copy.
    OIIO::ImageBuf Composite(OIIO::ImageBuf plate, const FlareLight& light, const FrameOptions& options);

    // The same on a black 16-bit RGB frame of `size` (FrameImage::Black): on black every blend
    // gives the flare itself, so this is the plug-in's frame made into an image.
    OIIO::ImageBuf CompositeBlack(FrameSize size, const FlareLight& light, const FrameOptions& options);

    // The flare alone on black as float RGBA (flare_pass.h), converted to `space` and tagged
    // with it (ConvertPass); by default in the plug-in's display space.
    OIIO::ImageBuf Pass(FrameSize size, const FlareLight& light, int32_t bandRows,
                        const std::string& space = kDisplaySpace);

    // The pass converted to a colour space (ConvertPass), written into `rgba`: packed float RGBA
    // of the frame's size, which the caller keeps from frame to frame. The plug-in's pixels are
    // kept too, so rendering frame after frame this way takes no new memory (fresh memory costs
    // page faults that can outweigh the painting).
    // With `bottomUp` the rows are written last first (FillConvertedPass).
    void PassInto(FrameSize size, const FlareLight& light, const std::string& space, float* rgba, bool bottomUp = false);

    // The lens look's f-number from the next frame on; throws when the flare has no lens look.
    void SetLensFNumber(double fNumber);

    void Finish();   // FINI (the destructor sends it too, ignoring the answer)

private:
    // The flare alone on black: the plug-in's pixels at `depth` (32 or 48), or float display
    // levels (red, green, blue a pixel; 1.0 = the plug-in's full level).
    PluginPixels PaintBlack(FrameSize size, const FlareLight& light, int16_t depth, int32_t bandRows);
    std::vector<float> PaintLevels(FrameSize size, const FlareLight& light, int32_t bandRows);

    // The flare's float levels into `levels` (red, green, blue a pixel): the lens's physical
    // flare when there is one, else the plug-in's frame lifted past its full level.
    void Levels(FrameSize size, const FlareLight& light, int32_t bandRows, float* levels);

    FlareSetup setup_;   // what the exposure brackets load: the same plug-in and table
    std::unique_ptr<LensLook> look_;   // the lens's physical flare, painted instead of the plug-in's
    host::PluginLibrary plugin_;
    host::HostSession host_;
    std::optional<PluginInstance> instance_;
    std::optional<PluginPixels> black_;   // the plug-in's frame for float levels, kept from frame to frame
    std::vector<float> levels_;           // and its levels
    // The darker exposures that lift float levels past the plug-in's ceiling (hdr_pass.h), made
    // the first time float levels are painted; deleted by the image side of the engine, which
    // made them (this part of the class is also built into the core, which does not link it).
    std::unique_ptr<ExposureBrackets, void (*)(ExposureBrackets*)> brackets_{nullptr, nullptr};
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FLARE_H
