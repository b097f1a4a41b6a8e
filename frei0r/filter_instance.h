// One instance of the frei0r filter: its parameters, its own flare (a private copy of the
// plug-in, so that instances never share the plug-in's process statics), and the frame buffer it
// reuses. Hosts call an instance from several threads (MLT renders frames on several); a lock
// makes each call whole, and instances on different threads render at once.
#ifndef VELLUX_FREI0R_FILTER_INSTANCE_H
#define VELLUX_FREI0R_FILTER_INSTANCE_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "engine/flare.h"
#include "engine/plugin_pixels.h"
#include "frei0r/filter_params.h"
#include "frei0r/light_follower.h"
#include "frei0r/seek_watch.h"

namespace vellux::frei0r {

class FilterInstance {
public:
    FilterInstance(unsigned width, unsigned height);

    void SetParam(int index, const void* value);
    void GetParam(int index, void* value);

    // One frame: RGBA8888 in, RGBA8888 out (the same buffer allowed). The flare is painted through
    // the plug-in's 32-bit path and blended in as the Blend parameter says, the input's alpha
    // kept; a lens's own flare goes over the frame as over any 8-bit sRGB plate (Flare::Composite).
    // With Flare only, the flare alone with its brightest channel as alpha and the colour
    // unpremultiplied (straight alpha, as editors composite overlays). Following the brightest
    // light, the light is where it was found in `in`, its intensity scaled by how much of it shows;
    // a frame `time` that is not the next one (a seek) starts the following afresh.
    void Update(double time, const uint32_t* in, uint32_t* out);

private:
    // What a flare is made from: its table, or its lens and the lens's aperture.
    struct FlareMaking {
        std::string table, lens;
        double fNumber = 0.0;
        int blades = 0;
        bool operator==(const FlareMaking&) const = default;
    };

    void Report(const std::string& problem);   // on stderr, once per problem
    engine::Flare& Made(const engine::FlareSetup& setup);   // flare_, set up for the host's frames
    engine::Flare& FlareFor(const FilterSettings& settings);
    engine::LensLookOptions LensLookFor(const FilterSettings& settings);
    engine::FlareLight LightFor(double time, const uint32_t* in);
    void PaintPlugin(engine::Flare& flare, const engine::FlareLight& light, const uint32_t* in, uint32_t* out);
    void PaintLensLook(engine::Flare& flare, const engine::FlareLight& light, uint32_t* out);

    const int width_, height_;
    std::mutex mutex_;
    FilterSettings settings_;
    std::unique_ptr<engine::Flare> flare_;
    FlareMaking made_;                      // what the flare was asked to be made from
    bool lensLook_ = false;                 // the flare paints its lens's look
    engine::PluginPixels pixels_;           // the flare painted on black, made on first use (not needed
                                            // for the plug-in's own add without a dissolve)
    std::vector<uint8_t> lensOnly_;         // a lens's flare over transparent black, for Flare only
    LightFollower follower_;                // the light followed, with its frame buffer
    SeekWatch seeks_;                       // the host's frame times
    std::set<std::string> reported_;
};

}  // namespace vellux::frei0r

#endif  // VELLUX_FREI0R_FILTER_INSTANCE_H
