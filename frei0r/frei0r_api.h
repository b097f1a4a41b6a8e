// frei0r's header, which declares its entry points without C linkage of its own.
#ifndef VELLUX_FREI0R_FREI0R_API_H
#define VELLUX_FREI0R_FREI0R_API_H

extern "C" {
#include <frei0r.h>
}

#endif  // VELLUX_FREI0R_FREI0R_API_H
