"""The flares as the 3D viewport shows them through the scene camera: where the camera's frame
lies in the region, the size the preview is painted at, and each region's preview kept from one
redraw to the next.

A preview is painted by the render's own painting (frame_flares.flare_call and paint) at a
smaller size with the render's aspect, one image a light, and summed as the render sums them.
Nothing is painted while nothing changed: Blender's depsgraph and frame-change handlers bump
`_generation`; a region whose preview was made at the current generation, size and view is drawn
as it is, and otherwise each light's call is worked out again (its place, occlusion, settings) and
only a light whose call differs from the one its image was painted from is painted again."""

import math
from dataclasses import dataclass, field

import numpy as np
from bpy_extras.view3d_utils import location_3d_to_region_2d

from . import frame_flares, projection, view_transform

# The preview's longer side at most, in pixels. At 640 x 360 on the 2-core build machine, busy with
# other work: a light's flare painted in 9-13 ms, the sum through the view transform and made
# ready to draw in 20-38 ms more, once for all the lights (4-9 ms in all at 320 x 180).
PREVIEW_LIMIT = 640
# The preview's width is a multiple of this, so zooming the view a little paints nothing again.
PREVIEW_STEP = 32

_generation = 0   # bumped whenever something a flare may depend on changed


def mark_stale():
    """Every region's preview is checked again at its next redraw."""
    global _generation
    _generation += 1


def camera_frame_rect(scene, camera, region, region_3d):
    """The camera frame's rectangle in `region` (x0, y0, x1, y1) in region pixels from its
    bottom-left, `camera` evaluated; None when a corner is behind the view."""
    corners = [camera.matrix_world @ corner for corner in camera.data.view_frame(scene=scene)]
    points = [location_3d_to_region_2d(region, region_3d, corner) for corner in corners]
    if any(point is None for point in points):
        return None
    xs, ys = [point.x for point in points], [point.y for point in points]
    return min(xs), min(ys), max(xs), max(ys)


def preview_size(rect_width, frame):
    """The size a preview is painted at: about the frame's width on screen `rect_width`, rounded
    up to PREVIEW_STEP, no larger than PREVIEW_LIMIT along its longer side nor than the render
    `frame` (width, height), with the render's aspect."""
    width, height = frame
    widest = min(width, PREVIEW_LIMIT * width / max(width, height))
    wanted = min(widest, math.ceil(max(rect_width, 1.0) / PREVIEW_STEP) * PREVIEW_STEP)
    preview_width = max(1, int(wanted))
    return preview_width, max(1, round(preview_width * height / width))


@dataclass
class Preview:
    """One region's preview: the flares' sum as the viewport shows it, and what it was made from."""
    generation: int = -1
    size: tuple = (0, 0)
    view: view_transform.View = None
    calls: dict = field(default_factory=dict)    # light name -> the FlareCall its image was painted from
    images: dict = field(default_factory=dict)   # light name -> its flare, H x W x 4, bottom row first
    total: np.ndarray = None     # the lights' sum, scene-linear, as the render sums them
    shown: np.ndarray = None     # `total` through the view, display levels, alpha 1
    painted: int = 0             # flares painted so far (each light's each time its call changed)
    flares: dict = field(default_factory=dict)   # the preview's own vellux.Flare per light


def _light_call(scene, depsgraph, camera, light, size):
    """The light's FlareCall, None, or ("failed", message) when it cannot be worked out."""
    try:
        return frame_flares.flare_call(scene, depsgraph, camera, light.evaluated_get(depsgraph), size)
    except Exception as error:   # reported below; the view shows no flare for this light
        return ("failed", str(error))


def _repaint(preview, name, call, size):
    """Paint the light's image for its new `call`; problems are reported once a call."""
    preview.calls[name] = call
    preview.images.pop(name, None)
    if isinstance(call, frame_flares.FlareCall):
        image = np.zeros((size[1], size[0], 4), np.float32)
        try:
            frame_flares.paint(call, preview.flares, image)
            preview.images[name] = image
            preview.painted += 1
            return
        except Exception as error:
            call = ("failed", str(error))
    if call is not None:
        frame_flares.report("%s: %s (the viewport shows no flare for it)" % (name, call[1]))


def _sum(preview, names, size):
    """The lights' images added up in the render's order, as the render adds them."""
    if preview.total is None or preview.total.shape != (size[1], size[0], 4):
        preview.total = np.zeros((size[1], size[0], 4), np.float32)
    total = preview.total
    images = [preview.images[name] for name in names if name in preview.images]
    for i, image in enumerate(images):
        if i == 0:
            np.copyto(total, image)
        else:
            total += image
    return frame_flares.finish_sum(total, len(images))


def update(preview, scene, depsgraph, size, view):
    """Bring `preview` up to date for `size` and `view`, painting only the lights whose flare
    changed; True when `preview.shown` changed."""
    if (preview.generation, preview.size, preview.view) == (_generation, size, view):
        return False
    preview.generation, preview.size = _generation, size
    camera = scene.camera.evaluated_get(depsgraph) if scene.camera is not None else None
    lights = frame_flares.flare_lights(scene, depsgraph) if camera is not None else []
    names = [light.name for light in lights]
    changed = preview.shown is None or preview.view != view
    for gone in [name for name in preview.calls if name not in names]:
        preview.calls.pop(gone)
        preview.images.pop(gone, None)
        preview.flares.pop(gone, None)
        changed = True
    for light in lights:
        call = _light_call(scene, depsgraph, camera, light, size)
        if preview.calls.get(light.name, ()) != call:
            _repaint(preview, light.name, call, size)
            changed = True
    if not changed:
        return False
    preview.view = view
    preview.shown = view_transform.to_display(_sum(preview, names, size), view)
    preview.shown[:, :, 3] = 1.0
    return True


def flares_on(scene):
    """Whether `scene` shows flares in the viewport at all (cheap: asked at every redraw)."""
    return scene.vellux.viewport_flare and any(
        obj.type == "LIGHT" and obj.data.vellux_flare.enabled for obj in scene.objects)
