#include "frei0r/filter_instance.h"

#include <algorithm>
#include <cstring>
#include <iostream>

#include "engine/plugin_location.h"

namespace vellux::frei0r {

FilterInstance::FilterInstance(unsigned width, unsigned height) : width_(int(width)), height_(int(height)) {}

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

namespace {

// The host's bytes r, g, b, a read from one byte earlier are the plug-in's a, r, g, b: pixel i's
// colour lies where the plug-in's pixel i has it, and the plug-in's a of pixel i is the host's
// alpha of pixel i - 1 (before the first pixel, the byte ahead of the frame). The plug-in's
// painters never read or write a, so the flare is painted straight into the host's frame: no
// conversion either way, and every alpha stays the host's (the tests compare, in place and not).
engine::PixelView HostFrame(uint32_t* frame, int width, int height) {
    return {reinterpret_cast<uint8_t*>(frame) - 1, width, height, width * 4, 32};
}

}  // namespace

// The flare is painted on black and blended in, so that the dissolve only ever limits the flare
// (blend.h). The plug-in's own add with nothing to fade is the same as painting straight into the
// host's frame, which needs no frame of the filter's own: that is done then.
void FilterInstance::Update(const uint32_t* in, uint32_t* out) {
    const std::lock_guard lock(mutex_);
    const size_t count = size_t(width_) * size_t(height_);
    if (!settings_.flareOnly && in != out) std::memcpy(out, in, count * 4);
    const bool inPlace = !settings_.flareOnly && settings_.blend == engine::Blend::display &&
                         settings_.edits.dissolve.value_or(0.0) == 0.0;
    if (!inPlace) {
        if (pixels_.bytes.empty()) pixels_ = engine::PluginPixels(width_, height_, 32);   // made on first use
        std::fill(pixels_.bytes.begin(), pixels_.bytes.end(), uint8_t(0));
    }
    try {
        engine::Flare& flare = FlareFor(settings_.table);
        flare.instance().EditSettings(settings_.edits);
        engine::RenderFrame(flare.instance(), LightOn(settings_, width_, height_),
                            inPlace ? HostFrame(out, width_, height_) : pixels_.View(), 0);
    } catch (const std::exception& error) {
        // Refused before painting (a table, the settings): the frame passes through unchanged.
        Report(error.what());
        if (in != out) std::memcpy(out, in, count * 4);
        flare_.reset();   // tried afresh on the next frame
        return;
    }
    if (inPlace) return;
    auto* target = reinterpret_cast<uint8_t*>(out);
    if (!settings_.flareOnly) {
        engine::BlendBytes(target, 4, pixels_.bytes.data(), count, settings_.blend);
        return;
    }
    const uint8_t* plugin = pixels_.bytes.data();
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* argb = plugin + i * 4;
        uint8_t* rgba = target + i * 4;
        const unsigned alpha = std::max({argb[1], argb[2], argb[3]});
        for (int c = 0; c < 3; ++c) rgba[c] = alpha == 0 ? 0 : uint8_t((argb[1 + c] * 255u + alpha / 2) / alpha);
        rgba[3] = uint8_t(alpha);
    }
}

}  // namespace vellux::frei0r
