#include "engine/footage_tracking.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "engine/frame_sequence.h"
#include "engine/pending_output.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

std::string FrameSizeText(const LinearFrame& frame) { return std::to_string(frame.width) + "x" + std::to_string(frame.height); }

// Reads the frames of a run, checking each against the first frame's size.
class FrameReader {
public:
    FrameReader(const FrameSource& source, const TrackReporting& reporting, size_t count)
        : source_(source), reporting_(reporting), count_(count) {}

    LinearFrame Read(int32_t frame) {
        if (reporting_.cancel && reporting_.cancel->load()) throw std::runtime_error("interrupted");
        LinearFrame linear = source_.read(frame);
        if (!first_) first_ = {frame, linear.width, linear.height};
        else if (linear.width != first_->width || linear.height != first_->height)
            throw std::runtime_error(source_.name(frame) + ": frame " + std::to_string(frame) + " is " + FrameSizeText(linear) +
                                     ", frame " + std::to_string(first_->frame) + " is " + std::to_string(first_->width) +
                                     "x" + std::to_string(first_->height) + "; every frame of a sequence must have one size");
        Report();
        return linear;
    }

    // `n` more frames to read than first said (frames read twice).
    void ReadMore(size_t n) { count_ += n; }

private:
    struct First {
        int32_t frame, width, height;
    };
    void Report() {
        ++done_;
        if (!reporting_.progress) return;
        host::ProgressReport report;
        report.position = float(done_) / float(count_);
        report.heading = "Tracking";
        report.unit = "Frame";
        report.max = int32_t(count_);
        report.value = int32_t(done_);
        reporting_.progress(report);
    }

    const FrameSource& source_;
    const TrackReporting& reporting_;
    size_t count_;
    size_t done_ = 0;
    std::optional<First> first_;
};

std::string PointText(const TrackPoint& at) {
    std::ostringstream text;
    text << at.x << "," << at.y;
    return text.str();
}

struct StartFrame {
    std::vector<FoundLight> found;    // every light of the frame
    std::vector<FoundLight> chosen;   // those to follow
};

StartFrame StartLights(const TrackRequest& request, const std::string& footage, const LinearFrame& frame,
                       int32_t number, bool everyLight = false) {
    const std::vector<FoundLight> found = FindLights(frame, request.threshold);
    std::vector<FoundLight> start;
    if (everyLight) {
        start = found;
    } else if (request.at) {
        const TrackPoint& at = *request.at;
        if (at.x < 0.0 || at.y < 0.0 || at.x > frame.width - 1 || at.y > frame.height - 1)
            throw std::invalid_argument("--at: " + PointText(at) + " is outside frame " + std::to_string(number) + " (" + FrameSizeText(frame) + ")");
        if (const std::optional<FoundLight> nearest = NearestLight(found, at.x, at.y)) start.push_back(*nearest);
    } else {
        start = BrightestLights(found, request.lights);
    }
    return {found, start};
}

[[noreturn]] void NoLightFound(const TrackRequest& request, const std::string& footage, const std::string& where) {
    std::ostringstream threshold;
    threshold << request.threshold;
    throw std::runtime_error(footage + ": no light found on " + where + " (nothing at or above threshold " + threshold.str() + ")");
}

// Follows the lights through a run whose first frame's lights are already found.
std::vector<FollowedLight> FollowRun(const StartFrame& start, const std::vector<int32_t>& run, FrameReader& reader,
                                     const TrackRequest& request) {
    std::vector<FollowedLight> followed = StartFollowing(start.chosen);
    FollowStep(followed, run.front(), start.found);
    for (size_t i = 1; i < run.size(); ++i) FollowStep(followed, run[i], FindLights(reader.Read(run[i]), request.threshold));
    return followed;
}

std::vector<LightTrack> FinishRun(const std::vector<FollowedLight>& followed, const TrackRequest& request) {
    std::vector<LightTrack> tracks;
    for (const FollowedLight& light : followed) tracks.push_back(FinishTrack(light, request.smooth));
    return tracks;
}

}  // namespace

void CheckTrackRequest(const TrackRequest& request) {
    if (request.lights == 0) throw std::invalid_argument("--lights: must be 1 or more");
    if (request.at && request.lights != 1) throw std::invalid_argument("--at: follows one light; leave out --lights");
    if (!(request.threshold > 0.0) || !std::isfinite(request.threshold)) throw std::invalid_argument("--threshold: must be above 0");
    if (!(request.smooth >= 0.0) || !std::isfinite(request.smooth)) throw std::invalid_argument("--smooth: must be 0 or more");
}

FrameSource PlateFrames(const TrackRequest& request) {
    const auto pattern = std::make_shared<FramePattern>(FramePattern::Parse(request.input.string()));
    const std::string colorspace = request.colorspace;
    return {[pattern, colorspace](int32_t frame) { return ReadLinearFrame(pattern->For(frame), colorspace); },
            [pattern](int32_t frame) { return pattern->For(frame); }, request.input.string()};
}

