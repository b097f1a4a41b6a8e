// Table source: the JSON form of a flare table file, and its compilation into resources.
//
//   {"resources": [
//     {"type": "FLAR", "id": 1001, "name": "map name (optional)", "attributes": 0,
//      "flare": {"elements": [{"type": "RING", "first": 2001, "last": 2016}]}},
//     {"type": "RING", "id": 2001, "ring": {"name": "Glow", "type": 1, "mode": 0, "units": 1000,
//      "offset": 1000, "inside": 0, "outside": 350,
//      "stops": [{"position": 0, "alpha": 65535, "red": 65535, "green": 65535, "blue": 65535}]}},
//     {"type": "DLOG", "id": 16001, "hex": "0a0b0c"}]}
//
// A FLAR takes "flare" and a RING takes "ring"; any resource may instead give its bytes as "hex".
// A stop's alpha may be left out (65535). Comments (// and /* */) are allowed.
//
// Compilation reads the whole source and reports every problem it finds, each with the JSON
// path of the value concerned ("resources[3].ring.units"). Errors are what the plug-in would
// refuse, misread or divide by zero on, or what the container cannot hold; warnings are legal
// tables that will probably not draw what their author meant. Resources are produced only when
// there is no error.
#ifndef VELLUX_TOOLS_TABLE_SOURCE_H
#define VELLUX_TOOLS_TABLE_SOURCE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/resource_file.h"

namespace vellux::tool {

using Json = nlohmann::ordered_json;

inline constexpr size_t kMaxStops = 1000;   // far beyond any ramp; stops a typo from making megabytes

// ---- Diagnostics ----

struct Diagnostic {
    enum class Severity { warning, error };
    Severity severity = Severity::error;
    std::string path;      // "resources[3].ring.units"; empty for the text as a whole
    std::string message;   // "must not be 0"

    std::string Text() const;   // "resources[3].ring.units: must not be 0"
};

class Diagnostics {
public:
    void Error(std::string path, std::string message);
    void Warning(std::string path, std::string message);

    const std::vector<Diagnostic>& All() const { return all_; }
    size_t ErrorCount() const;
    bool HasErrors() const { return ErrorCount() > 0; }

private:
    std::vector<Diagnostic> all_;
};

// ---- Compilation ----

struct CompiledTable {
    rsc::ResourceFile file;          // empty unless diagnostics hold no error
    Diagnostics diagnostics;
};

CompiledTable CompileTableSource(std::string_view text);

// One resource entry of an already parsed source, checked on its own (no cross-references):
// the resource, or nothing with the reasons in `diagnostics`.
std::optional<rsc::Resource> CompileResourceEntry(const Json& entry, const std::string& path,
                                                  Diagnostics& diagnostics);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_TABLE_SOURCE_H
