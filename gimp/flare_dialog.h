// The plug-in's dialog, in GIMP's own widgets and manner: a zoomable preview of the drawable with
// the flare, where a click or drag places the light; a notebook of the light (place, colour,
// intensity, blend, flare-only), the look (the tables and lenses, each with a thumbnail of its
// flare on black, and a settings file to start from) and every setting as a scale entry, colour
// button or check button; Reset, Cancel and OK.
//
//   preview   preview_geometry.h maps it onto the drawable, preview_flare.h paints it
//   settings  dialog_settings.h: all shown, only those changed written back as NAME=VALUE text
#ifndef VELLUX_GIMP_FLARE_DIALOG_H
#define VELLUX_GIMP_FLARE_DIALOG_H

#include <libgimp/gimp.h>

#include "gimp/flare_arguments.h"

namespace vellux::gimp {

// Shows the dialog on these arguments (the last run's or the defaults) and edits them; true when
// the artist pressed OK.
bool RunFlareDialog(gint32 image, gint32 drawable, FlareArguments& arguments);

}  // namespace vellux::gimp

#endif  // VELLUX_GIMP_FLARE_DIALOG_H