std::vector<LightTrack> TrackFootage(const TrackRequest& request, const TrackReporting& reporting) {
    CheckTrackRequest(request);
    const std::vector<int32_t> frames =
        request.frames.empty() ? FramePattern::Parse(request.input.string()).FramesOnDisk() : request.frames;
    return TrackFrames(request, frames, PlateFrames(request), reporting);
}

std::vector<LightTrack> TrackFrames(const TrackRequest& request, const std::vector<int32_t>& frames,
                                    const FrameSource& source, const TrackReporting& reporting) {
    CheckTrackRequest(request);
    if (frames.empty()) throw std::invalid_argument(source.footage + ": no frames to track");
    size_t startIndex = 0;
    if (request.at && request.at->frame) {
        const auto found = std::find(frames.begin(), frames.end(), *request.at->frame);
        if (found == frames.end())
            throw std::invalid_argument("--at: frame " + std::to_string(*request.at->frame) + " is not among the frames tracked");
        startIndex = size_t(found - frames.begin());
    }
    FrameReader reader(source, reporting, frames.size());
    StartFrame start = StartLights(request, source.footage, reader.Read(frames[startIndex]), frames[startIndex]);
    // The brightest lights are looked for from the first frame on until one has a light: a shot
    // may open before its lights come on or into view. The frames before are followed backward
    // (hidden there), so they are read again.
    while (start.chosen.empty() && !request.at && startIndex + 1 < frames.size()) {
        reader.ReadMore(1);
        ++startIndex;
        start = StartLights(request, source.footage, reader.Read(frames[startIndex]), frames[startIndex]);
    }
    if (start.chosen.empty())
        NoLightFound(request, source.footage,
                     request.at || frames.size() == 1 ? "frame " + std::to_string(frames[startIndex])
                                                      : "frames " + std::to_string(frames.front()) + " to " + std::to_string(frames.back()));
    const std::vector<int32_t> forwardRun(frames.begin() + std::ptrdiff_t(startIndex), frames.end());
    std::vector<LightTrack> tracks = FinishRun(FollowRun(start, forwardRun, reader, request), request);
    if (startIndex == 0) return tracks;
    std::vector<int32_t> backwardRun(frames.begin(), frames.begin() + std::ptrdiff_t(startIndex) + 1);
    std::reverse(backwardRun.begin(), backwardRun.end());
    const std::vector<LightTrack> backward = FinishRun(FollowRun(start, backwardRun, reader, request), request);
    for (size_t i = 0; i < tracks.size(); ++i) tracks[i] = JoinTracks(backward[i], tracks[i]);
    return tracks;
}

std::vector<FollowedLight> FollowFrames(const TrackRequest& request, const std::vector<int32_t>& frames,
                                        const FrameSource& source, bool everyLight, const TrackReporting& reporting) {
    CheckTrackRequest(request);
    if (frames.empty()) throw std::invalid_argument(source.footage + ": no frames to track");
    FrameReader reader(source, reporting, frames.size());
    const StartFrame start = StartLights(request, source.footage, reader.Read(frames.front()), frames.front(), everyLight);
    if (start.chosen.empty()) NoLightFound(request, source.footage, "frame " + std::to_string(frames.front()));
    return FollowRun(start, frames, reader, request);
}

Scene TrackScene(const LightTrack& track, const TrackRequest& request, const fs::path& sceneFolder) {
    Scene scene;
    const auto [first, last] = std::minmax_element(track.keys.begin(), track.keys.end(),
                                                   [](const TrackKey& a, const TrackKey& b) { return a.frame < b.frame; });
    scene.firstFrame = first->frame;
    scene.lastFrame = last->frame;
    if (!request.input.empty())   // else frames from memory: the caller gives the size
        scene.input = fs::absolute(request.input).lexically_relative(fs::absolute(sceneFolder)).string();
    scene.lightUnits = LightUnits::pixels;
    const std::array<int, 3> colour = LightKeyColour(track.colour);
    for (const TrackKey& key : track.keys) {
        LightKey& light = scene.light[key.frame];
        light.x = key.x;
        light.y = key.y;
        light.color = colour;
        light.intensity = key.intensity;
    }
    return scene;
}

std::vector<fs::path> TrackOutputs(const fs::path& output, size_t count) {
    std::vector<fs::path> outputs{output};
    for (size_t i = 2; i <= count; ++i)
        outputs.push_back(output.parent_path() / (output.stem().string() + "." + std::to_string(i) + output.extension().string()));
    return outputs;
}

std::vector<fs::path> WriteTrackScenes(const TrackRequest& request, const TrackReporting& reporting) {
    const std::vector<LightTrack> tracks = TrackFootage(request, reporting);
    const std::vector<fs::path> outputs = TrackOutputs(request.output, tracks.size());
    std::vector<std::unique_ptr<PendingOutput>> pending;
    for (size_t i = 0; i < tracks.size(); ++i) {
        const fs::path folder = outputs[i].parent_path().empty() ? fs::path(".") : outputs[i].parent_path();
        pending.push_back(std::make_unique<PendingOutput>(outputs[i]));
        WriteSceneFile(pending.back()->temporary(), TrackScene(tracks[i], request, folder));
    }
    for (const std::unique_ptr<PendingOutput>& p : pending) p->Commit();
    return outputs;
}

}  // namespace vellux::engine
