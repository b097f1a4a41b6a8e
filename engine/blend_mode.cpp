// The blend modes by name: in the engine's core, so that a front end checks its options before it
// loads the image library.
#include <array>
#include <stdexcept>

#include "engine/blend.h"

namespace vellux::engine {

namespace {

constexpr std::array<Blend, 3> kBlends{Blend::display, Blend::add, Blend::screen};

}  // namespace

Blend ParseBlend(const std::string& option, const std::string& text) {
    for (const Blend blend : kBlends)
        if (text == BlendName(blend)) return blend;
    throw std::invalid_argument(option + ": '" + text + "' is not a blend mode (" + BlendNames() + ")");
}

const char* BlendName(Blend blend) {
    switch (blend) {
        case Blend::display: return "display";
        case Blend::add: return "add";
        case Blend::screen: return "screen";
    }
    return "display";
}

std::string BlendNames() {
    std::string names;
    for (const Blend blend : kBlends) names += (names.empty() ? "" : ", ") + std::string(BlendName(blend));
    return names;
}

}  // namespace vellux::engine
