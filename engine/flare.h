// A flare instance: a private copy of the plug-in with its own host session (the two records,
// the channels, the flare table), started with INIT and the settings asked for. Every front end
// renders through one; an instance serves one thread at a time, and instances on different
// threads render at once (each has its own copy of the plug-in's process statics).
//
// One frame on several threads (SetThreads, frame_bands.h): the flare paints its frame's bands
// with more private copies of the plug-in, loaded the first time they are wanted and kept for the
// next frame, each given this flare's settings before every frame. The picture is the same on any
// number of threads. A copy that cannot be loaded leaves the frame to the copies there are, said
// once through the warning sink (by default standard error).
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
#include <functional>
#include <memory>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "engine/blend.h"
#include "engine/colour.h"
#include "engine/flare_instance.h"
#include "engine/frame_bands.h"
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
    // Threads painting each frame: 0 is every core; 1, the default, paints on the caller's
    // thread alone. Throws std::invalid_argument below 0.
    void SetThreads(int32_t threads);
    int32_t threads() const { return threads_; }
    // Where warnings go (one line each, no "warning:" prefix); none: standard error.
    void SetWarning(std::function<void(const std::string&)> sink) { warning_ = std::move(sink); }

    // The plug-in's frame painted on `pixels` (the caller's memory, in the plug-in's layout), on
    // this flare's threads: what RenderFrame paints with one copy. `beforeBand` (frame_bands.h)
    // readies each band's rows first, on the thread that paints them.
    void Paint(const PixelView& pixels, const FlareLight& light, int32_t bandRows = 0, const BandHook& beforeBand = {});
    // The same for the partition's bands that meet `rows` (frame_bands.h), painted whole.
    void PaintRows(const PixelView& pixels, const FlareLight& light, Band rows, int32_t bandRows = 0,
                   const BandHook& beforeBand = {});

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

    // The painters of one frame: this flare's instance and enough copies for its threads.
    std::vector<BandPainter> Painters(int32_t height);
    void LoadCopies(size_t wanted);

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
    int32_t threads_ = 1;
    std::vector<std::unique_ptr<Flare>> copies_;   // the extra painters, kept from frame to frame
    bool copyFailed_ = false;                      // one would not load: no more are tried
    std::function<void(const std::string&)> warning_;
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FLARE_H
