// The plug-in in a process that exports none of the host's services: what its library exports,
// and what its service entries answer when nothing provides them.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "kit/host_services.h"
#include "vellux/plugin_records.h"

namespace {

const char* const kServiceNames[] = {
#define KV_SERVICE(Result, Name, Params, Args) #Name,
#include "kit/host_services.def"
#undef KV_SERVICE
};

// Names of the symbols a shared library defines for others: global or weak, not undefined.
std::set<std::string> ExportedSymbols(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> image((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    auto at = [&](size_t offset, size_t size) -> const char* {
        if (offset > image.size() || size > image.size() - offset) throw std::runtime_error("truncated ELF file");
        return image.data() + offset;
    };
    ElfW(Ehdr) header;
    std::memcpy(&header, at(0, sizeof(header)), sizeof(header));
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) throw std::runtime_error("not an ELF file");
    std::set<std::string> names;
    for (size_t i = 0; i < header.e_shnum; ++i) {
        ElfW(Shdr) section;
        std::memcpy(&section, at(header.e_shoff + i * header.e_shentsize, sizeof(section)), sizeof(section));
        if (section.sh_type != SHT_DYNSYM) continue;
        ElfW(Shdr) strings;
        std::memcpy(&strings, at(header.e_shoff + section.sh_link * header.e_shentsize, sizeof(strings)),
                    sizeof(strings));
        const char* table = at(strings.sh_offset, strings.sh_size);
        for (size_t s = 0; s < section.sh_size / sizeof(ElfW(Sym)); ++s) {
            ElfW(Sym) symbol;
            std::memcpy(&symbol, at(section.sh_offset + s * sizeof(symbol), sizeof(symbol)), sizeof(symbol));
            const int binding = ELF32_ST_BIND(symbol.st_info);
            const bool visible = binding == STB_GLOBAL || binding == STB_WEAK || binding == STB_GNU_UNIQUE;
            if (symbol.st_shndx == SHN_UNDEF || !visible || symbol.st_name >= strings.sh_size) continue;
            names.insert(std::string(table + symbol.st_name, strnlen(table + symbol.st_name, strings.sh_size - symbol.st_name)));
        }
    }
    return names;
}

// Calls a service with zero-valued arguments and tells whether it answered the neutral value.
template <typename Result, typename... Params>
bool AnswersNeutral(Result (*service)(Params...)) {
    if constexpr (std::is_void_v<Result>) {
        service(Params{}...);
        return true;
    } else {
        return service(Params{}...) == Result{};
    }
}

// A minimal host: memory for the two records, nothing else.
struct MiniHost {
    std::vector<uint8_t> control, plugin;
    static int32_t Callback(IFFType selector, int32_t, void* record) {
        MiniHost* host = *static_cast<MiniHost**>(record);
        if (selector == kHostFree) {
            static_cast<HostFreeRec*>(record)->theFreeSize = 1 << 20;
            return kNoError;
        }
        if (selector == kHostAllocate) {
            auto* rec = static_cast<HostAllocateRec*>(record);
            host->control.resize(size_t(rec->theControlDataSize));
            host->plugin.resize(size_t(rec->thePluginDataSize));
            rec->theControlData = host->control.data();
            rec->thePluginData = host->plugin.data();
            return kNoError;
        }
        return selector == kHostResetChannel ? kNoError : kUnsupportedCommand;
    }
    PluginInfoRec Info() {
        return PluginInfoRec{control.empty() ? nullptr : control.data(), int32_t(control.size()),
                             plugin.empty() ? nullptr : plugin.data(), int32_t(plugin.size()), &Callback, this};
    }
};

}  // namespace

TEST(PluginLibrary, ExportsMainAndNothingElse) {
    EXPECT_EQ(ExportedSymbols(VELLUX_PLUGIN_PATH), std::set<std::string>{"Main"});
}

TEST(HostServices, NoneIsVisibleEvenWithThePlugInLoadedGlobally) {
    void* plugin = dlopen(VELLUX_PLUGIN_PATH, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(plugin, nullptr) << dlerror();
    EXPECT_EQ(std::size(kServiceNames), kv_services::kServiceCount);
    for (const char* name : kServiceNames) EXPECT_EQ(dlsym(RTLD_DEFAULT, name), nullptr) << name;
    EXPECT_NE(dlsym(RTLD_DEFAULT, "Main"), nullptr);
    dlclose(plugin);
}

TEST(HostServices, EveryEntryAnswersNeutralWhenTheHostLacksIt) {
    int checked = 0;
#define KV_SERVICE(Result, Name, Params, Args) \
    EXPECT_TRUE(AnswersNeutral(&Name)) << #Name; \
    ++checked;
#include "kit/host_services.def"
#undef KV_SERVICE
    EXPECT_EQ(checked, 206);
}

// The plug-in's own entries, reached through Main: INIT looks for its table file through the
// host's file services and, finding none (neutral answers, not itself), reports the file missing.
TEST(HostServices, PlugInCallsThroughMainGetNeutralValues) {
    void* library = dlopen(VELLUX_PLUGIN_PATH, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto entry = reinterpret_cast<int32_t (*)(IFFType, int32_t, void*)>(dlsym(library, "Main"));
    ASSERT_NE(entry, nullptr);
    MiniHost host;
    PluginInitializeRec init{host.Info()};
    EXPECT_EQ(entry(kCmdInitialize, int32_t(sizeof(init)), &init), kMemoryError);
    EXPECT_EQ(host.control.size(), sizeof(ControlDataRec));     // the settings were still made
    PluginInterfaceRec settings{host.Info()};
    EXPECT_EQ(entry(kCmdInterface, int32_t(sizeof(settings)), &settings), kMemoryError);
    PluginInformationRec info{};
    ASSERT_EQ(entry(kCmdInformation, int32_t(sizeof(info)), &info), kNoError);
    EXPECT_EQ(info.thePluginVersion, 1);
    dlclose(library);
}
