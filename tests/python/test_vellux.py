"""The Python module against the vellux tool: arrays of every kind, scenes, a Dask cluster,
threads, bad input and memory. Run by ctest with the build's module on PYTHONPATH."""

import os
import subprocess
import threading

import distributed
import numpy as np
import pytest

import vellux

TOOL = os.environ["VELLUX_TOOL"]
SOURCE = os.environ["VELLUX_SOURCE_DIR"]
SAMPLE = os.path.join(SOURCE, "docs", "sample-frame.png")
SCENE = os.path.join(SOURCE, "docs", "example-scene.json")


def tool(*arguments):
    subprocess.run([TOOL, *map(str, arguments)], check=True, capture_output=True)


def plate(dtype, channels):
    """The sample frame in a dtype, with a varying alpha as the fourth channel."""
    rgb = vellux.read_image(SAMPLE)[:96, :160].astype(np.float32) / 255.0
    if channels == 4:
        alpha = np.linspace(0.2, 1.0, rgb.shape[0] * rgb.shape[1], dtype=np.float32).reshape(rgb.shape[:2] + (1,))
        rgb = np.concatenate([rgb, alpha], axis=2)
    if dtype in (np.uint8, np.uint16):
        return np.round(rgb * np.iinfo(dtype).max).astype(dtype)
    return rgb.astype(dtype)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float16, np.float32])
@pytest.mark.parametrize("channels", [3, 4])
@pytest.mark.parametrize("blend,dissolve", [("display", 0.0), ("add", 0.5), ("screen", 0.25)])
def test_arrays_give_the_tools_pixels(tmp_path, dtype, channels, blend, dissolve):
    image = plate(dtype, channels)
    before = image.copy()
    extension = ".png" if dtype in (np.uint8, np.uint16) else ".exr"
    vellux.write_image(image, tmp_path / ("in" + extension))
    tool("render", "-q", "-i", tmp_path / ("in" + extension), "--light", "50,30", "--star-filter", "6",
         "--color", "255,200,150", "--blend", blend, "--dissolve", dissolve, "-o", tmp_path / ("out" + extension))
    flare = vellux.Flare(star_filter=6, dissolve=dissolve)
    rendered = flare.render(image, light=(50, 30), color=(255, 200, 150), blend=blend)
    assert rendered.dtype == image.dtype and rendered.shape == image.shape
    np.testing.assert_array_equal(rendered, vellux.read_image(tmp_path / ("out" + extension)))
    np.testing.assert_array_equal(image, before)          # the input is untouched
    assert not np.array_equal(rendered, image)


# The lens look: an aperture of every kind the options make, with the tool's names for them.
LENS = {"lens": "double-gauss-50mm", "f_number": 8, "blades": 6, "blade_curvature": 0.2, "aperture_rotation": 15}


def lens_options(options):
    return [text for name, value in options.items() for text in ("--" + name.replace("_", "-"), value)]


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32])
def test_the_lens_look_gives_the_tools_pixels(tmp_path, dtype):
    image = plate(dtype, 4)
    extension = ".png" if dtype in (np.uint8, np.uint16) else ".exr"
    vellux.write_image(image, tmp_path / ("in" + extension))
    tool("render", "-q", "-i", tmp_path / ("in" + extension), "--light", "110,30", "--color", "255,200,150",
         *lens_options(LENS), "-o", tmp_path / ("out" + extension))
    flare = vellux.Flare(**LENS)
    assert flare.lens == "double-gauss-50mm" and "lens='double-gauss-50mm'" in repr(flare)
    rendered = flare.render(image, light=(110, 30), color=(255, 200, 150))
    np.testing.assert_array_equal(rendered, vellux.read_image(tmp_path / ("out" + extension)))
    table_look = vellux.Flare().render(image, light=(110, 30), color=(255, 200, 150))
    assert not np.array_equal(rendered, image) and not np.array_equal(rendered, table_look)


def test_the_lens_looks_pass_is_the_tools_and_fills_a_kept_array(tmp_path):
    options = dict(LENS, blades=0, f_number=2.8)   # a round iris, wide open
    tool("render", "-q", "--size", "120x80", "--mode", "pass", "--light", "40,50", *lens_options(options),
         "-o", tmp_path / "pass.exr")
    flare = vellux.Flare(**options)
    made = flare.pass_(120, 80, light=(40, 50))
    np.testing.assert_array_equal(made, vellux.read_image(tmp_path / "pass.exr"))
    out = np.full((80, 120, 4), 7.0, np.float32)
    assert flare.pass_(120, 80, light=(40, 50), out=out, bottom_up=True) is out
    np.testing.assert_array_equal(out[::-1], made)
    assert made[50, 40, :3].min() > 1.0    # the light's core, far past white


