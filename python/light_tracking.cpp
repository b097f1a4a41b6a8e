#include "python/light_tracking.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "engine/footage_tracking.h"
#include "engine/frame_sequence.h"

namespace py = pybind11;
namespace fs = std::filesystem;

namespace vellux::python {

namespace {

using engine::FollowedLight;
using engine::FrameSource;
using engine::LightTrack;
using engine::LinearFrame;
using engine::TrackRequest;

// The options as the tool takes them; `at` is (x, y) or (x, y, frame).
TrackRequest RequestOf(size_t lights, const std::optional<std::vector<double>>& at, double threshold, double smooth,
                       const std::optional<std::string>& colorspace) {
    TrackRequest request;
    request.lights = lights;
    request.threshold = threshold;
    request.smooth = smooth;
    request.colorspace = colorspace.value_or("");
    if (at) {
        if (at->size() != 2 && at->size() != 3) throw py::value_error("at: wants (x, y) or (x, y, frame)");
        engine::TrackPoint point{(*at)[0], (*at)[1], std::nullopt};
        if (!std::isfinite(point.x) || !std::isfinite(point.y)) throw py::value_error("at: wants finite numbers");
        if (at->size() == 3) {
            const double frame = (*at)[2];
            if (frame != std::floor(frame) || frame < 0.0 || frame > 1e9) throw py::value_error("at: the frame is not a frame number");
            point.frame = int32_t(frame);
        }
        request.at = point;
    }
    engine::CheckTrackRequest(request);
    return request;
}

// Footage in memory: the frames' pixels, copied from their arrays, by frame number.
struct ArrayFootage {
    std::map<int32_t, LinearFrame> frames;
};

LinearFrame FrameOfArray(const py::array& array, size_t index) {
    const std::string what = "frames[" + std::to_string(index) + "]";
    if (array.dtype().kind() != 'f') throw py::type_error(what + ": wants a float array in scene-linear light");
    if (array.ndim() != 3 || array.shape(2) != 3 || array.shape(0) < 1 || array.shape(1) < 1)
        throw py::value_error(what + ": wants an H x W x 3 array (RGB)");
    const auto packed = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(array);
    LinearFrame frame;
    frame.height = int32_t(array.shape(0));
    frame.width = int32_t(array.shape(1));
    frame.rgb.assign(packed.data(), packed.data() + packed.size());
    return frame;
}

ArrayFootage FootageOfArrays(const std::vector<py::array>& arrays, const std::vector<int32_t>& numbers) {
    if (arrays.size() != numbers.size())
        throw py::value_error("frames: " + std::to_string(numbers.size()) + " numbers for " + std::to_string(arrays.size()) + " arrays");
    ArrayFootage footage;
    for (size_t i = 0; i < arrays.size(); ++i)
        if (!footage.frames.emplace(numbers[i], FrameOfArray(arrays[i], i)).second)
            throw py::value_error("frames: frame " + std::to_string(numbers[i]) + " is listed twice");
    return footage;
}

FrameSource SourceOf(const ArrayFootage& footage) {
    return {[&footage](int32_t frame) { return footage.frames.at(frame); },
            [](int32_t frame) { return "frame " + std::to_string(frame) + "'s array"; }, "the frames"};
}

// Footage from the Python side: a pattern (str) or a list of arrays, with the frame numbers.
struct Footage {
    std::optional<std::string> pattern;
    ArrayFootage arrays;
    std::vector<int32_t> frames;
};

Footage FootageOf(const py::object& source, const std::vector<int32_t>& frames) {
    Footage footage;
    footage.frames = frames;
    if (py::isinstance<py::str>(source)) footage.pattern = source.cast<std::string>();
    else footage.arrays = FootageOfArrays(source.cast<std::vector<py::array>>(), frames);
    return footage;
}

// The frames to track: those given, or for a pattern every frame on disk.
std::vector<int32_t> FramesOf(const Footage& footage) {
    if (!footage.frames.empty() || !footage.pattern) return footage.frames;
    return engine::FramePattern::Parse(*footage.pattern).FramesOnDisk();
}

std::string SceneText(const LightTrack& track, const std::optional<std::string>& pattern, int32_t width, int32_t height) {
    TrackRequest request;
    request.input = pattern.value_or("");
    engine::Scene scene = engine::TrackScene(track, request, ".");
    if (!pattern) {
        scene.width = width;
        scene.height = height;
    }
    return engine::WriteScene(scene);
}

std::vector<std::string> Track(const py::object& source, const std::vector<int32_t>& frameList, size_t lights,
                               const std::optional<std::vector<double>>& at, double threshold, double smooth,
                               const std::optional<std::string>& colorspace) {
    TrackRequest request = RequestOf(lights, at, threshold, smooth, colorspace);
    const Footage footage = FootageOf(source, frameList);
    std::vector<LightTrack> tracks;
    {
        py::gil_scoped_release unlocked;
        if (footage.pattern) request.input = *footage.pattern;
        const std::vector<int32_t> frames = FramesOf(footage);
        tracks = engine::TrackFrames(request, frames, footage.pattern ? engine::PlateFrames(request) : SourceOf(footage.arrays));
    }
    const auto& any = footage.arrays.frames;
    const int32_t width = any.empty() ? 0 : any.begin()->second.width, height = any.empty() ? 0 : any.begin()->second.height;
    std::vector<std::string> scenes;
    for (const LightTrack& track : tracks) scenes.push_back(SceneText(track, footage.pattern, width, height));
    return scenes;
}

// A followed light as plain values: its colour, radius and first position, and its steps
// (frame, sighting, x, y, energy) as measured; the rest is rebuilt from them (Refollow).
using Step = std::tuple<int32_t, int, double, double, double>;
using PlainLight = std::tuple<std::array<double, 3>, double, std::array<double, 2>, std::vector<Step>>;

PlainLight PlainOf(const FollowedLight& light) {
    std::vector<Step> steps;
    for (const engine::TrackStep& s : light.steps) steps.emplace_back(s.frame, int(s.sighting), s.x, s.y, s.energy);
    return {light.start.colour, light.start.radius, {light.start.x, light.start.y}, steps};
}

FollowedLight FollowedOf(const PlainLight& plain) {
    engine::FoundLight start;
    start.colour = std::get<0>(plain);
    start.radius = std::get<1>(plain);
    start.x = std::get<2>(plain)[0];
    start.y = std::get<2>(plain)[1];
    std::vector<engine::TrackStep> steps;
    for (const Step& s : std::get<3>(plain)) {
        const int sighting = std::get<1>(s);
        if (sighting < 0 || sighting > int(engine::Sighting::hidden)) throw py::value_error("a step's sighting is unknown");
        steps.push_back({std::get<0>(s), engine::Sighting(sighting), std::get<2>(s), std::get<3>(s), std::get<4>(s), 0.0, 0.0});
    }
    return engine::Refollow(start, steps);
}

std::vector<PlainLight> FollowChunk(const py::object& source, const std::vector<int32_t>& frames, size_t lights,
                                    const std::optional<std::vector<double>>& at, double threshold,
                                    const std::optional<std::string>& colorspace, bool everyLight) {
    TrackRequest request = RequestOf(lights, at, threshold, 0.0, colorspace);
    const Footage footage = FootageOf(source, frames);
    std::vector<FollowedLight> followed;
    {
        py::gil_scoped_release unlocked;
        if (footage.pattern) request.input = *footage.pattern;
        followed = engine::FollowFrames(request, frames, footage.pattern ? engine::PlateFrames(request) : SourceOf(footage.arrays),
                                        everyLight);
    }
    std::vector<PlainLight> plain;
    for (const FollowedLight& light : followed) plain.push_back(PlainOf(light));
    return plain;
}

std::string FinishJoined(const PlainLight& light, double smooth, const std::optional<std::string>& pattern, int32_t width,
                         int32_t height) {
    if (!(smooth >= 0.0) || !std::isfinite(smooth)) throw py::value_error("--smooth: must be 0 or more");
    const FollowedLight followed = FollowedOf(light);
    if (followed.steps.empty()) throw py::value_error("a light with no steps");
    return SceneText(engine::FinishTrack(followed, smooth), pattern, width, height);
}

}  // namespace

void AddLightTracking(py::module_& m) {
    m.def("track", &Track, py::arg("source"), py::arg("frames"), py::arg("lights"), py::arg("at"), py::arg("threshold"),
          py::arg("smooth"), py::arg("colorspace"));
    m.def("follow_chunk", &FollowChunk, py::arg("source"), py::arg("frames"), py::arg("lights"), py::arg("at"),
          py::arg("threshold"), py::arg("colorspace"), py::arg("every_light"));
    m.def("finish_track", &FinishJoined, py::arg("light"), py::arg("smooth"), py::arg("pattern"), py::arg("width"),
          py::arg("height"));
    m.def("frames_on_disk", [](const std::string& pattern) { return engine::FramePattern::Parse(pattern).FramesOnDisk(); });
    m.def("default_light_threshold", [] { return engine::kDefaultLightThreshold; });
    // A plate's pattern as a scene in `folder` names it, as the tool writes it.
    m.def("plate_relative", [](const fs::path& pattern, const fs::path& folder) {
        return fs::absolute(pattern).lexically_relative(fs::absolute(folder)).string();
    });
}

}  // namespace vellux::python
