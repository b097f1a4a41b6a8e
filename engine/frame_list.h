// Frame lists as artists type them in other tools: N, A-B, A-BxSTEP (every STEP-th frame from A),
// A-BySTEP (the others), several separated by commas; B below A counts down. Read by the image
// library's own sequence enumeration, so a list means here what it means there.
#ifndef VELLUX_ENGINE_FRAME_LIST_H
#define VELLUX_ENGINE_FRAME_LIST_H

#include <cstdint>
#include <string>
#include <vector>

namespace vellux::engine {

// The frames of a list, in its order: each 0 to kMaxFrameNumber (frame_sequence.h), none twice,
// at least one. Throws std::invalid_argument naming `option` and the text, and what is wrong.
std::vector<int32_t> ParseFrameList(const std::string& option, const std::string& text);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FRAME_LIST_H
