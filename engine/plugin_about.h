// What the plug-in says about itself: INFO (name, type and version, rights, author lines,
// description) and CHEK for each of the twelve commands a host may send. Neither needs INIT. The
// plug-in's texts are Mac OS Roman: its trade-mark byte (0xAA) reads as ™, copyright (0xA9)
// as ©, registered (0xA8) as ®, any other byte above 127 as '?'.
#ifndef VELLUX_ENGINE_PLUGIN_ABOUT_H
#define VELLUX_ENGINE_PLUGIN_ABOUT_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/plugin_library.h"
#include "vellux/plugin_records.h"

namespace vellux::engine {

struct PluginAbout {
    IFFType type = 0;
    int32_t version = 0;
    std::string name;
    std::string rights;
    std::vector<std::string> author;                    // the author text split at '|'
    std::string description;
    std::vector<std::pair<IFFType, int32_t>> checks;    // command, CHEK's answer (0: supported)
};

// Sends INFO and the CHEKs; throws std::runtime_error naming the plug-in when INFO fails.
PluginAbout AskPlugin(const host::PluginLibrary& plugin);

// This build's version ("0.1.0").
std::string VelluxVersion();

// A length-prefixed Mac OS Roman string as UTF-8 (see above).
std::string RomanText(const unsigned char* pstr);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_PLUGIN_ABOUT_H
