// Rendering a frame through the plug-in as a host does (INIT, SETF, GENF in bands), for the
// golden and band tests: the real plug-in, the real default table, a black frame.
#ifndef VELLUX_TESTS_HOST_RENDER_SUPPORT_H
#define VELLUX_TESTS_HOST_RENDER_SUPPORT_H

#include <cstdint>
#include <cstring>
#include <algorithm>
#include <functional>
#include <utility>
#include <string>
#include <vector>

#include "host/host_session.h"
#include "host/plugin_library.h"
#include "host/resource_services.h"

struct RenderJob {
    int32_t width = 480, height = 270;
    int16_t depth = 48;
    double lightX = 0.3, lightY = 0.35;   // fractions of the frame
    int32_t bandRows = 0;                 // 0: the whole frame in one GENF
    std::vector<std::pair<int32_t, int32_t>> bands;   // rows [top, bottom) per GENF instead; rows no
                                                      // band covers stay black
    std::function<void(ControlDataRec&)> settings;
};

// The bands a job asks for: its own list, else bandRows rows each from the top.
inline std::vector<std::pair<int32_t, int32_t>> BandsOf(const RenderJob& job) {
    if (!job.bands.empty()) return job.bands;
    std::vector<std::pair<int32_t, int32_t>> bands;
    const int32_t band = job.bandRows > 0 ? job.bandRows : job.height;
    for (int32_t top = 0; top < job.height; top += band) bands.emplace_back(top, std::min(top + band, job.height));
    return bands;
}

inline std::vector<uint8_t> Render(const RenderJob& job) {
    vellux::host::SetHomeDirectory(VELLUX_TABLE_DIR);
    static vellux::host::PluginLibrary plugin(VELLUX_PLUGIN_PATH);
    vellux::host::HostSession host;
    PluginInitializeRec init{host.Info()};
    if (plugin.Call(kCmdInitialize, int32_t(sizeof(init)), &init) != kNoError) return {};
    if (job.settings) {
        std::vector<uint8_t> control = host.controlData();
        ControlDataRec record;
        std::memcpy(&record, control.data(), sizeof(record));
        job.settings(record);
        std::memcpy(control.data(), &record, sizeof(record));
        host.SetControlData(control);
    }
    const L_Rect frame{0, 0, job.height, job.width, uint32_t(job.width), uint32_t(job.height)};
    PluginFlareSetupRec setup{};
    setup.theInfo = host.Info();
    setup.theFrameRect = frame;
    setup.theFrameXScale = setup.theFrameYScale = double(std::min(job.width, job.height));
    setup.theFrameXCenter = job.width / 2.0;
    setup.theFrameYCenter = job.height / 2.0;
    setup.theLightFramePosition = DCoordinate{job.lightX * job.width, job.lightY * job.height, 0.0};
    setup.theLightColor = ARGB{255, 255, 244, 230};
    setup.theLightIntensity = 1.0;
    if (plugin.Call(kCmdSetup, int32_t(sizeof(setup)), &setup) != kNoError) return {};
    const int32_t bytes = job.depth / 8;
    std::vector<uint8_t> pixels(size_t(job.width) * job.height * bytes, 0);
    for (const auto& [top, bottom] : BandsOf(job)) {
        PluginFlareGenerateRec generate{};
        generate.theInfo = host.Info();
        generate.theFlareBuffer.bufferBase = pixels.data() + size_t(top) * job.width * bytes;
        generate.theFlareBuffer.bufferRowBytes = job.width * bytes;
        generate.theFlareBuffer.bufferRect =
            L_Rect{top, 0, bottom, job.width, uint32_t(job.width), uint32_t(bottom - top)};
        generate.theFlareBuffer.bufferDepth = job.depth;
        if (plugin.Call(kCmdGenerate, int32_t(sizeof(generate)), &generate) != kNoError) return {};
    }
    vellux::host::SetHomeDirectory({});
    return pixels;
}

// FNV-1a, 64 bits, as 16 hex digits.
inline std::string PixelHash(const std::vector<uint8_t>& pixels) {
    uint64_t hash = 14695981039346656037ull;
    for (uint8_t byte : pixels) hash = (hash ^ byte) * 1099511628211ull;
    char text[17];
    std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

#endif  // VELLUX_TESTS_HOST_RENDER_SUPPORT_H
