// A module linking the engine, as a video host's filter or a Python extension does; the test
// program loads it with RTLD_LOCAL. Renders the default flare onto a black frame and answers how
// many pixels it lit (negative: an error, printed).
#include <cstdio>
#include <exception>
#include <vector>

#include "engine/engine.h"
#include "host/resource_services.h"

extern "C" __attribute__((visibility("default"))) long vellux_render_default_frame(const char* plugin,
                                                                                   const char* tables,
                                                                                   const char* output) {
    try {
        vellux::host::SetHomeDirectory(tables);
        vellux::engine::FlareSetup setup;
        setup.plugin = plugin;
        vellux::engine::Flare flare(setup);
        const vellux::engine::FrameSize size{320, 180};
        vellux::engine::FlareLight light;
        light.x = 96.0;
        light.y = 63.0;
        const OIIO::ImageBuf frame = flare.Composite(vellux::engine::FrameImage::Black(size).image(), light, {});
        flare.Finish();
        if (!frame.write(output)) throw std::runtime_error(frame.geterror());
        std::vector<float> values(size_t(frame.spec().image_pixels()) * size_t(frame.nchannels()));
        frame.get_pixels(frame.roi(), OIIO::TypeFloat, values.data());
        long lit = 0;
        for (size_t i = 0; i + 2 < values.size(); i += size_t(frame.nchannels())) lit += values[i] + values[i + 1] + values[i + 2] > 0.0f;
        return lit;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "local module: %s\n", error.what());
        return -1;
    }
}
