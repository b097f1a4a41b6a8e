// The way back from resources to table source, and the layout of source text.
//
// FLAR, RING and DLOG resources that decode and pass the compiler's own checks are written field
// by field; every other resource, and any of these that would not come back the same, is
// written as hex. Compiling the result therefore gives back the same bytes.
#ifndef VELLUX_HOST_TABLE_EXPORT_H
#define VELLUX_HOST_TABLE_EXPORT_H

#include <string>

#include "host/resource_file.h"
#include "host/table_source.h"

namespace vellux::rsc {

// Throws std::runtime_error when a name or type code is not UTF-8 text, which JSON cannot carry.
Json TableSourceFromFile(const rsc::ResourceFile& file);

// Two-space indents; an object or array that fits in 100 columns stays on one line, so each
// colour stop and each flare element reads as one line. Ends with a newline.
std::string FormatTableSource(const Json& source);

}  // namespace vellux::rsc

#endif  // VELLUX_HOST_TABLE_EXPORT_H
