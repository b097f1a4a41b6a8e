#include "frei0r/filter_instance.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <vector>

#include "engine/plugin_location.h"
#include "engine/row_parts.h"
#include "frei0r/image_side.h"

namespace vellux::frei0r {

FilterInstance::FilterInstance(unsigned width, unsigned height) : width_(int(width)), height_(int(height)) {
    // ffmpeg (5.1) hands a frei0r filter its frames with each row padded to a multiple of 64 bytes,
    // where the filter API has no stride: a frame whose width is not a multiple of 16 comes out
    // skewed, for every frei0r filter. Said once a process, whichever instance meets it first.
    static std::atomic<bool> said{false};
    if (width % 16 != 0 && !said.exchange(true))
        std::cerr << "vellux frei0r filter: frames " << width << " pixels wide: a host that pads each row to a multiple "
                     "of 64 bytes (ffmpeg does) skews a frame whose width is not a multiple of 16; pad it first "
                     "(ffmpeg: -vf 'pad=ceil(iw/16)*16:ih,frei0r=vellux:...,crop="
                  << width << ":ih:0:0')" << std::endl;
}

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

// The flare for the settings' table or lens, made again only when they change. A table that
// cannot be used is reported, and the default table takes its place; a lens that cannot be
// loaded is reported, and the table's look painted.
engine::Flare& FilterInstance::FlareFor(const FilterSettings& s) {
    const FlareMaking making{s.table, s.lens, s.fNumber, s.blades};
    if (flare_ && making == made_) return *flare_;
    flare_.reset();
    made_ = making;
    lensLook_ = false;
    engine::FlareSetup setup;
    setup.plugin = engine::FindPlugin("");
    if (!s.lens.empty()) {
        try {
            setup.lens = LensLookFor(s);   // the table takes no part
            lensLook_ = true;
            return Made(setup);
        } catch (const std::exception& error) {
            std::string problem = error.what();
            if (problem.starts_with("--lens: ")) problem.erase(0, 8);   // the engine speaks as the tool
            Report("lens: " + problem + "; the table's look is used");
            lensLook_ = false;
            setup.lens.reset();
        }
    }
    setup.table = s.table;
    try {
        return Made(setup);
    } catch (const std::exception& error) {
        if (s.table.empty()) throw;
        Report("table: " + std::string(error.what()) + "; the default table is used");
        setup.table.clear();
        return Made(setup);
    }
}

// A host hands the filter one frame at a time, so each frame is painted on every core (the
// engine's bands: the same pixels on any number of threads); a copy of the plug-in that cannot be
// loaded for it is reported as any problem is.
engine::Flare& FilterInstance::Made(const engine::FlareSetup& setup) {
    flare_ = std::make_unique<engine::Flare>(setup);
    flare_->SetThreads(0);
    flare_->SetWarning([this](const std::string& warning) { Report(warning); });
    return *flare_;
}

// The lens look the settings ask for. The f-number slider reaches wider than most lenses open:
// there the lens's widest is taken (and said once).
engine::LensLookOptions FilterInstance::LensLookFor(const FilterSettings& s) {
    const lens::Prescription prescription = lens::ReadPrescription(engine::FindLens(s.lens));
    const double widest = engine::WidestFNumber(prescription);
    engine::LensLookOptions look;
    look.lens = s.lens;
    look.fNumber = std::max(s.fNumber, widest);
    look.blades = s.blades;
    if (s.fNumber < widest) {
        char text[200];
        std::snprintf(text, sizeof(text), "f-number: f/%g is wider than %s opens; its widest, f/%.2f, is used", s.fNumber,
                      prescription.name.c_str(), widest);
        Report(text);
    }
    return look;
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

// The flare alone, its brightest channel as a straight alpha: `colour` holds each pixel's red,
// green and blue at 4-byte steps, `rgba` gets the host's pixels.
void StraightAlpha(const uint8_t* colour, size_t count, uint8_t* rgba) {
    for (size_t i = 0; i < count; ++i, colour += 4, rgba += 4) {
        const unsigned alpha = std::max({colour[0], colour[1], colour[2]});
        for (int c = 0; c < 3; ++c) rgba[c] = alpha == 0 ? 0 : uint8_t((colour[c] * 255u + alpha / 2) / alpha);
        rgba[3] = uint8_t(alpha);
    }
}

// The host's rows `rows` copied to its output.
void CopyRows(uint32_t* out, const uint32_t* in, int width, engine::Band rows) {
    const size_t row = size_t(width);
    std::memcpy(out + size_t(rows.top) * row, in + size_t(rows.top) * row, size_t(rows.bottom - rows.top) * row * 4);
}

// The host's frame copied to its output, a part of the rows on each core as the painting is: a 4K
// frame is 33 MB, a copy a third as long as the painting on two cores. A thread is started for a
// megapixel or more.
void CopyFrame(uint32_t* out, const uint32_t* in, int width, int height) {
    const int32_t leastRows = int32_t(std::max<size_t>(1, (size_t(1) << 20) / std::max<size_t>(1, size_t(width))));
    engine::ForRowParts({0, height}, 0, leastRows, [&](engine::Band part) { CopyRows(out, in, width, part); });
}

}  // namespace

void FilterInstance::Update(double time, const uint32_t* in, uint32_t* out) {
    const std::lock_guard lock(mutex_);
    const size_t count = size_t(width_) * size_t(height_);
    try {
        const engine::FlareLight light = LightFor(time, in);   // read before `out` (maybe `in`) is written
        engine::Flare& flare = FlareFor(settings_);
        flare.instance().EditSettings(settings_.edits);
        if (lensLook_) {
            if (!settings_.flareOnly && in != out) CopyFrame(out, in, width_, height_);
            PaintLensLook(flare, light, out);
        } else {
            PaintPlugin(flare, light, in, out);
        }
    } catch (const std::exception& error) {
        // Refused before painting (a table, the settings): the frame passes through unchanged.
        Report(error.what());
        if (in != out) std::memcpy(out, in, count * 4);
        flare_.reset();   // tried afresh on the next frame
    }
}

// The light where the parameters put it, or, following the brightest light, where it is found in
// the frame, dimmed as it is hidden and gone (intensity 0) while no light is followed.
engine::FlareLight FilterInstance::LightFor(double time, const uint32_t* in) {
    engine::FlareLight light = LightOn(settings_, width_, height_);
    const bool seeked = Seeked(seeks_, time);
    if (!settings_.followBrightest) {
        StopFollowing(follower_);
        return light;
    }
    if (seeked) StopFollowing(follower_);   // the light is found afresh on this frame
    const FollowedPlace place = TheImageSide().followFrame(follower_, in, width_, height_);
    if (place.found) light.x = place.x, light.y = place.y;
    light.intensity *= place.visible;
    return light;
}

// The flare is painted on black and blended in, so that the dissolve only ever limits the flare
// (blend.h). The plug-in's own add with nothing to fade is the same as painting straight into the
// host's frame, which needs no frame of the filter's own: that is done then, each band of the
// host's frame copied to the output by the thread that paints it, just before (so the painting
// finds its rows in the core's cache).
void FilterInstance::PaintPlugin(engine::Flare& flare, const engine::FlareLight& light, const uint32_t* in,
                                 uint32_t* out) {
    const bool inPlace = !settings_.flareOnly && settings_.blend == engine::Blend::display &&
                         settings_.edits.dissolve.value_or(0.0) == 0.0;
    if (inPlace) {
        const auto copyBand = [&](engine::Band band) { CopyRows(out, in, width_, band); };
        flare.Paint(HostFrame(out, width_, height_), light, 0, in != out ? engine::BandHook(copyBand) : engine::BandHook());
        return;
    }
    if (!settings_.flareOnly && in != out) CopyFrame(out, in, width_, height_);
    if (pixels_.bytes.empty()) pixels_ = engine::PluginPixels(width_, height_, 32);   // made on first use
    std::fill(pixels_.bytes.begin(), pixels_.bytes.end(), uint8_t(0));
    flare.Paint(pixels_.View(), light);
    auto* target = reinterpret_cast<uint8_t*>(out);
    if (settings_.flareOnly) StraightAlpha(pixels_.bytes.data() + 1, pixels_.bytes.size() / 4, target);   // past the alpha byte
    else TheImageSide().blendBytes(target, 4, pixels_.bytes.data(), pixels_.bytes.size() / 4, settings_.blend);
}

// The lens's flare over the host's frame in its own memory; for Flare only, over transparent
// black in the filter's, then made straight into the host's.
void FilterInstance::PaintLensLook(engine::Flare& flare, const engine::FlareLight& light, uint32_t* out) {
    if (!settings_.flareOnly) {
        TheImageSide().compositeOver(flare, width_, height_, reinterpret_cast<uint8_t*>(out), light, settings_.blend);
        return;
    }
    lensOnly_.assign(size_t(width_) * size_t(height_) * 4, 0);
    TheImageSide().compositeOver(flare, width_, height_, lensOnly_.data(), light, engine::Blend::display);
    StraightAlpha(lensOnly_.data(), lensOnly_.size() / 4, reinterpret_cast<uint8_t*>(out));
}

}  // namespace vellux::frei0r
