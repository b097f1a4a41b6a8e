// The frei0r filter as a host holds it (dlopen with RTLD_LOCAL, the f0r_ entry points looked up by
// name), test frames, and the engine's composite the filter's frames are compared with.
#ifndef VELLUX_TESTS_FREI0R_FILTER_SUPPORT_H
#define VELLUX_TESTS_FREI0R_FILTER_SUPPORT_H

#include <dlfcn.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "engine/flare.h"
#include "frei0r/frei0r_api.h"

namespace vellux::test {

struct Filter {
    void* library = dlopen(VELLUX_FREI0R_PATH, RTLD_NOW | RTLD_LOCAL);
    template <typename F>
    F Get(const char* name) const { return reinterpret_cast<F>(dlsym(library, name)); }
    decltype(&f0r_get_plugin_info) info = Get<decltype(&f0r_get_plugin_info)>("f0r_get_plugin_info");
    decltype(&f0r_get_param_info) paramInfo = Get<decltype(&f0r_get_param_info)>("f0r_get_param_info");
    decltype(&f0r_construct) construct = Get<decltype(&f0r_construct)>("f0r_construct");
    decltype(&f0r_destruct) destruct = Get<decltype(&f0r_destruct)>("f0r_destruct");
    decltype(&f0r_set_param_value) set = Get<decltype(&f0r_set_param_value)>("f0r_set_param_value");
    decltype(&f0r_get_param_value) get = Get<decltype(&f0r_get_param_value)>("f0r_get_param_value");
    decltype(&f0r_update) update = Get<decltype(&f0r_update)>("f0r_update");

    int ParamCount() const {
        f0r_plugin_info_t plugin{};
        info(&plugin);
        return plugin.num_params;
    }
    f0r_param_info_t Param(int index) const {
        f0r_param_info_t param{};
        paramInfo(&param, index);
        return param;
    }
    // The index of the parameter a host names `name`; -1 when there is none.
    int Index(const std::string& name) const {
        for (int i = 0; i < ParamCount(); ++i)
            if (name == Param(i).name) return i;
        return -1;
    }
};

inline const Filter& TheFilter() {
    static const Filter filter;
    return filter;
}

inline void SetDouble(f0r_instance_t instance, int index, double value) { TheFilter().set(instance, &value, index); }

// A busy RGBA frame with an alpha that varies.
inline std::vector<uint32_t> Frame(int width, int height) {
    std::vector<uint32_t> frame(size_t(width) * size_t(height));
    auto* bytes = reinterpret_cast<uint8_t*>(frame.data());
    for (size_t i = 0; i < frame.size() * 4; ++i) bytes[i] = uint8_t((i * 2654435761u >> 7) % 120 + (i % 4 == 3 ? 130 : 0));
    return frame;
}

inline std::vector<uint32_t> Render(f0r_instance_t instance, const std::vector<uint32_t>& in, double time = 0.0) {
    std::vector<uint32_t> out(in.size());
    TheFilter().update(instance, time, in.data(), out.data());
    return out;
}

// The engine's composite of an 8-bit RGBA frame with the flare `setup` makes (the test's plug-in).
inline std::vector<uint32_t> EnginesComposite(engine::FlareSetup setup, int w, int h, const std::vector<uint32_t>& in,
                                              const engine::FlareLight& light, engine::Blend blend = engine::kDefaultBlend) {
    OIIO::ImageBuf plate(OIIO::ImageSpec(w, h, 4, OIIO::TypeUInt8));
    plate.set_pixels(plate.roi(), OIIO::TypeUInt8, in.data());
    setup.plugin = VELLUX_PLUGIN_PATH;
    engine::Flare flare(setup);
    const OIIO::ImageBuf painted = flare.Composite(plate, light, {0, "", blend});
    std::vector<uint32_t> expected(in.size());
    painted.get_pixels(painted.roi(), OIIO::TypeUInt8, expected.data());
    return expected;
}

}  // namespace vellux::test

#endif  // VELLUX_TESTS_FREI0R_FILTER_SUPPORT_H
