// Table source: the JSON form of a flare table file, and its compilation into resources.
//
//   {"resources": [
//     {"type": "FLAR", "id": 1001, "name": "map name (optional)", "attributes": 0,
//      "flare": {"elements": [{"type": "RING", "first": 2001, "last": 2016}]}},
//     {"type": "RING", "id": 2001, "ring": {"name": "Glow", "type": 1, "mode": 0, "units": 1000,
//      "offset": 1000, "inside": 0, "outside": 350,
//      "stops": [{"position": 0, "alpha": 65535, "red": 65535, "green": 65535, "blue": 65535}]}},
//     {"type": "DLOG", "id": 16001, "dialog": {"title": "Settings", "width": 720, "height": 460,
//      "items": [{"id": 1, "type": "button", "bounds": [616, 420, 704, 444], "title": "OK"},
//                {"id": 22, "type": "popup", "bounds": [92, 408, 226, 432], "value": 0,
//                 "menu": [{"value": 0, "text": "None"}]},
//                {"id": 106, "type": "static", "bounds": [28, 412, 84, 428], "title": "Star filter",
//                 "for": 22}]}},
//     {"type": "PICT", "id": 128, "hex": "0a0b0c"}]}
//
// A FLAR takes "flare", a RING "ring" and a DLOG "dialog" (host/dialog_resource.h; an item's
// "title", "value", "for" and "menu" may be left out: "", 0, 0, none); any resource may instead
// give its bytes as "hex". A stop's alpha may be left out (65535). Comments (// and /* */) are
// allowed.
//
// Several sources may be compiled into one file: their resources are merged in order, and a type
// and ID given twice, in one source or in two, is an error that names both places.
//
// Compilation reads the whole source and reports every problem it finds, each with the JSON
// path of the value concerned ("resources[3].ring.units"). Errors are what the plug-in would
// refuse, misread or divide by zero on, or what the container cannot hold; warnings are legal
// tables that will probably not draw what their author meant. Resources are produced only when
// there is no error.
#ifndef VELLUX_HOST_TABLE_SOURCE_H
#define VELLUX_HOST_TABLE_SOURCE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/resource_file.h"

namespace vellux::rsc {

using Json = nlohmann::ordered_json;

inline constexpr size_t kMaxStops = 1000;   // far beyond any ramp; stops a typo from making megabytes

// ---- Diagnostics ----

struct Diagnostic {
    enum class Severity { warning, error };
    Severity severity = Severity::error;
    std::string path;      // "resources[3].ring.units"; empty for the text as a whole
    std::string message;   // "must not be 0"
    std::string source;    // the name of the source it is about; empty for all of them together

    std::string Text() const;   // "resources[3].ring.units: must not be 0"
};

class Diagnostics {
public:
    void Error(std::string path, std::string message);
    void Warning(std::string path, std::string message);

    const std::vector<Diagnostic>& All() const { return all_; }
    size_t ErrorCount() const;
    bool HasErrors() const { return ErrorCount() > 0; }

    // The source that the diagnostics made from now on are about.
    void SetSource(std::string source) { source_ = std::move(source); }

private:
    std::vector<Diagnostic> all_;
    std::string source_;
};

// ---- Compilation ----

struct CompiledTable {
    rsc::ResourceFile file;          // empty unless diagnostics hold no error
    Diagnostics diagnostics;
};

struct SourceText {
    std::string name;      // for the diagnostics, usually the file's name
    std::string text;
};

// The sources' resources merged in order, checked as one file.
CompiledTable CompileTableSources(const std::vector<SourceText>& texts);
CompiledTable CompileTableSource(std::string_view text);   // one source without a name

// One resource entry of an already parsed source, checked on its own (no cross-references):
// the resource, or nothing with the reasons in `diagnostics`.
std::optional<rsc::Resource> CompileResourceEntry(const Json& entry, const std::string& path,
                                                  Diagnostics& diagnostics);

}  // namespace vellux::rsc

#endif  // VELLUX_HOST_TABLE_SOURCE_H
