"""The flare in Blender's own window: the example scene opened in Blender with its interface (on a
virtual X display), the 3D viewport looking through the camera, screenshots taken with the
viewport flare off and on, and after the light moved.

    xvfb-run -a -s "-screen 0 1280x720x24" blender --factory-startup SCENE.blend --addons vellux_flare \\
        --python tests/blender/viewport_screenshot_test.py -- WORK_DIR [SHADING]

SCENE.blend is the example scene (blender/examples/flare_scene.py). Exits 0 when every check
passes; the screenshots stay in WORK_DIR (viewport-off.png, viewport-on.png, viewport-moved.png)."""

import os
import sys
import traceback

import bpy
import numpy as np
from bpy_extras.view3d_utils import location_3d_to_region_2d

ARGS = sys.argv[sys.argv.index("--") + 1:]
WORK, SHADING = ARGS[0], (ARGS[1] if len(ARGS) > 1 else "SOLID")
SETTLE = 1.0   # seconds between a change and its screenshot: the views redraw in between


def view_3d():
    """The window, the 3D viewport's area and its main region."""
    window = bpy.context.window_manager.windows[0]
    area = max((a for a in window.screen.areas if a.type == "VIEW_3D"), key=lambda a: a.width * a.height)
    return window, area, next(r for r in area.regions if r.type == "WINDOW")


def screenshot(name):
    """The window's pixels (bottom row first, RGB 0..1), saved as WORK/name.png."""
    window, area, region = view_3d()
    path = os.path.join(WORK, name + ".png")
    with bpy.context.temp_override(window=window, area=area, region=region):
        bpy.ops.screen.screenshot(filepath=path)
    image = bpy.data.images.load(path)
    width, height = image.size
    pixels = np.empty(width * height * 4, np.float32)
    image.pixels.foreach_get(pixels)
    bpy.data.images.remove(image)
    return pixels.reshape(height, width, 4)[:, :, :3]


def light_in_window(lamp):
    """The light's place in the window's pixels (x, y from the bottom-left)."""
    window, area, region = view_3d()
    place = location_3d_to_region_2d(region, area.spaces.active.region_3d, lamp.matrix_world.translation)
    return region.x + place.x, region.y + place.y


def frame_in_window():
    """The camera frame's rectangle in the window, as the add-on finds it."""
    from vellux_flare import viewport
    window, area, region = view_3d()
    scene = bpy.context.scene
    x0, y0, x1, y1 = viewport.camera_frame_rect(scene, scene.camera, region, area.spaces.active.region_3d)
    return region.x + x0, region.y + y0, region.x + x1, region.y + y1


def flare_core(added):
    """The middle of the pixels that gained at least 95% of the most any gained."""
    gain = added.sum(axis=2)
    ys, xs = np.nonzero(gain >= 0.95 * gain.max())
    return xs.mean(), ys.mean()


def decoded(levels):
    return np.where(levels <= 0.04045, levels / 12.92, ((levels + 0.055) / 1.055) ** 2.4)


def encoded(linear):
    linear = np.clip(linear, 0.0, 1.0)
    return np.where(linear <= 0.0031308, linear * 12.92, 1.055 * linear ** (1 / 2.4) - 0.055)


def expected_on(off):
    """The window with the flare as the add-on's preview says it should look: the preview's display
    levels, stretched over the camera frame (nearest pixel), added to the picture in linear light."""
    from vellux_flare import viewport_draw
    window, area, region = view_3d()
    shown = viewport_draw._previews[region.as_pointer()].shown[:, :, :3]
    x0, y0, x1, y1 = frame_in_window()
    ys, xs = np.mgrid[int(np.ceil(y0)):int(y1), int(np.ceil(x0)):int(x1)]
    rows = ((ys + 0.5 - y0) / (y1 - y0) * shown.shape[0]).astype(int).clip(0, shown.shape[0] - 1)
    columns = ((xs + 0.5 - x0) / (x1 - x0) * shown.shape[1]).astype(int).clip(0, shown.shape[1] - 1)
    expected = off.copy()
    expected[ys, xs] = encoded(decoded(off[ys, xs]) + decoded(shown[rows, columns]))
    return expected


def box(image, x, y, half=6):
    x, y = int(round(x)), int(round(y))
    return image[y - half:y + half + 1, x - half:x + half + 1].mean()


class Checks:
    def __init__(self):
        self.failures = []

    def check(self, ok, what):
        print(("ok:   " if ok else "FAIL: ") + what, flush=True)
        if not ok:
            self.failures.append(what)


def steps():
    """The test, one step per timer call: each yields the seconds to wait before the next."""
    checks = Checks()
    scene = bpy.context.scene
    lamp = scene.objects["Lamp"]
    scene.frame_set(1)   # the light clear of the pillar
    window, area, region = view_3d()
    with bpy.context.temp_override(window=window, area=area, region=region):
        bpy.ops.screen.screen_full_area()
    window, area, region = view_3d()
    space = area.spaces.active
    space.region_3d.view_perspective = "CAMERA"
    space.shading.type = SHADING
    with bpy.context.temp_override(window=window, area=area, region=region):
        bpy.ops.view3d.view_center_camera()
    scene.vellux.viewport_flare = False
    yield SETTLE
    off = screenshot("viewport-off")
    scene.vellux.viewport_flare = True
    yield SETTLE
    on = screenshot("viewport-on")

    x, y = light_in_window(lamp)
    x0, y0, x1, y1 = frame_in_window()
    print("light at (%.1f, %.1f), camera frame (%.0f, %.0f)-(%.0f, %.0f) in the window" % (x, y, x0, y0, x1, y1))
    checks.check(box(on, x, y) > box(off, x, y) + 0.15,
                 "brighter at the light with the flare on: %.3f against %.3f" % (box(on, x, y), box(off, x, y)))
    core = flare_core(on - off)
    checks.check(abs(core[0] - x) < 3 and abs(core[1] - y) < 3, "the flare's core at the light: (%.1f, %.1f)" % core)
    expected = expected_on(off)
    reached = np.abs(expected - off).max(axis=2) > 0.02
    error = np.abs(on - expected)[reached]
    checks.check(reached.sum() > 5000 and np.median(error) < 0.01 and error.mean() < 0.02,
                 "the flare drawn as its preview, added in linear light: %d pixels, off by %.4f (median), "
                 "%.4f (mean)" % (reached.sum(), np.median(error), error.mean()))
    outside = np.ones(on.shape[:2], bool)
    outside[int(y0) - 1:int(np.ceil(y1)) + 2, int(x0) - 1:int(np.ceil(x1)) + 2] = False
    checks.check(np.abs(on - off)[outside].max() < 1.5 / 255, "nothing drawn outside the camera frame")

    lamp.animation_data_clear()   # the artist moves the light: the flare follows
    lamp.location.x = 1.0
    yield SETTLE
    moved = screenshot("viewport-moved")
    x, y = light_in_window(lamp)
    core = flare_core(moved - off)
    checks.check(abs(core[0] - x) < 3 and abs(core[1] - y) < 3,
                 "after the light moved, the core at (%.1f, %.1f): (%.1f, %.1f)" % ((x, y) + core))
    print("%d passed, %d failed" % (5 - len(checks.failures), len(checks.failures)), flush=True)
    os._exit(1 if checks.failures else 0)


def run(sequence):
    def step():
        try:
            return next(sequence)
        except Exception:
            traceback.print_exc()
            sys.stdout.flush()
            os._exit(1)
    return step


bpy.app.timers.register(run(steps()), first_interval=SETTLE)
