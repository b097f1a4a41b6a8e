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
        for (OIIO::ImageBuf::Iterator<float> p(pass); !p.done(); ++p)   // in place: the pass is float RGBA
            p[3] = std::min(std::max({float(p[0]), float(p[1]), float(p[2])}), 1.0f);
    }
    pass.specmod().attribute("oiio:ColorSpace", name);
}

}  // namespace vellux::engine
