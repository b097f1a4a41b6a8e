"""`vellux track` on footage Blender renders with Cycles, against the light projected through the
camera: a small glowing ball drifts across a dim, textured room while the camera dollies and pans,
and every tracked position must lie within 1 px of the ball's centre seen through the camera.

    blender -b --factory-startup --python tests/blender/track_ground_truth_test.py -- VELLUX_TOOL WORK_DIR
"""

import json
import math
import os
import subprocess
import sys
import unittest

import bpy
from bpy_extras.object_utils import world_to_camera_view

TOOL, WORK = sys.argv[sys.argv.index("--") + 1:][:2]
WIDTH, HEIGHT, FRAMES = 320, 180, 8
TOLERANCE_PX = 1.0


def keyed_linearly(obj, path, values):
    """Keys `path` of `obj` at the first and the last frame, with straight lines between."""
    for frame, value in zip((1, FRAMES), values):
        setattr(obj, path, value)
        obj.keyframe_insert(path, frame=frame)
    for curve in obj.animation_data.action.fcurves:
        for key in curve.keyframe_points:
            key.interpolation = "LINEAR"


def textured_material(name):
    """A grey with a noise pattern, so that the background is not flat."""
    material = bpy.data.materials.new(name)
    material.use_nodes = True
    nodes, links = material.node_tree.nodes, material.node_tree.links
    noise = nodes.new("ShaderNodeTexNoise")
    noise.inputs["Scale"].default_value = 12.0
    links.new(noise.outputs["Color"], nodes["Principled BSDF"].inputs["Base Color"])
    return material


def glowing_material():
    material = bpy.data.materials.new("Glow")
    material.use_nodes = True
    nodes, links = material.node_tree.nodes, material.node_tree.links
    emission = nodes.new("ShaderNodeEmission")
    emission.inputs["Color"].default_value = (1.0, 0.8, 0.55, 1.0)
    emission.inputs["Strength"].default_value = 40.0
    links.new(emission.outputs["Emission"], nodes["Material Output"].inputs["Surface"])
    return material


def build():
    """The scene; returns it, its camera and the ball."""
    for obj in list(bpy.data.objects):
        bpy.data.objects.remove(obj)
    scene = bpy.context.scene
    scene.render.engine = "CYCLES"
    scene.cycles.device = "CPU"
    scene.cycles.samples = 16
    scene.cycles.use_denoising = False
    scene.render.resolution_x, scene.render.resolution_y, scene.render.resolution_percentage = WIDTH, HEIGHT, 100
    scene.frame_start, scene.frame_end = 1, FRAMES
    scene.render.image_settings.file_format = "OPEN_EXR"
    scene.render.image_settings.color_depth = "16"
    scene.render.image_settings.color_mode = "RGB"

    world = bpy.data.worlds.new("Room")
    world.use_nodes = True
    world.node_tree.nodes["Background"].inputs["Color"].default_value = (0.05, 0.05, 0.06, 1.0)
    scene.world = world

    camera = bpy.data.objects.new("Camera", bpy.data.cameras.new("Camera"))
    camera.data.lens, camera.data.sensor_width, camera.data.sensor_fit = 35.0, 36.0, "HORIZONTAL"
    scene.collection.objects.link(camera)
    scene.camera = camera
    keyed_linearly(camera, "location", [(-0.6, -10.0, 0.2), (0.8, -9.0, -0.1)])
    keyed_linearly(camera, "rotation_euler", [(math.radians(88.0), 0.0, math.radians(4.0)),
                                              (math.radians(91.0), 0.0, math.radians(-6.0))])

    bpy.ops.mesh.primitive_uv_sphere_add(radius=0.07, location=(0.0, 0.0, 0.0), segments=48, ring_count=24)
    ball = bpy.context.object
    ball.name = "Ball"
    ball.data.materials.append(glowing_material())
    bpy.ops.object.shade_smooth()
    keyed_linearly(ball, "location", [(-2.2, 1.0, 0.9), (2.0, -1.0, -0.5)])

    backdrop = textured_material("Backdrop")
    for location, rotation in (((0.0, 6.0, 0.0), (math.pi / 2, 0.0, 0.0)), ((0.0, 0.0, -2.0), (0.0, 0.0, 0.0))):
        bpy.ops.mesh.primitive_plane_add(size=40.0, location=location, rotation=rotation)
        bpy.context.object.data.materials.append(backdrop)
    return scene, camera, ball


def projected(scene, camera, ball):
    """The ball's centre on each frame in pixels, in the tracker's convention: pixel (0, 0)'s
    centre is (0, 0), so the frame's left edge is at x = -0.5."""
    truth = {}
    for frame in range(1, FRAMES + 1):
        scene.frame_set(frame)
        seen = world_to_camera_view(scene, camera, ball.matrix_world.translation)
        truth[frame] = (seen.x * WIDTH - 0.5, (1.0 - seen.y) * HEIGHT - 0.5)
    return truth


class TrackAgainstTheCamera(unittest.TestCase):
    def test_tracked_positions_lie_within_a_pixel_of_the_projected_light(self):
        scene, camera, ball = build()
        truth = projected(scene, camera, ball)
        scene.render.filepath = os.path.join(WORK, "plate.####")
        bpy.ops.render.render(animation=True)
        lights = os.path.join(WORK, "lights.json")
        run = subprocess.run([TOOL, "track", "-q", "-i", os.path.join(WORK, "plate.####.exr"), "-o", lights],
                             capture_output=True, text=True)
        self.assertEqual(run.returncode, 0, run.stderr)
        with open(lights) as f:
            keys = json.load(f)["light"]["keys"]
        self.assertEqual(sorted(int(k) for k in keys), list(range(1, FRAMES + 1)))
        errors = []
        for frame, (x, y) in truth.items():
            tx, ty = keys[str(frame)]["position"]
            errors.append(math.hypot(tx - x, ty - y))
            self.assertLessEqual(errors[-1], TOLERANCE_PX, f"frame {frame}: tracked ({tx:.2f}, {ty:.2f}), "
                                                           f"projected ({x:.2f}, {y:.2f})")
        print(f"tracked against projected: largest error {max(errors):.3f} px, "
              f"RMS {math.sqrt(sum(e * e for e in errors) / len(errors)):.3f} px")


if __name__ == "__main__":
    os.makedirs(WORK, exist_ok=True)
    result = unittest.main(argv=[sys.argv[0]], exit=False).result
    sys.exit(0 if result.wasSuccessful() else 1)
