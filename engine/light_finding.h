// Finding lights in a frame of footage: the compact regions brighter than a threshold, each
// measured as a light a flare can sit on. Works on scene-linear float frames (linear_frame.h); on
// an 8-bit plate the lights are its clipped and nearly clipped regions, which read as about 1.0.
//
// Positions are in pixels from the top-left, the centre of pixel (i, j) at (i, j): the convention
// of a scene's light keys in pixels. Brightness is luminance (Rec. 709 weights) in linear light.
#ifndef VELLUX_ENGINE_LIGHT_FINDING_H
#define VELLUX_ENGINE_LIGHT_FINDING_H

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "engine/linear_frame.h"

namespace vellux::engine {

// The luminance at or above which a pixel belongs to a light unless the artist says otherwise: a
// clipped 8-bit plate's 250 of 255 and up.
inline constexpr double kDefaultLightThreshold = 0.95;

struct FoundLight {
    double x = 0.0, y = 0.0;     // the centre: the luminance-weighted centroid of the light's pixels
    double energy = 0.0;         // the visible energy: the luminance summed over the light's pixels
    double peak = 0.0;           // the brightest pixel's luminance
    double radius = 0.0;         // the radius of a disc of the light's area, in pixels
    std::array<double, 3> colour{1.0, 1.0, 1.0};   // linear RGB of its unclipped pixels less the background, largest 1
};

// Every light of the frame (8-connected regions at or above `threshold`), the most energy first.
// Throws std::invalid_argument when the threshold is not above 0.
std::vector<FoundLight> FindLights(const LinearFrame& frame, double threshold = kDefaultLightThreshold);

// The `count` lights with the most energy (fewer when the frame holds fewer).
std::vector<FoundLight> BrightestLights(std::vector<FoundLight> lights, size_t count);

// The light whose centre is nearest (x, y); none when there is none.
std::optional<FoundLight> NearestLight(const std::vector<FoundLight>& lights, double x, double y);

// A light's colour as a scene keys it: sRGB-encoded 0..255 a channel, as an artist picks a colour.
std::array<int, 3> LightKeyColour(const std::array<double, 3>& colour);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_LIGHT_FINDING_H
