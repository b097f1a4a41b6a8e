// The sample frame for the quick start: a dusk landscape made procedurally (a sky graded from
// deep blue to a warm horizon, a low sun, thin lit clouds, hazy far hills, darker near hills
// with a tree line, a few buildings with lit windows, and a little film grain). The sun sits
// where `vellux render` puts the light by default. The same size and seed give the same picture:
// the noise comes from an integer hash, not from a library generator.

#ifndef VELLUX_ENGINE_SAMPLE_FRAME_H
#define VELLUX_ENGINE_SAMPLE_FRAME_H

#include <cstdint>
#include <filesystem>
#include <vector>


#include "engine/option_values.h"

namespace vellux::engine {

// 8-bit RGB, row by row.
std::vector<uint8_t> MakeSampleFrame(FrameSize size, uint32_t seed);

void WriteSampleFrame(const std::filesystem::path& output, FrameSize size, uint32_t seed);   // atomically

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SAMPLE_FRAME_H