NO_STOP = """{"name": "no stop", "focalLength": 50, "surfaces": [{"radius": 30, "thickness": 4, "n": 1.5, "diameter": 20},
    {"radius": -30, "thickness": 40, "n": 1, "diameter": 20}]}"""


@pytest.mark.parametrize("options, error, message", [
    ({"f_number": 1}, ValueError, "--f-number: 1 is wider than"),
    ({"f_number": float("nan")}, ValueError, "--f-number: nan is wider than"),
    ({"blades": 100}, ValueError, "--blades: 100 is not a blade count (0 for round, 3 to 32)"),
    ({"blades": 2}, ValueError, "--blades: 2 is not a blade count"),
    ({"blade_curvature": 1.5}, ValueError, "--blade-curvature: blade curvature 1.5 is not within 0 to 1"),
    ({"aperture_rotation": float("inf")}, ValueError, "--aperture-rotation: the aperture's rotation is not a number"),
    ({"lens": "double-gauss-5mm"}, RuntimeError, "--lens: no lens named 'double-gauss-5mm'; did you mean 'double-gauss-50mm'?"),
    ({"lens": "/nonexistent/lens.json"}, RuntimeError, "/nonexistent/lens.json: no such lens file"),
    ({"lens": "no-stop.json"}, RuntimeError, "no-stop.json"),
    ({"table": "LongZoom"}, ValueError, "table and lens: a flare paints a table's look or its lens's, not both"),
    ({"lens": None}, ValueError, "f_number, blades, blade_curvature and aperture_rotation: only with lens"),
])
def test_bad_lenses_and_apertures_raise_naming_the_value(tmp_path, monkeypatch, options, error, message):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "no-stop.json").write_text(NO_STOP)
    with pytest.raises(error) as raised:
        vellux.Flare(**dict(LENS, **options))
    assert message in str(raised.value)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32])
def test_dissolve_fades_the_flare_and_never_darkens_the_image(dtype):
    image = plate(dtype, 3)
    image[:, 120:] = np.iinfo(dtype).max if dtype != np.float32 else 0.95   # bright, where a ceiling would show
    previous = None
    for dissolve in (0.0, 0.25, 0.5, 0.75, 1.0):
        rendered = vellux.Flare(star_filter=4, dissolve=dissolve).render(image, light=(80, 40))
        assert (rendered >= image).all(), dissolve
        if previous is not None:
            assert (rendered <= previous).all(), dissolve
        assert np.array_equal(rendered, image) == (dissolve == 1.0), dissolve
        previous = rendered


def test_an_unknown_blend_is_a_value_error():
    with pytest.raises(ValueError, match=r"blend: 'multiply' is not a blend mode \(display, add, screen\)"):
        vellux.Flare().render(plate(np.uint8, 3), blend="multiply")


@pytest.mark.parametrize("view", [
    lambda a: a[:, ::2],                 # every second column
    lambda a: a[::-1],                   # rows upside down
    lambda a: a[:, :, ::-1],             # channels reversed: copied once to pack them
    lambda a: np.asfortranarray(a),
])
def test_strided_and_read_only_arrays(view):
    flare = vellux.Flare()
    image = view(plate(np.uint16, 3))
    image.setflags(write=False)
    np.testing.assert_array_equal(flare.render(image, light=(40, 20)),
                                  flare.render(np.ascontiguousarray(image), light=(40, 20)))


def test_settings_by_the_tools_names_as_attributes_and_as_a_dict():
    help_text = subprocess.run([TOOL, "render", "--help"], check=True, capture_output=True, text=True).stdout
    for name in vellux.setting_names():
        assert "--%s " % name.replace("_", "-") in help_text, name
    flare = vellux.Flare(table="LongZoom", flare_intensity=0.8, ring_color="#FF8000", halo=False)
    assert flare.flare_intensity == 0.8 and flare.ring_color == (255, 128, 0) and flare.halo is False
    flare.settings = {"star_filter": 4, "dissolve": 0.25, "streaks_off_frame": False}
    assert flare.settings["star_filter"] == 4 and flare.dissolve == 0.25 and flare.streaks_off_frame is False
    assert set(flare.settings) == set(vellux.setting_names())
    assert '"streaks-off-frame": false' in flare.look() and '"table": "LongZoom"' in flare.look()
    assert flare.pass_(32, 16, light=(8, 8)).shape == (16, 32, 4)


