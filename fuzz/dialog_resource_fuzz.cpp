// Fuzzes the dialog resource decoder: any input either is refused with a reason or decodes into a
// template that breaks no rule and encodes back to exactly the input bytes. Anything else (a
// crash, a sanitizer report, an exception, other bytes) is a finding.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <variant>
#include <vector>

#include "host/dialog_resource.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto decoded = vellux::host::DecodeDialog({data, size});
    if (const auto* reason = std::get_if<std::string>(&decoded)) {
        if (reason->empty()) std::abort();   // a refusal always says why
        return 0;
    }
    const auto& dialog = std::get<vellux::host::DialogTemplate>(decoded);
    if (!vellux::host::CheckDialog(dialog).empty()) std::abort();
    const std::vector<uint8_t> bytes = vellux::host::EncodeDialog(dialog);
    if (bytes != std::vector<uint8_t>(data, data + size)) std::abort();
    return 0;
}
