// Following the brightest light frame by frame. See light_follower.h.
#include "frei0r/light_follower.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <OpenImageIO/imagebufalgo.h>

#include "engine/colour.h"

namespace vellux::frei0r {

namespace {

// Every byte's linear value through the same conversion ReadLinearFrame makes of an 8-bit plate
// (the byte as v / 255, then sRGB to linear), so a frame reads as its plate would.
void FillConversion(std::array<float, 256>& linear) {
    OIIO::ImageBuf ramp(OIIO::ImageSpec(256, 1, 3, OIIO::TypeFloat));
    for (int v = 0; v < 256; ++v) {
        const float level = float(v) / 255.0f;
        const float rgb[3] = {level, level, level};
        ramp.setpixel(v, 0, rgb, 3);
    }
    const std::string space = engine::ChooseColorspace("--colorspace", "", false);
    const OIIO::ColorProcessorHandle processor = engine::ColourProcessor(space, engine::kLinearSpace);
    if (processor && !processor->isNoOp() && !OIIO::ImageBufAlgo::colorconvert(ramp, ramp, processor.get(), false))
        throw std::runtime_error("cannot convert " + space + " to linear: " + ramp.geterror());
    for (int v = 0; v < 256; ++v) linear[size_t(v)] = ramp.getchannel(v, 0, 0, 0);
}

// The part of the frame looked at, in pixels.
struct Window {
    int x = 0, y = 0, width = 0, height = 0;
};

// A light followed is looked for only around where it is predicted to be: far enough that the
// tracker's reach (a few of its radii and its lost steps' motion) and the light's own size lie
// inside. None followed: the whole frame.
Window SearchWindow(const LightFollower& f, int width, int height) {
    if (f.followed.empty() || !f.followed.front().moving) return {0, 0, width, height};   // it may be anywhere
    const engine::FollowedLight& light = f.followed.front();
    const double steps = double(light.steps.size() - light.sureStep);
    const double x = light.sureX + light.vx * steps, y = light.sureY + light.vy * steps;
    const double half = 4.0 * light.start.radius + 24.0 + std::hypot(light.vx, light.vy) * steps;
    const auto clamp = [](double v, int most) { return std::clamp(int(std::floor(v)), 0, most); };
    const int left = clamp(x - half, width), top = clamp(y - half, height);
    const int right = clamp(x + half + 1.0, width), bottom = clamp(y + half + 1.0, height);
    return {left, top, right - left, bottom - top};
}

// The window of the frame as light, into the follower's own buffer (sized for the whole frame by
// the first, so later frames allocate nothing).
void ReadFrame(LightFollower& f, const uint32_t* rgba, int width, const Window& window) {
    if (!f.converting) {
        FillConversion(f.linear);
        f.converting = true;
    }
    f.frame.width = window.width;
    f.frame.height = window.height;
    f.frame.rgb.resize(size_t(window.width) * size_t(window.height) * 3);
    float* out = f.frame.rgb.data();
    for (int y = window.y; y < window.y + window.height; ++y) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(rgba + size_t(y) * size_t(width) + size_t(window.x));
        for (int x = 0; x < window.width; ++x, bytes += 4, out += 3) {
            out[0] = f.linear[bytes[0]];
            out[1] = f.linear[bytes[1]];
            out[2] = f.linear[bytes[2]];
        }
    }
}

// Only the steps from the last sure one on are needed to go on (prediction and reach count from
// it): the earlier ones are dropped, keeping the vector's memory.
void DropPastSteps(engine::FollowedLight& light) {
    if (light.sureStep == 0) return;
    light.steps.erase(light.steps.begin(), light.steps.begin() + std::ptrdiff_t(light.sureStep));
    light.sureStep = 0;
}

FollowedPlace PlaceOf(const engine::FollowedLight& light) {
    const engine::TrackStep& s = light.steps.back();
    if (s.sighting != engine::Sighting::seen || !(light.unhiddenEnergy > 0.0)) return {true, s.x, s.y, 0.0};
    // A light's measured energy wavers by a few percent as it moves across the pixel grid (the
    // pixels over the threshold come and go at its edge): showing kSureFraction of its unhidden energy or
    // more it is whole, less it dims in proportion, so a moving light does not flicker.
    const double fraction = s.energy / light.unhiddenEnergy;
    if (fraction >= engine::kSureFraction) return {true, s.x, s.y, 1.0};
    // Partly hidden, its centroid is pulled toward what shows: then its predicted place.
    return {true, s.predictedX, s.predictedY, fraction / engine::kSureFraction};
}

}  // namespace

FollowedPlace FollowFrame(LightFollower& f, const uint32_t* rgba, int width, int height) {
    const Window window = SearchWindow(f, width, height);
    ReadFrame(f, rgba, width, window);
    std::vector<engine::FoundLight> found = window.width > 0 && window.height > 0 ? engine::FindLights(f.frame)
                                                                                  : std::vector<engine::FoundLight>{};
    for (engine::FoundLight& light : found) light.x += window.x, light.y += window.y;
    const int32_t step = f.step++;
    if (f.followed.empty()) {
        if (found.empty()) return {};
        f.followed = engine::StartFollowing({found.front()});   // the most energy first
        f.unseen = 0;
    }
    engine::FollowStep(f.followed, step, found);
    engine::FollowedLight& light = f.followed.front();
    const FollowedPlace place = PlaceOf(light);
    f.unseen = light.steps.back().sighting == engine::Sighting::seen ? 0 : f.unseen + 1;
    DropPastSteps(light);
    if (f.unseen >= kGiveUpSteps) f.followed.clear();
    return place;
}

}  // namespace vellux::frei0r
