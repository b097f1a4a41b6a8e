// The flare's levels with the plug-in's ceiling lifted: where the plug-in's frame reached its
// ceiling, the levels are recovered from darker exposures of the same flare (exposure brackets).
//
// The plug-in adds every element into its 48-bit frame with saturation, so a flare painted on
// black never goes past the full level (16320, 1.0 in a pass). The host cannot change the
// plug-in, but it can change what the plug-in reads: a copy of the flare table with every ring
// stop's colour scaled down paints every ring element that much darker at its own size and shape
// (the halo, whose stops the plug-in makes itself, is darkened through the settings record's ring
// colour). Streaks cannot be darkened that way (their colours are fixed, their size follows the
// intensity), so they are painted once at full brightness in an exposure of their own with the
// ring elements switched off, and the darkened exposures have them switched off instead.
//
// Levels, 1.0 = 16320:
//   where no channel of the painted pixel is at the ceiling, exactly painted / 16320, unless the
//   exposure 16 times darker shows the pixel brighter than its quantisation allows (a table entry
//   the plug-in clamped at 16320, blended into a pixel below the ceiling, below);
//   elsewhere (factor x rings + streaks) / 16320 from the finest exposure that did not clip there
//   and that the next darker one agrees with, the exposures 16 and 256 times darker (kFactors);
//   where even the darkest one clipped, its clipped value (a lower bound).
// Headroom: 256 times the full level (up to 256.0 plus the streaks).
// Quantisation: a recovered level moves in steps of factor / 16320 (about 0.001 from the 1/16
// exposure, 0.016 from the 1/256 one). The darker tables also round every stop and table entry on
// their own scale, and the rounding of a stop grows with the element's intensity (flare x light
// intensity): exposures are trusted to agree within Tolerance (factor x 8 / 16320 plus 1/32 of
// the level). Measured on a 640x360 flare at flare intensity 2: light intensity 4 against four
// times intensity 1 within that; at light intensity 32 (reflections 64 times as bright as
// their stops) the 1/256 exposure is off by up to about 2.5%.
//
// The ceiling. The dissolve lowers the plug-in's ceiling to 16320 x (1 - dissolve) and scales
// every element's brightness by the same 1 - dissolve: a pixel at that lowered ceiling is one
// whose undissolved level reached the full level. It is recovered like any clipped pixel, from
// exposures painted with the same dissolve, so the dissolve fades the recovered levels exactly as
// it fades the rest: (1 - dissolve) x the undissolved levels, never clamped at the dissolved
// ceiling. A channel counts as clipped when it reaches the lower of the plug-in's two ceilings
// (rings: 16320 x (1 - dissolve) truncated in double; streaks: the same product in float,
// truncated), which can differ by one; with a ceiling of 0 (dissolve 1) nothing is painted and
// nothing counts as clipped.
// A table entry that the plug-in clamped at 16320 is blended with its unclamped neighbour into
// pixels that can stay below the ceiling, at any level. Those lie on the clipping element's own
// circle, so every lit pixel of the rows from 8 above the first clipped row to 8 below the last
// is checked against the next darker exposure, and the same again between exposures.
//
// An ExposureBrackets belongs to one Flare and serves the thread that renders with it: its
// exposures are private copies of the plug-in (which keeps process statics), loaded with the
// darkened tables the first time a frame clips and reused from frame to frame. The tables are
// written into a folder of its own in the temporary directory, removed on destruction.
//
// Errors throw (engine.h): PluginError for the plug-in's refusals, std::runtime_error naming the
// file for a table that cannot be read or written, std::invalid_argument for a frame or settings
// record that does not fit.
#ifndef VELLUX_ENGINE_HDR_PASS_H
#define VELLUX_ENGINE_HDR_PASS_H

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "engine/flare.h"
#include "engine/flare_instance.h"
#include "engine/option_values.h"
#include "engine/plugin_pixels.h"

namespace vellux::engine {

class ExposureBrackets {
public:
    // How many times darker each exposure's rings are than the painted frame's, finest first.
    static constexpr std::array<uint32_t, 2> kFactors{16, 256};

    // `setup`: the Flare's own (its plug-in and table; its settings and copy are not used: every
    // frame brings its settings record, and the exposures are always private copies).
    explicit ExposureBrackets(const FlareSetup& setup);
    ~ExposureBrackets();
    ExposureBrackets(const ExposureBrackets&) = delete;
    ExposureBrackets& operator=(const ExposureBrackets&) = delete;

    // `painted`: the 48-bit frame of the flare painted on black at full exposure by the Flare
    // whose settings record for this frame was `control` (Flare::host().controlData(), after any
    // channel keys), with `light`. Writes the levels (above) into `rgb`: packed float RGB of the
    // frame's size. The exposures are painted only when the frame clipped, and only over the rows
    // from the first to the last that need them.
    //
    // On `threads` threads (SetThreads): the exposures painted as Flare::Paint paints (every thread
    // count the same pixels), the levels worked out a part of the rows on each.
    void Levels(const std::vector<uint8_t>& control, const FlareLight& light, const PluginPixels& painted, float* rgb);

    // Threads for Levels and the exposures: 0 is every core, 1 (the default) the caller's alone.
    void SetThreads(int32_t threads);

    // One exposure painted alone on a whole black frame of `size`: the ring elements of bracket
    // `bracket` (kFactors) without the streaks; the streaks without the ring elements. The frame
    // stays valid until the next call. For checking what Levels combines.
    const PluginPixels& PaintRings(size_t bracket, const std::vector<uint8_t>& control, const FlareLight& light,
                                   FrameSize size);
    const PluginPixels& PaintStreaks(const std::vector<uint8_t>& control, const FlareLight& light, FrameSize size);

    // The value at which a channel painted with this settings record counts as clipped (above);
    // 0 when nothing can be painted.
    static uint16_t ClipLevel(const std::vector<uint8_t>& control);

    // How far above a finer source's value (16320 units) an exposure `factor` times darker may put
    // a level of `level` and still agree with it: its quantisation (above), with room to spare.
    static uint32_t Tolerance(uint32_t factor, uint32_t level);

private:
    struct Exposure;

    Exposure& Bracket(size_t bracket);
    const PluginPixels& PaintRingRows(size_t bracket, const std::vector<uint8_t>& control, const FlareLight& light,
                                      FrameSize size, Band band);
    const PluginPixels& PaintStreakRows(const std::vector<uint8_t>& control, const FlareLight& light, FrameSize size,
                                        Band band);
    void Paint(Exposure& exposure, PluginPixels& into, const std::vector<uint8_t>& record, const FlareLight& light,
               FrameSize size, Band band);

    std::filesystem::path plugin_;
    std::filesystem::path table_;     // the Flare's table file
    std::filesystem::path folder_;    // the darkened tables, made with the first exposure
    std::array<std::unique_ptr<Exposure>, kFactors.size()> brackets_;
    PluginPixels streaks_;
    std::vector<uint8_t> record_;     // the settings record an exposure is painted with
    int32_t threads_ = 1;
    std::vector<uint8_t> open_;       // per pixel: whether a darker exposure is still to decide it
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_HDR_PASS_H
