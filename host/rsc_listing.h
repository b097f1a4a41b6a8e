// The human-readable listing of a resource file: every resource with its type, ID, name and
// size; FLAR and RING decoded field by field (geometry also in flare units, each stop with the
// radius fraction the plug-in derives from it); DLOG with its title, size and every item (ID,
// type, bounds, value, the control it labels, title, menu); anything else, or one of these
// that is not well formed, as a hex dump with the reason.
#ifndef VELLUX_HOST_RSC_LISTING_H
#define VELLUX_HOST_RSC_LISTING_H

#include <ostream>
#include <string>

#include "host/resource_file.h"

namespace vellux::rsc {

void WriteListing(std::ostream& out, const std::string& fileLabel, const rsc::ResourceFile& file);

}  // namespace vellux::rsc

#endif  // VELLUX_HOST_RSC_LISTING_H
