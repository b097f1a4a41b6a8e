#include "engine/flare.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include <OpenImageIO/color.h>
#include <OpenImageIO/imagebufalgo.h>

#include "engine/blend.h"
#include "engine/colour.h"
#include "engine/flare_pass.h"
#include "engine/frame_memory.h"
#include "engine/hdr_pass.h"
#include "engine/plate.h"
#include "engine/row_parts.h"

namespace vellux::engine {

namespace {

bool IsFloat(const OIIO::ImageSpec& spec) {
    const auto type = OIIO::TypeDesc::BASETYPE(spec.format.basetype);
    return type == OIIO::TypeDesc::HALF || type == OIIO::TypeDesc::FLOAT || type == OIIO::TypeDesc::DOUBLE;
}

// Whether the plug-in's own pixels can be blended straight into the plate: 8-bit or 16-bit
// values in its display space (8-bit through its 32-bit painting, 16-bit through its 48-bit).
int16_t IntegerDepth(const OIIO::ImageSpec& spec, const std::string& space) {
    if (!IsDisplaySpace(space) || !spec.channelformats.empty()) return 0;
    if (spec.format == OIIO::TypeUInt8) return 32;
    if (spec.format == OIIO::TypeUInt16) return 48;
    return 0;
}

// Rows changed at once: the plate's values and the flare's for a few hundred kilobytes.
constexpr int32_t kBandRows = 32;

// Runs `blend(part, values, channels, first pixel, count)` over the image's colour band by band,
// its values read as Value and written back; an image that only borrows its memory (a caller's
// array) gets memory of its own first. The bands are shared out on `threads` threads in runs of
// whole bands (row_parts.h), so every band is the same rows whatever the number; `part` tells
// which thread's share a band is in, for a blend that keeps something per thread.
template <typename Value, typename BlendBand>
void BlendBands(OIIO::ImageBuf& image, int32_t threads, const BlendBand& blend) {
    if (image.storage() != OIIO::ImageBuf::LOCALBUFFER) image = image.copy(OIIO::TypeUnknown);
    const OIIO::TypeDesc type = OIIO::TypeDescFromC<Value>::value();
    const int32_t width = image.spec().width, height = image.spec().height;
    const size_t channels = size_t(image.nchannels());
    const int32_t bands = (height + kBandRows - 1) / kBandRows;
    ForEachRowPart(RowParts({0, bands}, threads, 1), [&](size_t part, Band shared) {
        std::vector<Value> values(size_t(width) * size_t(kBandRows) * channels);
        for (int32_t band = shared.top; band < shared.bottom; ++band) {
            const int32_t y0 = band * kBandRows, y1 = std::min(y0 + kBandRows, height);
            const OIIO::ROI rows(image.xbegin(), image.xend(), image.ybegin() + y0, image.ybegin() + y1, 0, 1, 0,
                                 int(channels));
            if (!image.get_pixels(rows, type, values.data()))
                throw std::runtime_error("cannot read the plate: " + image.geterror());
            blend(part, values.data(), channels, size_t(y0) * size_t(width), size_t(y1 - y0) * size_t(width));
            if (!image.set_pixels(rows, type, values.data()))
                throw std::runtime_error("cannot write the plate: " + image.geterror());
        }
    });
}

// The plug-in's pixels of the flare painted on black, into an 8-bit or 16-bit sRGB plate.
void BlendPainted(OIIO::ImageBuf& colour, const PluginPixels& flare, Blend blend, int32_t threads) {
    if (flare.depth == 32) {
        BlendBands<uint8_t>(colour, threads, [&](size_t, uint8_t* values, size_t channels, size_t first, size_t count) {
            BlendBytes(values, channels, flare.bytes.data() + first * 4, count, blend);
        });
        return;
    }
    BlendBands<uint16_t>(colour, threads, [&](size_t, uint16_t* values, size_t channels, size_t first, size_t count) {
        BlendShorts(values, channels, reinterpret_cast<const uint16_t*>(flare.bytes.data()) + first * 3, count, blend);
    });
}

// The flare's float levels into a plate of any pixel type, in colour space `space`: a blender
// (its scratch space) per thread.
void BlendLevels(OIIO::ImageBuf& colour, const std::vector<float>& levels, Blend blend, const std::string& space,
                 int32_t threads) {
    const int32_t bands = (colour.spec().height + kBandRows - 1) / kBandRows;
    std::vector<std::unique_ptr<LevelBlender>> blenders(RowParts({0, bands}, threads, 1).size());
    for (std::unique_ptr<LevelBlender>& blender : blenders) blender = std::make_unique<LevelBlender>(space, blend);
    BlendBands<float>(colour, threads, [&](size_t part, float* values, size_t channels, size_t first, size_t count) {
        blenders[part]->Blend(values, channels, levels.data() + first * 3, count);
    });
}

}  // namespace

PluginPixels Flare::PaintBlack(FrameSize size, const FlareLight& light, int16_t depth, int32_t bandRows) {
    CheckFrameMemory(size, double(depth / 8), "the flare");
    PluginPixels black(size.width, size.height, depth);
    Paint(black.View(), light, bandRows);
    return black;
}

void Flare::Levels(FrameSize size, const FlareLight& light, int32_t bandRows, float* levels) {
    const size_t values = size_t(size.width) * size_t(size.height) * 3;
    if (look_) {
        // The lens's flare is light: painted linear, and given to the blends as display levels
        // like the plug-in's (the sRGB curve carried on above 1).
        std::fill_n(levels, values, 0.0f);
        look_->Paint(size, light, levels, threads_);
        for (size_t i = 0; i < values; ++i) levels[i] = levels[i] > 0.0f ? OIIO::linear_to_sRGB(levels[i]) : 0.0f;
        return;
    }
    if (!black_ || black_->width != size.width || black_->height != size.height) {
        CheckFrameMemory(size, 6.0, "the flare");
        black_.emplace(size.width, size.height, 48);
    } else {
        std::fill(black_->bytes.begin(), black_->bytes.end(), uint8_t(0));
    }
    Paint(black_->View(), light, bandRows);
    if (!brackets_) brackets_ = {new ExposureBrackets(setup_), [](ExposureBrackets* made) { delete made; }};
    brackets_->SetThreads(threads_);
    brackets_->Levels(host_.controlData(), light, *black_, levels);
}

std::vector<float> Flare::PaintLevels(FrameSize size, const FlareLight& light, int32_t bandRows) {
    CheckFrameMemory(size, 12.0 + 6.0, "the flare");
    std::vector<float> levels(size_t(size.width) * size_t(size.height) * 3);
    Levels(size, light, bandRows, levels.data());
    return levels;
}

OIIO::ImageBuf Flare::Pass(FrameSize size, const FlareLight& light, int32_t bandRows, const std::string& space) {
    const std::vector<float> levels = PaintLevels(size, light, bandRows);
    CheckFrameMemory(size, 16.0, "the flare pass");
    OIIO::ImageSpec layout(size.width, size.height, 4, OIIO::TypeFloat);
    layout.alpha_channel = 3;
    OIIO::ImageBuf pass(layout, OIIO::InitializePixels::No);   // packed float RGBA in its own memory
    AdviseFrameMemory(pass.localpixels(), layout.image_bytes());
    FillPassFromLevels(levels.data(), size.width, size.height, space, static_cast<float*>(pass.localpixels()), false,
                       threads_);
    pass.specmod().attribute("oiio:ColorSpace", space);
    return pass;
}

void Flare::PassInto(FrameSize size, const FlareLight& light, const std::string& space, float* rgba, bool bottomUp) {
    if (levels_.size() != size_t(size.width) * size_t(size.height) * 3) {
        CheckFrameMemory(size, 12.0, "the flare pass");
        levels_.resize(size_t(size.width) * size_t(size.height) * 3);
    }
    Levels(size, light, 0, levels_.data());
    FillPassFromLevels(levels_.data(), size.width, size.height, space, rgba, bottomUp, threads_);
}

// Every plate takes one route: its colour over its frame, the flare painted alone on black, the
// flare blended into the colour, the colour put back into the plate.
OIIO::ImageBuf Flare::Composite(OIIO::ImageBuf plate, const FlareLight& light, const FrameOptions& options) {
    const std::string space = ChooseColorspace("colorspace", options.colorspace, IsFloat(plate.spec()));
    const PlateLayout layout = LayoutOf(plate.spec());
    OIIO::ImageBuf colour = layout.plain ? std::move(plate) : FrameColour(plate, layout);
    const FrameSize size{colour.spec().width, colour.spec().height};

    if (const int16_t depth = look_ ? 0 : IntegerDepth(colour.spec(), space); depth != 0)
        BlendPainted(colour, PaintBlack(size, light, depth, options.bandRows), options.blend, threads_);
    else
        BlendLevels(colour, PaintLevels(size, light, options.bandRows), options.blend, space, threads_);

    OIIO::ImageBuf painted = layout.plain ? std::move(colour) : WithFrameColour(plate, layout, colour);
    painted.specmod().attribute("oiio:ColorSpace", space);
    return painted;
}

// On black every blend gives the flare itself, so the plug-in's frame is the picture.
OIIO::ImageBuf Flare::CompositeBlack(FrameSize size, const FlareLight& light, const FrameOptions& options) {
    const std::string space = ChooseColorspace("colorspace", options.colorspace, false);
    if (!IsDisplaySpace(space) || look_) return Composite(FrameImage::Black(size).image(), light, options);
    CheckFrameMemory(size, 6.0 * 2.0, "--size");
    OIIO::ImageBuf painted = Image16FromPlugin(PaintBlack(size, light, 48, options.bandRows));
    painted.specmod().attribute("oiio:ColorSpace", space);
    return painted;
}

}  // namespace vellux::engine
