#include "engine/frame_sequence.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <stdexcept>

namespace vellux::engine {

namespace {

[[noreturn]] void BadPattern(const std::string& text, const std::string& problem) {
    throw std::invalid_argument("'" + text + "': " + problem);
}

// A whole number 0 or more in plain decimal, within 32 bits.
bool ParseFrame(const std::string& text, int32_t& frame) {
    if (text.empty() || text.size() > 10) return false;
    int64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    if (value > std::numeric_limits<int32_t>::max()) return false;
    frame = int32_t(value);
    return true;
}

}  // namespace

FramePattern FramePattern::Parse(const std::string& text) {
    FramePattern pattern;
    pattern.text_ = text;
    std::string* out = &pattern.prefix_;
    const auto field = [&](int width) {
        if (pattern.hasField_) BadPattern(text, "more than one frame number field");
        pattern.hasField_ = true;
        pattern.width_ = width;
        out = &pattern.suffix_;
    };
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '#') {
            size_t end = i;
            while (end < text.size() && text[end] == '#') ++end;
            field(int(end - i));
            i = end - 1;
            continue;
        }
        if (text[i] != '%') {
            *out += text[i];
            continue;
        }
        if (i + 1 < text.size() && text[i + 1] == '%') {
            *out += '%';
            ++i;
        } else if (i + 1 < text.size() && text[i + 1] == 'd') {
            field(0);
            ++i;
        } else if (i + 3 < text.size() && text[i + 1] == '0' && text[i + 2] >= '1' && text[i + 2] <= '9' &&
                   text[i + 3] == 'd') {
            field(text[i + 2] - '0');
            i += 3;
        } else {
            BadPattern(text, "a percent sign must start %d, %0Nd (N from 1 to 9) or %%");
        }
    }
    return pattern;
}

std::string FramePattern::For(int32_t frame) const {
    if (!hasField_) return prefix_;
    std::string digits = std::to_string(frame);
    if (int(digits.size()) < width_) digits.insert(0, size_t(width_) - digits.size(), '0');
    return prefix_ + digits + suffix_;
}

std::vector<int32_t> FramePattern::FramesOnDisk() const {
    if (!hasField_) throw std::invalid_argument(text_ + ": has no frame number field (####, %04d or %d)");
    // The folder is listed for names of prefix, digits, suffix: at least the field's width of
    // digits (frame 10000 of "####" has five).
    const std::filesystem::path pattern(prefix_ + "#" + suffix_);
    const std::string name = pattern.filename().string();
    const std::string before = name.substr(0, name.find('#')), after = name.substr(name.find('#') + 1);
    const std::filesystem::path folder = pattern.has_parent_path() ? pattern.parent_path() : ".";
    std::vector<int32_t> frames;
    std::error_code error;
    if (after.find('/') == std::string::npos) {
        for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
            const std::string file = entry.path().filename().string();
            if (file.size() <= before.size() + after.size() || file.compare(0, before.size(), before) != 0 ||
                file.compare(file.size() - after.size(), after.size(), after) != 0)
                continue;
            const std::string digits = file.substr(before.size(), file.size() - before.size() - after.size());
            int32_t frame = 0;
            if (int(digits.size()) >= width_ && ParseFrame(digits, frame)) frames.push_back(frame);
        }
    }
    std::sort(frames.begin(), frames.end());
    frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
    if (frames.empty()) throw std::runtime_error(text_ + ": no frames found");
    return frames;
}

FrameRange ParseFrameRange(const std::string& option, const std::string& text) {
    FrameRange range;
    const size_t dash = text.find('-');
    const bool good = dash == std::string::npos
                          ? ParseFrame(text, range.first) && (range.last = range.first, true)
                          : ParseFrame(text.substr(0, dash), range.first) && ParseFrame(text.substr(dash + 1), range.last);
    if (!good)
        throw std::invalid_argument(option + ": '" + text + "' must be a frame N or a range A-B of whole numbers 0 or more");
    if (range.last < range.first)
        throw std::invalid_argument(option + ": '" + text + "': the last frame is before the first");
    return range;
}

std::vector<int32_t> FramesOf(const FrameRange& range) {
    std::vector<int32_t> frames;
    for (int32_t frame = range.first; frame <= range.last; ++frame) frames.push_back(frame);
    return frames;
}

std::string RangeText(const FrameRange& range) {
    return range.first == range.last ? std::to_string(range.first)
                                     : std::to_string(range.first) + "-" + std::to_string(range.last);
}

}  // namespace vellux::engine
