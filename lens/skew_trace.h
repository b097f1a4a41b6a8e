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
    bool Open(double x, double y) const { return Covering(x, y) < 0; }   // mm in the stop's plane
    // The blade covering the point, -1 where it is open (a round opening's rim counts as blade 0).
    int Covering(double x, double y) const;

    // The iris over a patch of the stop's plane whose points are bilinear blends of four corners
    // (mm, at (u, v) = (0, 0), (1, 0), (0, 1), (1, 1)), asked at many of its points. The opening
    // is convex, so a patch whose corners are all open is open throughout; and how far a point
    // lies past a straight blade's edge is linear in the point, so bilinear across the patch: only
    // the blades some corner lies past need asking.
    class Patch {
    public:
        Patch() = default;   // open throughout
        Patch(const Iris& iris, const double (&corners)[4][2]);
        bool Open(double u, double v) const;

    private:
        const Iris* iris_ = nullptr;
        double corners_[4][2] = {};
        bool clear_ = true, straight_ = false;
        int reaching_ = 0;
        std::array<std::array<double, 4>, kMaxBlades> past_;   // the blades reaching in: how far each corner is past the edge
    };

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

// A path with two reflections crosses the stop at most three times.
inline constexpr size_t kMaxStopCrossings = 3;

// A ray followed as if neither the iris nor the surfaces' rims stopped it, so that neighbouring
// rays land smoothly next to each other; what would have stopped it is kept to be asked later.
struct UnclippedTrace {
    bool landed = false;           // false: lost for good (passed a sphere by, totally reflected, turned back)
    double sensorX = 0.0, sensorY = 0.0;
    // How far inside the tightest rim it passed, about the clear radius minus its distance from
    // the axis there (mm, exact where it is 0): negative where a rim would have stopped it.
    double rim = 0.0;
    double stop[kMaxStopCrossings][2] = {};   // x, y of each crossing of the stop's plane, in the path's order
};

struct UnclippedBatch;   // skew_trace.cpp

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
    // The same rays traced through to the sensor unclipped. Throws std::logic_error when the path
    // crosses the stop more than kMaxStopCrossings times.
    void TraceUnclipped(const Vec3* origins, size_t count, Vec3 direction, UnclippedTrace* traced) const;

    size_t Events() const { return steps_.size(); }
    // The first event at the stop (Events() when the path does not cross it).
    size_t FirstStopEvent() const { return firstStop_; }
    size_t StopCrossings() const { return stopCrossings_; }

private:
    struct Step {
        double vertex = 0.0;       // z of the surface's vertex
        double radius = 0.0;       // 0: flat
        double curvature = 0.0;    // 1 / radius
        double clear2 = 0.0;       // the clear aperture's radius squared (infinite when not clipped)
        double rimScale = 1.0;     // 1 / (2 clear radius): (clear2 - r^2) times it is the clear radius minus r near the rim
        double eta = 1.0;          // index before over index after, as the path meets the surface
        bool reflect = false;
        bool stop = false;
    };
    static bool Meet(const Step& step, Vec3& at, Vec3 d);
    static bool Turn(const Step& step, Vec3 at, Vec3& d);
    static void Meet(const Step& step, UnclippedBatch& rays, size_t n);
    static void Turn(const Step& step, UnclippedBatch& rays, size_t n);

    std::vector<Step> steps_;
    size_t firstStop_ = 0, stopCrossings_ = 0;
    double sensorZ_ = 0.0;
};

}  // namespace vellux::lens

#endif  // VELLUX_LENS_SKEW_TRACE_H
