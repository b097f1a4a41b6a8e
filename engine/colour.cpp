#include "engine/colour.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <strings.h>

#include <OpenImageIO/color.h>
#include <OpenImageIO/imagebufalgo.h>

#include "engine/plugin_pixels.h"

namespace vellux::engine {

namespace {

OIIO::ColorConfig& Config() {
    static OIIO::ColorConfig config;   // $OCIO, or the built-in configuration
    return config;
}

std::string KnownSpaces() {
    std::string names;
    for (const std::string& name : Config().getColorSpaceNames()) names += (names.empty() ? "" : ", ") + name;
    return names;
}

// The configuration's own spelling of a space, or empty.
std::string KnownSpace(const std::string& name) {
    for (const std::string& known : Config().getColorSpaceNames())
        if (strcasecmp(known.c_str(), name.c_str()) == 0) return known;
    return {};
}

constexpr size_t kLevels = size_t(1) << 16;

// Every level, grey, as the pass holds it (alpha = the level, at most 1), converted by
// ConvertPass; a conversion without crosstalk gives each channel the same value whatever the
// others hold.
std::unique_ptr<LevelTables> MakeLevelTables(const std::string& name) {
    const OIIO::ColorProcessorHandle processor = Config().createColorProcessor(kDisplaySpace, name);
    if (!processor || processor->hasChannelCrosstalk()) return nullptr;
    std::vector<float> pixels(kLevels * 4);
    float* values = pixels.data();
    for (size_t level = 0; level < kLevels; ++level) {
        const float value = FromPluginScaleFloat(uint16_t(level));
        std::fill_n(&values[level * 4], 3, value);
        values[level * 4 + 3] = std::min(value, 1.0f);
    }
    // Converted in rows of a frame's width, as the library converts everywhere else here: one row
    // of all 65,536 levels made the address-sanitised build's leak checker crash at exit (its
    // stop-the-world tracer), and rows of 2,048 do not.
    constexpr size_t kRow = 2048;
    for (size_t first = 0; first < kLevels; first += kRow) {
        OIIO::ImageSpec layout(int(kRow), 1, 4, OIIO::TypeFloat);
        layout.alpha_channel = 3;
        OIIO::ImageBuf row(layout, values + first * 4);
        ConvertPass(row, name);
    }
    auto tables = std::make_unique<LevelTables>();
    for (size_t c = 0; c < 3; ++c) {
        tables->channel[c].resize(kLevels);
        for (size_t level = 0; level < kLevels; ++level) tables->channel[c][level] = values[level * 4 + c];
    }
    return tables;
}

}  // namespace

std::string ChooseColorspace(const std::string& option, const std::string& requested, bool floatPixels) {
    if (requested.empty()) return floatPixels ? kLinearSpace : kDisplaySpace;
    const std::string known = KnownSpace(requested);
    if (known.empty())
        throw std::invalid_argument(option + ": '" + requested + "' is not a colour space of the colour configuration (" +
                                    KnownSpaces() + ")");
    return known;
}

OIIO::ColorProcessorHandle ColourProcessor(const std::string& from, const std::string& to) {
    OIIO::ColorProcessorHandle processor = Config().createColorProcessor(from, to);
    if (!processor) throw std::runtime_error("cannot convert colour from " + from + " to " + to + ": " + Config().geterror());
    return processor;
}

OIIO::ColorProcessorHandle UnlessNoOp(OIIO::ColorProcessorHandle processor) {
    return processor && processor->isNoOp() ? nullptr : processor;
}

bool IsDisplaySpace(const std::string& name) { return strcasecmp(name.c_str(), kDisplaySpace) == 0; }

void ConvertPass(OIIO::ImageBuf& pass, const std::string& name) {
    if (!IsDisplaySpace(name)) {
        // The pass is premultiplied by construction (alpha = its brightest channel), and its
        // colour is what is converted: no unpremultiplying.
        if (!OIIO::ImageBufAlgo::colorconvert(pass, pass, kDisplaySpace, name, false, "", "", &Config(),
                                              OIIO::ROI::All(), 1))
            throw std::runtime_error("cannot convert the flare to " + name + ": " + pass.geterror());
        // In place: the pass is packed float RGBA in its own memory (FlarePassFromPlugin).
        if (pass.nchannels() != 4 || pass.spec().format != OIIO::TypeFloat || pass.localpixels() == nullptr)
            throw std::logic_error("a flare pass is float RGBA in memory");
        float* values = static_cast<float*>(pass.localpixels());
        const size_t count = pass.spec().image_pixels();
        for (size_t i = 0; i < count; ++i) {
            float* p = &values[i * 4];
            p[3] = std::min(std::max({p[0], p[1], p[2]}), 1.0f);
        }
    }
    pass.specmod().attribute("oiio:ColorSpace", name);
}

const LevelTables* LevelTablesFor(const std::string& name) {
    if (IsDisplaySpace(name)) return nullptr;
    static std::mutex mutex;
    static std::map<std::string, std::unique_ptr<LevelTables>> made;   // by space, null where unusable
    {
        const std::lock_guard lock(mutex);
        const auto found = made.find(name);
        if (found != made.end()) return found->second.get();
    }
    // Made without the lock, which is never held while the colour library takes locks of its own;
    // two threads may both make a space's tables, and the first kept is the one every caller gets.
    std::unique_ptr<LevelTables> tables = MakeLevelTables(name);
    const std::lock_guard lock(mutex);
    return made.emplace(name, std::move(tables)).first->second.get();
}

}  // namespace vellux::engine
