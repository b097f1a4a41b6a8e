#include "engine/option_values.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <sstream>
#include <stdexcept>

namespace vellux::engine {

namespace {

std::string Trim(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

[[noreturn]] void Fail(const std::string& option, const std::string& text, const std::string& expected) {
    throw std::invalid_argument(option + ": '" + text + "' is not " + expected);
}

template <typename Number>
bool ParseWhole(const std::string& text, Number& value) {
    const char* end = text.data() + text.size();
    const auto [ptr, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && ptr == end;
}

}  // namespace

std::vector<double> ParseNumbers(const std::string& option, const std::string& text, size_t count) {
    const std::string expected = count == 2 ? "two numbers X,Y" : std::to_string(count) + " numbers separated by commas";
    std::vector<double> numbers;
    std::stringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');) {
        double value = 0.0;
        if (!ParseWhole(Trim(part), value) || !std::isfinite(value)) Fail(option, text, expected);
        numbers.push_back(value);
    }
    if (numbers.size() != count || (!text.empty() && text.back() == ',')) Fail(option, text, expected);
    return numbers;
}

FrameSize ParseFrameSize(const std::string& option, const std::string& text) {
    const std::string expected = "a size WxH, e.g. 1920x1080, each from 1 to " + std::to_string(kMaxFrameSide);
    const size_t x = text.find_first_of("xX");
    FrameSize size;
    if (x == std::string::npos || !ParseWhole(text.substr(0, x), size.width) ||
        !ParseWhole(text.substr(x + 1), size.height))
        Fail(option, text, expected);
    if (size.width < 1 || size.height < 1 || size.width > kMaxFrameSide || size.height > kMaxFrameSide)
        Fail(option, text, expected);
    return size;
}

LightColor ParseColor(const std::string& option, const std::string& text) {
    if (!text.empty() && text[0] == '#') {   // #RRGGBB, as colour pickers give it
        const bool hex = text.size() == 7 && std::all_of(text.begin() + 1, text.end(), [](unsigned char c) { return std::isxdigit(c); });
        if (!hex) throw std::invalid_argument(option + ": '" + text + "' must be #RRGGBB, six hexadecimal digits");
        const auto byte = [&](size_t at) { return uint8_t(std::stoi(text.substr(at, 2), nullptr, 16)); };
        return {byte(1), byte(3), byte(5)};
    }
    const std::vector<double> rgb = ParseNumbers(option, text, 3);
    for (double component : rgb) {
        if (component < 0.0 || component > 255.0 || component != std::floor(component))
            throw std::invalid_argument(option + ": '" + text + "' must be three whole numbers from 0 to 255");
    }
    return {uint8_t(rgb[0]), uint8_t(rgb[1]), uint8_t(rgb[2])};
}

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

std::string NumberText(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

}  // namespace vellux::engine
