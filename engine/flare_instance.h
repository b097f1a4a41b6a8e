// Driving the plug-in through frames as a host does: INIT (the plug-in fills in its default
// settings, or checks the ones the host holds, and reads its flare table), the settings edits,
// for an animated shot the channel commands, SETF with the frame and the light, one GENF per
// band of rows from top to bottom, FINI.
//
// Any command the plug-in answers with a non-zero code throws PluginError, whose message is the
// plug-in's own text for the code (asked for with DESC).
#ifndef VELLUX_ENGINE_FLARE_INSTANCE_H
#define VELLUX_ENGINE_FLARE_INSTANCE_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/host_session.h"
#include "host/plugin_library.h"
#include "engine/option_values.h"
#include "engine/plugin_pixels.h"
#include "engine/plugin_settings.h"
#include "vellux/plugin_records.h"

namespace vellux::engine {

struct PluginError : std::runtime_error {
    PluginError(const std::string& message, int32_t result) : std::runtime_error(message), code(result) {}
    int32_t code;
};

// Rows [top, bottom) of the frame.
struct Band {
    int32_t top = 0;
    int32_t bottom = 0;
};

// Bands of `bandRows` rows from the top, the last one shorter; bandRows 0 is one band.
std::vector<Band> SplitIntoBands(int32_t height, int32_t bandRows);

struct FlareLight {
    double x = 0.0;         // on the frame, pixels
    double y = 0.0;
    LightColor color;
    double intensity = 1.0;
    double radius = 0.0;    // on the frame, pixels
    double pixelAspect = 1.0;   // the frame's pixels' width over their height: the flare stays round on screen
};

// The setup block for a frame of this size: the whole frame from (0, 0), its scale the smaller
// of width and height vertically, that over the light's pixel aspect horizontally, its centre (width / 2, height / 2); the camera and
// light matrices are identities. The host header (theInfo) is left for the sender.
PluginFlareSetupRec MakeFrameSetup(int32_t width, int32_t height, const FlareLight& light);

// One plug-in instance with its host records: INIT on construction, FINI when finished (or, its
// answer ignored, on destruction after an error).
class PluginInstance {
public:
    PluginInstance(const host::PluginLibrary& plugin, host::HostSession& host);
    ~PluginInstance();
    PluginInstance(const PluginInstance&) = delete;
    PluginInstance& operator=(const PluginInstance&) = delete;

    void EditSettings(const SettingEdits& edits);

    // The animation channels over a shot's frames [first, last]: ICHN publishes them into the
    // host's channel store, UCHN keys the current settings on every frame of the range, LCHN
    // pulls one frame's values into the settings record, FCHN ends their use.
    void InitializeChannels(int32_t first, int32_t last);
    void UpdateChannels(int32_t first, int32_t last);
    void LoadChannels(int32_t first, int32_t last, int32_t frame);
    void FinishChannels();

    // INTF: the settings dialog, run by the host's current dialog runner. Answers the plug-in's
    // result as it is (4 when the dialog was cancelled).
    int32_t Interface();
    // The plug-in's own description of a failed command, as an exception to throw.
    PluginError Failure(IFFType command, int32_t result);

    host::HostSession& host() const { return host_; }

    void Setup(PluginFlareSetupRec setup);
    void Generate(const PixelView& pixels, Band band);
    void Finish();

private:
    template <typename Block>
    int32_t Send(IFFType command, Block& block);
    void Check(IFFType command, int32_t result);

    const host::PluginLibrary& plugin_;
    host::HostSession& host_;
    bool open_ = false;
};

// The frame painted by this one instance as frame_bands.h paints it: a SETF for every band of the
// partition, then GENF of `bandRows` rows at a time (0: the band in one), with the instance's
// session's progress sink and interrupt flag.
void RenderFrame(PluginInstance& instance, const FlareLight& light, PluginPixels& pixels, int32_t bandRows);
// The same into a frame the caller keeps.
void RenderFrame(PluginInstance& instance, const FlareLight& light, const PixelView& pixels, int32_t bandRows);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FLARE_INSTANCE_H
