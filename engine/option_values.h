// Reading option values written as text: lists of numbers ("0.3,0.35", "255,200,120") and frame
// sizes ("1920x1080"). Errors throw std::invalid_argument naming the option and the text.
#ifndef VELLUX_ENGINE_OPTION_VALUES_H
#define VELLUX_ENGINE_OPTION_VALUES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vellux::engine {

struct FrameSize {
    int32_t width = 0;
    int32_t height = 0;
};

struct LightColor {
    uint8_t red = 255;
    uint8_t green = 255;
    uint8_t blue = 255;
};

// Exactly `count` finite numbers separated by commas (spaces around them allowed).
std::vector<double> ParseNumbers(const std::string& option, const std::string& text, size_t count);

// WxH, each from 1 to kMaxFrameSide.
inline constexpr int32_t kMaxFrameSide = 65535;
FrameSize ParseFrameSize(const std::string& option, const std::string& text);

// #RRGGBB, or R,G,B whole numbers from 0 to 255.
LightColor ParseColor(const std::string& option, const std::string& text);

std::string NumberText(double value);   // as a person writes it: 0.5, 255, 1e+300, nan
std::string LowerCase(std::string text);   // ASCII letters only

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_OPTION_VALUES_H
