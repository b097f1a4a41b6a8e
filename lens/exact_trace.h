// An exact sequential ray tracer in the meridional plane, written apart from the paraxial model to
// check it: each surface a sphere (or a plane), Snell's law and the law of reflection in vector
// form, the same paths (paraxial.h) followed with real intersections.
#ifndef VELLUX_LENS_EXACT_TRACE_H
#define VELLUX_LENS_EXACT_TRACE_H

#include <optional>

#include "lens/ghosts.h"
#include "lens/paraxial.h"

namespace vellux::lens {

struct TracedRay {
    double stopHeight = 0.0;     // where it first crosses the stop's plane
    double sensorHeight = 0.0;   // where it meets the sensor `sensorDistance` behind the last vertex
};

// The ray crossing the first vertex's plane at height y0 with angle `angle` (radians) to the axis;
// nothing when it misses a surface or is totally reflected.
std::optional<TracedRay> TraceRay(const Prescription& lens, const Path& path, double wavelength, double sensorDistance,
                                  double y0, double angle);

// The effective focal length by exact tracing: a ray parallel to the axis at `height` over the sine
// of its final angle.
double ExactFocalLength(const Prescription& lens, double wavelength, double height);

// Where the chief ray at `angle` radians (the ray through the stop's centre) meets the sensor
// `sensorDistance` behind the last vertex; nothing when it cannot get through.
std::optional<double> ChiefRayHeight(const Prescription& lens, double wavelength, double sensorDistance, double angle);

// The angle off the axis (radians, 0 to under pi / 2) of a light whose image lies `height` mm from
// the sensor's centre: the angle whose chief ray lands there, so that a lens's distortion (a
// fisheye's above all) puts the light where its image is. A height past what the lens's chief
// rays reach (a light outside its field) goes on from the widest angle that gets through at the
// rate the heights grew there.
double FieldAngle(const Prescription& lens, double height, double wavelength, double sensorDistance);

// How far from the sensor's centre the lens's chief rays reach (within two degrees of its field's
// edge): the radius of its image circle.
double FieldRadius(const Prescription& lens, double wavelength, double sensorDistance);

// The ghost of surfaces i < j for a light at `angle` radians off the axis, traced exactly: its
// centre over the light's image, and its radius on the sensor for a stop of `stopRadius`, from rays
// crossing the stop near its centre.
std::optional<GhostImage> ExactGhost(const Prescription& lens, size_t i, size_t j, double wavelength, double stopRadius,
                                     double sensorDistance, double angle);

}  // namespace vellux::lens

#endif  // VELLUX_LENS_EXACT_TRACE_H
