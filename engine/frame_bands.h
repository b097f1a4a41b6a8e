// One frame painted in bands, on one thread or several, with the same pixels whatever the number.
//
// The partition: bands of kFrameBandRows rows from the frame's top (the last one shorter), the
// same for every thread count. Every band is painted after a SETF of its own, then by one or more
// GENF from its top down (`bandRows` rows each; 0: the band in one).
//
// Why a SETF per band. The plug-in steps its streak edges from row to row, adding each edge's step
// in float, within one run of bands. A band handed to a copy after a fresh SETF, below rows it
// never painted, places every edge begun above it in one move (the edge's start plus the skipped
// rows times its step), exactly on its row; a run from the frame's top reaches the same row by one
// addition a row, whose float rounding can differ in the last bit, and so, now and then, by a
// column. A copy handed bands out of order (after a gap in its own run) would step a running edge
// over the gap in yet another way. So the copy that paints a band, and what it painted before,
// must not matter: each band starts from its own SETF, and the picture depends only on the
// partition. Its first band is painted exactly as one run from the top; below it an edge may sit a
// column from where one run of the whole frame would put it.
//
// Why copies and not threads on one copy: the plug-in keeps process statics (the host's callback,
// its records) and serves one caller at a time, so every thread paints with a private copy of it
// (host/plugin_library.h) and its own host session.
//
// Progress and cancel: the painters' reports are counted together as rows of the whole frame and
// handed to the caller's sink one at a time, under a lock, from whichever thread painted. A cancel
// (the caller's flag), or a band that fails, stops every painter at its next report; the call then
// throws the first failure (a cancel: the plug-in's PluginError 4), after every thread has ended.
#ifndef VELLUX_ENGINE_FRAME_BANDS_H
#define VELLUX_ENGINE_FRAME_BANDS_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include "engine/flare_instance.h"
#include "engine/plugin_pixels.h"
#include "host/host_session.h"

namespace vellux::engine {

inline constexpr int32_t kFrameBandRows = 64;

// The partition of a frame of `height` rows.
std::vector<Band> FrameBands(int32_t height);

// The rows of whole partition bands that cover `rows` (of a frame of `height` rows).
Band CoveringBands(Band rows, int32_t height);

// Threads asked for, as painted: 0 is every core; never more than the frame has bands.
int32_t FrameThreads(int32_t asked, int32_t height);

// One painter: a plug-in instance and the host session that serves it.
struct BandPainter {
    PluginInstance* instance = nullptr;
    host::HostSession* host = nullptr;
};

// What a painter does to a band's rows before it paints them (a host copying its frame there, so
// the rows are still in the core's cache when painted); on the painter's thread.
using BandHook = std::function<void(Band)>;

// SETF and GENF for every band of the partition that meets `rows`, painted whole, by
// painters.size() threads (the first painter on the calling thread), each band taken in order by
// the next painter free, after `beforeBand` (may be empty). Progress goes to `progress` (may be
// empty), stopped by `cancel` (may be null). The painters' own sinks and flags are theirs again
// afterwards.
void PaintFrameBands(const std::vector<BandPainter>& painters, const FlareLight& light, const PixelView& pixels,
                     Band rows, int32_t bandRows, const host::ProgressSink& progress,
                     const std::atomic<bool>* cancel, const BandHook& beforeBand = {});

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FRAME_BANDS_H
