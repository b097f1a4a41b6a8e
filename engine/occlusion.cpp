#include "engine/occlusion.h"
#include "engine/frame_image.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace vellux::engine {

OcclusionMask OcclusionMask::Read(const std::filesystem::path& file, FrameSize frame) {
    OIIO::ImageBuf image = OpenImageFile(file, 0);   // values as stored, alpha unassociated
    if (!image.read(0, 0, true, OIIO::TypeFloat))
        throw std::runtime_error(file.string() + ": cannot read the occlusion mask: " + ImageErrorText(image));
    const OIIO::ImageSpec& layout = image.spec();
    if (layout.width != frame.width || layout.height != frame.height)
        throw std::runtime_error(file.string() + ": the occlusion mask is " + std::to_string(layout.width) + "x" +
                                 std::to_string(layout.height) + " pixels, the frame " + std::to_string(frame.width) +
                                 "x" + std::to_string(frame.height));
    return FromImage(image);
}

OcclusionMask OcclusionMask::FromImage(const OIIO::ImageBuf& image) {
    const OIIO::ImageSpec& layout = image.spec();
    const size_t channels = size_t(layout.nchannels);
    const size_t count = size_t(layout.width) * size_t(layout.height);
    std::vector<float> values(count * channels);
    image.get_pixels(image.roi(), OIIO::TypeFloat, values.data());

    std::vector<int> colour;
    for (int c = 0; c < layout.nchannels && colour.size() < 3; ++c)
        if (c != layout.alpha_channel) colour.push_back(c);
    std::vector<float> coverage(count);
    for (size_t i = 0; i < count; ++i) {
        const float* pixel = &values[i * channels];
        float value = 0.0f;
        if (layout.alpha_channel >= 0) value = pixel[layout.alpha_channel];
        else if (colour.size() == 3) value = 0.2126f * pixel[colour[0]] + 0.7152f * pixel[colour[1]] + 0.0722f * pixel[colour[2]];
        else if (!colour.empty()) value = pixel[colour[0]];
        coverage[i] = std::isnan(value) ? 0.0f : std::clamp(value, 0.0f, 1.0f);
    }
    return OcclusionMask(layout.width, layout.height, std::move(coverage));
}

double OcclusionMask::VisibleFraction(double x, double y, double radius) const {
    const double r = std::max(radius, kMinOcclusionRadius);
    // Rows and columns whose centres can lie inside the disc, clipped to the image.
    const auto first = [](double low) { return std::ceil(low - 0.5); };
    const auto last = [](double high) { return std::floor(high - 0.5); };
    const double top = std::max(first(y - r), 0.0), bottom = std::min(last(y + r), double(height_ - 1));
    const double left = std::max(first(x - r), 0.0), right = std::min(last(x + r), double(width_ - 1));
    double hidden = 0.0;
    size_t inside = 0;
    for (double row = top; row <= bottom; ++row) {
        const double dy = row + 0.5 - y;
        for (double column = left; column <= right; ++column) {
            const double dx = column + 0.5 - x;
            if (dx * dx + dy * dy > r * r) continue;
            hidden += Coverage(int32_t(column), int32_t(row));
            ++inside;
        }
    }
    return inside == 0 ? 1.0 : 1.0 - hidden / double(inside);
}

FlareLight OccludedLight(FlareLight light, const OcclusionMask& mask) {
    light.intensity *= mask.VisibleFraction(light.x, light.y, light.radius);
    return light;
}

}  // namespace vellux::engine
