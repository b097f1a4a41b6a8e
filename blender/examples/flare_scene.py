"""Makes the example scene: a camera, a point light drifting across the sky behind a pillar, and
the light's Vellux flare (star filter, keyed flare intensity), rendered with Cycles on the CPU.

    blender -b --factory-startup --python blender/examples/flare_scene.py -- OUT.blend [WIDTH HEIGHT SAMPLES]

The test suite builds its scene with build() too. Camera: at (0, -10, 0) looking along +Y, 50 mm
on a 36 mm sensor, so a point at distance 10 in front of it lies 3.6 units from the frame's
centre at the frame's left or right edge."""

import math
import os
import sys

import bpy

FRAMES = 24


def build(width=960, height=540, samples=16, frames=FRAMES):
    for obj in list(bpy.data.objects):   # the start-up scene's cube, light and camera
        bpy.data.objects.remove(obj)
    scene = bpy.context.scene
    scene.render.engine = "CYCLES"
    scene.cycles.device = "CPU"
    scene.cycles.samples = samples
    scene.cycles.use_denoising = False
    scene.render.resolution_x, scene.render.resolution_y, scene.render.resolution_percentage = width, height, 100
    scene.frame_start, scene.frame_end = 1, frames
    scene.view_settings.view_transform = "Standard"

    world = bpy.data.worlds.new("Dusk")
    world.use_nodes = True
    world.node_tree.nodes["Background"].inputs["Color"].default_value = (0.02, 0.025, 0.06, 1.0)
    scene.world = world

    camera = bpy.data.objects.new("Camera", bpy.data.cameras.new("Camera"))
    camera.location = (0.0, -10.0, 0.0)
    camera.rotation_euler = (math.pi / 2, 0.0, 0.0)
    camera.data.lens, camera.data.sensor_width, camera.data.sensor_fit = 50.0, 36.0, "HORIZONTAL"
    scene.collection.objects.link(camera)
    scene.camera = camera

    lamp = bpy.data.objects.new("Lamp", bpy.data.lights.new("Lamp", "POINT"))
    lamp.data.energy, lamp.data.shadow_soft_size = 1000.0, 0.1
    lamp.data.color = (1.0, 0.85, 0.7)
    scene.collection.objects.link(lamp)
    for frame, x in ((1, -2.0), (frames, 2.0)):
        lamp.location = (x, 0.0, 0.5)
        lamp.keyframe_insert("location", frame=frame)
    for curve in lamp.animation_data.action.fcurves:
        for key in curve.keyframe_points:
            key.interpolation = "LINEAR"

    # A slim pillar halfway to the light (0.3 wide, from the ground up to 1.5): the light passes
    # behind it in the middle of the shot.
    bpy.ops.mesh.primitive_cube_add(size=1.0, location=(0.0, -5.0, -0.25), scale=(0.3, 0.3, 3.5))
    bpy.context.object.name = "Pillar"
    bpy.ops.mesh.primitive_plane_add(size=60.0, location=(0.0, 0.0, -2.0))
    bpy.context.object.name = "Ground"
    return scene, camera, lamp


def give_flare(lamp):
    """The example's look: the default table with a four-point star, a little brighter at the end."""
    flare = lamp.data.vellux_flare
    flare.enabled = True
    flare.star_filter = 4
    flare.flare_intensity = 0.6
    flare.keyframe_insert("flare_intensity", frame=1)
    flare.flare_intensity = 0.9
    flare.keyframe_insert("flare_intensity", frame=FRAMES)


if __name__ == "__main__":
    args = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
    if not args:
        sys.exit("usage: blender -b --factory-startup --python flare_scene.py -- OUT.blend [WIDTH HEIGHT SAMPLES]")
    size = [int(a) for a in args[1:4]] if len(args) >= 4 else [960, 540, 16]
    import addon_utils
    addon_utils.enable("vellux_flare", default_set=True)
    scene, camera, lamp = build(*size)
    give_flare(lamp)
    scene.render.filepath = "//frames/flare_####"
    bpy.ops.wm.save_as_mainfile(filepath=os.path.abspath(args[0]))
    print("wrote", args[0])
