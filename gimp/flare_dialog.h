// The plug-in's dialog (GIMP 2.10's GTK 2 widgets): a preview of the whole image with the flare,
// where a click or a drag places the light; the table or lens from a list; the light's colour and
// intensity; every setting of the flare in GIMP's scale entries, colour button and check
// buttons; the blend and flare only; Reset, Cancel and OK.
#ifndef VELLUX_GIMP_FLARE_DIALOG_H
#define VELLUX_GIMP_FLARE_DIALOG_H

#include <libgimp/gimp.h>

#include "gimp/flare_arguments.h"

namespace vellux::gimp {

// Shows the dialog over `arguments`; true with the arguments chosen when OK was pressed.
bool RunFlareDialog(gint32 image, gint32 drawable, FlareArguments& arguments);

}  // namespace vellux::gimp

#endif  // VELLUX_GIMP_FLARE_DIALOG_H
