"""The add-on in Blender itself: a tiny scene (the example's, at 160 x 90 and one sample) rendered
for a few frames with Cycles, the flares found in the saved frames.

    blender -b --factory-startup --python tests/blender/addon_test.py -- SOURCE_DIR WORK_DIR

with the add-on on BLENDER_USER_SCRIPTS and the vellux module on PYTHONPATH (ctest sets both)."""

import contextlib
import importlib.util
import io
import os
import sys
import unittest

import addon_utils
import bpy
import numpy as np

SOURCE, WORK = sys.argv[sys.argv.index("--") + 1:][:2]
spec = importlib.util.spec_from_file_location("flare_scene", os.path.join(SOURCE, "blender/examples/flare_scene.py"))
flare_scene = importlib.util.module_from_spec(spec)
spec.loader.exec_module(flare_scene)

WIDTH, HEIGHT, FRAMES = 160, 90, 5
HALF_WIDTH_AT_10 = 10.0 * 18.0 / 50.0   # units from the centre to the frame's edge at the light's distance


def expected_pixel(x, z):
    """Where a point at (x, 0, z), 10 units in front of the camera, lies on the frame."""
    scale = (WIDTH / 2) / HALF_WIDTH_AT_10
    return WIDTH / 2 + x * scale, HEIGHT / 2 - z * scale


def lamp_x(frame):
    return -2.0 + 4.0 * (frame - 1) / (FRAMES - 1)


def render(name, frames=(1, FRAMES)):
    """Render frames to WORK/name.####.exr (linear float) and read them back, top row first."""
    scene = bpy.context.scene
    scene.frame_start, scene.frame_end = frames
    scene.render.filepath = os.path.join(WORK, name + ".####")
    scene.render.image_settings.file_format = "OPEN_EXR"
    scene.render.image_settings.color_depth = "32"
    bpy.ops.render.render(animation=True)
    import vellux
    return {f: vellux.read_image(os.path.join(WORK, "%s.%04d.exr" % (name, f)))[:, :, :3]
            for f in range(frames[0], frames[1] + 1)}


def flare_centre(difference):
    """The centre of the flare's core: the middle of the pixels within 5% of the brightest."""
    light = difference.sum(axis=2)
    ys, xs = np.nonzero(light >= 0.95 * light.max())
    return xs.mean() + 0.5, ys.mean() + 0.5