def test_the_old_name_intensity_still_sets_the_flares_intensity_with_a_warning():
    flare = vellux.Flare()
    for use in (lambda: vellux.Flare(intensity=0.8), lambda: setattr(flare, "intensity", 0.8) or flare,
                lambda: setattr(flare, "settings", {"intensity": 0.8}) or flare):
        flare.flare_intensity = 0.5
        with pytest.warns(DeprecationWarning, match="'intensity' is now 'flare_intensity'") as warned:
            changed = use()
        assert warned[0].filename == __file__          # said at the caller's line
        assert changed.flare_intensity == 0.8
    with pytest.warns(DeprecationWarning):
        assert flare.intensity == 0.8


@pytest.mark.parametrize("make, error, message", [
    (lambda f: f.render(np.zeros((8, 8), np.uint8)), ValueError, "wants an H x W x 3 or H x W x 4 array, not shape (8, 8)"),
    (lambda f: f.render(np.zeros((8, 8, 2), np.uint8)), ValueError, "not shape (8, 8, 2)"),
    (lambda f: f.render(np.zeros((8, 8, 3), np.int32)), TypeError, "dtype int32 is not one of"),
    (lambda f: f.render(np.zeros((8, 8, 3), np.uint8), light=(float("nan"), 1)), ValueError, "light x: nan is not a finite"),
    (lambda f: f.render(np.zeros((8, 8, 3), np.uint8), intensity=float("inf")), ValueError, "intensity: inf is not a finite"),
    (lambda f: f.render(np.zeros((8, 8, 3), np.uint8), color=(256, 0, 0)), ValueError, "color: 256 is outside 0..255"),
    (lambda f: f.render(np.zeros((8, 8, 3), np.uint8), occlusion=np.zeros((4, 4), np.float32)), ValueError, "occlusion: wants"),
    (lambda f: setattr(f, "dissolve", 1.5), ValueError, "dissolve: 1.5 is out of range (from 0 to 1)"),
    (lambda f: setattr(f, "anamorphic_factor", 0), ValueError, "anamorphic_factor: 0 is out of range (more than 0)"),
    (lambda f: setattr(f, "dissolv", 1.0), ValueError, "did you mean 'dissolve'?"),
    (lambda f: setattr(f, "flare_intensty", 1.0), ValueError, "did you mean 'flare_intensity'?"),
    (lambda f: setattr(f, "halo", 1), TypeError, "halo: wants True or False"),
    (lambda f: setattr(f, "star_filter", 2 ** 40), ValueError, "star_filter: 1099511627776 is not a 32-bit whole number"),
    (lambda f: setattr(f, "ring_color", "#GG0000"), ValueError, "ring_color: '#GG0000'"),
    (lambda f: setattr(f, "ring_color", (1, 2)), TypeError, "ring_color: wants (red, green, blue)"),
    (lambda f: vellux.Flare(table="NoSuchTable"), RuntimeError, "no flare table named 'NoSuchTable'"),
    (lambda f: vellux.Scene.load(os.path.join(SOURCE, "README.md")), RuntimeError, "README.md"),
])
def test_bad_input_raises_and_changes_nothing(make, error, message):
    flare = vellux.Flare()
    with pytest.raises(error) as raised:
        make(flare)
    assert message in str(raised.value)
    assert flare.dissolve == 0.0


def test_a_pass_into_a_kept_array_equals_a_new_one():
    flare = vellux.Flare(star_filter=4)
    out = np.full((60, 100, 4), 7.0, np.float32)
    for light in ((30, 20), (70, 40)):   # the second frame must not keep anything of the first
        for space in (None, "sRGB"):
            assert flare.pass_(100, 60, light=light, colorspace=space, out=out) is out
            np.testing.assert_array_equal(out, flare.pass_(100, 60, light=light, colorspace=space))
            np.testing.assert_array_equal(out[::-1], flare.pass_(100, 60, light=light, colorspace=space, bottom_up=True))
    for bad in (np.zeros((60, 100, 4), np.float64), np.zeros((60, 100, 3), np.float32), np.zeros((60, 100, 4), np.float32)[:, ::2],
                np.zeros((61, 100, 4), np.float32)):
        with pytest.raises(ValueError, match="out: wants"):
            flare.pass_(100, 60, out=bad)


