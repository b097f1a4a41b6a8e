"""The add-on in Blender itself: a tiny scene (the example's, at 160 x 90 and one sample) rendered
for a few frames with Cycles, the flares found in the saved frames.

    blender -b --factory-startup --python tests/blender/addon_test.py -- SOURCE_DIR WORK_DIR

with the add-on on BLENDER_USER_SCRIPTS and the vellux module on PYTHONPATH (ctest sets both)."""

import contextlib
import importlib.util
import io
import math
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
        self.settings.lens = "NONE"
        self.settings.follow_camera_f_stop = False
        if self.lamp.data.animation_data:
            self.lamp.data.animation_data_clear()
        self.settings.flare_intensity = 0.5

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
        self.settings.flare_intensity = 0.5
        self.settings.keyframe_insert("flare_intensity", frame=1)
        self.settings.flare_intensity = 2.0
        self.settings.keyframe_insert("flare_intensity", frame=FRAMES)
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

    def test_a_lens_paints_its_own_flare_at_the_cameras_f_stop(self):
        fstop = self.camera.data.dof.aperture_fstop
        self.addCleanup(setattr, self.camera.data.dof, "aperture_fstop", fstop)
        self.settings.lens = "double-gauss-50mm"
        self.settings.follow_camera_f_stop = True
        frames = {}
        for name, camera_fstop in (("f8", 8.0), ("f16", 16.0), ("f1", 1.0)):
            self.camera.data.dof.aperture_fstop = camera_fstop
            console = io.StringIO()
            with contextlib.redirect_stderr(console):
                frames[name] = render("lens-" + name, frames=(1, 1))[1]
            self.assertEqual("--f-number: 1 is wider than" in console.getvalue(), name == "f1", console.getvalue())
        self.settings.follow_camera_f_stop = False
        self.settings.f_number = 8.0
        frames["own f8"] = render("lens-own-f8", frames=(1, 1))[1]
        np.testing.assert_array_equal(frames["own f8"], frames["f8"])       # the camera's f-stop, as the light's own
        self.assertGreater(np.abs(frames["f8"] - self.plain[1]).max(), 0.1)    # a flare
        self.assertGreater(np.abs(frames["f8"] - self.lit[1]).max(), 0.1)      # not the table's
        self.assertGreater(np.abs(frames["f16"] - frames["f8"]).max(), 0.01)   # the aperture followed
        np.testing.assert_array_equal(frames["f1"], self.plain[1])        # wider than the lens: reported, no flare

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

    def test_the_panel_offers_the_modules_settings_by_name_with_its_defaults(self):
        import vellux
        from vellux_flare import properties
        defaults = vellux.Flare().settings
        light = bpy.data.lights.new("Fresh", "POINT")
        self.assertEqual(set(light.vellux_flare.flare_settings()), set(defaults) - set(properties.LEFT_OUT))
        for name, value in light.vellux_flare.flare_settings().items():
            self.assertEqual(light.vellux_flare.bl_rna.properties[name].name, name.replace("_", " ").capitalize())
            if isinstance(value, float):
                self.assertAlmostEqual(value, defaults[name], places=5, msg=name)
            else:
                self.assertEqual(value, defaults[name], msg=name)

    def test_a_light_saved_with_the_old_setting_names_keeps_its_values_and_keys(self):
        from vellux_flare import properties
        light = bpy.data.lights.new("Saved earlier", "POINT")
        light.vellux_flare["intensity"] = 1.25
        light.animation_data_create().action = bpy.data.actions.new("Saved earlier")
        curve = light.animation_data.action.fcurves.new("vellux_flare.intensity")
        curve.keyframe_points.insert(1, 0.75)
        properties.settings_by_their_names()
        self.assertAlmostEqual(light.vellux_flare.flare_intensity, 1.25, places=6)
        self.assertNotIn("intensity", light.vellux_flare.keys())
        self.assertEqual(curve.data_path, "vellux_flare.flare_intensity")


def srgb(linear):
    """sRGB levels of linear values, the curve carried on above 1 (as the engine and Blender's tables)."""
    linear = np.asarray(linear, np.float64)
    return np.where(linear <= 0.0031308, 12.92 * linear, 1.055 * np.abs(linear) ** (1 / 2.4) - 0.055)


def from_srgb(levels):
    levels = np.asarray(levels, np.float64)
    return np.where(levels <= 0.04045, levels / 12.92, ((np.abs(levels) + 0.055) / 1.055) ** 2.4)


def engine_blend(mode, plate, flare):
    """A float plate under `mode` as the engine blends it, `flare` the linear pass (the decoded levels):
    the display-level blends work up to white, above it the plate gains what the flare adds to white."""
    if mode == "ADD":
        return plate + flare
    base, levels = np.minimum(srgb(plate), 1.0), srgb(flare)
    blended = base + levels if mode == "DISPLAY" else base + levels * (1.0 - base)
    return plate + np.maximum(from_srgb(blended) - from_srgb(base), 0.0)


def flare_pixels():
    """The flare image the compositor last used, top row first, colour only."""
    from vellux_flare import compositor
    image = bpy.data.images[compositor.IMAGE]
    width, height = image.size
    pixels = np.empty(width * height * 4, np.float32)
    image.pixels.foreach_get(pixels)
    return pixels.reshape(height, width, 4)[::-1, :, :3]


