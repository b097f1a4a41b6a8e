#include "engine/plate.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>

#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>

#include "engine/frame_image.h"
#include "engine/frame_memory.h"
#include "engine/pending_output.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

int ChannelIndex(const OIIO::ImageSpec& spec, const char* name) {
    for (int c = 0; c < spec.nchannels; ++c)
        if (spec.channel_name(c) == name) return c;
    return -1;
}

bool IsFloatType(OIIO::TypeDesc type) {
    const auto base = OIIO::TypeDesc::BASETYPE(type.basetype);
    return base == OIIO::TypeDesc::HALF || base == OIIO::TypeDesc::FLOAT || base == OIIO::TypeDesc::DOUBLE;
}

bool HasFloatChannel(const OIIO::ImageSpec& spec) {
    if (spec.channelformats.empty()) return IsFloatType(spec.format);
    return std::any_of(spec.channelformats.begin(), spec.channelformats.end(), IsFloatType);
}

void Check(bool done, const OIIO::ImageBuf& image, const std::string& what) {
    if (!done) throw std::runtime_error(what + ": " + ImageErrorText(image));
}

// Channels `from` of `source` over `region` into channels `to` of `target`, each pixel moved by
// (dx, dy); converted through float, which holds every 8-bit, 16-bit and half value exactly.
void CopyChannels(const OIIO::ImageBuf& source, const OIIO::ROI& region, const std::vector<int>& from,
                  OIIO::ImageBuf& target, int dx, int dy, const std::vector<int>& to) {
    if (region.npixels() == 0) return;
    const size_t count = from.size();
    std::vector<float> values(region.npixels() * count);
    const auto xstride = OIIO::stride_t(count * sizeof(float)), ystride = xstride * region.width();
    for (size_t k = 0; k < count; ++k) {
        OIIO::ROI in = region;
        in.chbegin = from[k], in.chend = from[k] + 1;
        Check(source.get_pixels(in, OIIO::TypeFloat, &values[k], xstride, ystride), source, "cannot copy channels");
        OIIO::ROI out(region.xbegin + dx, region.xend + dx, region.ybegin + dy, region.yend + dy, 0, 1, to[k], to[k] + 1);
        Check(target.set_pixels(out, OIIO::TypeFloat, &values[k], xstride, ystride), target, "cannot copy channels");
    }
}

// A grey plate as R, G, B (its one colour channel three times) followed by its other channels.
OIIO::ImageBuf AsColour(const OIIO::ImageBuf& plate, const PlateLayout& layout) {
    const OIIO::ImageSpec& spec = plate.spec();
    std::vector<int> order(3, layout.colour[0]);
    std::vector<std::string> names{"R", "G", "B"};
    for (int c = 0; c < spec.nchannels; ++c) {
        if (c == layout.colour[0]) continue;
        order.push_back(c);
        names.push_back(spec.channel_name(c));
    }
    OIIO::ImageBuf colour;
    Check(OIIO::ImageBufAlgo::channels(colour, plate, int(order.size()), order, {}, names), colour,
          "cannot make the grey plate RGB");
    const auto alpha = std::find(order.begin(), order.end(), layout.alpha);
    colour.specmod().alpha_channel = layout.alpha < 0 ? -1 : int(alpha - order.begin());
    return colour;
}

// The bytes a part needs while it is read and painted: as read, a copy, and the plug-in's frame.
double PartBytes(const OIIO::ImageSpec& spec) {
    const double pixels = double(spec.width) * double(spec.height);
    const double value = HasFloatChannel(spec) ? 4.0 : double(spec.format.size());
    return pixels * (double(spec.nchannels) * value * 3.0 + 6.0 + double(spec.nchannels) * 4.0);
}

// How a part is compressed: as the user chose, else as its attributes say (a plate's file had
// it), else losslessly and fast: zlib level 1 for a PNG, PIZ for an EXR (measured on a 1080p
// frame: PNG level 1 writes in about a fifth of the time of the library's default for files about
// a quarter larger; PIZ writes about three times as fast as ZIP, and smaller).
void ChooseCompression(OIIO::ImageSpec& writing, const OIIO::ImageSpec& part, const Compression& choice) {
    if (choice.format == "png") {
        writing.attribute("png:compressionLevel", choice.level);
    } else if (!choice.format.empty()) {
        writing.attribute("compression", choice.method);
    } else {
        if (part.find_attribute("png:compressionLevel") == nullptr) writing.attribute("png:compressionLevel", 1);
        if (part.find_attribute("compression") == nullptr) writing.attribute("compression", "piz");
    }
}