def test_occlusion_dims_the_light():
    flare = vellux.Flare()
    black = np.zeros((60, 100, 3), np.uint16)          # the plug-in's own levels, where light adds up as it is
    hidden = np.zeros((60, 100), np.float32)
    hidden[:, :50] = 1.0                               # the left half of the light's disc
    full = flare.render(black, light=(50, 30), radius=6)
    half = flare.render(black, light=(50, 30), radius=6, occlusion=hidden)
    assert 0.3 < half.sum(dtype=np.float64) / full.sum(dtype=np.float64) < 0.7


def test_two_flares_render_on_two_threads_as_alone():
    image = plate(np.uint8, 4)
    flares = [vellux.Flare(star_filter=4), vellux.Flare(table="CleanPrime", star_filter=8)]
    alone = [[f.render(image, light=(20 + 10 * i, 30)) for i in range(4)] for f in flares]
    together = [None, None]

    def run(k):
        together[k] = [flares[k].render(image, light=(20 + 10 * i, 30)) for i in range(4)]

    threads = [threading.Thread(target=run, args=(k,)) for k in (0, 1)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for k in (0, 1):
        for a, b in zip(alone[k], together[k]):
            np.testing.assert_array_equal(a, b)


def test_scenes_render_as_the_tool_does(tmp_path):
    scene = vellux.Scene.load(SCENE)
    assert scene.frames == range(1, 13) and scene.size == (192, 108)
    assert set(scene.channel_keys) == {"Intensity", "Star Rotation"}
    assert scene.render(tmp_path / "py.####.png", frames=[3, 1, 2], jobs=2) == [1, 2, 3]
    tool("render", "-q", "--scene", SCENE, "--frames", "1-3", "--jobs", "1", "-o", tmp_path / "tool.####.png")
    for frame in (1, 2, 3):
        np.testing.assert_array_equal(vellux.read_image(tmp_path / ("py.%04d.png" % frame)),
                                      vellux.read_image(tmp_path / ("tool.%04d.png" % frame)))


def test_compression_is_chosen_and_checked_as_the_tool_does(tmp_path):
    image = plate(np.uint16, 4)
    vellux.write_image(image, tmp_path / "fast.png", compression="png:0")
    vellux.write_image(image, tmp_path / "small.png", compression="png:9")
    assert os.path.getsize(tmp_path / "small.png") < os.path.getsize(tmp_path / "fast.png")
    np.testing.assert_array_equal(vellux.read_image(tmp_path / "small.png"), image)
    scene = vellux.Scene.load(SCENE)
    assert scene.render(tmp_path / "f.####.exr", frames=[1], compression="exr:zip") == [1]
    tool("render", "-q", "--scene", SCENE, "--frames", "1", "--compression", "exr:none", "-o", tmp_path / "t.####.exr")
    np.testing.assert_array_equal(vellux.read_image(tmp_path / "f.0001.exr"), vellux.read_image(tmp_path / "t.0001.exr"))
    with pytest.raises(ValueError, match="compression: 'png:12' is not a compression; choose png:0 to png:9"):
        vellux.write_image(image, tmp_path / "bad.png", compression="png:12")
    with pytest.raises(ValueError, match="compression exr:zip is for .exr files, and f.####.png is a .png file"):
        scene.render(tmp_path / "f.####.png", compression="exr:zip")
    assert not os.path.exists(tmp_path / "bad.png") and not os.path.exists(tmp_path / "f.0001.png")


def test_a_dask_cluster_renders_the_same_frames(tmp_path):
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster, \
            distributed.Client(cluster) as client:
        written = vellux.Scene.load(SCENE).render(tmp_path / "dask.####.exr", client=client)
        assert written == list(range(1, 13))
        with pytest.raises(RuntimeError, match="frame 99 is outside the scene's frames 1-12"):
            vellux.Scene.load(SCENE).render(tmp_path / "dask.####.exr", frames=[1, 99], client=client)
    tool("render", "-q", "--scene", SCENE, "--jobs", "1", "-o", tmp_path / "tool.####.exr")
    for frame in written:
        np.testing.assert_array_equal(vellux.read_image(tmp_path / ("dask.%04d.exr" % frame)),
                                      vellux.read_image(tmp_path / ("tool.%04d.exr" % frame)))


def test_renders_do_not_leak():
    def resident():
        with open("/proc/self/statm") as statm:
            return int(statm.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    flare = vellux.Flare()
    image = np.zeros((24, 32, 3), np.uint8)
    for _ in range(100):
        flare.render(image, light=(10, 10))
    before = resident()
    for _ in range(2000):
        flare.render(image, light=(10, 10))
    assert resident() - before < 4 * 1024 * 1024


def built_scene(interpolation="smooth"):
    scene = vellux.Scene(width=96, height=54, frames=range(1, 9), interpolation=interpolation)
    scene.key_light(1, (10, 10), color=(255, 200, 150)).key_light(4, (60, 20), intensity=1.5)
    scene.key_light(8, (80, 50), radius=2.0)
    scene.key("flare_intensity", 1, 0.3).key("Intensity", 8, 0.9).set_interpolation("flare_intensity", interpolation)
    scene.key("dissolve", 1, 0.0).key("dissolve", 3, 0.4, interpolation="constant").key("Dissolve", 8, 0.1)
    return scene


def test_scenes_built_in_code_save_load_back_and_render_as_the_tool_does(tmp_path):
    scene = built_scene()
    scene.save(tmp_path / "built.json")
    loaded = vellux.Scene.load(tmp_path / "built.json")
    assert loaded == scene and loaded.text == open(tmp_path / "built.json").read()
    assert loaded.light_keys == scene.light_keys and loaded.light_keys[4]["position"] == (60, 20)
    assert loaded.channel_keys == {"Intensity": {1: 0.3, 8: 0.9}, "Dissolve": {1: 0.0, 3: 0.4, 8: 0.1}}
    assert loaded.interpolation == {"light": "smooth", "Intensity": "smooth", "Dissolve": "linear"}
    tool("scene", "show", tmp_path / "built.json")

    assert loaded.render(tmp_path / "py.####.png", frames=[2, 6], jobs=1) == [2, 6]
    tool("render", "-q", "--scene", tmp_path / "built.json", "--frames", "2,6", "-o", tmp_path / "tool.####.png")
    built_scene("linear").save(tmp_path / "linear.json")
    tool("render", "-q", "--scene", tmp_path / "linear.json", "--frames", "2", "-o", tmp_path / "linear.####.png")
    for frame in (2, 6):
        np.testing.assert_array_equal(vellux.read_image(tmp_path / ("py.%04d.png" % frame)),
                                      vellux.read_image(tmp_path / ("tool.%04d.png" % frame)))
    # The smooth light is somewhere else than the straight line puts it between keys.
    assert not np.array_equal(vellux.read_image(tmp_path / "py.0002.png"), vellux.read_image(tmp_path / "linear.0002.png"))


@pytest.mark.parametrize("make,message", [
    (lambda s: vellux.Scene(width=0, height=54), "image.width: must be a whole number in 1..65535"),
    (lambda s: vellux.Scene(width=9, height=9, frames=(5, 2)), "frames.last: must not be before frames.first (5)"),
    (lambda s: s.key_light(2, (1, 1), color=(256, 0, 0)), "light.keys.2.color[0]: must be a whole number in 0..255"),
    (lambda s: s.key_light(2, (1, 1), interpolation="ease"),
     'light.keys.2.interpolation: must be "smooth", "linear" or "constant", not "ease"'),
    (lambda s: s.key("Glare", 1, 1.0), "channels.Glare: is not one of the plug-in's channels"),
    (lambda s: s.key("dissolve", 2, 0.5, interpolation="cubic"), 'channels.Dissolve.keys.2.interpolation: must be'),
    (lambda s: s.set_interpolation("f_number", "spline"), 'lens.fNumber.interpolation: must be'),
    (lambda s: s.key("f_number", 1, 0.1), "lens.fNumber.1: must not be less than 0.5"),
    (lambda s: vellux.Scene(width=9, height=9).save("never.json"), "light.keys: must hold at least one key"),
    (lambda s: s.render("never.####.png"), "the scene is not saved yet"),
])
def test_building_a_scene_wrongly_raises_and_changes_nothing(make, message):
    scene = built_scene()
    before = scene.text
    with pytest.raises(ValueError) as raised:
        make(scene)
    assert message in str(raised.value)
    assert scene.text == before and not os.path.exists("never.json")
