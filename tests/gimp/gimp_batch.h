// Headless GIMP for the plug-in's tests: a fresh user folder (GIMP2_DIRECTORY) holding the built
// plug-in as GIMP 2.10 finds it (plug-ins/vellux-flare/vellux-flare), and Script-Fu batch runs in
// it. Helpers for plates made for the tests and for comparing images as stored.
#ifndef VELLUX_TESTS_GIMP_GIMP_BATCH_H
#define VELLUX_TESTS_GIMP_GIMP_BATCH_H

#include <filesystem>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>

namespace vellux::test {

class GimpBatch {
public:
    // A folder of its own under the temporary folder, with the user folder and the plug-in in it.
    GimpBatch(const std::filesystem::path& gimp, const std::filesystem::path& plugin);
    ~GimpBatch();
    GimpBatch(const GimpBatch&) = delete;
    GimpBatch& operator=(const GimpBatch&) = delete;

    const std::filesystem::path& dir() const { return dir_; }
    std::filesystem::path operator/(const std::string& name) const { return dir_ / name; }

    // GIMP run once with these Script-Fu expressions (after the helpers below are defined), then
    // quit. Answers GIMP's exit status, 1 when the script stopped on an error; what GIMP printed is
    // in log().
    //   (vellux-load FILE) -> image        (vellux-save IMAGE DRAWABLE FILE)
    //   (vellux-active IMAGE) -> drawable   (vellux-layers IMAGE) -> how many layers
    //   (vellux-flare IMAGE X Y (R G B) INTENSITY TABLE SETTINGS BLEND FLARE-ONLY [MODE])
    int Run(const std::vector<std::string>& expressions);
    std::string log() const;

private:
    std::filesystem::path gimp_, dir_;
};

// "a \"b\"" as a Script-Fu string.
std::string Quoted(const std::string& text);

// Corners of a gradient plate, RGB or RGBA, written as `type` (8-bit and 16-bit PNG, float EXR).
void WritePlate(const std::filesystem::path& file, int width, int height, int channels, OIIO::TypeDesc type);

// An image's pixels as stored (alpha unassociated), as floats; empty when it does not read.
struct Pixels {
    int width = 0, height = 0, channels = 0;
    std::vector<float> values;
    float at(int x, int y, int c) const { return values[(size_t(y) * size_t(width) + size_t(x)) * size_t(channels) + size_t(c)]; }
};
Pixels ReadPixels(const std::filesystem::path& file);

}  // namespace vellux::test

#endif  // VELLUX_TESTS_GIMP_GIMP_BATCH_H
