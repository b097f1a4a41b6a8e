"""The viewport flare under `blender -b`, which draws no viewport: where the camera frame lies in a
region, the preview's size and pixels (the render's, painted at that size), when it is painted
again, and the view transform it is shown through against Blender's own.

    blender -b --factory-startup --python tests/blender/viewport_test.py -- SOURCE_DIR WORK_DIR

with the add-on on BLENDER_USER_SCRIPTS and the vellux module on PYTHONPATH (ctest sets both)."""

import contextlib
import importlib.util
import os
import sys
import unittest
from types import SimpleNamespace

import addon_utils
import bpy
import numpy as np
from bpy_extras.view3d_utils import location_3d_to_region_2d
from mathutils import Matrix

SOURCE, WORK = sys.argv[sys.argv.index("--") + 1:][:2]
spec = importlib.util.spec_from_file_location("flare_scene", os.path.join(SOURCE, "blender/examples/flare_scene.py"))
flare_scene = importlib.util.module_from_spec(spec)
spec.loader.exec_module(flare_scene)

WIDTH, HEIGHT = 480, 270


def build():
    """The example scene, its lamp's flare on, and a second light with a flare of its own."""
    addon_utils.enable("vellux_flare", default_set=True)
    scene, camera, lamp = flare_scene.build(WIDTH, HEIGHT, samples=1, frames=5)
    lamp.data.vellux_flare.enabled = True
    second = bpy.data.objects.new("Second", bpy.data.lights.new("Second", "POINT"))
    second.location = (1.5, 0.0, -1.0)
    second.data.energy = 800.0
    second.data.vellux_flare.enabled = True
    second.data.vellux_flare.star_filter = 6
    scene.collection.objects.link(second)
    scene.frame_set(1)
    return scene, camera, lamp, second


def camera_view(scene, camera, region_size, zoom, offset):
    """A region looking through `camera` as a viewport in camera view does: the camera's own
    projection, zoomed and moved on the screen, `region_size` pixels wide and high."""
    depsgraph = bpy.context.evaluated_depsgraph_get()
    render = scene.render
    projection = camera.calc_matrix_camera(depsgraph, x=render.resolution_x, y=render.resolution_y,
                                           scale_x=render.pixel_aspect_x, scale_y=render.pixel_aspect_y)
    width, height = region_size
    aspect = (render.resolution_x * render.pixel_aspect_x) / (render.resolution_y * render.pixel_aspect_y)
    screen = Matrix.Diagonal((zoom * min(1.0, height * aspect / width), zoom * min(1.0, width / aspect / height),
                              1.0, 1.0))
    screen[0][3], screen[1][3] = offset
    region = SimpleNamespace(width=width, height=height)
    return region, SimpleNamespace(perspective_matrix=screen @ projection @ camera.matrix_world.inverted())


