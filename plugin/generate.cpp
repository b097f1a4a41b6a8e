// GENF: the host's pixel buffer. The block and its depth are checked and the records validated;
// painting arrives with the ring and streak painters.
#include "commands.h"
#include "plugin_data.h"

namespace {
bool IsSupportedDepth(int16_t depth) { return depth == 8 || depth == 32 || depth == 48; }
}  // namespace

int32_t DoGenerate(int32_t theSize, void* theRec) {
    if (theSize < int32_t(sizeof(PluginFlareGenerateRec))) return kIncompatibleRecord;
    const auto* block = static_cast<const PluginFlareGenerateRec*>(theRec);
    if (!IsSupportedDepth(block->theFlareBuffer.bufferDepth)) return kUnsupportedFeature;
    return CheckData(false, false);
}
