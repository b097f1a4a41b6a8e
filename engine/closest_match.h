// The closest of some names to a mistyped one, for "did you mean" in messages.
#ifndef VELLUX_ENGINE_CLOSEST_MATCH_H
#define VELLUX_ENGINE_CLOSEST_MATCH_H

#include <string>
#include <vector>

namespace vellux::engine {

// The name with the fewest single-letter edits (ignoring case) from `given`, if that is at most a
// third of its length (and at least 2); empty when none is that close.
std::string ClosestMatch(const std::string& given, const std::vector<std::string>& names);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_CLOSEST_MATCH_H
