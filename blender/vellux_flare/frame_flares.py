"""Painting the flares of a frame while it renders, and the one light's flare the viewport paints
as well (flare_call, paint).

The frame-change handler runs for every frame a render makes (stills and animations, also
`blender -b`), with the render's own evaluated scene: the lights where they are at that frame and
their keyed settings. It paints each enabled light's flare alone (the vellux module, in linear
light), adds them up, and puts the sum into the flare image the compositor adds to the render.

Problems (a table that cannot be read, a scene without a camera) are reported on the console and
the frame renders without that flare: a render never fails because of a flare."""

import sys
from typing import NamedTuple

import bpy
import numpy as np
from bpy.app.handlers import persistent

from . import compositor, projection

# One vellux.Flare per light, with what it was made from (its table, or its lens and f-number), kept
# from frame to frame: loading the plug-in costs more than painting. Each holds its own copy of the
# plug-in; frames are painted one at a time. The viewport keeps flares of its own: it draws on
# Blender's main thread while a render may paint on its own thread.
_flares = {}
# The frame's sum, kept too: Blender's allocator hands a frame-sized block back to the system when
# it is freed, and taking fresh memory every frame costs more than adding the flares up.
_total = np.zeros((0, 0, 4), np.float32)
_one = np.zeros((0, 0, 4), np.float32)   # one light's flare, painted into the same memory each time


def report(message):
    print("Vellux flare: " + message, file=sys.stderr, flush=True)


def _flare(flares, light_name, table, lens_look):
    """The light's flare from `flares` (a cache of its own: the render's, or the viewport's): its
    table's look, or with `lens_look` (vellux.Flare's lens arguments) its lens's, made again when
    they change."""
    making = (table, lens_look)
    if flares.get(light_name, (None,))[0] != making:
        import vellux
        flares.pop(light_name, None)
        flare = vellux.Flare(**dict(lens_look)) if lens_look else vellux.Flare(table=table or None)
        flares[light_name] = (making, flare)
    return flares[light_name][1]


def flare_lights(scene, depsgraph):
    """The lights whose flare is on at this frame (the switch may be keyed) and that render."""
    return [light for light in scene.objects
            if light.type == "LIGHT" and not light.hide_render
            and light.evaluated_get(depsgraph).data.vellux_flare.enabled]


class FlareCall(NamedTuple):
    """Everything one light's flare is painted from at one frame size: plain values, so that two
    calls compare equal exactly when they paint the same pixels."""
    light: str
    table: str
    lens_look: tuple       # vellux.Flare's lens arguments as (name, value) pairs; empty: the table's look
    settings: tuple        # the flare's settings as (name, value) pairs
    size: tuple            # (width, height) in pixels
    place: tuple           # (x, y) in pixels from the frame's top-left
    radius: float
    color: tuple
    intensity: float
    pixel_aspect: float


def flare_call(scene, depsgraph, camera, light, size):
    """What painting `light`'s flare (evaluated) through `camera` at `size` takes, or None when the
    light paints nothing there (behind the camera, hidden or dark)."""
    settings = light.data.vellux_flare
    place = projection.on_frame(scene, camera, light, size)
    if place is None:
        return None
    intensity = projection.strength(light, camera, settings)
    if settings.occlusion and intensity > 0.0:
        intensity *= projection.visible_fraction(scene, depsgraph, camera, light)
    if intensity <= 0.0:
        return None
    table = bpy.path.abspath(settings.table) if settings.table.startswith("//") else settings.table
    x, y, radius = place
    return FlareCall(light.name, table, tuple(sorted(settings.lens_look(camera).items())),
                     tuple(settings.flare_settings().items()), tuple(size), (x, y), radius,
                     projection.color(light, settings), intensity, projection.pixel_aspect(scene))


def paint(call, flares, out):
    """Paint the flare `call` describes into `out` (H x W x 4 float32, bottom row first, in
    scene-linear light) with a flare from `flares`; the render and the viewport both paint here."""
    flare = _flare(flares, call.light, call.table, call.lens_look)
    flare.settings = dict(call.settings)
    width, height = call.size
    return flare.pass_(width, height, light=call.place, color=call.color, intensity=call.intensity,
                       radius=call.radius, colorspace="linear", pixel_aspect=call.pixel_aspect, out=out,
                       bottom_up=True)


def paint_light(scene, depsgraph, camera, light, total, first):
    """Add one light's flare to `total` (H x W x 4, bottom row first), or with `first` paint it
    into `total`; False when the light paints nothing (behind the camera, hidden or dark)."""
    global _one
    height, width = total.shape[:2]
    call = flare_call(scene, depsgraph, camera, light, (width, height))
    if call is None:
        return False
    if not first and _one.shape != total.shape:
        _one = np.zeros(total.shape, np.float32)
    flare_pass = paint(call, _flares, total if first else _one)
    if not first:
        total += flare_pass
    return True


def finish_sum(total, count):
    """The sum of `count` flares made whole: black when there are none, its alpha cut at 1."""
    if count == 0:
        total.fill(0.0)
    elif count > 1:   # one flare's alpha is at most 1 already
        np.minimum(total[:, :, 3], 1.0, out=total[:, :, 3])
    return total


def frame_flares(scene, depsgraph):
    """The frame's flares, H x W x 4 float32 in scene-linear light, bottom row first as Blender's
    images hold them (the same array every frame: use it before the next)."""
    global _total
    width, height = projection.frame_size(scene)
    if _total.shape != (height, width, 4):
        _total = np.zeros((height, width, 4), np.float32)
    total = _total
    lights = flare_lights(scene, depsgraph)
    camera = scene.camera
    if lights and camera is None:
        report("the scene has no camera: frame %d has no flares" % scene.frame_current)
    # The first flare is painted straight into the sum, the others added to it.
    painted = 0
    for light in lights if camera is not None else []:
        evaluated = light.evaluated_get(depsgraph)
        try:
            painted += paint_light(scene, depsgraph, camera.evaluated_get(depsgraph), evaluated, total, painted == 0)
        except Exception as error:   # reported; the frame renders without this flare
            report("%s: %s (frame %d has no flare for it)" % (light.name, error, scene.frame_current))
    return finish_sum(total, painted)


@persistent
def _before_render(scene, *_):
    if any(obj.type == "LIGHT" and obj.data.vellux_flare.enabled for obj in scene.objects):
        compositor.ensure(scene)


@persistent
def _frame_changed(scene, depsgraph=None):
    if depsgraph is None or depsgraph.mode != "RENDER" or bpy.data.images.get(compositor.IMAGE) is None:
        return
    try:
        compositor.set_flares(frame_flares(scene, depsgraph))
    except Exception as error:   # never a failed render
        report("frame %d: %s" % (scene.frame_current, error))


def register():
    bpy.app.handlers.render_init.append(_before_render)
    bpy.app.handlers.frame_change_post.append(_frame_changed)


def unregister():
    bpy.app.handlers.frame_change_post.remove(_frame_changed)
    bpy.app.handlers.render_init.remove(_before_render)
    _flares.clear()
    global _total, _one
    _total = _one = np.zeros((0, 0, 4), np.float32)
_one = np.zeros((0, 0, 4), np.float32)   # one light's flare, painted into the same memory each time
