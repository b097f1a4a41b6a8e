#include "python/array_image.h"

#include <string>
#include <vector>

namespace py = pybind11;

namespace vellux::python {

namespace {

OIIO::TypeDesc TypeOf(const py::dtype& dtype, const char* what) {
    if (dtype.is(py::dtype::of<uint8_t>())) return OIIO::TypeUInt8;
    if (dtype.is(py::dtype::of<uint16_t>())) return OIIO::TypeUInt16;
    if (dtype.is(py::dtype("float16"))) return OIIO::TypeHalf;
    if (dtype.is(py::dtype::of<float>())) return OIIO::TypeFloat;
    throw py::type_error(std::string(what) + ": dtype " + py::str(static_cast<const py::handle&>(dtype)).cast<std::string>() +
                         " is not one of uint8, uint16, float16, float32");
}

std::string ShapeText(const py::array& array) {
    std::string text = "(";
    for (py::ssize_t i = 0; i < array.ndim(); ++i) text += (i ? ", " : "") + std::to_string(array.shape(i));
    return text + (array.ndim() == 1 ? ",)" : ")");
}

// The array with each pixel's channels next to each other, copied only when they are not.
py::array WithPackedChannels(const py::array& array) {
    if (array.ndim() == 3 && array.strides(2) != array.itemsize())
        return py::module_::import("numpy").attr("ascontiguousarray")(array);
    return array;
}

// The array's own memory seen as an image (no copy): its pixels are read in place while the
// engine works, and the array outlives the image (the caller holds both). Only packed arrays:
// images over memory with other strides do not copy or convert reliably.
OIIO::ImageBuf Wrapping(const py::array& array, int channels, OIIO::TypeDesc type) {
    OIIO::ImageSpec spec(int(array.shape(1)), int(array.shape(0)), channels, type);
    if (channels == 4) spec.alpha_channel = 3;
    return OIIO::ImageBuf(spec, const_cast<void*>(array.data()));
}

bool Packed(const py::array& array, int channels) {
    return array.strides(1) == array.itemsize() * channels && array.strides(0) == array.strides(1) * array.shape(1);
}

OIIO::ImageBuf FromPixels(const py::array& array, int channels, OIIO::TypeDesc type) {
    if (Packed(array, channels)) return Wrapping(array, channels, type);
    const int height = int(array.shape(0)), width = int(array.shape(1));
    OIIO::ImageSpec spec(width, height, channels, type);
    if (channels == 4) spec.alpha_channel = 3;
    OIIO::ImageBuf image(spec, OIIO::InitializePixels::No);
    if (!image.set_pixels(image.roi(), type, array.data(), array.strides(1), array.strides(0)))
        throw py::value_error("cannot take the array's pixels: " + image.geterror());
    return image;
}

// Whether the image's pixels lie in its own memory as one packed block of `type`.
bool HoldsPackedPixels(const OIIO::ImageBuf& image, OIIO::TypeDesc type) {
    const OIIO::ImageSpec& spec = image.spec();
    return image.storage() == OIIO::ImageBuf::LOCALBUFFER && image.localpixels() != nullptr && spec.format == type &&
           spec.channelformats.empty() && image.pixel_stride() == OIIO::stride_t(spec.pixel_bytes()) &&
           image.scanline_stride() == OIIO::stride_t(spec.scanline_bytes());
}

}  // namespace

ArrayImage ImageFromArray(const py::array& array, const char* what) {
    const OIIO::TypeDesc type = TypeOf(array.dtype(), what);
    if (array.ndim() != 3 || (array.shape(2) != 3 && array.shape(2) != 4) || array.shape(0) < 1 || array.shape(1) < 1)
        throw py::value_error(std::string(what) + ": wants an H x W x 3 or H x W x 4 array, not shape " + ShapeText(array));
    py::array packed = WithPackedChannels(array);
    OIIO::ImageBuf image = FromPixels(packed, int(array.shape(2)), type);
    return {std::move(packed), std::move(image)};
}

ArrayImage MaskFromArray(const py::array& array, int width, int height) {
    const OIIO::TypeDesc type = TypeOf(array.dtype(), "occlusion");
    const bool flat = array.ndim() == 2;
    if ((!flat && array.ndim() != 3) || array.shape(0) != height || array.shape(1) != width)
        throw py::value_error("occlusion: wants an H x W (x C) array of the image's size " + std::to_string(height) + " x " +
                              std::to_string(width) + ", not shape " + ShapeText(array));
    py::array packed = flat ? py::array(array.attr("reshape")(height, width, 1)) : WithPackedChannels(array);
    OIIO::ImageBuf mask = FromPixels(packed, int(packed.shape(2)), type);
    const int channels = int(packed.shape(2));
    if (channels == 2 || channels == 4) mask.specmod().alpha_channel = channels - 1;
    return {std::move(packed), std::move(mask)};
}

py::array ArrayFromImage(OIIO::ImageBuf&& image, const py::dtype& dtype) {
    const OIIO::ImageSpec& spec = image.spec();
    const OIIO::TypeDesc type = TypeOf(dtype, "result");
    const std::vector<py::ssize_t> shape{spec.height, spec.width, spec.nchannels};
    if (HoldsPackedPixels(image, type)) {   // the array takes the image's memory over: no copy
        auto* owner = new OIIO::ImageBuf(std::move(image));
        const py::capsule base(owner, [](void* held) { delete static_cast<OIIO::ImageBuf*>(held); });
        return py::array(dtype, shape, {}, owner->localpixels(), base);
    }
    py::array out(dtype, shape);
    if (!image.get_pixels(image.roi(), type, out.mutable_data()))
        throw py::value_error("cannot give the image's pixels: " + image.geterror());
    return out;
}

py::dtype DtypeOf(OIIO::TypeDesc type) {
    if (type == OIIO::TypeUInt8) return py::dtype::of<uint8_t>();
    if (type == OIIO::TypeUInt16) return py::dtype::of<uint16_t>();
    if (type == OIIO::TypeHalf) return py::dtype("float16");
    return py::dtype::of<float>();
}

}  // namespace vellux::python
