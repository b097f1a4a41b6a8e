#!/usr/bin/python3
"""The Python module's cost over the engine: flare.render of a 1920x1080 frame (uint8 and float32)
timed here, to be set beside the engine's own figure for the same frame (vellux_bench's BM_Flare);
and a scene on a Dask LocalCluster of 2 workers against the tool's --jobs 2.

    PYTHONPATH=build/default/python bench/python_bench.py [build dir]

Medians of 7 runs after one warm-up; numbers are this machine's, one run of the script."""

import os
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np

import vellux

build = sys.argv[1] if len(sys.argv) > 1 else "build/default"


def median_ms(call, runs=7):
    call()
    times = []
    for _ in range(runs):
        start = time.perf_counter()
        call()
        times.append((time.perf_counter() - start) * 1000.0)
    return statistics.median(times)


def main():
    flare = vellux.Flare()
    light = (576, 378)
    image8 = vellux.read_image("docs/sample-frame.png")
    image8 = np.ascontiguousarray(np.repeat(np.repeat(image8, 2, axis=0), 2, axis=1))   # 1920x1080
    image32 = image8.astype(np.float32) / 255.0
    for name, image in (("uint8", image8), ("float32", image32)):
        print("flare.render 1920x1080 %-8s %.1f ms" % (name, median_ms(lambda: flare.render(image, light=light))))

    with tempfile.TemporaryDirectory() as folder:
        scene = os.path.join(folder, "shot.json")
        with open("docs/example-scene.json") as source:
            text = source.read().replace('"width": 192, "height": 108', '"width": 1920, "height": 1080')
        with open(scene, "w") as target:
            target.write(text)
        frames = len(vellux.Scene.load(scene).frames)
        start = time.perf_counter()
        subprocess.run([os.path.join(build, "tools", "vellux"), "render", "-q", "--scene", scene, "--jobs", "2",
                        "-o", os.path.join(folder, "tool.####.exr")], check=True)
        tool_fps = frames / (time.perf_counter() - start)
        import distributed
        with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster, \
                distributed.Client(cluster) as client:
            start = time.perf_counter()
            vellux.Scene.load(scene).render(os.path.join(folder, "dask.####.exr"), client=client)
            dask_fps = frames / (time.perf_counter() - start)
        print("scene of %d 1920x1080 frames: vellux --jobs 2 %.1f frames/s, Dask 2 workers %.1f frames/s"
              % (frames, tool_fps, dask_fps))


# Dask's worker processes import this file again: only the script itself runs the measurements.
if __name__ == "__main__":
    main()
