"""vellux.track against `vellux track`, on footage made here: two bright lights moving on known
paths over a noisy textured background, as a pattern's EXR files and as arrays, alone and in
chunks on a Dask cluster."""

import json
import os
import subprocess

import distributed
import numpy as np
import pytest

import vellux

TOOL = os.environ["VELLUX_TOOL"]
WIDTH, HEIGHT, COUNT = 160, 96, 24
# Each light: its centre on frame f (counted from 0), its peak (far above 1.0) and tint.
LIGHTS = [(lambda f: (20.0 + 3.1 * f, 30.0 + 0.45 * f), 9.0, (1.0, 0.9, 0.7)),
          (lambda f: (135.0 - 2.3 * f, 72.0 - 0.7 * f), 6.0, (0.6, 0.8, 1.0))]


def frame(f, rng):
    """Frame f: the background's texture and noise, and each light as a disc of radius 3 whose
    edge falls off as a Gaussian."""
    y, x = np.mgrid[0:HEIGHT, 0:WIDTH].astype(np.float64)
    grey = 0.25 + 0.1 * np.sin(x / 7.0) * np.cos(y / 5.0) + rng.normal(0.0, 0.02, (HEIGHT, WIDTH))
    image = np.repeat(grey[:, :, None], 3, axis=2)
    for path, peak, tint in LIGHTS:
        cx, cy = path(f)
        d = np.hypot(x - cx, y - cy)
        level = peak * np.where(d <= 3.0, 1.0, np.exp(-0.5 * ((d - 3.0) / 1.2) ** 2))
        image += level[:, :, None] * np.array(tint)
    return image.astype(np.float32)


@pytest.fixture(scope="module")
def footage(tmp_path_factory):
    """(folder with plate.####.exr for frames 1..COUNT, the same frames as arrays)."""
    folder = tmp_path_factory.mktemp("plate")
    rng = np.random.default_rng(7)
    arrays = [frame(f, rng) for f in range(COUNT)]
    for number, array in enumerate(arrays, 1):
        vellux.write_image(array, folder / ("plate.%04d.exr" % number))
    return folder, arrays


def as_list(scenes):
    return scenes if isinstance(scenes, list) else [scenes]


# Options by the tool's names and by track's keywords.
CASES = [
    (["--lights", "2"], dict(lights=2)),
    (["--at", "130,60@10", "--smooth", "2"], dict(at=(130, 60, 10), smooth=2.0)),
    (["--frames", "3-20x2", "--threshold", "2"], dict(frames=range(3, 21, 2), threshold=2.0)),
]


@pytest.mark.parametrize("arguments,options", CASES)
def test_the_scenes_are_the_tools_key_for_key(footage, tmp_path, arguments, options):
    folder, _ = footage
    subprocess.run([TOOL, "track", "-q", "-i", folder / "plate.####.exr", "-o", tmp_path / "tool.json", *arguments],
                   check=True, capture_output=True)
    scenes = as_list(vellux.track(str(folder / "plate.####.exr"), **options))
    assert len(scenes) == options.get("lights", 1)
    for index, scene in enumerate(scenes):
        suffix = "" if index == 0 else ".%d" % (index + 1)
        scene.save(tmp_path / ("python%s.json" % suffix))
        with open(tmp_path / ("tool%s.json" % suffix)) as tool_file, \
                open(tmp_path / ("python%s.json" % suffix)) as python_file:
            assert json.load(python_file) == json.load(tool_file)
        assert vellux.Scene.load(tmp_path / ("python%s.json" % suffix)) == scene


def test_arrays_track_as_their_files_and_follow_the_known_paths(footage):
    folder, arrays = footage
    from_files = vellux.track(str(folder / "plate.####.exr"), lights=2)
    from_arrays = vellux.track(arrays, lights=2)
    for files, memory, (path, _, _) in zip(from_files, from_arrays, LIGHTS):
        assert memory.input is None and memory.size == (WIDTH, HEIGHT) and files.input is not None
        assert memory.light_keys == files.light_keys and memory.frames == range(1, COUNT + 1)
        for number, key in memory.light_keys.items():
            assert np.hypot(*np.subtract(key["position"], path(number - 1))) < 0.15
            assert key["intensity"] > 0.9


def test_chunks_on_a_dask_cluster_join_as_one_run(footage):
    folder, arrays = footage
    alone = vellux.track(arrays, lights=2)
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=False, dashboard_address=None) as cluster, \
            distributed.Client(cluster) as client:
        chunked = vellux.track(arrays, lights=2, client=client, chunk=9, overlap=4)
        from_files = vellux.track(str(folder / "plate.####.exr"), lights=2, smooth=1.5, client=client, chunk=10)
        with pytest.raises(ValueError, match="with client the light is chosen on the first frame"):
            vellux.track(arrays, at=(130, 60, 10), client=client)
    for one, joined in zip(alone, chunked):
        assert one.light_keys.keys() == joined.light_keys.keys()
        for number, key in one.light_keys.items():
            assert np.allclose(joined.light_keys[number]["position"], key["position"], rtol=0, atol=1e-6)
            assert joined.light_keys[number]["intensity"] == pytest.approx(key["intensity"], abs=1e-9)
    assert [s.text for s in from_files] == [s.text for s in vellux.track(str(folder / "plate.####.exr"), lights=2,
                                                                          smooth=1.5)]


@pytest.mark.parametrize("make,error,message", [
    (lambda a, p: vellux.track(a, threshold=100.0), RuntimeError, "the frames: no light found on frames 1 to 24"),
    (lambda a, p: vellux.track(p, lights=0), ValueError, "--lights: must be 1 or more"),
    (lambda a, p: vellux.track(a, at=(500, 10)), ValueError, r"--at: 500,10 is outside frame 1 \(160x96\)"),
    (lambda a, p: vellux.track(a, at=(10, 10, 99)), ValueError, "--at: frame 99 is not among the frames tracked"),
    (lambda a, p: vellux.track(p, smooth=-1), ValueError, "--smooth: must be 0 or more"),
    (lambda a, p: vellux.track([f.astype(np.uint16) for f in a]), TypeError, "frames.0.: wants a float array"),
    (lambda a, p: vellux.track([a[0][:, :, :2]]), ValueError, r"frames\[0\]: wants an H x W x 3 array"),
    (lambda a, p: vellux.track([a[0], a[1][:80]]), RuntimeError, "frame 2 is 160x80, frame 1 is 160x96"),
    (lambda a, p: vellux.track(a, frames=[1, 2]), ValueError, "frames: 2 numbers for 24 arrays"),
    (lambda a, p: vellux.track(p.replace("plate", "none")), RuntimeError, "none"),
])
def test_bad_input_raises_in_the_tools_words(footage, make, error, message):
    folder, arrays = footage
    with pytest.raises(error, match=message):
        make(arrays, str(folder / "plate.####.exr"))
