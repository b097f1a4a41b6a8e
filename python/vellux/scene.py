"""Scenes: a shot for the flare (frames, image size or plate sequence, the light's keys, the
plug-in's settings and channel keys), read from a scene file or built in code, saved, and rendered
as a sequence."""

import json
import math
import os

from . import _setting_name, _vellux


class Scene:
    """A scene: a shot for the flare, read from a scene file or built here.

    Scene.load(path) reads a file; every problem in it raises RuntimeError naming the file and the
    place. Scene(...) starts one in code:

      Scene(width=None, height=None, frames=range(1, 2), input=None, light_units="pixels",
            interpolation="linear")

      width, height  the size of black frames; or instead
      input          a plate sequence's frame pattern (####, %04d or %d), relative to the folder
                     the scene is saved in
      frames         the frames covered: a range, or (first, last) both included
      light_units    "pixels" (from the top-left, y down) or "fraction" of the width and height
      interpolation  how the light moves between its keys: "linear", "smooth" (a curve through
                     every key, without kinks, never past either neighbouring key) or "constant"

    Then key_light and key add keys, each checked at once; save(path) writes the scene file (under
    a temporary name, renamed when complete), and Scene.load reads it back equal. A wrong value
    raises ValueError with the message the tool gives for it in a file ("light.keys.3.color[0]:
    must be a whole number in 0..255"). Attributes:

      path          the file, or None until saved
      frames        range(first, last + 1)
      size          (width, height) of black frames, or None for a plate sequence
      input         the plate sequence's frame pattern (relative to the file's folder), or None
      light_units   "pixels" or "fraction"
      light_keys    {frame: {"position": (x, y), "color": (r, g, b), "intensity": i, "radius": r}}
      channel_keys  {channel name: {frame: value}}, the plug-in's animated settings
      interpolation {"light" or a channel name: "linear", "smooth" or "constant"}
      text          the scene file's text, as save writes it
    """

    def __init__(self, width=None, height=None, frames=range(1, 2), input=None, light_units="pixels",
                 interpolation="linear"):
        first, last = (frames.start, frames.stop - 1) if isinstance(frames, range) else frames
        image = {"input": os.fspath(input)} if input is not None else {"width": width, "height": height}
        light = {"units": light_units, "keys": {}}
        if interpolation != "linear":
            light["interpolation"] = interpolation
        self.path = None
        self._plate = None   # a tracked plate's pattern, absolute: saving puts it relative to the file
        self._document = {"frames": {"first": first, "last": last}, "image": image, "light": light}
        self._check("frames", "image", "light.units", "light.interpolation")

    @classmethod
    def load(cls, path):
        """Read a scene file (see the README's scene format)."""
        scene = cls.__new__(cls)
        scene.path = os.fspath(path)
        scene._plate = None
        scene._document = json.loads(_vellux.load_scene(scene.path)["text"])
        return scene

    @classmethod
    def _tracked(cls, text, plate):
        """A scene vellux.track made: its file's text, and its plate's absolute pattern (or None)."""
        scene = cls.__new__(cls)
        scene.path = None
        scene._plate = plate
        scene._document = json.loads(text)
        if plate is not None:
            scene._document["image"]["input"] = _vellux.plate_relative(plate, os.getcwd())
        return scene

    # ---- Building ----

    def key_light(self, frame, position, color=(255, 255, 255), intensity=1.0, radius=0.0, interpolation=None):
        """Key the light at a frame (replacing a key there). interpolation: this key's own, for the
        way to the next key; None for the light's."""
        key = {"position": list(position), "color": list(color), "intensity": intensity, "radius": radius}
        if interpolation is not None:
            key["interpolation"] = interpolation
        self._change(lambda document: document["light"]["keys"].__setitem__(_frame(frame), key),
                     "light.keys.%s" % _frame(frame))
        return self

    def key(self, channel, frame, value, interpolation=None):
        """Key a setting at a frame: a channel by the file's name ("Intensity", "Ring Color", ...)
        or by the setting's name as Flare takes it ("flare_intensity", "ring_color"; colours as
        (r, g, b) -32768..32767, as the settings record holds them), or "f_number" for the lens's
        aperture.
        interpolation: this key's own, for the way to the next key; None for the channel's."""
        path = self._keyed(_setting_name(channel, 2))
        value = list(value) if isinstance(value, (tuple, list)) else value
        if interpolation is not None:
            value = {"value": value, "interpolation": interpolation}

        def change(document):
            keyed = _lookup(document, path)
            _keys_of(_long_form(keyed) if interpolation is not None else keyed)[_frame(frame)] = value
        self._change(change, path)
        return self

    def set_interpolation(self, channel, interpolation):
        """How a channel moves between its keys ("linear", "smooth" or "constant"): "light", a
        channel as key takes it, or "f_number". Keys with their own keep theirs."""
        if channel == "light":
            self._change(lambda document: document["light"].__setitem__("interpolation", interpolation),
                         "light.interpolation")
            return self
        path = self._keyed(_setting_name(channel, 2))
        self._change(lambda document: _long_form(_lookup(document, path)).__setitem__("interpolation", interpolation),
                     path)
        return self

    def save(self, path):
        """Write the scene file; the scene is then that file's (render reads it from there). A
        tracked plate's pattern is written relative to the file's folder."""
        if self._plate is not None:
            self._document["image"]["input"] = _vellux.plate_relative(self._plate, os.path.dirname(os.fspath(path)) or ".")
        _vellux.save_scene(json.dumps(self._document), os.fspath(path))
        self.path = os.fspath(path)

    # ---- Reading ----

    @property
    def text(self):
        return _vellux.scene_text(json.dumps(self._document))

    @property
    def frames(self):
        return range(self._document["frames"]["first"], self._document["frames"]["last"] + 1)

    @property
    def size(self):
        image = self._document["image"]
        return None if "input" in image else (image["width"], image["height"])

    @property
    def input(self):
        return self._document["image"].get("input")

    @property
    def light_units(self):
        return self._document["light"]["units"]

    @property
    def light_keys(self):
        return {int(frame): {"position": tuple(key["position"]), "color": tuple(key["color"]),
                             "intensity": key["intensity"], "radius": key["radius"]}
                for frame, key in self._document["light"]["keys"].items()}

    @property
    def channel_keys(self):
        def value(v):
            v = v["value"] if isinstance(v, dict) else v
            return tuple(v) if isinstance(v, list) else v
        return {name: {int(frame): value(v) for frame, v in _keys_of(keys).items()}
                for name, keys in self._document.get("channels", {}).items()}

    @property
    def interpolation(self):
        modes = {"light": self._document["light"].get("interpolation", "linear")}
        for name, keys in self._document.get("channels", {}).items():
            modes[name] = keys.get("interpolation", "linear") if "keys" in keys else "linear"
        return modes

    def __eq__(self, other):
        return isinstance(other, Scene) and self.text == other.text

    # ---- Inside ----

    @staticmethod
    def _keyed(channel):
        """Where a channel's keys live in the document."""
        if channel == "f_number":
            return ("lens", "fNumber")
        names = {setting: name for name, setting in _vellux.scene_channels()}
        return ("channels", names.get(channel, channel))

    def _change(self, change, path):
        """Apply `change` to the document; undone, with ValueError, if it makes a mistake under `path`."""
        before = json.loads(json.dumps(self._document))
        change(self._document)
        try:
            self._check(".".join(path) if isinstance(path, tuple) else path)
        except ValueError:
            self._document = before
            raise

    def _check(self, *paths):
        errors = [text for where, text in _vellux.scene_errors(json.dumps(self._document))
                  if any(where == p or where.startswith(p + ".") or where.startswith(p + "[") for p in paths)]
        if errors:
            raise ValueError("; ".join(errors))

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
        if self.path is None:
            raise ValueError("the scene is not saved yet: save(path) writes it, and render reads it from there")
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


def _frame(frame):
    if isinstance(frame, bool) or not isinstance(frame, int):
        raise TypeError("frame: wants a whole number, not %r" % (frame,))
    return str(frame)


def _lookup(document, path):
    """The channel at `path`, made (without keys) when the document has none."""
    return document.setdefault(path[0], {}).setdefault(path[1], {})


def _keys_of(keyed):
    """A channel's {frame: value} in either of its forms."""
    return keyed["keys"] if "keys" in keyed or "interpolation" in keyed else keyed


def _long_form(keyed):
    """The channel in its long form, {"interpolation": ..., "keys": {...}}, made so in place."""
    if "keys" not in keyed and "interpolation" not in keyed:
        keys = dict(keyed)
        keyed.clear()
        keyed.update({"interpolation": "linear", "keys": keys})
    return keyed


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
