// A host's frame times, watched for seeks (an editor's playhead moved), so that following a light
// starts afresh after one.
#ifndef VELLUX_FREI0R_SEEK_WATCH_H
#define VELLUX_FREI0R_SEEK_WATCH_H

namespace vellux::frei0r {

// A host's frame times, watched for seeks (an editor's playhead moved): a time before the last
// one, or a step forward of more than kSeekSteps of the shortest step seen so far, whatever the
// host counts time in.
inline constexpr double kSeekSteps = 3.0;

struct SeekWatch {
    bool started = false;
    double last = 0.0;
    double shortestStep = 0.0;   // 0 until the time first moves on
};

// Whether the frame at `time` is not the one after the last (a seek); remembers it.
bool Seeked(SeekWatch& watch, double time);

}  // namespace vellux::frei0r

#endif  // VELLUX_FREI0R_SEEK_WATCH_H
