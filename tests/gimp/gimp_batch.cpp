#include "gimp/gimp_batch.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <OpenImageIO/imagebufalgo.h>

namespace vellux::test {

namespace fs = std::filesystem;

namespace {

// Defined before each run's own expressions.
const char* const kHelpers = R"((begin
 (define (vellux-load file) (car (gimp-file-load RUN-NONINTERACTIVE file file)))
 (define (vellux-save image drawable file) (gimp-file-save RUN-NONINTERACTIVE image drawable file file))
 (define (vellux-active image) (car (gimp-image-get-active-drawable image)))
 (define (vellux-layers image) (car (gimp-image-get-layers image)))
 (define (vellux-flare image x y color intensity table settings blend flare-only . mode)
   (plug-in-vellux-flare (if (null? mode) RUN-NONINTERACTIVE (car mode)) image (vellux-active image)
                         x y color intensity table "" "" settings blend flare-only)))
)";

}  // namespace

GimpBatch::GimpBatch(const fs::path& gimp, const fs::path& plugin)
    : gimp_(gimp), dir_(fs::temp_directory_path() / ("vellux_gimp_" + std::to_string(getpid()))) {
    fs::remove_all(dir_);
    const fs::path plugins = dir_ / "user" / "plug-ins" / "vellux-flare";
    fs::create_directories(plugins);
    // The data folders GIMP writes into on quitting, so that it has nothing to complain about.
    for (const char* data : {"brushes", "dynamics", "gradients", "palettes", "patterns", "tool-presets"})
        fs::create_directories(dir_ / "user" / data);
    fs::copy_file(plugin, plugins / "vellux-flare");
}

GimpBatch::~GimpBatch() {
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
}

int GimpBatch::Run(const std::vector<std::string>& expressions) {
    const fs::path script = dir_ / "batch.scm";
    {
        std::ofstream out(script);
        out << kHelpers;
        for (const std::string& expression : expressions) out << expression << "\n";
    }
    // Script-Fu reads the whole script through one -b, (load FILE); GIMP quits in a second one,
    // also after an error that stopped the script.
    const std::string command = "cd '" + dir_.string() + "' && GIMP2_DIRECTORY='" + (dir_ / "user").string() +
                                "' timeout 300 '" + gimp_.string() + "' -i -d -f -b '(load " + Quoted(script.string()) +
                                ")' -b '(gimp-quit 0)' >log 2>&1";
    const int status = std::system(command.c_str());
    if (!WIFEXITED(status)) return -1;
    // GIMP ends well after a script that failed: its report is the failure.
    if (WEXITSTATUS(status) == 0 && log().find("batch command experienced an execution error") != std::string::npos)
        return 1;
    return WEXITSTATUS(status);
}

std::string GimpBatch::log() const {
    std::ifstream in(dir_ / "log");
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

void WritePlate(const fs::path& file, int width, int height, int channels, OIIO::TypeDesc type) {
    OIIO::ImageBuf plate(OIIO::ImageSpec(width, height, channels, OIIO::TypeFloat));
    // Levels past 1.0 in the float plate, and an alpha that is nowhere 0 (GIMP's PNG export drops
    // the colour of fully transparent pixels).
    const bool floats = type == OIIO::TypeFloat;
    const float topLeft[4] = {0.1f, 0.2f, 0.3f, 1.0f}, topRight[4] = {floats ? 2.5f : 0.8f, 0.3f, 0.1f, 0.3f};
    const float bottomLeft[4] = {0.02f, 0.6f, 0.4f, 0.6f}, bottomRight[4] = {0.9f, 0.9f, 0.2f, 0.05f};
    OIIO::ImageBufAlgo::fill(plate, topLeft, topRight, bottomLeft, bottomRight);
    plate.specmod().attribute("oiio:UnassociatedAlpha", 1);
    if (!plate.write(file.string(), type)) throw std::runtime_error(file.string() + ": " + plate.geterror());
}

Pixels ReadPixels(const fs::path& file) {
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    OIIO::ImageBuf image(file.string(), 0, 0, nullptr, &config);
    Pixels pixels;
    if (!image.read(0, 0, true, OIIO::TypeFloat)) return pixels;
    pixels.width = image.spec().width;
    pixels.height = image.spec().height;
    pixels.channels = image.spec().nchannels;
    pixels.values.resize(size_t(pixels.width) * size_t(pixels.height) * size_t(pixels.channels));
    image.get_pixels(image.roi(), OIIO::TypeFloat, pixels.values.data());
    return pixels;
}

}  // namespace vellux::test
