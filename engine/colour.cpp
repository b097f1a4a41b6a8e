#include "engine/colour.h"

#include <algorithm>
#include <stdexcept>
#include <strings.h>

#include <OpenImageIO/color.h>
#include <OpenImageIO/imagebufalgo.h>

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

}  // namespace

std::string ChooseColorspace(const std::string& option, const std::string& requested, bool floatPixels) {
    if (requested.empty()) return floatPixels ? kLinearSpace : kDisplaySpace;
    const std::string known = KnownSpace(requested);
    if (known.empty())
        throw std::invalid_argument(option + ": '" + requested + "' is not a colour space of the colour configuration (" +
                                    KnownSpaces() + ")");
    return known;
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

}  // namespace vellux::engine
