// The GIMP plug-in vellux-flare: registers plug-in-vellux-flare ("Vellux Lens Flare..." in
// Filters > Light and Shadow) and runs it. A thin adapter: the arguments (flare_arguments.h) become
// the engine's render request, and the drawable is painted through GEGL (drawable_flare.h).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <gegl.h>
#include <libgimp/gimp.h>

#include "gimp/drawable_flare.h"
#include "gimp/flare_dialog.h"
#include "gimp/flare_arguments.h"

namespace {

using vellux::gimp::FlareArguments;

void Query() {
    int count = 0;
    const GimpParamDef* params = vellux::gimp::ProcedureParams(&count);
    gimp_install_procedure(vellux::gimp::kProcedureName, "Paint a lens flare from a Vellux flare table or lens",
                           "Paints the flare of a Vellux flare table (or a lens's own flare) with its light at "
                           "light-x, light-y of the image, as `vellux render` paints it, onto the drawable or, with "
                           "flare-only, onto a new layer above it. Settings are NAME=VALUE under the names "
                           "`vellux render --help` lists, e.g. \"ring-size=1.5 halo=off\". The selection is "
                           "respected.",
                           "Vellux", "Vellux", "2026", "Vellux _Lens Flare...", "RGB*", GIMP_PLUGIN, count, 0,
                           const_cast<GimpParamDef*>(params), nullptr);
    gimp_plugin_menu_register(vellux::gimp::kProcedureName, "<Image>/Filters/Light and Shadow");
}

// The arguments the run mode asks for: the call's, the last run's, or those chosen in the dialog
// (which starts from the last run's, or the defaults); false when the dialog was cancelled.
bool ArgumentsFor(GimpRunMode mode, gint32 image, gint32 drawable, const GimpParam* params, int count,
                  FlareArguments& arguments, std::string& problem) {
    if (mode == GIMP_RUN_NONINTERACTIVE) return vellux::gimp::ReadArguments(params, count, arguments, problem);
    arguments = vellux::gimp::DefaultArguments(gimp_image_width(image), gimp_image_height(image));
    vellux::gimp::LoadLastArguments(arguments);
    return mode == GIMP_RUN_WITH_LAST_VALS || vellux::gimp::RunFlareDialog(image, drawable, arguments);
}

// The flare onto the drawable as one undo step, with a progress bar; false with the engine's
// message when it refused (nothing is written then).
bool Run(gint32 image, gint32 drawable, const FlareArguments& arguments, std::string& problem) {
    gint offsetX = 0, offsetY = 0;
    gimp_drawable_offsets(drawable, &offsetX, &offsetY);
    gimp_progress_init("Vellux Lens Flare");
    bool done = true;
    try {
        vellux::gimp::PaintDrawable(image, drawable, vellux::gimp::RequestFor(arguments, offsetX, offsetY),
                                    arguments.flareOnly, [](double fraction) { gimp_progress_update(fraction); });
    } catch (const std::exception& error) {
        problem = error.what();
        done = false;
    }
    gimp_progress_end();
    return done;
}

// With VELLUX_GIMP_TIMES set, the procedure's own time from its start to its return on stderr
// (GIMP's batch log), for measuring it against `vellux render`.
struct ProcedureTimer {
    ~ProcedureTimer() {
        if (std::getenv("VELLUX_GIMP_TIMES") == nullptr) return;
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
        std::fprintf(stderr, "plug-in-vellux-flare: %.1f ms\n", took.count());
    }
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

// A call's answer: its status, and GIMP's error message when it failed.
struct Answer {
    GimpPDBStatusType status = GIMP_PDB_SUCCESS;
    std::string message;
};

Answer Procedure(gint count, const GimpParam* params) {
    if (count < 3) return {GIMP_PDB_CALLING_ERROR, "plug-in-vellux-flare: run mode, image and drawable needed"};
    const auto mode = GimpRunMode(params[0].data.d_int32);
    const gint32 image = params[1].data.d_image;
    const gint32 drawable = params[2].data.d_drawable;
    if (!gimp_drawable_is_rgb(drawable)) return {GIMP_PDB_CALLING_ERROR, "Vellux Lens Flare: the drawable is not RGB"};
    // Most of GEGL's start in this process is babl reading its cache of conversion paths (about
    // 150 of 200 ms) and GEGL loading its operations (about 20 ms). A batch run on an image painted
    // in its own format converts nothing and runs no operation (GIMP merges the result), so it
    // starts without either. The dialog's preview converts, and keeps both.
    if (mode != GIMP_RUN_INTERACTIVE && vellux::gimp::TakenInItsOwnFormat(image)) {
        g_setenv("BABL_INHIBIT_CACHE", "1", TRUE);
        g_setenv("GEGL_PATH", "", TRUE);
    }
    gegl_init(nullptr, nullptr);
    FlareArguments arguments;
    std::string problem;
    if (!ArgumentsFor(mode, image, drawable, params, count, arguments, problem))
        return mode == GIMP_RUN_INTERACTIVE ? Answer{GIMP_PDB_CANCEL, ""} : Answer{GIMP_PDB_CALLING_ERROR, problem};
    if (!Run(image, drawable, arguments, problem)) return {GIMP_PDB_EXECUTION_ERROR, "Vellux Lens Flare: " + problem};
    vellux::gimp::SaveLastArguments(arguments);
    if (mode != GIMP_RUN_NONINTERACTIVE) gimp_displays_flush();
    return {};
}

// GIMP's entry: nothing may throw into GIMP's C, so anything unforeseen becomes an error message.
void RunProcedure(const gchar*, gint count, const GimpParam* params, gint* returnCount, GimpParam** returns) {
    const ProcedureTimer timer;
    static GimpParam values[2];
    static Answer answer;
    try {
        answer = Procedure(count, params);
    } catch (const std::exception& error) {
        answer = {GIMP_PDB_EXECUTION_ERROR, std::string("Vellux Lens Flare: ") + error.what()};
    } catch (...) {
        answer = {GIMP_PDB_EXECUTION_ERROR, "Vellux Lens Flare: an unknown failure"};
    }
    values[0].type = GIMP_PDB_STATUS;
    values[0].data.d_status = answer.status;
    values[1].type = GIMP_PDB_STRING;
    values[1].data.d_string = const_cast<gchar*>(answer.message.c_str());
    *returnCount = answer.message.empty() ? 1 : 2;
    *returns = values;
}

}  // namespace

const GimpPlugInInfo PLUG_IN_INFO = {nullptr, nullptr, Query, RunProcedure};

MAIN()
