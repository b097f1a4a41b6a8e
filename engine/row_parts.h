// Work over a frame's rows shared between threads, for work whose every row depends on that row
// alone (converting levels, finding clipped rows, copying): the parts change no value, so the
// result is the same whatever the number of threads.
//
// The rows are cut into at most `threads` parts of nearly equal height (0: every core), none
// shorter than `leastRows` unless the rows are; the first part runs on the calling thread, the
// others on threads started for the call (starting one costs some tens of microseconds, small
// beside a part of a frame). The first exception a part throws is thrown again once every part
// has ended; a thread the system will not start leaves its part to the calling thread.
#ifndef VELLUX_ENGINE_ROW_PARTS_H
#define VELLUX_ENGINE_ROW_PARTS_H

#include <cstdint>
#include <functional>
#include <vector>

#include "engine/flare_instance.h"

namespace vellux::engine {

// The parts `rows` is cut into, top first.
std::vector<Band> RowParts(Band rows, int32_t threads, int32_t leastRows);

// work(part) for every part of RowParts(rows, threads, leastRows), at once.
void ForRowParts(Band rows, int32_t threads, int32_t leastRows, const std::function<void(Band)>& work);

// work(i, parts[i]) for every part, at once: for work that keeps something of its own per part.
void ForEachRowPart(const std::vector<Band>& parts, const std::function<void(size_t, Band)>& work);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_ROW_PARTS_H
