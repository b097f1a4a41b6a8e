#include "engine/frame_list.h"

#include <regex>
#include <set>
#include <stdexcept>

#include <OpenImageIO/filesystem.h>

#include "engine/frame_sequence.h"

namespace vellux::engine {

std::vector<int32_t> ParseFrameList(const std::string& option, const std::string& text) {
    const auto bad = [&](const std::string& why) { return std::invalid_argument(option + ": '" + text + "' " + why); };
    // The library reads a list up to its first character out of place ("3a" as 3): the whole
    // text must be a list. A number of over seven digits is refused before the library expands
    // the list: "1-2000000000" would be that many numbers.
    static const std::string item = "\\d+(-\\d+([xy]-?\\d+)?)?";
    static const std::regex list("(" + item + ")(,(" + item + "))*");
    static const std::regex tooLong("\\d{8}");
    if (std::regex_search(text, tooLong)) throw bad("has a frame number above " + std::to_string(kMaxFrameNumber));
    if (!text.empty() && text[0] == '-') throw bad("starts with a negative frame");
    std::vector<int> numbers;
    if (!std::regex_match(text, list) || !OIIO::Filesystem::enumerate_sequence(text, numbers) || numbers.empty())
        throw bad("is not a frame list (N, A-B, A-BxSTEP, or several of them separated by commas)");
    std::vector<int32_t> frames;
    std::set<int32_t> seen;
    for (const int number : numbers) {
        if (number < 0 || number > kMaxFrameNumber)
            throw bad("has frame " + std::to_string(number) + ", outside 0.." + std::to_string(kMaxFrameNumber));
        if (!seen.insert(number).second) throw bad("names frame " + std::to_string(number) + " twice");
        frames.push_back(number);
    }
    return frames;
}

}  // namespace vellux::engine
