// libvellux_tool_images.so: the tool's work on images, loaded by the tool when a command needs it
// (image_actions.h). It links the whole engine, and with it the image library.
#include <iostream>
#include <stdexcept>

#include <OpenImageIO/imagebuf.h>

#include "engine/footage_tracking.h"
#include "engine/frame_image.h"
#include "engine/frame_list.h"
#include "engine/frame_memory.h"
#include "engine/frame_render.h"
#include "engine/lens_sheet.h"
#include "engine/pending_output.h"
#include "engine/preview_plate.h"
#include "engine/sample_frame.h"
#include "engine/sample_shot.h"
#include "engine/scene_render.h"
#include "host/progress_bar.h"
#include "tools/vellux/image_actions.h"

namespace vellux::tool {

namespace {

using namespace vellux::engine;
namespace fs = std::filesystem;

void Render(const RenderRequest& request, bool quiet, const std::atomic<bool>* cancel) {
    host::ProgressBar bar(std::cerr, !quiet && host::StderrIsTerminal());
    RenderReporting reporting;
    reporting.progress = bar.Sink();
    reporting.cancel = cancel;
    if (!IsSequence(request)) return RenderFlareImage(request, reporting);
    KeepFrameMemory();   // frame after frame in this process; one frame needs no memory kept
    if (!quiet) {
        reporting.frameDone = [&bar](int32_t frame, int32_t done, int32_t count) {
            bar.Finish();
            std::cerr << "frame " << frame << " (" << done << " of " << count << ")\n";
        };
    }
    RenderSceneSequence(request, reporting);
}

void WriteRgba(const fs::path& file, int32_t width, int32_t height, const std::vector<uint8_t>& rgba) {
    CheckOutputFormat(file);
    OIIO::ImageBuf image(OIIO::ImageSpec(width, height, 4, OIIO::TypeDesc::UINT8));
    image.set_pixels(OIIO::ROI(0, width, 0, height, 0, 1, 0, 4), OIIO::TypeDesc::UINT8, rgba.data());
    PendingOutput pending(file);
    if (!image.write(pending.temporary().string(), OIIO::TypeUnknown, file.string()))
        throw std::runtime_error(file.string() + ": cannot write the image: " + image.geterror());
    pending.Commit();
}

void Track(const TrackRequest& request, bool quiet, const std::atomic<bool>* cancel) {
    host::ProgressBar bar(std::cerr, !quiet && host::StderrIsTerminal());
    TrackReporting reporting;
    reporting.progress = bar.Sink();
    reporting.cancel = cancel;
    const std::vector<fs::path> written = WriteTrackScenes(request, reporting);
    bar.Finish();
    if (!quiet)
        for (const fs::path& file : written) std::cerr << "wrote " << file.string() << "\n";
}

std::unique_ptr<host::ImageBackdrop> MakePreviewPlate(const PreviewPlateOptions& options) {
    return std::make_unique<PreviewPlate>(options);
}

constexpr ImageActions kActions{Render,         WriteSampleFrame, WriteSampleShot, ParseFrameList,  WriteRgba,
                                WriteLensSheet, WriteLookSheet,   MakePreviewPlate, Track};

}  // namespace

}  // namespace vellux::tool

extern "C" __attribute__((visibility("default"))) const vellux::tool::ImageActions* VelluxToolImageActions() {
    return &vellux::tool::kActions;
}
