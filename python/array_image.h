// numpy arrays as the engine's images and back: H x W x 3 or x 4 arrays of uint8, uint16, float16
// or float32, any strides. An array is read in place when it is one packed block (C order;
// copied otherwise), and a result image becomes an array
// without a copy when its pixels are one packed block of the array's type.
#ifndef VELLUX_PYTHON_ARRAY_IMAGE_H
#define VELLUX_PYTHON_ARRAY_IMAGE_H

#include <pybind11/numpy.h>

#include <OpenImageIO/imagebuf.h>

namespace vellux::python {

// An array's pixels as an image. The image may read the array's memory (or a packed copy of it,
// held in `pixels`): keep the ArrayImage alive while the image is used.
struct ArrayImage {
    pybind11::array pixels;
    OIIO::ImageBuf image;
};

// Raises TypeError for another dtype, ValueError for another shape, naming `what`.
ArrayImage ImageFromArray(const pybind11::array& array, const char* what);

// An occlusion mask: H x W, or H x W x C (alpha last when C is 2 or 4), any of the dtypes, of the
// frame's size.
ArrayImage MaskFromArray(const pybind11::array& array, int width, int height);

// A new H x W x C array of `dtype` holding the image's pixels (the image's own memory when it can).
pybind11::array ArrayFromImage(OIIO::ImageBuf&& image, const pybind11::dtype& dtype);

// The dtype an image type reads as: its own for the four above, float32 for the rest.
pybind11::dtype DtypeOf(OIIO::TypeDesc type);

}  // namespace vellux::python

#endif  // VELLUX_PYTHON_ARRAY_IMAGE_H