class CameraFrame(unittest.TestCase):
    """The rectangle the preview is stretched over: the light drawn on the preview must land where
    the viewport shows the light."""

    @classmethod
    def setUpClass(cls):
        cls.scene, cls.camera, cls.lamp, _ = build()

    def test_a_light_on_the_preview_lands_on_the_light_in_the_region(self):
        from vellux_flare import projection, viewport
        render = self.scene.render
        cases = (   # resolution, pixel aspect, sensor fit, shift; region size, zoom, offset
            ((480, 270), (1, 1), "HORIZONTAL", (0.0, 0.0), (1000, 700), 0.9, (0.0, 0.0)),
            ((480, 270), (1, 1), "AUTO", (0.1, -0.05), (800, 900), 0.6, (0.2, -0.1)),
            ((270, 480), (1, 1), "AUTO", (0.0, 0.0), (1200, 600), 1.3, (-0.3, 0.0)),
            ((400, 300), (2, 1), "VERTICAL", (0.0, 0.2), (640, 480), 1.0, (0.0, 0.05)),
        )
        for resolution, pixel_aspect, fit, shift, region_size, zoom, offset in cases:
            with self.subTest(resolution=resolution, pixel_aspect=pixel_aspect, fit=fit, shift=shift):
                render.resolution_x, render.resolution_y = resolution
                render.pixel_aspect_x, render.pixel_aspect_y = pixel_aspect
                self.camera.data.sensor_fit = fit
                self.camera.data.shift_x, self.camera.data.shift_y = shift
                region, region_3d = camera_view(self.scene, self.camera, region_size, zoom, offset)
                x0, y0, x1, y1 = viewport.camera_frame_rect(self.scene, self.camera, region, region_3d)
                shown_aspect = (x1 - x0) / (y1 - y0)
                aspect = resolution[0] * pixel_aspect[0] / (resolution[1] * pixel_aspect[1])
                self.assertAlmostEqual(shown_aspect, aspect, places=4)
                size = viewport.preview_size(x1 - x0, resolution)
                for location in ((-2.0, 0.0, 0.5), (0.7, 3.0, -0.8), (5.0, 2.0, 1.5)):   # the last off the frame
                    self.lamp.location = location
                    bpy.context.view_layer.update()
                    x, y, _ = projection.on_frame(self.scene, self.camera, self.lamp, size)
                    on_region = (x0 + x / size[0] * (x1 - x0), y1 - y / size[1] * (y1 - y0))
                    seen = location_3d_to_region_2d(region, region_3d, self.lamp.matrix_world.translation)
                    self.assertAlmostEqual(on_region[0], seen.x, delta=0.01, msg=location)
                    self.assertAlmostEqual(on_region[1], seen.y, delta=0.01, msg=location)
        render.resolution_x, render.resolution_y, render.pixel_aspect_x, render.pixel_aspect_y = WIDTH, HEIGHT, 1, 1
        self.camera.data.sensor_fit, self.camera.data.shift_x, self.camera.data.shift_y = "HORIZONTAL", 0.0, 0.0

    def test_the_preview_keeps_the_renders_aspect_within_its_limits(self):
        from vellux_flare import viewport
        limit, step = viewport.PREVIEW_LIMIT, viewport.PREVIEW_STEP
        cases = (   # the frame's width on screen, the render's size: the preview's size
            (300.0, (1920, 1080), (320, 180)),
            (2000.0, (1920, 1080), (limit, 360)),
            (0.5, (1920, 1080), (step, 18)),
            (900.0, (160, 90), (160, 90)),          # never more pixels than the render has
            (500.0, (1080, 1920), (360, limit)),    # a portrait frame: its height is held to the limit
            (333.0, (1000, 1000), (352, 352)),
        )
        for rect_width, frame, expected in cases:
            with self.subTest(rect_width=rect_width, frame=frame):
                self.assertEqual(viewport.preview_size(rect_width, frame), expected)


