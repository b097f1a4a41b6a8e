// vellux-smoke: loads the plug-in as a host does and reports what it answers to INFO, CHEK, INIT
// and FINI. Usage: vellux-smoke [path/to/Vellux.so]
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "host/host_session.h"
#include "host/plugin_library.h"

namespace {

using vellux::host::CodeText;
using vellux::host::HostSession;
using vellux::host::PluginLibrary;

std::string Text(const unsigned char* pstr) {
    std::string out;
    for (int i = 1; i <= pstr[0]; ++i) {
        const unsigned char c = pstr[i];
        // The host's character set: show its trade-mark and copyright signs in UTF-8.
        if (c == 0xAA) out += "\u2122";
        else if (c == 0xA9) out += "\u00A9";
        else out += char(c);
    }
    return out;
}

std::string Describe(const PluginLibrary& plugin, HostSession& host, int32_t code) {
    PluginDescribeRec describe{};
    describe.theInfo = host.Info();
    describe.theResult = code;
    plugin.Call(kCmdDescribe, int32_t(sizeof(describe)), &describe);
    return Text(describe.theDescription);
}

template <typename Block>
int32_t Send(const PluginLibrary& plugin, HostSession& host, IFFType command, Block& block) {
    block.theInfo = host.Info();
    return plugin.Call(command, int32_t(sizeof(block)), &block);
}

void Run(const std::string& path) {
    PluginLibrary plugin(path);
    HostSession host;
    std::printf("Loaded %s\n", path.c_str());

    PluginInformationRec info{};
    const int32_t infoResult = Send(plugin, host, kCmdInformation, info);
    std::printf("INFO -> %d\n  type %s, version %d\n  name: %s\n  rights: %s\n  author: %s\n  about: %s\n",
                infoResult, CodeText(info.thePluginType).c_str(), info.thePluginVersion,
                Text(info.thePluginName).c_str(), Text(info.thePluginCopyright).c_str(),
                Text(info.thePluginAuthor).c_str(), Text(info.thePluginDescription).c_str());

    std::printf("CHEK:");
    for (const char* code : {"CHEK", "DESC", "FCHN", "FINI", "GENF", "ICHN", "INFO", "INIT", "INTF", "LCHN",
                             "SETF", "UCHN", "RNDR"}) {
        PluginCheckRec check{};
        check.theCommand = IFFType(uint8_t(code[0])) << 24 | IFFType(uint8_t(code[1])) << 16 |
                           IFFType(uint8_t(code[2])) << 8 | IFFType(uint8_t(code[3]));
        std::printf(" %s=%s", code, Send(plugin, host, kCmdCheck, check) == kNoError ? "yes" : "no");
    }
    std::printf("\n");

    PluginInitializeRec init{};
    const int32_t initResult = Send(plugin, host, kCmdInitialize, init);
    std::printf("INIT -> %d (%s)\n  settings record %zu bytes, working record %zu bytes\n", initResult,
                Describe(plugin, host, initResult).c_str(), host.controlData().size(), host.pluginData().size());

    PluginFinishRec finish{};
    const int32_t finishResult = Send(plugin, host, kCmdFinish, finish);
    std::printf("FINI -> %d (%s)\n", finishResult, Describe(plugin, host, finishResult).c_str());
}

}  // namespace

int main(int argc, char** argv) {
    const std::string path = argc > 1 ? argv[1] : "Vellux.so";
    try {
        Run(path);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vellux-smoke: %s\n", error.what());
        return 1;
    }
    return 0;
}