class AddOn(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        addon_utils.enable("vellux_flare", default_set=True)
        cls.scene, cls.camera, cls.lamp = flare_scene.build(WIDTH, HEIGHT, samples=1, frames=FRAMES)
        cls.settings = cls.lamp.data.vellux_flare
        cls.plain = render("plain")          # no light has a flare yet: no nodes, nothing added
        cls.settings.enabled = True
        cls.lit = render("lit")

    def setUp(self):
        self.settings.enabled = True
        self.settings.table = ""
        if self.lamp.data.animation_data:
            self.lamp.data.animation_data_clear()
        self.settings.intensity = 0.5

    def test_the_flare_sits_on_the_light_and_follows_it(self):
        centres = {}
        for frame in (1, 2, 4, 5):   # frame 3 has the light behind the pillar
            x, y = expected_pixel(lamp_x(frame), 0.5)
            centres[frame] = flare_centre(self.lit[frame] - self.plain[frame])
            self.assertAlmostEqual(centres[frame][0], x, delta=1.0, msg="frame %d" % frame)
            self.assertAlmostEqual(centres[frame][1], y, delta=1.0, msg="frame %d" % frame)
        self.assertGreater(centres[5][0] - centres[1][0], 0.8 * (expected_pixel(2, 0)[0] - expected_pixel(-2, 0)[0]))

    def test_a_light_behind_geometry_paints_nothing(self):
        np.testing.assert_array_equal(self.lit[3], self.plain[3])
        self.assertGreater(np.abs(self.lit[2] - self.plain[2]).max(), 0.1)

    def test_a_light_sliding_behind_an_edge_fades(self):
        from vellux_flare import projection
        probe = bpy.data.objects.new("Probe", self.lamp.data)   # the lamp's light, not its keyed path
        self.scene.collection.objects.link(probe)
        self.addCleanup(bpy.data.objects.remove, probe)
        depsgraph = bpy.context.evaluated_depsgraph_get()
        fractions = []
        for x in np.linspace(0.0, 0.6, 13):   # from behind the pillar's middle to clear of its edge
            probe.location = (x, 0.0, 0.5)
            depsgraph.update()
            fractions.append(projection.visible_fraction(self.scene, depsgraph, self.camera, probe))
        self.assertEqual(fractions[0], 0.0)
        self.assertEqual(fractions[-1], 1.0)
        self.assertTrue(all(a <= b for a, b in zip(fractions, fractions[1:])), fractions)
        self.assertGreaterEqual(sum(0.0 < f < 1.0 for f in fractions), 3, fractions)

    def test_a_keyed_intensity_renders_as_keyed(self):
        self.settings.intensity = 0.5
        self.settings.keyframe_insert("intensity", frame=1)
        self.settings.intensity = 2.0
        self.settings.keyframe_insert("intensity", frame=FRAMES)
        keyed = render("keyed", frames=(FRAMES, FRAMES))
        flat = (self.lit[FRAMES] - self.plain[FRAMES]).sum()
        self.assertGreater((keyed[FRAMES] - self.plain[FRAMES]).sum(), 2.0 * flat)

    def test_a_disabled_light_paints_nothing(self):
        self.settings.enabled = False
        frames = render("disabled", frames=(1, 2))
        for frame in (1, 2):
            np.testing.assert_array_equal(frames[frame], self.plain[frame])

    def test_problems_are_reported_and_the_frame_still_renders(self):
        self.settings.table = "NoSuchTable"
        console = io.StringIO()
        with contextlib.redirect_stderr(console):
            frames = render("no-table", frames=(1, 1))
        self.assertIn("Vellux flare: Lamp: no flare table named 'NoSuchTable'", console.getvalue())
        np.testing.assert_array_equal(frames[1], self.plain[1])

        from vellux_flare import frame_flares
        camera, self.scene.camera = self.scene.camera, None
        try:
            with contextlib.redirect_stderr(console):
                flares = frame_flares.frame_flares(self.scene, bpy.context.evaluated_depsgraph_get())
        finally:
            self.scene.camera = camera
        self.assertIn("the scene has no camera", console.getvalue())
        self.assertEqual(flares.shape, (HEIGHT, WIDTH, 4))
        self.assertFalse(flares.any())

    def test_two_lights_flares_add_up(self):
        from vellux_flare import frame_flares
        second = bpy.data.objects.new("Second", bpy.data.lights.new("Second", "POINT"))
        second.location = (1.5, 0.0, -1.0)
        second.data.energy = self.lamp.data.energy
        second.data.vellux_flare.enabled = True
        self.scene.collection.objects.link(second)
        self.addCleanup(bpy.data.objects.remove, second)
        self.scene.frame_set(2)

        def flares(lamp_on, second_on):
            self.settings.enabled, second.data.vellux_flare.enabled = lamp_on, second_on
            return frame_flares.frame_flares(self.scene, bpy.context.evaluated_depsgraph_get()).copy()
        both, lamp, alone = flares(True, True), flares(True, False), flares(False, True)
        self.assertGreater(lamp[:, :, :3].max(), 0.1)
        self.assertGreater(alone[:, :, :3].max(), 0.1)
        np.testing.assert_array_equal(both[:, :, :3], lamp[:, :, :3] + alone[:, :, :3])
        np.testing.assert_array_equal(both[:, :, 3], np.minimum(lamp[:, :, 3] + alone[:, :, 3], 1.0))

    def test_the_panel_offers_the_modules_settings_with_its_defaults(self):
        import vellux
        defaults = vellux.Flare().settings
        light = bpy.data.lights.new("Fresh", "POINT")
        self.assertEqual(light.vellux_flare.flare_settings().keys(), defaults.keys())
        for name, value in light.vellux_flare.flare_settings().items():
            if isinstance(value, float):
                self.assertAlmostEqual(value, defaults[name], places=5, msg=name)
            else:
                self.assertEqual(value, defaults[name], msg=name)


if __name__ == "__main__":
    result = unittest.TextTestRunner(verbosity=2).run(unittest.defaultTestLoader.loadTestsFromTestCase(AddOn))
    sys.exit(0 if result.wasSuccessful() else 1)
