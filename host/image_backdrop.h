// What the host shows behind the images a plug-in draws in its dialogs (KV_DrawImage).
//
// Without a backdrop an image is shown as it is, opaque: the settings dialog's preview, which the
// plug-in paints on a black synthetic frame, shows black wherever the flare adds nothing. A
// program may install a backdrop instead. KV_DrawImage then scales the image to where it is drawn,
// as ever, and hands those pixels to the backdrop, which says what the artist sees there: the
// preview on the artist's own plate (engine/preview_plate.h) adds the flare to the plate as a
// render does. The plug-in takes no part; it draws what it always draws.
//
// Threading: as the dialogs (dialog_model.h), the thread that runs the plug-in's command only.
#ifndef VELLUX_HOST_IMAGE_BACKDROP_H
#define VELLUX_HOST_IMAGE_BACKDROP_H

#include <cstdint>

namespace vellux::host {

class ImageBackdrop {
public:
    virtual ~ImageBackdrop() = default;

    // `pixels`: an image as drawn over its whole destination, `width` x `height`, rows of width * 4
    // bytes, each pixel alpha, red, green, blue as image buffers hold them (a pixel the image does
    // not cover is all 0). Replaces each pixel's red, green and blue with what is shown there.
    // May throw: KV_DrawImage then shows the image as it is and keeps the failure for the program
    // (TakeRunnerFailure, dialog_runner.h).
    virtual void Compose(uint8_t* pixels, int width, int height) = 0;
};

// Installs the backdrop for the images drawn from now on (nullptr: none). The caller keeps
// ownership; the backdrop must outlive its use.
void SetImageBackdrop(ImageBackdrop* backdrop);
ImageBackdrop* CurrentImageBackdrop();

// Installs a backdrop for the lifetime of a scope and puts the previous one back.
class ScopedImageBackdrop {
public:
    explicit ScopedImageBackdrop(ImageBackdrop* backdrop) : previous_(CurrentImageBackdrop()) { SetImageBackdrop(backdrop); }
    ~ScopedImageBackdrop() { SetImageBackdrop(previous_); }
    ScopedImageBackdrop(const ScopedImageBackdrop&) = delete;
    ScopedImageBackdrop& operator=(const ScopedImageBackdrop&) = delete;

private:
    ImageBackdrop* previous_;
};

}  // namespace vellux::host

#endif  // VELLUX_HOST_IMAGE_BACKDROP_H
