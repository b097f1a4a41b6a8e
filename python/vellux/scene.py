"""Scenes: a shot for the flare (frames, image size or plate sequence, the light's keys, the
plug-in's settings and channel keys), read from a scene file and rendered as a sequence."""

import math
import os

from . import _vellux


class Scene:
    """A scene file, read and checked.

    Scene.load(path) reads it; every problem in the file raises RuntimeError naming the file and
    the place. Attributes:

      path          the file
      frames        range(first, last + 1)
      size          (width, height) of black frames, or None for a plate sequence
      input         the plate sequence's frame pattern (relative to the file's folder), or None
      light_units   "pixels" or "fraction"
      light_keys    {frame: {"position": (x, y), "color": (r, g, b), "intensity": i, "radius": r}}
      channel_keys  {channel name: {frame: value}}, the plug-in's animated settings
    """

    def __init__(self, path, description):
        self.path = os.fspath(path)
        self.frames = range(description["first"], description["last"] + 1)
        self.size = (description["width"], description["height"]) if not description["input"] else None
        self.input = description["input"] or None
        self.light_units = description["light_units"]
        self.light_keys = dict(description["light"])
        self.channel_keys = {name: dict(keys) for name, keys in description["channels"].items()}

    @classmethod
    def load(cls, path):
        """Read a scene file (see the README's scene format)."""
        return cls(path, _vellux.load_scene(os.fspath(path)))

    def render(self, output_pattern, frames=None, jobs=None, client=None, table=None, plugin=None, compression=None):
        """Render the scene's frames to files; returns the frame numbers written, in order.

        output_pattern  a file name with a frame field: ####, %04d or %d
        frames          an iterable of frame numbers (each within the scene), or None for all
        jobs            frames rendered at once on this machine (default: its cores); each
                        worker has its own copy of the plug-in
        client          a dask.distributed Client: the frames go to the cluster's workers in
                        chunks, each worker loads its own flare and writes its frames (so the
                        output folder must be one every worker sees); jobs is then ignored
        table, plugin   as for Flare
        compression     as for write_image

        Each frame is written under a temporary name and renamed when complete. A frame that fails
        raises RuntimeError naming the frame; the frames already written stay.
        """
        frames = list(self.frames if frames is None else frames)
        output = os.fspath(output_pattern)
        _vellux.check_compression(compression or "", output)
        if client is None:
            written = _vellux.render_scene(self.path, output, frames, jobs or os.cpu_count() or 1, plugin, table,
                                           compression or "")
            return sorted(written)
        return _render_on_cluster(client, self.path, output, frames, table, plugin, compression or "")

    def __repr__(self):
        return "vellux.Scene(%r, frames %d-%d)" % (self.path, self.frames.start, self.frames.stop - 1)


def _render_chunk(scene_path, output, frames, table, plugin, compression):
    """One task on a worker: a chunk of frames, one after the other, in the worker's process."""
    return list(_vellux.render_scene(scene_path, output, frames, 1, plugin, table, compression))


def _render_on_cluster(client, scene_path, output, frames, table, plugin, compression):
    # Chunks of a few frames each: two per worker thread at least, so that a slow chunk does not
    # hold the others up, and not single frames, whose plug-in loading would cost more.
    workers = max(1, sum(client.nthreads().values()))
    size = max(1, math.ceil(len(frames) / (2 * workers)))
    chunks = [frames[i:i + size] for i in range(0, len(frames), size)]
    scene_path = os.path.abspath(scene_path)
    output = os.path.abspath(output)
    futures = [client.submit(_render_chunk, scene_path, output, chunk, table, plugin, compression, pure=False)
               for chunk in chunks]
    written, failure = [], None
    for future in futures:
        try:
            written.extend(future.result())
        except Exception as error:  # the frame's own message; the other chunks still finish
            failure = failure or error
    if failure is not None:
        raise RuntimeError(str(failure)) from failure
    return sorted(written)
