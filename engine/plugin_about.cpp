#include "engine/plugin_about.h"

#include <stdexcept>

#include "host/host_session.h"

namespace vellux::engine {

namespace {

constexpr IFFType kCommands[] = {kCmdInitialize,     kCmdFinish,       kCmdInformation,    kCmdCheck,
                                 kCmdDescribe,       kCmdInterface,    kCmdSetup,          kCmdGenerate,
                                 kCmdInitializeChannel, kCmdUpdateChannel, kCmdLoadChannel, kCmdFinishChannel};

// The Mac OS Roman signs the plug-in's texts use, as UTF-8.
const char* RomanSign(unsigned char byte) {
    switch (byte) {
        case 0xA8: return "\u00AE";   // registered
        case 0xA9: return "\u00A9";   // copyright
        case 0xAA: return "\u2122";   // trade mark
        default: return nullptr;
    }
}

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t bar; (bar = text.find('|', start)) != std::string::npos; start = bar + 1) lines.push_back(text.substr(start, bar - start));
    lines.push_back(text.substr(start));
    return lines;
}

}  // namespace

std::string RomanText(const unsigned char* pstr) {
    std::string text;
    for (int i = 1; i <= pstr[0]; ++i) {
        if (const char* sign = RomanSign(pstr[i])) text += sign;
        else text += pstr[i] < 0x80 ? char(pstr[i]) : '?';
    }
    return text;
}

PluginAbout AskPlugin(const host::PluginLibrary& plugin) {
    host::HostSession host;
    PluginInformationRec info{};
    info.theInfo = host.Info();
    if (const int32_t result = plugin.Call(kCmdInformation, int32_t(sizeof(info)), &info); result != kNoError)
        throw std::runtime_error(plugin.path() + ": INFO: the plug-in answered " + std::to_string(result));
    PluginAbout about;
    about.type = info.thePluginType;
    about.version = info.thePluginVersion;
    about.name = RomanText(info.thePluginName);
    about.rights = RomanText(info.thePluginCopyright);
    about.author = SplitLines(RomanText(info.thePluginAuthor));
    about.description = RomanText(info.thePluginDescription);
    for (const IFFType command : kCommands) {
        PluginCheckRec check{};
        check.theInfo = host.Info();
        check.theCommand = command;
        about.checks.emplace_back(command, plugin.Call(kCmdCheck, int32_t(sizeof(check)), &check));
    }
    return about;
}

std::string VelluxVersion() { return VELLUX_VERSION; }

}  // namespace vellux::engine
