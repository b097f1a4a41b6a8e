// Following the brightest light frame by frame. See light_follower.h.
#include "frei0r/light_follower.h"

#include <algorithm>
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

// The frame as light, into the follower's own buffer.
void ReadFrame(LightFollower& f, const uint32_t* rgba, int width, int height) {
    if (!f.converting) {
        FillConversion(f.linear);
        f.converting = true;
    }
    const size_t count = size_t(width) * size_t(height);
    f.frame.width = width;
    f.frame.height = height;
    f.frame.rgb.resize(count * 3);   // once: the size never changes for an instance
    const auto* bytes = reinterpret_cast<const uint8_t*>(rgba);
    float* out = f.frame.rgb.data();
    for (size_t i = 0; i < count; ++i, bytes += 4, out += 3) {
        out[0] = f.linear[bytes[0]];
        out[1] = f.linear[bytes[1]];
        out[2] = f.linear[bytes[2]];
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
    if (s.sighting != engine::Sighting::seen || !(light.peakEnergy > 0.0)) return {true, s.x, s.y, 0.0};
    // A light's measured energy wavers by a few percent as it moves across the pixel grid (the
    // pixels over the threshold come and go at its edge): showing kSureFraction of its peak or
    // more it is whole, less it dims in proportion, so a moving light does not flicker.
    const double fraction = s.energy / light.peakEnergy;
    if (fraction >= engine::kSureFraction) return {true, s.x, s.y, 1.0};
    // Partly hidden, its centroid is pulled toward what shows: then its predicted place.
    return {true, s.predictedX, s.predictedY, fraction / engine::kSureFraction};
}

}  // namespace

FollowedPlace FollowFrame(LightFollower& f, const uint32_t* rgba, int width, int height) {
    ReadFrame(f, rgba, width, height);
    const std::vector<engine::FoundLight> found = engine::FindLights(f.frame);
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

void StopFollowing(LightFollower& f) {
    f.followed.clear();
    f.unseen = 0;
}

}  // namespace vellux::frei0r
