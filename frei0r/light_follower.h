// Following the brightest light of a video, one frame at a time, for the filter's "follow the
// brightest light" switch. A host hands the filter 8-bit sRGB frames in order; each is read as
// light as the engine reads an 8-bit plate (its clipped and nearly clipped regions are the
// lights: light_finding.h), and the light followed is associated with what was found as the
// engine's tracker does (light_tracking.h: FollowStep), with only the steps since its last sure
// one kept, so that the state stays small however long the clip.
//
//   no light followed    the light with the most energy found starts being followed
//   seen                 its place (its centroid when it shows enough to be trusted, else where
//                        it was predicted to be) and its visible fraction: its energy against
//                        its energy when last seen whole, whole from kSureFraction of it up (the
//                        few percent a moving light's energy wavers on the pixel grid)
//   hidden               visible fraction 0; after kGiveUpSteps frames unseen it is let go and
//                        the brightest light found is followed afresh
//
// While a light is followed and its velocity known, only the part of the frame around where it is
// predicted to be is read and searched (light_follower.cpp: SearchWindow); the whole frame
// otherwise. The frame buffer lives in the follower (made on first use), so a frame allocates
// nothing per pixel or row. A follower belongs to one filter instance and is used under its lock.
// FollowFrame lives in the filter's image side (image_side.h).
#ifndef VELLUX_FREI0R_LIGHT_FOLLOWER_H
#define VELLUX_FREI0R_LIGHT_FOLLOWER_H

#include <array>
#include <cstdint>
#include <vector>

#include "engine/light_tracking.h"
#include "engine/linear_frame.h"

namespace vellux::frei0r {

// Frames a followed light may stay unseen before the brightest light is looked for afresh.
inline constexpr int kGiveUpSteps = 50;

struct LightFollower {
    std::array<float, 256> linear{};             // an sRGB byte's linear value, as the engine converts it
    bool converting = false;                     // `linear` is filled
    engine::LinearFrame frame;                   // this frame as light
    std::vector<engine::FollowedLight> followed; // none or one
    int32_t step = 0;                            // frames handed to the follower
    int unseen = 0;                              // frames the followed light has been hidden
};

// Where the light is on one frame, in pixels (the centre of pixel (i, j) at (i, j)).
struct FollowedPlace {
    bool found = false;          // false: no light followed (the flare is hidden)
    double x = 0.0, y = 0.0;
    double visible = 0.0;        // 0 (hidden) to 1 (all of it showing)
};

// One frame (RGBA8888, sRGB, width x height) through the follower. Throws std::runtime_error
// when the colour configuration cannot convert sRGB to linear.
FollowedPlace FollowFrame(LightFollower& follower, const uint32_t* rgba, int width, int height);

// Forgets the light followed (the switch turned off, a seek): the next frame starts afresh.
inline void StopFollowing(LightFollower& follower) {
    follower.followed.clear();
    follower.unseen = 0;
}

}  // namespace vellux::frei0r

#endif  // VELLUX_FREI0R_LIGHT_FOLLOWER_H
