"""What the add-on adds to a 1920x1080 frame in Blender: the example scene (one light with a flare)
rendered for 6 frames at one sample; the add-on's frame handler is timed (occlusion rays, the
flare painted, put into the compositor's image), and the whole render without the flare, through
Blender's compositor alone, and with the flare.

    BLENDER_USER_SCRIPTS=build/default/blender PYTHONPATH=build/default/python \\
        blender -b --factory-startup --python bench/blender_bench.py -- [WORK_DIR]

Medians over the frames; numbers are this machine's, one run of the script."""

import importlib.util
import os
import statistics
import sys
import tempfile
import time

import addon_utils
import bpy

args = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
work = args[0] if args else tempfile.mkdtemp()
here = os.path.dirname(os.path.abspath(__file__))
spec = importlib.util.spec_from_file_location("flare_scene", os.path.join(here, "..", "blender/examples/flare_scene.py"))
flare_scene = importlib.util.module_from_spec(spec)
spec.loader.exec_module(flare_scene)

addon_utils.enable("vellux_flare", default_set=True)
from vellux_flare import compositor, frame_flares  # noqa: E402

FRAMES = 6
scene, camera, lamp = flare_scene.build(1920, 1080, samples=1, frames=FRAMES)
scene.render.image_settings.file_format = "PNG"

parts = {"flares": [], "image": []}
paint, put = frame_flares.frame_flares, compositor.set_flares


def timed(name, call):
    def wrapper(*a):
        start = time.perf_counter()
        result = call(*a)
        parts[name].append((time.perf_counter() - start) * 1000.0)
        return result
    return wrapper


frame_flares.frame_flares = timed("flares", paint)
compositor.set_flares = timed("image", put)


def render_seconds(name):
    scene.render.filepath = os.path.join(work, name + ".####")
    start = time.perf_counter()
    bpy.ops.render.render(animation=True)
    return (time.perf_counter() - start) / FRAMES


without = render_seconds("without")
scene.use_nodes = True   # Blender's own compositor (render layers into the composite), no flare yet
composited = render_seconds("composited")
lamp.data.vellux_flare.enabled = True
with_flare = render_seconds("with")
with_flare = render_seconds("with")   # the second run: the plug-in already loaded
flares = statistics.median(parts["flares"][-FRAMES:])
image = statistics.median(parts["image"][-FRAMES:])
print("1920x1080, one light: flare painted %.1f ms + put into the compositor %.1f ms = %.1f ms per frame"
      % (flares, image, flares + image))
print("whole frame at 1 sample: %.0f ms without the flare, %.0f ms through the compositor alone, %.0f ms with the flare"
      % (without * 1000, composited * 1000, with_flare * 1000))