// What a part is written with: its stored pixel types and tiles, and its compression.
OIIO::ImageSpec WritingSpec(const OIIO::ImageBuf& part, const OIIO::ImageSpec& stored, const Compression& choice) {
    OIIO::ImageSpec writing = part.spec();
    writing.set_format(stored.format);
    writing.channelformats = stored.channelformats;
    if (int(writing.channelformats.size()) != writing.nchannels) writing.channelformats.clear();
    writing.tile_width = stored.tile_width;
    writing.tile_height = stored.tile_height;
    writing.tile_depth = stored.tile_depth;
    ChooseCompression(writing, part.spec(), choice);
    return writing;
}

// The pixel type an EXR file stores when asked for `wanted`: its own float types, and half for
// integers of up to 16 bits (as the image library's EXR writer does).
OIIO::TypeDesc ExrStoredType(OIIO::TypeDesc wanted) {
    const auto base = OIIO::TypeDesc::BASETYPE(wanted.basetype);
    if (base == OIIO::TypeDesc::FLOAT || base == OIIO::TypeDesc::HALF) return wanted;
    if (base == OIIO::TypeDesc::UINT8 || base == OIIO::TypeDesc::INT8 || base == OIIO::TypeDesc::UINT16 ||
        base == OIIO::TypeDesc::INT16)
        return OIIO::TypeHalf;
    return OIIO::TypeUnknown;
}

// Every value of an integer type as the image library converts it to half (2-byte patterns),
// made once by that conversion itself: looking a value up gives exactly what converting it gives.
template <typename Integer>
const std::vector<uint16_t>& HalfOf() {
    static const std::vector<uint16_t> table = [] {
        std::vector<Integer> values(size_t(std::numeric_limits<Integer>::max()) + 1);
        std::iota(values.begin(), values.end(), Integer(0));
        std::vector<uint16_t> halves(values.size());
        const int count = int(values.size());
        if (!OIIO::convert_image(1, count, 1, 1, values.data(), OIIO::BaseTypeFromC<Integer>::value, OIIO::AutoStride,
                                 OIIO::AutoStride, OIIO::AutoStride, halves.data(), OIIO::TypeHalf, OIIO::AutoStride,
                                 OIIO::AutoStride, OIIO::AutoStride))
            throw std::logic_error("the image library cannot convert integers to half");
        return halves;
    }();
    return table;
}

// The part's 8- or 16-bit pixels looked up in HalfOf, into packed `out`.
template <typename Integer>
void LookUpHalves(const OIIO::ImageBuf& part, uint16_t* out) {
    const std::vector<uint16_t>& half = HalfOf<Integer>();
    const OIIO::ImageSpec& in = part.spec();
    const auto* base = static_cast<const uint8_t*>(part.localpixels());
    for (int z = 0; z < in.depth; ++z)
        for (int y = 0; y < in.height; ++y) {
            const uint8_t* row = base + z * part.z_stride() + y * part.scanline_stride();
            for (int x = 0; x < in.width; ++x, out += in.nchannels) {
                const auto* pixel = reinterpret_cast<const Integer*>(row + x * part.pixel_stride());
                for (int c = 0; c < in.nchannels; ++c) out[c] = half[pixel[c]];
            }
        }
}

// A whole part converted to the EXR file's pixel type here, with the image library's own
// conversion (8- and 16-bit values through its table, HalfOf), into memory advised for a frame:
// its writer would otherwise convert into a scratch copy that it clears first, page by page.
// Empty when no conversion is needed.
OIIO::ImageBuf ConvertedForExr(const OIIO::ImageBuf& part, const OIIO::ImageSpec& held, const OIIO::ImageSpec& writing) {
    if (part.localpixels() == nullptr || !writing.channelformats.empty() || writing.tile_width > 0) return {};
    const OIIO::TypeDesc stored = ExrStoredType(writing.format);
    if (stored == OIIO::TypeUnknown || stored == part.spec().format) return {};
    OIIO::ImageSpec layout = held;
    layout.set_format(stored);
    OIIO::ImageBuf converted(layout, OIIO::InitializePixels::No);
    AdviseFrameMemory(converted.localpixels(), layout.image_bytes());
    const OIIO::ImageSpec& in = part.spec();
    auto* halves = static_cast<uint16_t*>(converted.localpixels());
    if (stored == OIIO::TypeHalf && in.format == OIIO::TypeUInt16) {
        LookUpHalves<uint16_t>(part, halves);
        return converted;
    }
    if (stored == OIIO::TypeHalf && in.format == OIIO::TypeUInt8) {
        LookUpHalves<uint8_t>(part, halves);
        return converted;
    }
    if (!OIIO::convert_image(in.nchannels, in.width, in.height, in.depth, part.localpixels(), in.format,
                             part.pixel_stride(), part.scanline_stride(), part.z_stride(), converted.localpixels(), stored,
                             OIIO::AutoStride, OIIO::AutoStride, OIIO::AutoStride))
        return {};
    return converted;
}

