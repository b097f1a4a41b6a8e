#include "frei0r/filter_instance.h"

#include <algorithm>
#include <bit>
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

// A pixel's four bytes as one word, read and written without aliasing the byte buffer.
namespace {

inline uint32_t Word(const uint8_t* bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, 4);
    return word;
}

inline void PutWord(uint8_t* bytes, uint32_t word) { std::memcpy(bytes, &word, 4); }

// The host's bytes r, g, b, a are the plug-in's a, r, g, b moved by one byte: on a little-endian
// word, a rotation by 8 bits either way.
inline uint32_t ToPlugin(uint32_t rgba) { return rgba << 8 | rgba >> 24; }
inline uint32_t FromPlugin(uint32_t argb) { return argb >> 8 | argb << 24; }

constexpr uint32_t kHostAlpha = 0xff000000u;

// The conversions a fixed block of pixels at a time, into memory the source cannot overlap: so
// the compiler turns each into a few vector instructions for the block. The output's alpha is
// read before any of the block is written, so the host may convert in place.
constexpr size_t kBlock = 16;

void BlockToPlugin(const uint32_t* __restrict in, uint8_t* __restrict plugin) {
    for (size_t i = 0; i < kBlock; ++i) PutWord(plugin + i * 4, ToPlugin(in[i]));
}

void BlockFromPlugin(const uint8_t* __restrict plugin, const uint32_t* in, uint32_t* __restrict out) {
    uint32_t alpha[kBlock];
    std::memcpy(alpha, in, sizeof(alpha));
    for (size_t i = 0; i < kBlock; ++i) out[i] = (FromPlugin(Word(plugin + i * 4)) & ~kHostAlpha) | (alpha[i] & kHostAlpha);
}

void ConvertToPlugin(const uint32_t* in, uint8_t* plugin, size_t count) {
    size_t i = 0;
    for (; i + kBlock <= count; i += kBlock) BlockToPlugin(in + i, plugin + i * 4);
    for (; i < count; ++i) PutWord(plugin + i * 4, ToPlugin(in[i]));
}

void ConvertFromPlugin(const uint8_t* plugin, const uint32_t* in, uint32_t* out, size_t count) {
    size_t i = 0;
    for (; i + kBlock <= count; i += kBlock) BlockFromPlugin(plugin + i * 4, in + i, out + i);
    for (; i < count; ++i) out[i] = (FromPlugin(Word(plugin + i * 4)) & ~kHostAlpha) | (in[i] & kHostAlpha);
}

}  // namespace

void FilterInstance::Update(const uint32_t* in, uint32_t* out) {
    static_assert(std::endian::native == std::endian::little, "the byte moves below assume a little-endian word");
    const std::lock_guard lock(mutex_);
    const size_t count = size_t(width_) * size_t(height_);
    uint8_t* plugin = pixels_.bytes.data();
    constexpr uint32_t kOpaqueBlack = 0x000000ffu;   // the plug-in's a = 255, r = g = b = 0
    if (settings_.flareOnly) {
        for (size_t i = 0; i < count; ++i) PutWord(plugin + i * 4, kOpaqueBlack);
    } else {
        ConvertToPlugin(in, plugin, count);
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
    if (!settings_.flareOnly) {
        ConvertFromPlugin(plugin, in, out, count);   // the input's alpha kept
        return;
    }
    auto* target = reinterpret_cast<uint8_t*>(out);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* argb = plugin + i * 4;
        uint8_t* rgba = target + i * 4;
        const unsigned alpha = std::max({argb[1], argb[2], argb[3]});
        for (int c = 0; c < 3; ++c) rgba[c] = alpha == 0 ? 0 : uint8_t((argb[1 + c] * 255u + alpha / 2) / alpha);
        rgba[3] = uint8_t(alpha);
    }
}

}  // namespace vellux::frei0r
