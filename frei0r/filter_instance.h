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

#include "engine/flare.h"
#include "engine/plugin_pixels.h"
#include "frei0r/filter_params.h"

namespace vellux::frei0r {

class FilterInstance {
public:
    FilterInstance(unsigned width, unsigned height);

    void SetParam(int index, const void* value);
    void GetParam(int index, void* value);

    // One frame: RGBA8888 in, RGBA8888 out (the same buffer allowed). The flare is painted through
    // the plug-in's 32-bit path and blended in as the Blend parameter says, the input's alpha kept; with Flare only, the flare alone with its
    // brightest channel as alpha and the colour unpremultiplied (straight alpha, as editors
    // composite overlays).
    void Update(const uint32_t* in, uint32_t* out);

private:
    void Report(const std::string& problem);   // on stderr, once per problem
    engine::Flare& FlareFor(const std::string& table);

    const int width_, height_;
    std::mutex mutex_;
    FilterSettings settings_;
    std::unique_ptr<engine::Flare> flare_;
    std::string flareTable_;                // the table the flare was made with
    engine::PluginPixels pixels_;           // the flare painted on black, made on first use (not needed
                                            // for the plug-in's own add without a dissolve)
    std::set<std::string> reported_;
};

}  // namespace vellux::frei0r

#endif  // VELLUX_FREI0R_FILTER_INSTANCE_H
