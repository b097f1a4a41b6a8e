// The sample shot: the sample frame's dusk landscape (sample_frame.h) as a sequence, with a lamp
// (a car's headlight, say) crossing it left to right on a known path, passing behind a lamp post
// on the way: footage to try `vellux track` on. The lamp is far brighter than white, so an 8-bit
// frame clips it as a camera would; the post hides it wholly for a frame or so and partly on
// either side.
#ifndef VELLUX_ENGINE_SAMPLE_SHOT_H
#define VELLUX_ENGINE_SAMPLE_SHOT_H

#include <array>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "engine/option_values.h"

namespace vellux::engine {

// The lamp's centre in pixels (pixel (i, j) centred on (i, j)) at step `index` of `count` (0 to count - 1).
std::array<double, 2> SampleShotLamp(FrameSize size, int32_t index, int32_t count);

// 8-bit RGB, row by row: the landscape of `seed` with the lamp at step `index` and the post.
std::vector<uint8_t> MakeSampleShotFrame(FrameSize size, uint32_t seed, int32_t index, int32_t count);

// The frames of `frames`, in order, as the steps of the shot, each written atomically to the
// frame pattern `output` (frame_sequence.h).
void WriteSampleShot(const std::filesystem::path& output, const std::vector<int32_t>& frames, FrameSize size, uint32_t seed);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SAMPLE_SHOT_H
