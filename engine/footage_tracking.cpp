#include "engine/footage_tracking.h"

#include <algorithm>
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
    FrameReader(const TrackRequest& request, const TrackReporting& reporting, size_t count)
        : pattern_(FramePattern::Parse(request.input.string())), request_(request), reporting_(reporting), count_(count) {}

    LinearFrame Read(int32_t frame) {
        if (reporting_.cancel && reporting_.cancel->load()) throw std::runtime_error("interrupted");
        const std::string file = pattern_.For(frame);
        LinearFrame linear = ReadLinearFrame(file, request_.colorspace);
        if (!first_) first_ = {frame, linear.width, linear.height};
        else if (linear.width != first_->width || linear.height != first_->height)
            throw std::runtime_error(file + ": frame " + std::to_string(frame) + " is " + FrameSizeText(linear) + ", frame " +
                                     std::to_string(first_->frame) + " is " + std::to_string(first_->width) + "x" +
                                     std::to_string(first_->height) + "; every frame of a sequence must have one size");
        Report();
        return linear;
    }

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

    FramePattern pattern_;
    const TrackRequest& request_;
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

StartFrame StartLights(const TrackRequest& request, const LinearFrame& frame, int32_t number) {
    const std::vector<FoundLight> found = FindLights(frame, request.threshold);
    std::vector<FoundLight> start;
    if (request.at) {
        const TrackPoint& at = *request.at;
        if (at.x < 0.0 || at.y < 0.0 || at.x > frame.width - 1 || at.y > frame.height - 1)
            throw std::invalid_argument("--at: " + PointText(at) + " is outside frame " + std::to_string(number) + " (" + FrameSizeText(frame) + ")");
        if (const std::optional<FoundLight> nearest = NearestLight(found, at.x, at.y)) start.push_back(*nearest);
    } else {
        start = BrightestLights(found, request.lights);
    }
    if (start.empty()) {
        std::ostringstream threshold;
        threshold << request.threshold;
        throw std::runtime_error(request.input.string() + ": no light found on frame " + std::to_string(number) +
                                 " (nothing at or above threshold " + threshold.str() + ")");
    }
    return {found, start};
}

// Follows the lights through a run whose first frame's lights are already found.
std::vector<LightTrack> FollowRun(const StartFrame& start, const std::vector<int32_t>& run, FrameReader& reader,
                                  const TrackRequest& request) {
    std::vector<FollowedLight> followed = StartFollowing(start.chosen);
    FollowStep(followed, run.front(), start.found);
    for (size_t i = 1; i < run.size(); ++i) FollowStep(followed, run[i], FindLights(reader.Read(run[i]), request.threshold));
    std::vector<LightTrack> tracks;
    for (const FollowedLight& light : followed) tracks.push_back(FinishTrack(light, request.smooth));
    return tracks;
}

}  // namespace

std::vector<LightTrack> TrackFootage(const TrackRequest& request, const TrackReporting& reporting) {
    if (request.lights == 0) throw std::invalid_argument("--lights: must be 1 or more");
    if (!(request.smooth >= 0.0)) throw std::invalid_argument("--smooth: must be 0 or more");
    const std::vector<int32_t> frames =
        request.frames.empty() ? FramePattern::Parse(request.input.string()).FramesOnDisk() : request.frames;
    size_t startIndex = 0;
    if (request.at && request.at->frame) {
        const auto found = std::find(frames.begin(), frames.end(), *request.at->frame);
        if (found == frames.end())
            throw std::invalid_argument("--at: frame " + std::to_string(*request.at->frame) + " is not among the frames tracked");
        startIndex = size_t(found - frames.begin());
    }
    FrameReader reader(request, reporting, frames.size());
    const StartFrame start = StartLights(request, reader.Read(frames[startIndex]), frames[startIndex]);
    const std::vector<int32_t> forwardRun(frames.begin() + std::ptrdiff_t(startIndex), frames.end());
    std::vector<LightTrack> tracks = FollowRun(start, forwardRun, reader, request);
    if (startIndex == 0) return tracks;
    std::vector<int32_t> backwardRun(frames.begin(), frames.begin() + std::ptrdiff_t(startIndex) + 1);
    std::reverse(backwardRun.begin(), backwardRun.end());
    const std::vector<LightTrack> backward = FollowRun(start, backwardRun, reader, request);
    for (size_t i = 0; i < tracks.size(); ++i) tracks[i] = JoinTracks(backward[i], tracks[i]);
    return tracks;
}

Scene TrackScene(const LightTrack& track, const TrackRequest& request, const fs::path& sceneFolder) {
    Scene scene;
    const auto [first, last] = std::minmax_element(track.keys.begin(), track.keys.end(),
                                                   [](const TrackKey& a, const TrackKey& b) { return a.frame < b.frame; });
    scene.firstFrame = first->frame;
    scene.lastFrame = last->frame;
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
