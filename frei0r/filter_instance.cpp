#include "frei0r/filter_instance.h"

#include <algorithm>
#include <cstring>
#include <iostream>

#include "engine/plugin_location.h"

namespace vellux::frei0r {

FilterInstance::FilterInstance(unsigned width, unsigned height)
    : width_(int(width)), height_(int(height)), pixels_(int32_t(width), int32_t(height), 32) {}

void FilterInstance::Report(const std::string& problem) {
    if (problem.empty() || !reported_.insert(problem).second) return;
    std::cerr << "vellux frei0r filter: " << problem << std::endl;
}

void FilterInstance::SetParam(int index, const void* value) {
    const std::lock_guard lock(mutex_);
    Report(frei0r::SetParam(settings_, index, value));
}

void FilterInstance::GetParam(int index, void* value) {
    const std::lock_guard lock(mutex_);
    frei0r::GetParam(settings_, index, value);
}

// The flare for a table, made again only when the table changes. A table that cannot be used is
// reported, and the default table takes its place.
engine::Flare& FilterInstance::FlareFor(const std::string& table) {
    if (flare_ && table == flareTable_) return *flare_;
    flare_.reset();
    flareTable_ = table;
    engine::FlareSetup setup;
    setup.plugin = engine::FindPlugin("");
    setup.table = table;
    try {
        flare_ = std::make_unique<engine::Flare>(setup);
    } catch (const std::exception& error) {
        if (table.empty()) throw;
        Report("Flare table: " + std::string(error.what()) + "; the default table is used");
        setup.table.clear();
        flare_ = std::make_unique<engine::Flare>(setup);
    }
    return *flare_;
}

void FilterInstance::Update(const uint32_t* in, uint32_t* out) {
    const std::lock_guard lock(mutex_);
    const size_t count = size_t(width_) * size_t(height_);
    const auto* source = reinterpret_cast<const uint8_t*>(in);
    uint8_t* plugin = pixels_.bytes.data();
    // RGBA in the host's bytes; alpha, red, green, blue in the plug-in's.
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* rgba = source + i * 4;
        uint8_t* argb = plugin + i * 4;
        if (settings_.flareOnly) argb[0] = 255, argb[1] = argb[2] = argb[3] = 0;
        else argb[0] = rgba[3], argb[1] = rgba[0], argb[2] = rgba[1], argb[3] = rgba[2];
    }
    try {
        engine::Flare& flare = FlareFor(settings_.table);
        flare.instance().EditSettings(settings_.edits);
        engine::RenderFrame(flare.instance(), LightOn(settings_, width_, height_), pixels_, 0);
    } catch (const std::exception& error) {
        Report(error.what());
        if (in != out) std::memcpy(out, in, count * 4);
        flare_.reset();   // tried afresh on the next frame
        return;
    }
    auto* target = reinterpret_cast<uint8_t*>(out);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* argb = plugin + i * 4;
        uint8_t* rgba = target + i * 4;
        if (!settings_.flareOnly) {
            const uint8_t alpha = source[i * 4 + 3];
            rgba[0] = argb[1], rgba[1] = argb[2], rgba[2] = argb[3], rgba[3] = alpha;
            continue;
        }
        const unsigned alpha = std::max({argb[1], argb[2], argb[3]});
        for (int c = 0; c < 3; ++c) rgba[c] = alpha == 0 ? 0 : uint8_t((argb[1 + c] * 255u + alpha / 2) / alpha);
        rgba[3] = uint8_t(alpha);
    }
}

}  // namespace vellux::frei0r