class Preview(unittest.TestCase):
    """The preview's pixels, and when it is painted again."""

    def setUp(self):
        self.scene, self.camera, self.lamp, self.second = build()
        bpy.context.view_layer.update()

    def update(self, preview, size=(320, 180), view=None):
        from vellux_flare import view_transform, viewport
        return viewport.update(preview, self.scene, bpy.context.evaluated_depsgraph_get(), size,
                               view or view_transform.STANDARD)

    def test_the_preview_has_the_renders_pixels_at_its_size(self):
        from vellux_flare import frame_flares, view_transform, viewport
        preview = viewport.Preview()
        self.update(preview)
        self.assertEqual(sorted(preview.images), ["Lamp", "Second"])
        render = self.scene.render
        render.resolution_x, render.resolution_y = 320, 180   # the render at the preview's size
        self.addCleanup(setattr, render, "resolution_y", HEIGHT)
        self.addCleanup(setattr, render, "resolution_x", WIDTH)
        rendered = frame_flares.frame_flares(self.scene, bpy.context.evaluated_depsgraph_get())
        self.assertEqual(rendered.shape, (180, 320, 4))
        self.assertGreater(rendered[:, :, :3].max(), 0.5)
        np.testing.assert_array_equal(preview.total, rendered)
        shown = view_transform.to_display(rendered, view_transform.STANDARD)
        np.testing.assert_array_equal(preview.shown[:, :, :3], shown[:, :, :3])

    def test_only_what_changed_is_painted_again(self):
        from vellux_flare import view_transform, viewport
        lamp, second = self.lamp, self.second
        self.addCleanup(self.scene.frame_set, 1)
        preview = viewport.Preview()
        self.assertTrue(self.update(preview))
        self.assertEqual(preview.painted, 2)
        filmic = view_transform.STANDARD._replace(view="Filmic")

        def move_lamp():
            lamp.animation_data_clear()   # moved by hand, not along its keys
            lamp.location.x += 0.3

        def keyed_frame():
            self.scene.frame_set(self.scene.frame_current + 1)

        cases = (   # what the artist does; whether it marks the preview stale; lights painted; shown anew
            ("nothing", None, False, 0, False),
            ("moves the ground along itself", lambda: self.scene.objects["Ground"].location.__setitem__(0, 1.0),
             True, 0, False),
            ("scrubs to the next frame (the lamp is keyed)", keyed_frame, True, 1, True),
            ("moves the lamp", move_lamp, True, 1, True),
            ("changes the lamp's star", lambda: setattr(lamp.data.vellux_flare, "star_filter", 8), True, 1, True),
            ("colours the second light", lambda: setattr(second.data, "color", (0.5, 0.7, 1.0)), True, 1, True),
            ("hides the lamp behind the pillar", lambda: setattr(lamp, "location", (0.0, 0.0, 0.5)), True, 0, True),
            ("switches the second light's flare off", lambda: setattr(second.data.vellux_flare, "enabled", False),
             True, 0, True),
            ("and on again", lambda: setattr(second.data.vellux_flare, "enabled", True), True, 1, True),
        )
        for what, action, stale, painted, shown_anew in cases:
            with self.subTest(what):
                generation, before, shown = viewport._generation, preview.painted, preview.shown
                if action is not None:
                    action()
                    bpy.context.view_layer.update()
                self.assertEqual(viewport._generation != generation, stale)
                self.assertEqual(self.update(preview), shown_anew)
                self.assertEqual(preview.painted - before, painted)
                self.assertEqual(preview.shown is not shown, shown_anew)
        with self.subTest("another view transform: shown anew, nothing painted"):
            before = preview.painted
            self.assertTrue(self.update(preview, view=filmic))
            self.assertEqual(preview.painted, before)
        with self.subTest("another size: every light painted"):
            self.assertTrue(self.update(preview, size=(160, 90), view=filmic))
            self.assertEqual(preview.painted - before, 1)   # the lamp is behind the pillar
            self.assertEqual(preview.shown.shape, (90, 160, 4))

    def test_a_light_that_cannot_be_painted_is_reported_once(self):
        import contextlib
        import io
        from vellux_flare import viewport
        settings = self.lamp.data.vellux_flare
        self.addCleanup(setattr, settings, "table", "")
        preview = viewport.Preview()
        settings.table = "NoSuchTable"
        console = io.StringIO()
        with contextlib.redirect_stderr(console):
            self.update(preview)
            viewport.mark_stale()
            self.update(preview)
        reports = [line for line in console.getvalue().splitlines()
                   if line.startswith("Vellux flare: Lamp: no flare table named 'NoSuchTable'")]
        self.assertEqual(len(reports), 1, console.getvalue())
        self.assertTrue(reports[0].endswith("(the viewport shows no flare for it)"), reports[0])
        self.assertEqual(sorted(preview.images), ["Second"])


