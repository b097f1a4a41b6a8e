// Fuzzes the resource file reader: any input either is refused with ResourceFileError or reads
// into resources that write out canonically and read back the same, with a second write giving
// the same bytes. Anything else (a crash, a sanitizer report, another exception) is a finding.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "host/resource_file.h"

namespace {

using vellux::rsc::ResourceFile;

bool Same(const ResourceFile& a, const ResourceFile& b) {
    if (a.resources.size() != b.resources.size()) return false;
    for (size_t i = 0; i < a.resources.size(); ++i) {
        const auto& x = a.resources[i];
        const auto& y = b.resources[i];
        if (x.type != y.type || x.id != y.id || x.name != y.name || x.attributes != y.attributes || x.data != y.data)
            return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ResourceFile parsed;
    try {
        parsed = vellux::rsc::ParseResourceFile({data, size});
    } catch (const vellux::rsc::ResourceFileError&) {
        return 0;
    }
    std::vector<uint8_t> bytes;
    try {
        bytes = vellux::rsc::SerializeResourceFile(parsed);
    } catch (const vellux::rsc::ResourceFileError&) {
        // A file may share one name among many resources; written out one name each, the name
        // list can outgrow its 16-bit offsets. Refusing to write that is correct.
        return 0;
    }
    const ResourceFile again = vellux::rsc::ParseResourceFile(bytes);
    if (!Same(parsed, again)) std::abort();
    if (vellux::rsc::SerializeResourceFile(again) != bytes) std::abort();
    return 0;
}