class Blends(unittest.TestCase):
    """The scene's blend, in the compositor: one flare over a mid-blue sky with a glowing panel
    brighter than white behind part of it."""
    MODES = ("ADD", "DISPLAY", "SCREEN")

    @classmethod
    def setUpClass(cls):
        addon_utils.enable("vellux_flare", default_set=True)
        cls.scene, _, cls.lamp = flare_scene.build(WIDTH, HEIGHT, samples=1, frames=1)
        cls.scene.world.node_tree.nodes["Background"].inputs["Color"].default_value = (0.15, 0.3, 0.6, 1.0)
        glow = bpy.data.materials.new("Glow")
        glow.use_nodes = True
        emission = glow.node_tree.nodes.new("ShaderNodeEmission")
        emission.inputs["Strength"].default_value = 3.0
        glow.node_tree.links.new(emission.outputs[0], glow.node_tree.nodes["Material Output"].inputs["Surface"])
        # Upright, 5 units behind the light and around it.
        bpy.ops.mesh.primitive_plane_add(size=2.5, location=(2.25, 5.0, 1.0), rotation=(math.pi / 2, 0.0, 0.0))
        bpy.context.object.data.materials.append(glow)
        cls.lamp.data.vellux_flare.flare_intensity = 1.0
        cls.scene.vellux.blend = "ADD"
        cls.plain = render("blend-plain", frames=(1, 1))[1]
        cls.lamp.data.vellux_flare.enabled = True
        cls.frames, cls.flares = {}, {}
        for mode in cls.MODES:   # from the add-on's first layout to each display-level one
            cls.scene.vellux.blend = mode
            cls.frames[mode] = render("blend-" + mode.lower(), frames=(1, 1))[1]
            cls.flares[mode] = flare_pixels().copy()

    def tearDown(self):
        self.scene.vellux.blend = "ADD"

    def test_each_blend_composites_as_the_engine_blends(self):
        plate = self.plain
        for mode in self.MODES:
            with self.subTest(mode=mode):
                flare = self.flares[mode]
                reached = flare.max(axis=2) > 0.01
                # The frame has flared pixels below white and above it, so both rules are seen.
                self.assertGreater((reached & (plate.max(axis=2) > 1.5)).sum(), 20)
                self.assertGreater((reached & (plate.max(axis=2) < 0.9)).sum(), 100)
                expected = engine_blend(mode, plate, flare)
                np.testing.assert_allclose(self.frames[mode], expected, rtol=2e-3, atol=2e-4)
                untouched = ~flare.any(axis=2)
                self.assertGreater(untouched.sum(), 1000)
                np.testing.assert_array_equal(self.frames[mode][untouched], plate[untouched])
        # The blends differ where the flare is, by far more than the tolerance.
        for mode in self.MODES[1:]:
            self.assertGreater(np.abs(self.frames[mode] - self.frames["ADD"]).max(), 0.05, mode)
        above = plate > 1.0
        np.testing.assert_array_equal(self.frames["SCREEN"][above], plate[above])

    def blend_nodes(self):
        from vellux_flare import compositor
        tree = self.scene.node_tree
        add = tree.nodes[compositor.ADD_NODE]
        feeding = tuple(link.from_node.name for socket in (add.inputs[2], add.inputs[0]) for link in socket.links)
        names = sorted(node.name for node in tree.nodes if node.name.startswith(compositor.BLEND_NODE))
        unused = [node.name for node in tree.nodes if not any(output.is_linked for output in node.outputs)
                  and node.type not in {"COMPOSITE", "VIEWER", "OUTPUT_FILE"}]
        return names, feeding, unused

    def test_switching_blends_leaves_one_set_of_nodes(self):
        from vellux_flare import compositor
        blend_names = sorted(compositor.BLEND_NODE + part for part in compositor.BLEND_PARTS)
        blended = (blend_names, (compositor.BLEND_NODE + " Gain", compositor.BLEND_NODE + " Reach"))
        layouts = {"ADD": ([], (compositor.IMAGE_NODE,)), "DISPLAY": blended, "SCREEN": blended}
        for switches in (("DISPLAY", "SCREEN"), ("SCREEN", "ADD"), ("DISPLAY", "DISPLAY"),
                         ("ADD", "SCREEN", "DISPLAY")):
            with self.subTest(switches=switches):
                for mode in switches:
                    self.scene.vellux.blend = mode
                names, feeding, unused = self.blend_nodes()
                self.assertEqual((names, feeding), layouts[switches[-1]])
                self.assertEqual(unused, [])
                if switches[-1] != "ADD":
                    self.assertEqual(self.scene.node_tree.nodes[compositor.BLEND_NODE].blend_type,
                                     compositor.BLENDS[switches[-1]])
        # A half-deleted set is made anew.
        self.scene.node_tree.nodes.remove(self.scene.node_tree.nodes[compositor.BLEND_NODE + " Linear"])
        compositor.ensure(self.scene)
        self.assertEqual(self.blend_nodes(), blended + ([],))

    def test_an_unknown_stored_blend_is_reported_and_the_flares_added(self):
        self.scene.vellux.blend = "SCREEN"
        self.scene.vellux["blend"] = 9   # as a later version might save it
        console = io.StringIO()
        with contextlib.redirect_stderr(console):
            frame = render("blend-unknown", frames=(1, 1))[1]
        self.assertIn("Vellux flare: unknown blend 9 in scene Scene: the flares are added in linear light",
                      console.getvalue())
        np.testing.assert_array_equal(frame, self.frames["ADD"])


if __name__ == "__main__":
    suite = unittest.TestSuite(unittest.defaultTestLoader.loadTestsFromTestCase(case) for case in (AddOn, Blends))
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    sys.exit(0 if result.wasSuccessful() else 1)
