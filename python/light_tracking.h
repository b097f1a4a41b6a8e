// Lights found in footage and followed through it (engine/footage_tracking.h) for the package's
// vellux.track: footage is a frame pattern's files or a list of H x W x 3 float arrays in
// scene-linear light. The GIL is released while frames are read and tracked; arrays are copied
// into the engine's frames first.
//
//   track          the finished tracks as scene files' texts, as `vellux track` writes them
//   follow_chunk   a part of the frame list followed on its own, unfinished, as plain values a
//                  Dask worker sends back (lists and tuples)
//   finish_track   such a light, joined from its parts, finished as a scene's text
#ifndef VELLUX_PYTHON_LIGHT_TRACKING_H
#define VELLUX_PYTHON_LIGHT_TRACKING_H

#include <pybind11/pybind11.h>

namespace vellux::python {

void AddLightTracking(pybind11::module_& module);

}  // namespace vellux::python

#endif  // VELLUX_PYTHON_LIGHT_TRACKING_H
