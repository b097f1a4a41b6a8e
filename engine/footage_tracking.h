// `vellux track`: lights found in an image sequence and followed through it, written as scenes
// that `vellux render --scene` renders on the same plate as they are.
//
//   start     the `lights` lights with the most energy on the first frame listed, or the light
//             nearest `at` on its frame (the first listed unless it names one); from a later
//             frame the lights are followed forward to the end and backward to the first frame
//   each      frame read in scene-linear (linear_frame.h), its lights found (light_finding.h) and
//             given to the lights followed (light_tracking.h)
//   scenes    one a light, the frames' range, the plate's pattern relative to the scene's folder,
//             a key per frame tracked (position, visible fraction as intensity, the light's
//             colour); the first light's scene is `output`, the others' beside it as NAME.2.json,
//             NAME.3.json, ... Nothing is written unless every scene is complete.
//
// Errors throw with the message the tool prints: no light found, a frame of another size than
// the first (naming the frame and its file), a point outside the frame, an unreadable frame.
#ifndef VELLUX_ENGINE_FOOTAGE_TRACKING_H
#define VELLUX_ENGINE_FOOTAGE_TRACKING_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/light_finding.h"
#include "engine/light_tracking.h"
#include "engine/scene.h"
#include "host/host_session.h"

namespace vellux::engine {

struct TrackPoint {
    double x = 0.0, y = 0.0;
    std::optional<int32_t> frame;   // none: the first frame listed
};

struct TrackRequest {
    std::filesystem::path input;          // a frame pattern (frame_sequence.h)
    std::vector<int32_t> frames;          // in order; empty: every frame on disk
    std::filesystem::path output;         // the first light's scene
    size_t lights = 1;
    std::optional<TrackPoint> at;         // the light nearest this point instead of the brightest
    double threshold = kDefaultLightThreshold;
    double smooth = 0.0;                  // the path filter's width in frames; 0: none
    std::string colorspace;               // the plate's; empty: linear for float, sRGB for integer
};

struct TrackReporting {
    host::ProgressSink progress;          // frames read so far
    const std::atomic<bool>* cancel = nullptr;
};

// Throws std::invalid_argument, in the tool's words, for a request that cannot be tracked: no
// lights, `at` with more than one light, a threshold not above 0, a negative smoothing.
void CheckTrackRequest(const TrackRequest& request);

// The tracks, a light each, keys in frame-list order.
std::vector<LightTrack> TrackFootage(const TrackRequest& request, const TrackReporting& reporting = {});

// ---- Frames from elsewhere than the request's plate (arrays in memory, a part of a list) ----

// Where the frames come from: a frame's pixels by its number, and names for messages.
struct FrameSource {
    std::function<LinearFrame(int32_t frame)> read;
    std::function<std::string(int32_t frame)> name;   // a frame's name (its file)
    std::string footage;                               // the whole's name (the pattern)
};

// The request's plate, frame by frame from its files.
FrameSource PlateFrames(const TrackRequest& request);

// TrackFootage over `frames` (in order, at least one) read from `source`; the request's input and
// frames are not used.
std::vector<LightTrack> TrackFrames(const TrackRequest& request, const std::vector<int32_t>& frames,
                                    const FrameSource& source, const TrackReporting& reporting = {});

// The lights followed forward over `frames`, unfinished (FinishTrack), for runs joined later: the
// lights the request chooses on the first frame, or with `everyLight` every light found there.
std::vector<FollowedLight> FollowFrames(const TrackRequest& request, const std::vector<int32_t>& frames,
                                        const FrameSource& source, bool everyLight, const TrackReporting& reporting = {});

// A track as a scene of the request's plate; `sceneFolder` is where the scene is written. With no
// input the scene has no plate (and no size: the caller sets it).
Scene TrackScene(const LightTrack& track, const TrackRequest& request, const std::filesystem::path& sceneFolder);

// Where each light's scene goes: `output`, then NAME.2.EXT, NAME.3.EXT, ...
std::vector<std::filesystem::path> TrackOutputs(const std::filesystem::path& output, size_t count);

// TrackFootage, then every scene written; returns the files written.
std::vector<std::filesystem::path> WriteTrackScenes(const TrackRequest& request, const TrackReporting& reporting = {});

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FOOTAGE_TRACKING_H
