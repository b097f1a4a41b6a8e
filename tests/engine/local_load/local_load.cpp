// Loads a module that links the engine into a local symbol scope (RTLD_LOCAL), as ffmpeg and MLT
// load frei0r filters and Python loads extension modules, and renders a frame through it. The
// host's services must be out of the global scope after loading and in it once the plug-in is
// loaded, and the plug-in must have found its table through them (pixels lit).
//
//   vellux_local_load MODULE PLUGIN TABLE_FOLDER OUTPUT.png
#include <dlfcn.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: %s MODULE PLUGIN TABLE_FOLDER OUTPUT\n", argv[0]);
        return 2;
    }
    void* module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        std::fprintf(stderr, "cannot load %s: %s\n", argv[1], dlerror());
        return 1;
    }
    if (dlsym(RTLD_DEFAULT, "KV_GetHomeDirectory") != nullptr) {
        std::fprintf(stderr, "the host's services are global before the engine ran: the test proves nothing\n");
        return 1;
    }
    using Render = long (*)(const char*, const char*, const char*);
    const auto render = reinterpret_cast<Render>(dlsym(module, "vellux_render_default_frame"));
    if (render == nullptr) {
        std::fprintf(stderr, "the module exports no vellux_render_default_frame\n");
        return 1;
    }
    const long lit = render(argv[2], argv[3], argv[4]);
    const bool global = dlsym(RTLD_DEFAULT, "KV_GetHomeDirectory") != nullptr;
    std::printf("pixels lit: %ld; host services global after loading the plug-in: %s\n", lit, global ? "yes" : "no");
    const bool passed = lit > 1000 && global;
    std::printf("%d passed, %d failed\n", passed ? 1 : 0, passed ? 0 : 1);
    return passed ? 0 : 1;
}
