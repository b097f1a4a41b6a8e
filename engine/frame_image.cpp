#include "engine/frame_image.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <fstream>
#include <limits>

#include <climits>
#include <stdexcept>
#include <vector>

#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>
#include <zlib.h>

#include "engine/frame_memory.h"

namespace vellux::engine {

namespace {

// Colour channels first (the first three that are not alpha, the first repeated when there are
// fewer), then alpha when the image has it.
std::vector<int> ChannelOrder(const OIIO::ImageSpec& spec) {
    std::vector<int> order;
    for (int c = 0; c < spec.nchannels && order.size() < 3; ++c) {
        if (c != spec.alpha_channel) order.push_back(c);
    }
    if (order.empty()) throw std::runtime_error("it has no colour channel");
    while (order.size() < 3) order.push_back(order[0]);
    if (spec.alpha_channel >= 0) order.push_back(spec.alpha_channel);
    return order;
}

OIIO::ImageBuf AsRgb(OIIO::ImageBuf image) {
    const std::vector<int> order = ChannelOrder(image.spec());
    bool same = int(order.size()) == image.nchannels();
    for (size_t c = 0; same && c < order.size(); ++c) same = order[c] == int(c);
    if (same) return image;
    OIIO::ImageBuf rgb = OIIO::ImageBufAlgo::channels(image, int(order.size()), order);
    if (rgb.has_error()) throw std::runtime_error(rgb.geterror());
    return rgb;
}

// The image library's own debug lines (allocation failures, say) never reach a user's terminal:
// every failure comes back as a message naming the file instead.
[[maybe_unused]] const bool kLibraryQuiet = OIIO::attribute("debug", 0);

// What rendering a frame holds at once, per pixel: the image as read, its values unpacked, and the
// plug-in's pixels.
double FrameBytesPerPixel(const OIIO::ImageSpec& spec) {
    return double(spec.nchannels) * double(spec.format.size()) * 3.0 + 6.0 + double(spec.nchannels) * 4.0;
}

void CheckDimensions(int32_t width, int32_t height) {
    if (width < 1 || height < 1 || width > INT32_MAX / 6)
        throw std::runtime_error(std::to_string(width) + "x" + std::to_string(height) + " pixels is not a size it can render");
}

void RequireFile(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))
        throw std::runtime_error(file.string() + ": " + (std::filesystem::exists(file, error) ? "not a file" : "no such file"));
}

}  // namespace

std::string ImageErrorText(const OIIO::ImageBuf& image) {
    const std::string text = image.geterror();
    OIIO::geterror();   // and the library's pending copy, which it would otherwise print at exit
    return OneLine(text);
}

std::string OneLine(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        while (!line.empty() && line.back() == ' ') line.pop_back();
        if (!line.empty() && std::find(lines.begin(), lines.end(), line) == lines.end()) lines.push_back(line);
    }
    std::string joined;
    for (const std::string& line : lines) joined += (joined.empty() ? "" : "; ") + line;
    return joined.empty() ? "unknown error" : joined;
}

namespace {

uint32_t BigEndian32(const unsigned char* bytes) {
    return uint32_t(bytes[0]) << 24 | uint32_t(bytes[1]) << 16 | uint32_t(bytes[2]) << 8 | uint32_t(bytes[3]);
}

// A PNG file's chunks are checked (each complete, its CRC right, up to IEND) before the PNG
// library decodes it: the library reports a damaged file on stderr itself, besides the message it
// hands back. Reading the file once more costs about a tenth of decoding it.
void CheckPngIntact(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    unsigned char signature[8];
    if (!in.read(reinterpret_cast<char*>(signature), 8) || std::memcmp(signature, "\x89PNG\r\n\x1a\n", 8) != 0) return;
    const auto damaged = [&](const std::string& how) {
        return std::runtime_error(file.string() + ": cannot read the image: the PNG file " + how);
    };
    std::vector<unsigned char> chunk;   // type and data
    for (unsigned char header[8]; in.read(reinterpret_cast<char*>(header), 8);) {
        const uint32_t length = BigEndian32(header);
        if (length > 0x7fffffffu) throw damaged("is damaged (a chunk claims " + std::to_string(length) + " bytes)");
        chunk.assign(header + 4, header + 8);
        chunk.resize(4 + size_t(length));
        unsigned char crc[4];
        if (!in.read(reinterpret_cast<char*>(chunk.data() + 4), std::streamsize(length)) ||
            !in.read(reinterpret_cast<char*>(crc), 4))
            throw damaged("ends early (truncated)");
        if (crc32(0L, chunk.data(), uInt(chunk.size())) != BigEndian32(crc))
            throw damaged("is damaged (a chunk's checksum is wrong)");
        if (std::memcmp(chunk.data(), "IEND", 4) == 0) return;
    }
    throw damaged("ends early (truncated)");
}

}  // namespace

