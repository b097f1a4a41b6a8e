// The lens prescription reader, and everything computed from a prescription it accepts: the
// paraxial data, every ghost, and the table source. Bad input must end in a runtime_error naming
// the file; an accepted lens, however odd, must never crash the optics or the table.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "lens/ghosts.h"
#include "lens/lens_table.h"
#include "lens/prescription.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace vellux::lens;
    Prescription lens;
    try {
        lens = ParsePrescription(std::string(reinterpret_cast<const char*>(data), size), "fuzz.json");
    } catch (const std::runtime_error& error) {
        if (std::string(error.what()).rfind("fuzz.json: ", 0) != 0) __builtin_trap();   // every message names the file
        return 0;
    }
    try {
        const std::vector<Ghost> ghosts = Ghosts(lens, {});
        (void)LensTableSource(lens, ghosts, UsedFNumber(lens, {}), {});
    } catch (const std::runtime_error&) {   // an afocal lens is refused in words
    }
    return 0;
}
