// Curves through keys: how a keyed value moves from one key to the next.
//
//   linear    a straight line from the key to the next
//   smooth    a monotone cubic Hermite curve (below): through every key, with one slope at each
//             key shared by the segments either side, so a moving light no longer kinks there
//   constant  the key's value held up to the next key, which it then jumps to
//
// A key's interpolation governs the segment that starts at it. Before the first key and after
// the last the end key holds.
#ifndef VELLUX_HOST_KEY_CURVE_H
#define VELLUX_HOST_KEY_CURVE_H

#include <cmath>
#include <iterator>
#include <map>
#include <optional>
#include <string_view>

namespace vellux::host {

enum class Interpolation { linear, smooth, constant };

std::string_view InterpolationName(Interpolation interpolation);
std::optional<Interpolation> InterpolationNamed(std::string_view name);
inline constexpr const char* kInterpolationNames = "\"smooth\", \"linear\" or \"constant\"";

// A channel's interpolation and the keys that ask for another.
struct KeyModes {
    Interpolation all = Interpolation::linear;
    std::map<int, Interpolation> byKey;   // frame -> the interpolation of the segment from that key

    Interpolation At(int frame) const {
        const auto found = byKey.find(frame);
        return found == byKey.end() ? all : found->second;
    }
    bool operator==(const KeyModes&) const = default;
};

struct CurvePoint {
    double t = 0.0, value = 0.0;
};

// The value at `t` (a <= t <= b, a.t < b.t) on the segment from key a to key b, with the keys
// either side of the segment when there are (they shape the smooth curve's slopes).
double SegmentValue(Interpolation interpolation, const std::optional<CurvePoint>& before, CurvePoint a, CurvePoint b,
                    const std::optional<CurvePoint>& after, double t);

// The value at `t` of the keys in `keys` (frame -> Key, at least one), `value(key)` giving the
// number interpolated.
template <typename Key, typename Value>
double CurveAt(const std::map<int, Key>& keys, const KeyModes& modes, double t, Value value) {
    const auto next = keys.upper_bound(int(std::floor(t)));   // the first key after t
    if (next == keys.begin()) return value(next->second);
    const auto at = std::prev(next);
    if (next == keys.end() || double(at->first) == t) return value(at->second);
    auto point = [&](auto it) { return CurvePoint{double(it->first), value(it->second)}; };
    const std::optional<CurvePoint> before = at == keys.begin() ? std::nullopt : std::optional(point(std::prev(at)));
    const auto later = std::next(next);
    const std::optional<CurvePoint> after = later == keys.end() ? std::nullopt : std::optional(point(later));
    return SegmentValue(modes.At(at->first), before, point(at), point(next), after, t);
}

}  // namespace vellux::host

#endif  // VELLUX_HOST_KEY_CURVE_H
