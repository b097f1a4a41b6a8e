#include "frei0r/seek_watch.h"

namespace vellux::frei0r {

bool Seeked(SeekWatch& watch, double time) {
    const bool first = !watch.started;
    const double step = time - watch.last;
    watch.started = true;
    watch.last = time;
    if (first) return false;
    if (step < 0.0) return true;
    if (watch.shortestStep > 0.0 && step > kSeekSteps * watch.shortestStep) return true;
    if (step > 0.0 && (watch.shortestStep == 0.0 || step < watch.shortestStep)) watch.shortestStep = step;
    return false;
}

}  // namespace vellux::frei0r