// One part through ImageBuf::write, which adapts types, tiles and windows to what the format has.
void WriteSinglePart(const OIIO::ImageBuf& part, const OIIO::ImageSpec& writing, const fs::path& temporary,
                     const fs::path& output) {
    OIIO::ImageSpec held = writing;   // the buffer's own layout, with the writing attributes
    held.set_format(part.spec().format);
    held.channelformats.clear();
    held.tile_width = held.tile_height = 0;
    held.tile_depth = 1;
    // A view of the part's memory where it has it, so that nothing is copied.
    OIIO::ImageBuf converted = ImageFormatOf(output) == "exr" ? ConvertedForExr(part, held, writing) : OIIO::ImageBuf();
    OIIO::ImageBuf view = converted.initialized()       ? std::move(converted)
                          : part.localpixels() != nullptr ? OIIO::ImageBuf(held, const_cast<void*>(part.localpixels()))
                                                          : part;
    if (part.localpixels() == nullptr) view.specmod() = held;
    if (writing.channelformats.empty()) view.set_write_format(writing.format);
    else view.set_write_format(writing.channelformats);
    view.set_write_tiles(writing.tile_width, writing.tile_height, writing.tile_width > 0 ? writing.tile_depth : 0);
    // The format comes from the target's name: the temporary one ends in random letters.
    Check(view.write(temporary.string(), OIIO::TypeUnknown, output.string()), view, output.string() + ": cannot write the image");
}

void WriteParts(const PlateFile& plate, const std::vector<OIIO::ImageSpec>& writing, const fs::path& temporary,
                const fs::path& output) {
    const std::unique_ptr<OIIO::ImageOutput> out = OIIO::ImageOutput::create(output.string());
    if (out == nullptr) throw std::runtime_error(output.string() + ": cannot write the image: " + OneLine(OIIO::geterror()));
    const auto failed = [&]() { return std::runtime_error(output.string() + ": cannot write the image: " + OneLine(out->geterror())); };
    if (!out->open(temporary.string(), int(writing.size()), writing.data())) throw failed();
    for (size_t i = 0; i < plate.parts.size(); ++i) {
        if (i > 0 && !out->open(temporary.string(), writing[i], OIIO::ImageOutput::AppendSubimage)) throw failed();
        if (!plate.parts[i].write(out.get())) throw failed();
    }
    if (!out->close()) throw failed();
}

// Runs `write` on a temporary name beside `output`, renamed into place only when it succeeded and
// `cancel` is not set.
template <typename Write>
void WriteAtomically(const fs::path& output, const std::atomic<bool>* cancel, Write write) {
    if (fs::is_directory(output)) throw std::runtime_error(output.string() + ": is a folder");
    PendingOutput pending(output);
    write(pending.temporary());
    if (cancel != nullptr && cancel->load()) throw std::runtime_error("interrupted; " + output.string() + " not written");
    pending.Commit();
}

bool HoldsSeveralImages(const fs::path& output) {
    const std::unique_ptr<OIIO::ImageOutput> out = OIIO::ImageOutput::create(output.string());
    return out != nullptr && out->supports("multiimage");
}

}  // namespace

PlateLayout LayoutOf(const OIIO::ImageSpec& spec) {
    PlateLayout layout;
    layout.alpha = spec.alpha_channel;
    const std::array<int, 3> named{ChannelIndex(spec, "R"), ChannelIndex(spec, "G"), ChannelIndex(spec, "B")};
    if (named[0] >= 0 && named[1] >= 0 && named[2] >= 0) {
        layout.colour = named;
    } else {
        std::vector<int> colour;
        for (int c = 0; c < spec.nchannels && colour.size() < 3; ++c)
            if (c != spec.alpha_channel) colour.push_back(c);
        if (colour.empty()) throw std::runtime_error("it has no colour channel");
        while (colour.size() < 3) colour.push_back(colour[0]);
        std::copy(colour.begin(), colour.end(), layout.colour.begin());
    }
    layout.frame = OIIO::get_roi_full(spec);
    layout.painted = OIIO::roi_intersection(OIIO::get_roi(spec), layout.frame);
    const bool inOrder = layout.colour == std::array<int, 3>{0, 1, 2};
    const bool colourOnly = spec.nchannels == 3 || (spec.nchannels == 4 && spec.alpha_channel == 3);
    layout.plain = inOrder && colourOnly && OIIO::get_roi(spec) == layout.frame;
    return layout;
}

