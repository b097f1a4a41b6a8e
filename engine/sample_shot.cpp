#include "engine/sample_shot.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <OpenImageIO/imagebuf.h>

#include "engine/frame_sequence.h"
#include "engine/pending_output.h"
#include "engine/sample_frame.h"

namespace vellux::engine {

namespace {

// The lamp: its radius and edge as shares of the frame's height, its linear level and colour.
constexpr double kLampRadius = 0.02, kLampEdge = 0.003, kLampLevel = 30.0;
constexpr std::array<double, 3> kLampColour{1.0, 0.82, 0.55};
// The post: its left edge and width as shares of the frame's width, its colour (8-bit sRGB).
constexpr double kPostLeft = 0.55, kPostWidth = 0.06;
constexpr std::array<uint8_t, 3> kPostColour{14, 12, 16};

double Decode(uint8_t level) {
    const double v = level / 255.0;
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

uint8_t EncodeSrgb(double linear) {
    const double c = std::clamp(linear, 0.0, 1.0);
    return uint8_t(std::lround((c <= 0.0031308 ? 12.92 * c : 1.055 * std::pow(c, 1.0 / 2.4) - 0.055) * 255.0));
}

void AddLamp(std::vector<uint8_t>& pixels, FrameSize size, const std::array<double, 2>& centre) {
    const double radius = kLampRadius * size.height, edge = kLampEdge * size.height;
    const double reach = radius + 6.0 * edge + 1.0;
    const int x0 = std::max(0, int(centre[0] - reach)), x1 = std::min(size.width - 1, int(centre[0] + reach) + 1);
    const int y0 = std::max(0, int(centre[1] - reach)), y1 = std::min(size.height - 1, int(centre[1] + reach) + 1);
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) {
            const double d = std::hypot(x - centre[0], y - centre[1]);
            const double light = kLampLevel * 0.5 * std::erfc((d - radius) / (std::sqrt(2.0) * edge));
            uint8_t* out = &pixels[(size_t(y) * size_t(size.width) + size_t(x)) * 3];
            for (size_t c = 0; c < 3; ++c) out[c] = EncodeSrgb(Decode(out[c]) + light * kLampColour[c]);
        }
}

void AddPost(std::vector<uint8_t>& pixels, FrameSize size) {
    const int left = int(std::lround(kPostLeft * size.width));
    const int right = std::min(size.width, left + std::max(1, int(std::lround(kPostWidth * size.width))));
    for (int y = 0; y < size.height; ++y)
        for (int x = left; x < right; ++x)
            std::copy(kPostColour.begin(), kPostColour.end(), &pixels[(size_t(y) * size_t(size.width) + size_t(x)) * 3]);
}

}  // namespace

std::array<double, 2> SampleShotLamp(FrameSize size, int32_t index, int32_t count) {
    const double t = count > 1 ? double(index) / double(count - 1) : 0.0;
    return {(0.1 + 0.8 * t) * size.width, (0.66 - 0.08 * std::sin(M_PI * t)) * size.height};
}

std::vector<uint8_t> MakeSampleShotFrame(FrameSize size, uint32_t seed, int32_t index, int32_t count) {
    std::vector<uint8_t> pixels = MakeSampleFrame(size, seed);
    AddLamp(pixels, size, SampleShotLamp(size, index, count));
    AddPost(pixels, size);
    return pixels;
}

void WriteSampleShot(const std::filesystem::path& output, const std::vector<int32_t>& frames, FrameSize size, uint32_t seed) {
    const FramePattern pattern = FramePattern::Parse(output.string());
    if (!pattern.HasField())
        throw std::invalid_argument("-o: " + output.string() + " has no frame number field (####, %04d) for --frames");
    for (size_t i = 0; i < frames.size(); ++i) {
        const std::vector<uint8_t> pixels = MakeSampleShotFrame(size, seed, int32_t(i), int32_t(frames.size()));
        const std::filesystem::path file = pattern.For(frames[i]);
        OIIO::ImageBuf image(OIIO::ImageSpec(size.width, size.height, 3, OIIO::TypeDesc::UINT8));
        image.set_pixels(image.roi(), OIIO::TypeDesc::UINT8, pixels.data());
        PendingOutput pending(file);
        if (!image.write(pending.temporary().string(), OIIO::TypeUnknown, file.string()))
            throw std::runtime_error(file.string() + ": cannot write the image: " + image.geterror());
        pending.Commit();
    }
}

}  // namespace vellux::engine