OIIO::ImageBuf OpenImageFile(const std::filesystem::path& file, int part) {
    RequireFile(file);
    CheckPngIntact(file);
    // Colour as stored: formats that keep alpha unassociated (PNG, most TIFFs) are not
    // premultiplied on the way in, so the write need not divide it out again.
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    OIIO::ImageBuf image(file.string(), part, 0, nullptr, &config);
    if (!image.init_spec(file.string(), part, 0))
        throw std::runtime_error(file.string() + ": cannot read the image: " + ImageErrorText(image));
    return image;
}

void CheckFrameMemory(FrameSize size, double bytesPerPixel, const std::string& what) {
    const double needed = double(size.width) * double(size.height) * bytesPerPixel;
    double available = 0.0;
    std::ifstream meminfo("/proc/meminfo");
    for (std::string key; meminfo >> key;) {
        double kib = 0.0;
        meminfo >> kib;
        if (key == "MemAvailable:") available = kib * 1024.0;
        meminfo.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
        available = available > 0.0 ? std::min(available, double(limit.rlim_cur)) : double(limit.rlim_cur);
    if (available <= 0.0 || needed <= available) return;
    const auto gib = [](double bytes) {
        char text[32];
        std::snprintf(text, sizeof(text), "%.1f GiB", bytes / double(1u << 30));
        return std::string(text);
    };
    throw std::runtime_error(what + ": a " + std::to_string(size.width) + "x" + std::to_string(size.height) +
                             " frame needs about " + gib(needed) + " of memory, and " + gib(available) +
                             " is available");
}

FrameSize ReadImageSize(const std::filesystem::path& file) {
    RequireFile(file);
    CheckPngIntact(file);
    const auto input = OIIO::ImageInput::open(file.string());
    if (!input) throw std::runtime_error(file.string() + ": cannot read the image: " + OneLine(OIIO::geterror()));
    // The display window of the part the flare goes on (plate.h): the first with a channel R.
    OIIO::ImageSpec part = input->spec();
    for (int index = 0; input->seek_subimage(index, 0); ++index) {
        const auto& names = input->spec().channelnames;
        if (std::find(names.begin(), names.end(), "R") == names.end()) continue;
        part = input->spec();
        break;
    }
    OIIO::geterror();   // seeking past the last part leaves a message behind
    return {part.full_width, part.full_height};
}

FrameImage FrameImage::Read(const std::filesystem::path& file) {
    OIIO::ImageBuf image = OpenImageFile(file, 0);
    try {
        CheckDimensions(image.spec().width, image.spec().height);
    } catch (const std::runtime_error& problem) {
        throw std::runtime_error(file.string() + ": " + problem.what());
    }
    CheckFrameMemory({image.spec().width, image.spec().height}, FrameBytesPerPixel(image.spec()), file.string());
    if (!image.read(0, 0, true, OIIO::TypeUnknown))
        throw std::runtime_error(file.string() + ": cannot read the image: " + ImageErrorText(image));
    try {
        return FromImage(std::move(image));
    } catch (const std::runtime_error& problem) {
        throw std::runtime_error(file.string() + ": " + problem.what());
    }
}

FrameImage FrameImage::FromImage(OIIO::ImageBuf image) {
    CheckDimensions(image.spec().width, image.spec().height);
    return FrameImage(AsRgb(std::move(image)));
}

FrameImage FrameImage::Black(FrameSize size) {
    CheckDimensions(size.width, size.height);
    CheckFrameMemory(size, 6.0 * 3.0, "--size");
    OIIO::ImageBuf image(OIIO::ImageSpec(size.width, size.height, 3, OIIO::TypeDesc::UINT16), OIIO::InitializePixels::Yes);
    return FrameImage(std::move(image));
}

OIIO::ImageBuf Image16FromPlugin(const PluginPixels& painted) {
    if (painted.depth != 48) throw std::logic_error("a 16-bit image is made from a 48-bit frame");
    OIIO::ImageBuf image(OIIO::ImageSpec(painted.width, painted.height, 3, OIIO::TypeDesc::UINT16), OIIO::InitializePixels::No);
    uint16_t* values = static_cast<uint16_t*>(image.localpixels());
    const size_t count = size_t(painted.width) * size_t(painted.height);
    AdviseFrameMemory(values, count * 3 * sizeof(uint16_t));
    for (size_t i = 0; i < count; ++i)
        for (int c = 0; c < 3; ++c) values[i * 3 + size_t(c)] = FromPluginScale16(painted.Channel48(i, c));
    return image;
}

void FrameImage::Write(const std::filesystem::path& file, const std::string& format) const {
    if (!image_.write(file.string(), OIIO::TypeUnknown, format))
        throw std::runtime_error("cannot write the image: " + image_.geterror());
}

void CheckOutputFormat(const std::filesystem::path& output) {
    if (std::filesystem::is_directory(output)) throw std::runtime_error(output.string() + ": is a folder");
    if (OIIO::ImageOutput::create(output.string()) == nullptr) {
        OIIO::geterror();   // clear the library's message; ours says it plainly
        throw std::runtime_error(output.string() + ": no image format is known for the extension '" +
                                 output.extension().string() + "'");
    }
}

}  // namespace vellux::engine
