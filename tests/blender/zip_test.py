"""The add-on as a user installs it: vellux_flare.zip installed through Blender's preferences into
an empty user folder, with nothing on PYTHONPATH; it must bring its own engine and paint a flare.

    blender -b --factory-startup --python tests/blender/zip_test.py -- SOURCE_DIR WORK_DIR ZIP"""

import importlib.util
import os
import sys

import addon_utils
import bpy

SOURCE, WORK, ZIP = sys.argv[sys.argv.index("--") + 1:][:3]
assert not os.environ.get("PYTHONPATH"), "the zip must work without PYTHONPATH"
assert importlib.util.find_spec("vellux") is None, "a vellux module is installed already"

bpy.ops.preferences.addon_install(filepath=ZIP)
addon_utils.enable("vellux_flare", default_set=True)
import vellux  # noqa: E402  (the add-on put its own on the path)
folder = bpy.utils.user_resource("SCRIPTS", path="addons")
assert vellux.__file__.startswith(os.path.join(folder, "vellux_flare", "engine")), vellux.__file__

spec = importlib.util.spec_from_file_location("flare_scene", os.path.join(SOURCE, "blender/examples/flare_scene.py"))
flare_scene = importlib.util.module_from_spec(spec)
spec.loader.exec_module(flare_scene)
scene, camera, lamp = flare_scene.build(160, 90, samples=1, frames=1)
lamp.data.vellux_flare.table = "LongZoom"   # a shipped table, found in the zip's engine
frames = {}
for enabled in (False, True):
    lamp.data.vellux_flare.enabled = enabled
    scene.render.filepath = os.path.join(WORK, "zip-%d" % enabled)
    scene.render.image_settings.file_format = "OPEN_EXR"
    bpy.ops.render.render(write_still=True)
    frames[enabled] = vellux.read_image(scene.render.filepath + ".exr")
brightest = (frames[True] - frames[False])[:, :, :3].max()
assert brightest > 0.1, "no flare painted: %g" % brightest
print("the installed zip painted a flare (brightest added %.2f) with %s" % (brightest, vellux.__file__))