def save_as_rendered(scene, linear, name):
    """`linear` (H x W x 3) as Blender saves it through the scene's view settings: display levels."""
    height, width = linear.shape[:2]
    image = bpy.data.images.new(name, width, height, alpha=True, float_buffer=True)
    image.colorspace_settings.name = "Linear"
    rgba = np.concatenate([linear, np.ones((height, width, 1), np.float32)], axis=2)
    image.pixels.foreach_set(rgba.ravel())
    path = os.path.join(WORK, name + ".png")
    image.save_render(path, scene=scene)
    bpy.data.images.remove(image)
    saved = bpy.data.images.load(path)
    saved.colorspace_settings.name = "Non-Color"   # its levels as they are
    levels = np.empty(width * height * 4, np.float32)
    saved.pixels.foreach_get(levels)
    bpy.data.images.remove(saved)
    return levels.reshape(height, width, 4)[:, :, :3]


class ViewTransform(unittest.TestCase):
    """The flare shown as Blender shows the render: its view transforms, looks, exposure and gamma,
    through OpenColorIO and, for "Standard", through the sRGB curve used without it."""

    def test_display_levels_match_blenders_own(self):
        import importlib.util
        from unittest import mock
        from vellux_flare import view_transform
        scene = bpy.context.scene
        output = scene.render.image_settings
        output.file_format, output.color_mode, output.color_depth = "PNG", "RGB", "16"
        scene.render.dither_intensity = 0.0
        # Linear values from deep shadow to 64 times white, in three different mixes of colour.
        ramp = np.geomspace(1e-4, 64.0, 96, dtype=np.float32)
        linear = np.stack([np.stack([ramp, ramp * 0.6, ramp * 0.2], axis=1),
                           np.stack([ramp * 0.1, ramp, ramp * 0.5], axis=1),
                           np.stack([ramp, ramp, ramp], axis=1)])
        rgba = np.concatenate([linear, np.zeros(linear.shape[:2] + (1,), np.float32)], axis=2)
        has_ocio = importlib.util.find_spec("PyOpenColorIO") is not None
        without_ocio = mock.patch.object(view_transform, "_processor", lambda view: None)
        views = (view_transform.View("sRGB", "Standard", "None", 0.0, 1.0),
                 view_transform.View("sRGB", "Standard", "None", 1.5, 0.75),
                 view_transform.View("sRGB", "Filmic", "None", 0.0, 1.0),
                 view_transform.View("sRGB", "Filmic", "Medium High Contrast", -1.0, 1.25))
        for view in views:
            settings = scene.view_settings
            settings.view_transform, settings.look = view.view, view.look
            settings.exposure, settings.gamma = view.exposure, view.gamma
            self.assertEqual(view_transform.render_view(scene), view)
            blender = save_as_rendered(scene, linear, "view-%s-%s" % (view.view, view.look))
            # Blender's sRGB is a table: in deep shadow the exact curve departs from it by up to 1e-4,
            # a fortieth of a display's 8-bit level.
            for path, tolerance in (("OpenColorIO", 2.0 / 65535), ("the sRGB curve", 1.5e-4)):
                if path == "the sRGB curve" and view.view != "Standard":
                    continue
                with self.subTest(view=view, path=path):
                    if path == "OpenColorIO" and not has_ocio:
                        self.skipTest("OpenColorIO's Python module (python3-pyopencolorio) is not installed")
                    with without_ocio if path == "the sRGB curve" else contextlib.nullcontext():
                        shown = view_transform.to_display(rgba, view)
                    np.testing.assert_allclose(shown[:, :, :3], blender, atol=tolerance)
                    np.testing.assert_array_equal(shown[:, :, 3], rgba[:, :, 3])


if __name__ == "__main__":
    suite = unittest.TestSuite(unittest.defaultTestLoader.loadTestsFromTestCase(case)
                               for case in (CameraFrame, Preview, ViewTransform))
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    sys.exit(0 if result.wasSuccessful() else 1)