OIIO::ImageBuf FrameColour(const OIIO::ImageBuf& plate, const PlateLayout& layout) {
    const bool alpha = layout.alpha >= 0;
    std::vector<int> order(layout.colour.begin(), layout.colour.end());
    if (alpha) order.push_back(layout.alpha);
    OIIO::ImageSpec spec(layout.frame.width(), layout.frame.height(), int(order.size()), plate.spec().format);
    spec.channelnames = {"R", "G", "B"};
    if (alpha) spec.channelnames.push_back("A");
    spec.alpha_channel = alpha ? 3 : -1;
    OIIO::ImageBuf frame(spec, OIIO::InitializePixels::Yes);
    std::vector<int> into(order.size());
    std::iota(into.begin(), into.end(), 0);
    CopyChannels(plate, layout.painted, order, frame, -layout.frame.xbegin, -layout.frame.ybegin, into);
    return frame;
}

OIIO::ImageBuf WithFrameColour(const OIIO::ImageBuf& plate, const PlateLayout& layout, const OIIO::ImageBuf& colour) {
    const bool grey = layout.colour[0] == layout.colour[1];
    OIIO::ImageBuf whole = grey ? AsColour(plate, layout) : plate;
    const PlateLayout target = grey ? LayoutOf(whole.spec()) : layout;
    OIIO::ROI source = target.painted;
    source.xbegin -= target.frame.xbegin, source.xend -= target.frame.xbegin;
    source.ybegin -= target.frame.ybegin, source.yend -= target.frame.ybegin;
    CopyChannels(colour, source, {0, 1, 2}, whole, target.frame.xbegin, target.frame.ybegin,
                 {target.colour.begin(), target.colour.end()});
    return whole;
}

PlateFile ReadPlateFile(const fs::path& file) {
    const std::string what = file.string() + ": cannot read the image";
    PlateFile plate;
    double bytes = 0.0;
    for (int part = 0;; ++part) {
        OIIO::ImageBuf image = OpenImageFile(file, part);
        plate.stored.push_back(image.nativespec());
        bytes += PartBytes(image.spec());
        plate.parts.push_back(std::move(image));
        if (part + 1 >= plate.parts.back().nsubimages()) break;
    }
    for (size_t part = 0; part < plate.parts.size(); ++part) {
        if (ChannelIndex(plate.parts[part].spec(), "R") >= 0) {
            plate.flarePart = part;
            break;
        }
    }
    const OIIO::ImageSpec& flare = plate.parts[plate.flarePart].spec();
    if (flare.width < 1 || flare.height < 1 || flare.width > INT32_MAX / 6)
        throw std::runtime_error(file.string() + ": " + std::to_string(flare.width) + "x" + std::to_string(flare.height) +
                                 " pixels is not a size it can render");
    CheckFrameMemory({flare.width, flare.height}, bytes / (double(flare.width) * double(flare.height)), file.string());
    for (size_t part = 0; part < plate.parts.size(); ++part) {
        OIIO::ImageBuf& image = plate.parts[part];
        const OIIO::TypeDesc type = HasFloatChannel(image.spec()) ? OIIO::TypeFloat : OIIO::TypeUnknown;
        Check(image.read(int(part), 0, true, type), image, what);
    }
    return plate;
}

PlateFile SinglePart(OIIO::ImageBuf image, OIIO::TypeDesc type) {
    PlateFile plate;
    plate.stored.push_back(image.spec());
    if (type != OIIO::TypeUnknown) plate.stored.back().set_format(type);
    plate.parts.push_back(std::move(image));
    return plate;
}

void WritePlateFile(const PlateFile& plate, const fs::path& output, const std::atomic<bool>* cancel,
                    const Compression& compression) {
    if (plate.parts.size() > 1 && HoldsSeveralImages(output)) {
        std::vector<OIIO::ImageSpec> writing;
        for (size_t i = 0; i < plate.parts.size(); ++i) writing.push_back(WritingSpec(plate.parts[i], plate.stored[i], compression));
        WriteAtomically(output, cancel, [&](const fs::path& temporary) { WriteParts(plate, writing, temporary, output); });
        return;
    }
    const OIIO::ImageBuf& part = plate.parts[plate.flarePart];
    const OIIO::ImageSpec writing = WritingSpec(part, plate.stored[plate.flarePart], compression);
    WriteAtomically(output, cancel, [&](const fs::path& temporary) { WriteSinglePart(part, writing, temporary, output); });
}

void WriteImageFile(const OIIO::ImageBuf& image, const fs::path& output, OIIO::TypeDesc type,
                    const std::atomic<bool>* cancel, const Compression& compression) {
    OIIO::ImageSpec stored = image.spec();
    if (type != OIIO::TypeUnknown) stored.set_format(type);
    const OIIO::ImageSpec writing = WritingSpec(image, stored, compression);
    WriteAtomically(output, cancel, [&](const fs::path& temporary) { WriteSinglePart(image, writing, temporary, output); });
}

}  // namespace vellux::engine
