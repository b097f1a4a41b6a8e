// An exact sequential ray tracer in three dimensions: rays that need not lie in a plane through the
// axis (skew rays), followed along a path (paraxial.h) with real sphere intersections, Snell's law
// and the law of reflection in vector form, each surface's clear aperture, and the iris at the stop.
//
// Coordinates are the lens's own: z along the axis from the first vertex towards the image, x and
// y across it, in mm. A path is prepared once for a wavelength (SkewPath); tracing a ray through it
// then allocates nothing.
#ifndef VELLUX_LENS_SKEW_TRACE_H
#define VELLUX_LENS_SKEW_TRACE_H

#include <array>
#include <cstddef>
#include <vector>

#include "lens/aperture.h"
#include "lens/paraxial.h"

namespace vellux::lens {

struct Vec3 {
    double x = 0.0, y = 0.0, z = 0.0;
};

// The iris: an aperture (aperture.h) scaled to `radius` mm in the stop's plane, with its blades'
// directions worked out once so that the test of a point is a few multiplications.
class Iris {
public:
    Iris() = default;   // open everywhere
    Iris(const Aperture& aperture, double radius);
    bool Open(double x, double y) const;   // mm in the stop's plane

private:
    bool open_ = true;
    double radius_ = 0.0, curvature_ = 0.0, chord_ = 1.0;   // chord: a straight blade's distance from the centre (unit)
    int blades_ = 0;
    std::array<double, kMaxBlades> cos_{}, sin_{};          // each blade's middle direction
};

enum class Miss {
    none,
    passedBy,          // the ray does not meet the surface's sphere at all
    clearAperture,     // it meets it outside the clear aperture
    iris,              // it crosses the stop outside the opening
    totalReflection,
    turnedBack,        // after the last surface it does not head for the sensor
};

struct SkewTrace {
    Miss miss = Miss::none;
    size_t event = 0;              // where it was lost (an index into the path)
    double stopX = 0.0, stopY = 0.0;       // where it first crosses the stop's plane (when it got there)
    double sensorX = 0.0, sensorY = 0.0;   // where it meets the sensor (when nothing missed)
};

// A path through the lens at one wavelength: the surfaces' vertices, radii, clear apertures and the
// ratio of the indices at each refraction, in the order the path meets them.
class SkewPath {
public:
    // `clearApertures` false traces as if each surface went on for ever (the iris still applies).
    SkewPath(const Prescription& lens, const Path& path, double wavelength, double sensorDistance,
             bool clearApertures = true);

    // The ray from `origin` in `direction` (any length); `events` limits the tracing to the path's
    // first events (to find where it crosses the stop without going on to the sensor).
    SkewTrace Trace(Vec3 origin, Vec3 direction, const Iris& iris = {}, size_t events = size_t(-1)) const;
    // Parallel rays from `count` origins, into `traced`: many at once keep the processor busy
    // while each waits on its square roots.
    void Trace(const Vec3* origins, size_t count, Vec3 direction, const Iris& iris, size_t events, SkewTrace* traced) const;

    size_t Events() const { return steps_.size(); }
    // The first event at the stop (Events() when the path does not cross it).
    size_t FirstStopEvent() const { return firstStop_; }

private:
    struct Step {
        double vertex = 0.0;       // z of the surface's vertex
        double radius = 0.0;       // 0: flat
        double curvature = 0.0;    // 1 / radius
        double clear2 = 0.0;       // the clear aperture's radius squared (infinite when not clipped)
        double eta = 1.0;          // index before over index after, as the path meets the surface
        bool reflect = false;
        bool stop = false;
    };
    std::vector<Step> steps_;
    size_t firstStop_ = 0;
    double sensorZ_ = 0.0;
};

}  // namespace vellux::lens

#endif  // VELLUX_LENS_SKEW_TRACE_H
