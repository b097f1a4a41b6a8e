"""Lights found in footage and followed through it, as scenes to render: `vellux track` for
frame patterns and arrays, on this machine or in overlapping chunks on a Dask cluster."""

import math
import os

from . import _vellux
from .scene import Scene

DEFAULT_THRESHOLD = _vellux.default_light_threshold()
_SEEN = 0   # a step's sighting: the light found alone (then merged, hidden)


def track(frames_or_pattern, *, lights=1, at=None, threshold=DEFAULT_THRESHOLD, smooth=0.0, frames=None,
          colorspace=None, client=None, chunk=None, overlap=8):
    """Find lights in footage and follow them, as scenes of the light's path: the scenes
    `vellux track` writes for the same footage and options.

    frames_or_pattern  a plate's frame pattern (plate.####.exr; ####, %04d or %d), or a sequence
                       of H x W x 3 float arrays in scene-linear light (one per frame; their scenes
                       have no plate, only the frames' size)
    lights             how many of the brightest lights to follow: 1 gives a Scene, more a list
                       of Scenes, the brightest first (fewer when the footage has fewer)
    at                 (x, y) or (x, y, frame): follow the light nearest this point (pixels from the
                       top-left) on that frame (the first unless given) instead of the brightest;
                       from a later frame the light is followed both ways
    threshold          the linear luminance at and above which a pixel belongs to a light
    smooth             steady the path over this many frames (0: as measured)
    frames             the frame numbers: for a pattern those to track (None: every one on disk),
                       for arrays each array's (None: 1, 2, 3, ...)
    colorspace         the plate's colour space (None: linear for float files, sRGB for integer
                       ones); arrays are scene-linear already
    client             a dask.distributed Client: the frames are tracked in chunks of `chunk`
                       frames on the cluster's workers (which must see a pattern's files), each
                       chunk overlapping the one before by `overlap` frames, and the chunks are
                       joined where they overlap by matching the lights' positions there (the
                       joined steps are then finished as one run). The light is chosen on the
                       first frame (`at` may not name a later one); a light must be seen in each
                       overlap, and a fast one long enough there to be followed on (each chunk
                       learns its motion afresh): one lost between chunks raises RuntimeError
    chunk, overlap     frames a chunk (None: the frames shared among the workers) and frames
                       shared by neighbouring chunks, 2 or more

    A scene's plate is its pattern relative to the folder it is saved in (the current folder until
    then). Errors raise as the tool words them: ValueError for an option or a frame list that
    cannot be, RuntimeError for a frame that cannot be read or is of another size, and for
    footage with no light at or above the threshold on the frame the lights are chosen on.
    """
    pattern, arrays, numbers = _footage(frames_or_pattern, frames)
    at = None if at is None else [float(v) for v in at]
    if client is None:
        texts = _vellux.track(pattern if arrays is None else arrays, numbers, int(lights), at, float(threshold),
                              float(smooth), colorspace)
    else:
        texts = _track_on_cluster(client, pattern, arrays, numbers, int(lights), at, float(threshold), float(smooth),
                                  colorspace, chunk, overlap)
    scenes = [Scene._tracked(text, pattern) for text in texts]
    return scenes if lights > 1 else scenes[0]


def _footage(frames_or_pattern, frames):
    """(pattern or None, arrays or None, frame numbers) for the engine; a pattern's empty
    numbers mean every frame on disk."""
    if isinstance(frames_or_pattern, (str, os.PathLike)):
        numbers = [] if frames is None else [int(f) for f in frames]
        if frames is not None and not numbers:
            raise ValueError("frames: no frames to track")
        return os.path.abspath(os.fspath(frames_or_pattern)), None, numbers
    arrays = list(frames_or_pattern)
    if not arrays:
        raise ValueError("frames_or_pattern: no frames to track")
    numbers = list(range(1, len(arrays) + 1)) if frames is None else [int(f) for f in frames]
    return None, arrays, numbers


def _follow_chunk(source, numbers, lights, at, threshold, colorspace, every_light):
    """One task on a worker: a chunk's lights followed, unfinished."""
    return _vellux.follow_chunk(source, numbers, lights, at, threshold, colorspace, every_light)


def _chunks(count, chunk, overlap):
    """(start, end) of each chunk of a list of `count` frames, each overlapping the one before."""
    spans, start = [], 0
    while True:
        end = min(count, start + chunk)
        spans.append((start, end))
        if end == count:
            return spans
        start = end - overlap


def _track_on_cluster(client, pattern, arrays, numbers, lights, at, threshold, smooth, colorspace, chunk, overlap):
    if pattern is not None and not numbers:
        numbers = list(_vellux.frames_on_disk(pattern))
    if not numbers:
        raise RuntimeError("%s: no frames to track" % pattern)
    if at is not None and len(at) == 3 and at[2] != numbers[0]:
        raise ValueError("at: with client the light is chosen on the first frame (%d), not on frame %d"
                         % (numbers[0], at[2]))
    if overlap < 2:
        raise ValueError("overlap: must be 2 frames or more")
    if chunk is None:
        workers = max(1, sum(client.nthreads().values()))
        chunk = max(overlap + 2, math.ceil(len(numbers) / workers) + overlap)
    if chunk <= overlap:
        raise ValueError("chunk: must be more frames than overlap (%d)" % overlap)
    spans = _chunks(len(numbers), int(chunk), int(overlap))
    futures = []
    for index, (start, end) in enumerate(spans):
        source = pattern if arrays is None else arrays[start:end]
        first = index == 0
        futures.append(client.submit(_follow_chunk, source, numbers[start:end], lights if first else 1,
                                     at if first else None, threshold, colorspace, not first, pure=False))
    parts = client.gather(futures)
    joined = _join(parts, spans, numbers)
    width, height = (0, 0) if arrays is None else (arrays[0].shape[1], arrays[0].shape[0])
    return [_vellux.finish_track(light, smooth, pattern, width, height) for light in joined]


def _join(parts, spans, numbers):
    """The first chunk's lights, each continued by the light of every next chunk that was seen
    where it was in their overlap: their steps as measured, from which the engine rebuilds the
    predictions and velocities of one run (the chunks' own start afresh)."""
    joined = [(colour, radius, start, list(steps)) for colour, radius, start, steps in parts[0]]
    for index in range(1, len(parts)):
        shared = spans[index - 1][1] - spans[index][0]   # frames in the overlap
        taken = set()
        for colour, radius, start, steps in joined:
            ours = steps[-shared:]
            match = _nearest(ours, parts[index], taken, max(1.0, radius))
            if match is None:
                raise RuntimeError("track: a light seen at (%.1f, %.1f) on frame %d is lost between chunks (no light "
                                   "of the chunk from frame %d was seen there); track with a longer overlap, or "
                                   "without client" % (ours[-1][2], ours[-1][3], ours[-1][0], numbers[spans[index][0]]))
            taken.add(match)
            steps.extend(parts[index][match][3][shared:])
    return joined


def _nearest(ours, candidates, taken, reach):
    """The candidate light whose steps in the overlap lie nearest ours (on the frames both were
    seen), if within `reach` pixels on average."""
    best, best_distance = None, reach
    for number, (_, _, _, theirs) in enumerate(candidates):
        if number in taken:
            continue
        distances = [math.hypot(a[2] - b[2], a[3] - b[3]) for a, b in zip(ours, theirs)
                     if a[1] == _SEEN and b[1] == _SEEN]
        if distances and sum(distances) / len(distances) <= best_distance:
            best, best_distance = number, sum(distances) / len(distances)
    return best
