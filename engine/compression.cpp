#include "engine/compression.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "engine/option_values.h"

namespace vellux::engine {

namespace {

// A whole number from `low` to `high`, or -1.
int Level(const std::string& text, int low, int high) {
    if (text.empty() || text.size() > 3 || !std::all_of(text.begin(), text.end(), ::isdigit)) return -1;
    const int level = std::stoi(text);
    return level >= low && level <= high ? level : -1;
}

constexpr std::array<const char*, 10> kExrMethods{"none", "rle", "zips", "zip", "piz", "pxr24", "b44", "b44a", "dwaa", "dwab"};
constexpr std::array<const char*, 4> kTiffMethods{"none", "lzw", "zip", "packbits"};

const char* const kChoices =
    "png:0 to png:9, exr:none|rle|zips|zip|piz|pxr24|b44|b44a|dwaa|dwab (zip and dwaa/dwab may add a level, "
    "e.g. exr:zip:4), tif:none|lzw|zip|packbits";

template <size_t N>
bool Listed(const std::array<const char*, N>& names, const std::string& name) {
    return std::find_if(names.begin(), names.end(), [&](const char* listed) { return name == listed; }) != names.end();
}

// "zip", "zip:4", "dwaa:45": the method and its level as the image library takes them.
bool ValidExrMethod(const std::string& method) {
    const size_t colon = method.find(':');
    const std::string name = method.substr(0, colon);
    if (!Listed(kExrMethods, name)) return false;
    if (colon == std::string::npos) return true;
    const std::string level = method.substr(colon + 1);
    if (name == "zip" || name == "zips") return Level(level, 1, 9) >= 0;
    return (name == "dwaa" || name == "dwab") && Level(level, 1, 999) >= 0;
}

}  // namespace

std::string ImageFormatOf(const std::filesystem::path& file) {
    const std::string extension = LowerCase(file.extension().string());
    if (extension == ".tiff") return "tif";
    return extension.empty() ? "(none)" : extension.substr(1);
}

Compression ParseCompression(const std::string& option, const std::string& text) {
    Compression compression;
    if (text.empty()) return compression;
    const std::string lower = LowerCase(text);
    const size_t colon = lower.find(':');
    const std::string format = lower.substr(0, colon);
    const std::string rest = colon == std::string::npos ? "" : lower.substr(colon + 1);
    const auto bad = [&] { return std::invalid_argument(option + ": '" + text + "' is not a compression; choose " + kChoices); };
    compression.format = format == "tiff" ? "tif" : format;
    if (compression.format == "png") {
        compression.level = Level(rest, 0, 9);
        if (compression.level < 0) throw bad();
    } else if (compression.format == "exr") {
        if (!ValidExrMethod(rest)) throw bad();
        compression.method = rest;
    } else if (compression.format == "tif") {
        if (!Listed(kTiffMethods, rest)) throw bad();
        compression.method = rest;
    } else {
        throw bad();
    }
    return compression;
}

void CheckCompressionFor(const std::string& option, const Compression& compression, const std::filesystem::path& output) {
    if (compression.format.empty()) return;
    const std::string format = ImageFormatOf(output);
    if (format != compression.format)
        throw std::invalid_argument(option + " " + CompressionText(compression) + " is for ." + compression.format +
                                    " files, and " + output.filename().string() + " is a ." + format + " file");
}

std::string CompressionText(const Compression& compression) {
    if (compression.format.empty()) return "";
    return compression.format + ":" + (compression.format == "png" ? std::to_string(compression.level) : compression.method);
}

}  // namespace vellux::engine
