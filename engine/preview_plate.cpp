#include "engine/preview_plate.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <OpenImageIO/imagebufalgo.h>

#include "engine/colour.h"
#include "engine/frame_image.h"
#include "engine/plate.h"
#include "engine/row_parts.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

void Convert(OIIO::ImageBuf& image, const std::string& from, const std::string& to) {
    const OIIO::ColorProcessorHandle processor = UnlessNoOp(ColourProcessor(from, to));
    if (processor && !OIIO::ImageBufAlgo::colorconvert(image, image, processor.get(), false))
        throw std::runtime_error("cannot convert the plate from " + from + " to " + to + ": " + ImageErrorText(image));
}

// The frame's colour, channels R, G, B as floats at origin (0, 0).
OIIO::ImageBuf FrameRgb(const fs::path& file, const OIIO::ImageBuf& part) {
    const OIIO::ImageBuf colour = OIIO::ImageBufAlgo::channels(FrameColour(part, LayoutOf(part.spec())), 3, {0, 1, 2});
    OIIO::ImageBuf rgb;   // float, so that the conversions on the way to scaling keep every value
    if (colour.has_error() || !OIIO::ImageBufAlgo::copy(rgb, colour, OIIO::TypeFloat))
        throw std::runtime_error(file.string() + ": " + ImageErrorText(colour.has_error() ? colour : rgb));
    return rgb;
}

// Rows a thread is started for: some tens of microseconds of blending and converting at 400 wide.
constexpr int32_t kLeastPartRows = 32;

uint8_t ShownByte(float value) { return uint8_t(std::floor(std::clamp(value, 0.0f, 1.0f) * 255.0f + 0.5f)); }

}  // namespace

PreviewPlate::PreviewPlate(const PreviewPlateOptions& options) : blend_(options.blend), threads_(options.threads) {
    if (!fs::exists(options.file)) throw std::runtime_error(options.file.string() + ": no such file");
    const PlateFile plate = ReadPlateFile(options.file);
    const OIIO::ImageBuf& part = plate.parts[plate.flarePart];
    const bool floatPixels = part.spec().format.is_floating_point();
    space_ = ChooseColorspace("--colorspace", options.colorspace, floatPixels);
    colour_ = FrameRgb(options.file, part);
    bytes_ = !floatPixels && IsDisplaySpace(space_);
    if (!bytes_) {
        blenders_.push_back(std::make_unique<LevelBlender>(space_, blend_));   // the space and blend checked here
        toDisplay_ = UnlessNoOp(ColourProcessor(space_, kDisplaySpace));
    }
}

PreviewPlate::~PreviewPlate() = default;

std::vector<float> PreviewPlate::Scaled(FrameSize size) const {
    const int width = colour_.spec().width, height = colour_.spec().height;
    std::vector<float> values(size_t(size.width) * size_t(size.height) * 3);
    if (size.width == width && size.height == height) {
        colour_.get_pixels(OIIO::ROI(0, width, 0, height, 0, 1, 0, 3), OIIO::TypeFloat, values.data());
        return values;
    }
    // Cut to the preview's shape about the centre, then resized in linear light.
    const double aspect = double(size.width) / size.height;
    const int cutWidth = std::max(1, std::min(width, int(height * aspect + 0.5)));
    const int cutHeight = std::max(1, std::min(height, int(width / aspect + 0.5)));
    const int x0 = (width - cutWidth) / 2, y0 = (height - cutHeight) / 2;
    OIIO::ImageBuf cut = OIIO::ImageBufAlgo::cut(colour_, OIIO::ROI(x0, x0 + cutWidth, y0, y0 + cutHeight, 0, 1, 0, 3));
    if (cut.has_error()) throw std::runtime_error("cannot cut the plate: " + ImageErrorText(cut));
    Convert(cut, space_, kLinearSpace);
    OIIO::ImageBuf scaled(OIIO::ImageSpec(size.width, size.height, 3, OIIO::TypeFloat));
    if (!OIIO::ImageBufAlgo::resize(scaled, cut)) throw std::runtime_error("cannot scale the plate: " + ImageErrorText(scaled));
    // The filter's negative lobes may ring below black beside a sharp edge; light is never negative.
    OIIO::ImageBufAlgo::max(scaled, scaled, 0.0f);
    Convert(scaled, kLinearSpace, space_);
    scaled.get_pixels(OIIO::ROI(0, size.width, 0, size.height, 0, 1, 0, 3), OIIO::TypeFloat, values.data());
    return values;
}

void PreviewPlate::ScaleTo(FrameSize size) {
    scaled_ = Scaled(size);
    if (bytes_) {
        scaledBytes_.resize(scaled_.size());
        std::transform(scaled_.begin(), scaled_.end(), scaledBytes_.begin(), ShownByte);
    }
    scaledSize_ = size;
}

void PreviewPlate::Compose(uint8_t* pixels, int width, int height) {
    const FrameSize size{width, height};
    if (size.width != scaledSize_.width || size.height != scaledSize_.height) ScaleTo(size);
    const size_t count = size_t(width) * size_t(height);
    if (bytes_) {
        shown_.assign(scaledBytes_.begin(), scaledBytes_.end());
        BlendBytes(shown_.data(), 3, pixels, count, blend_);
        for (size_t i = 0; i < count; ++i) std::copy_n(&shown_[i * 3], 3, &pixels[i * 4 + 1]);
        return;
    }
    values_.assign(scaled_.begin(), scaled_.end());
    levels_.resize(count * 3);
    const std::vector<Band> parts = RowParts({0, height}, threads_, kLeastPartRows);
    while (blenders_.size() < parts.size()) blenders_.push_back(std::make_unique<LevelBlender>(space_, blend_));
    ForEachRowPart(parts, [&](size_t part, Band rows) {
        const size_t first = size_t(rows.top) * size_t(width), end = size_t(rows.bottom) * size_t(width);
        for (size_t i = first; i < end; ++i)
            for (size_t c = 0; c < 3; ++c) levels_[i * 3 + c] = float(pixels[i * 4 + 1 + c]) / 255.0f;   // 255: full level
        blenders_[part]->Blend(values_.data() + first * 3, 3, levels_.data() + first * 3, end - first);
        if (toDisplay_) {
            const OIIO::stride_t pixel = 3 * sizeof(float);
            toDisplay_->apply(values_.data() + first * 3, width, rows.bottom - rows.top, 3, sizeof(float), pixel,
                              pixel * width);
        }
        for (size_t i = first; i < end; ++i)
            for (size_t c = 0; c < 3; ++c) pixels[i * 4 + 1 + c] = ShownByte(values_[i * 3 + c]);
    });
}

}  // namespace vellux::engine
