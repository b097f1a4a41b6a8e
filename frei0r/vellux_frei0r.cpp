// The frei0r entry points: a filter named "Vellux lens flare" that paints the table-driven flare
// over each frame (frei0r's RGBA8888), with the parameters of filter_params.h. Only the f0r_
// functions are exported.
#include "frei0r/frei0r_api.h"

#include <exception>
#include <new>

#include "frei0r/filter_instance.h"
#include "frei0r/filter_params.h"

using vellux::frei0r::FilterInstance;

#define VELLUX_F0R extern "C" __attribute__((visibility("default")))

VELLUX_F0R int f0r_init() { return 1; }

VELLUX_F0R void f0r_deinit() {}

VELLUX_F0R void f0r_get_plugin_info(f0r_plugin_info_t* info) {
    info->name = "Vellux lens flare";
    info->author = "Vellux";
    info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
    info->color_model = F0R_COLOR_MODEL_RGBA8888;
    info->frei0r_version = FREI0R_MAJOR_VERSION;
    info->major_version = 0;
    info->minor_version = 1;
    info->num_params = vellux::frei0r::kParamCount;
    info->explanation = "A lens flare for a light: glow, halo, a chain of lens reflections through the frame's "
                        "centre and a star of streaks, shaped by a flare table";
}

VELLUX_F0R void f0r_get_param_info(f0r_param_info_t* info, int index) { *info = vellux::frei0r::ParamInfo(index); }

VELLUX_F0R f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
    return new (std::nothrow) FilterInstance(width, height);
}

VELLUX_F0R void f0r_destruct(f0r_instance_t instance) { delete static_cast<FilterInstance*>(instance); }

VELLUX_F0R void f0r_set_param_value(f0r_instance_t instance, f0r_param_t param, int index) {
    if (instance != nullptr) static_cast<FilterInstance*>(instance)->SetParam(index, param);
}

VELLUX_F0R void f0r_get_param_value(f0r_instance_t instance, f0r_param_t param, int index) {
    if (instance != nullptr) static_cast<FilterInstance*>(instance)->GetParam(index, param);
}

VELLUX_F0R void f0r_update(f0r_instance_t instance, double time, const uint32_t* inframe, uint32_t* outframe) {
    if (instance != nullptr && inframe != nullptr && outframe != nullptr)
        static_cast<FilterInstance*>(instance)->Update(time, inframe, outframe);
}
