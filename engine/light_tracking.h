// Following lights through a sequence. Detection (light_finding.h) runs on every frame; a
// tracker only associates what it found with the lights it follows, so it works on positions and
// energies alone:
//
//   each step   every light's position is predicted from its last sure position and velocity; the
//               lights found within its reach (a few of its radii, more the longer it has been
//               lost; before its velocity is known, the nearest light of like energy however far)
//               are its measurement, summed when a bar splits it in pieces; a found light in
//               reach of two followed lights leaves both "merged" for the step (they cross), and a
//               light with nothing in reach is hidden
//   at the end  the visible fraction of each step is its energy against the light's unhidden
//               energy: a light growing or fading steadily (nearing or leaving the camera) is
//               whole, a dip of more than a tenth from one step to the next, looked at from
//               either side, is something in front of it; positions measured while less than kSureFraction of the light showed
//               (biased toward the visible part), merged ones and hidden ones are interpolated
//               between the sure steps around them (past the last sure step: the prediction),
//               and the path is smoothed if asked
//
// A step is one frame of the list tracked, so velocities are per listed frame.
#ifndef VELLUX_ENGINE_LIGHT_TRACKING_H
#define VELLUX_ENGINE_LIGHT_TRACKING_H

#include <array>
#include <cstdint>
#include <vector>

#include "engine/light_finding.h"

namespace vellux::engine {

// The share of its unhidden energy a light must show for its centroid to be trusted as its centre.
inline constexpr double kSureFraction = 0.9;

enum class Sighting { seen, merged, hidden };

struct TrackStep {
    int32_t frame = 0;
    Sighting sighting = Sighting::hidden;
    double x = 0.0, y = 0.0;     // measured (seen) or predicted
    double energy = 0.0;         // the visible energy measured; 0 unless seen
    double predictedX = 0.0, predictedY = 0.0;   // where the light was expected
};

// One light followed: what it was when first found, its velocity and its steps so far.
struct FollowedLight {
    FoundLight start;
    double sureX = 0.0, sureY = 0.0;   // the last sure position
    size_t sureStep = 0;               // its step
    double vx = 0.0, vy = 0.0;         // per step
    bool moving = false;               // the velocity is measured (a second sure sighting)
    double unhiddenEnergy = 0.0;       // its energy when last seen whole
    std::vector<TrackStep> steps;
};

// The lights to follow, as found on the first frame tracked (which is then their first step, as
// any other: FollowStep).
std::vector<FollowedLight> StartFollowing(const std::vector<FoundLight>& lights);

// Adds the step of `frame` to every followed light from the lights found on it.
void FollowStep(std::vector<FollowedLight>& followed, int32_t frame, const std::vector<FoundLight>& found);

// A light's run rebuilt from its steps' sightings and measurements (frame, sighting, and x, y and
// energy where seen), as FollowStep would have followed it from `start`: each step's prediction,
// and the velocity and unhidden energy after it. Runs followed in parts and joined become one run.
FollowedLight Refollow(const FoundLight& start, const std::vector<TrackStep>& steps);

// ---- The finished track ----

struct TrackKey {
    int32_t frame = 0;
    double x = 0.0, y = 0.0;
    double intensity = 0.0;      // the visible fraction, 0 (hidden) to 1
    Sighting sighting = Sighting::hidden;
};

struct LightTrack {
    std::array<double, 3> colour{1.0, 1.0, 1.0};   // as found (light_finding.h)
    double radius = 0.0;
    std::vector<TrackKey> keys;                     // a key per step, in the order tracked
};

// The keys of a followed light; `smooth` is the steadying filter's width in steps (0: none).
LightTrack FinishTrack(const FollowedLight& light, double smooth);

// Two runs from one start frame, one forward and one backward, as one track in frame order (the
// backward run's steps reversed, the start frame's step once).
LightTrack JoinTracks(const LightTrack& backward, const LightTrack& forward);

// A zero-phase Gaussian of standard deviation `sigma` samples over a path, run forward and
// backward alike so that a moving light is not dragged behind; past each end the path goes on
// along the line fitted to its last 3 sigma samples, which keeps a steady motion straight to the
// last sample. sigma 0: unchanged.
std::vector<double> SmoothPath(const std::vector<double>& values, double sigma);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_LIGHT_TRACKING_H
