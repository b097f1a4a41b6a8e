#include "engine/frame_sequence.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <set>
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

// A whole number with an optional minus sign, read from `text` at `at`, which moves past it.
bool ReadNumber(const std::string& text, size_t& at, int64_t& value) {
    const bool negative = at < text.size() && text[at] == '-';
    size_t end = at + (negative ? 1 : 0), start = end;
    value = 0;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) && end - start < 10)
        value = value * 10 + (text[end++] - '0');
    if (end == start) return false;
    if (negative) value = -value;
    at = end;
    return true;
}

// A frame list's numbers in its order: items N, A-B, A-BxSTEP (every STEP-th from A) or A-BySTEP
// (the others), separated by commas; B may be below A and STEP negative, both counting down.
bool EnumerateFrames(const std::string& text, std::vector<int64_t>& numbers) {
    size_t at = 0;
    while (true) {
        int64_t first = 0, last = 0, step = 1;
        bool complement = false;
        if (!ReadNumber(text, at, first)) return false;
        last = first;
        if (at < text.size() && text[at] == '-') {
            if (!ReadNumber(text, ++at, last)) return false;
            if (at < text.size() && (text[at] == 'x' || text[at] == 'y')) {
                complement = text[at] == 'y';
                if (!ReadNumber(text, ++at, step)) return false;
                if (step == 0) step = 1;
            }
        }
        if (step < 0 && first < last) std::swap(first, last);
        const int64_t direction = last < first ? -1 : 1;
        for (int64_t i = first;; i += direction) {
            if ((std::abs(i - first) % std::abs(step) == 0) != complement) numbers.push_back(i);
            if (i == last) break;
        }
        if (at == text.size()) return true;
        if (text[at++] != ',') return false;
    }
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

std::vector<int32_t> ParseFrameList(const std::string& option, const std::string& text) {
    const auto bad = [&](const std::string& why) { return std::invalid_argument(option + ": '" + text + "' " + why); };
    // Bounded before it is expanded: "1-2000000000" would be a list of that many numbers.
    size_t digits = 0;
    for (const char c : text) {
        digits = std::isdigit(static_cast<unsigned char>(c)) ? digits + 1 : 0;
        if (digits > 7) throw bad("has a frame number above " + std::to_string(kMaxFrameNumber));
        if (c == '-' && &c == text.data()) throw bad("starts with a negative frame");
    }
    std::vector<int64_t> numbers;
    if (!EnumerateFrames(text, numbers) || numbers.empty())
        throw bad("is not a frame list (N, A-B, A-BxSTEP, or several of them separated by commas)");
    std::vector<int32_t> frames;
    std::set<int32_t> seen;
    for (const int64_t number : numbers) {
        if (number < 0 || number > kMaxFrameNumber)
            throw bad("has frame " + std::to_string(number) + ", outside 0.." + std::to_string(kMaxFrameNumber));
        if (!seen.insert(number).second) throw bad("names frame " + std::to_string(number) + " twice");
        frames.push_back(int32_t(number));
    }
    return frames;
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
