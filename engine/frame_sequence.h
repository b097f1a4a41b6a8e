// Frame numbers in file names and on the command line.
//
// A frame pattern names one file per frame by a frame number field, written as compositing
// tools write them:
//   ####     a run of hashes: the number zero padded to the run's length ("#" is no padding)
//   %04d     printf style: zero padded to 4 digits (widths 1 to 9)
//   %d       the number as it is
// %% stands for a percent sign; any other % is a mistake. A pattern holds at most one field; a
// pattern with none names the same file for every frame.
//
// A frame range is "A-B" (both inclusive) or a single frame "N", whole numbers 0 or more.
// A frame list is what artists type in other tools: "1-48", "1-48x2" (every second), "1-48y2"
// (the others), "1,5,10-20", "48-1" (backwards); the engine reads it.
// Errors throw std::invalid_argument naming the option or the pattern and what is wrong.
#ifndef VELLUX_ENGINE_FRAME_SEQUENCE_H
#define VELLUX_ENGINE_FRAME_SEQUENCE_H

#include <cstdint>
#include <string>
#include <vector>

namespace vellux::engine {

class FramePattern {
public:
    static FramePattern Parse(const std::string& text);

    bool HasField() const { return hasField_; }
    const std::string& text() const { return text_; }
    std::string For(int32_t frame) const;   // the file name of this frame
    // The frames whose files exist, ascending; throws naming the pattern when there are none.
    std::vector<int32_t> FramesOnDisk() const;

private:
    std::string text_;
    std::string prefix_, suffix_;   // around the field, %% already a single %
    int width_ = 0;                 // zero padding; 0 for none
    bool hasField_ = false;
};

struct FrameRange {
    int32_t first = 0;
    int32_t last = 0;
    int32_t Count() const { return last - first + 1; }
    bool Contains(const FrameRange& inner) const { return inner.first >= first && inner.last <= last; }
};

FrameRange ParseFrameRange(const std::string& option, const std::string& text);
std::string RangeText(const FrameRange& range);   // "3-5", or "7" for one frame

// The highest frame number a frame list (frame_list.h) may name.
inline constexpr int32_t kMaxFrameNumber = 9999999;
std::vector<int32_t> FramesOf(const FrameRange& range);   // first..last

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FRAME_SEQUENCE_H
