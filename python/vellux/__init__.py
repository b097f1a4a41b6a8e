"""Vellux lens flares for Python pipelines.

A flare is painted over an image held in a numpy array, or alone as a pass for compositing; a
scene (a shot with a moving light and animated settings) renders as an image sequence, on this
machine's cores or on a Dask cluster.

    import vellux
    flare = vellux.Flare(star_filter=4)
    image = vellux.read_image("docs/sample-frame.png")
    lit = flare.render(image, light=(288, 189), color=(255, 220, 180))
    vellux.write_image(lit, "renders/lit.png")

Errors raise ValueError (a value out of range or a name the module does not know, in the words
the vellux tool would use), TypeError (a value of the wrong kind) or RuntimeError (a file that
cannot be read or written, or the plug-in's own refusal); the arrays given are never changed.
"""

import warnings as _warnings

import numpy as _numpy

from . import _vellux

__all__ = ["Flare", "Scene", "track", "read_image", "write_image", "setting_names", "__version__"]
__version__ = _vellux.version()


def setting_names():
    """The names of the flare's settings, as Flare takes them (keyword arguments, attributes): the
    vellux tool's (`vellux render --ring-color`, look files) with underscores for dashes."""
    return list(_vellux.setting_names())


# Names the module once gave settings, and the ones they have now.
_RENAMED = {"intensity": "flare_intensity"}


def _setting_name(name, stacklevel):
    """The setting's name now: an old one still works, with a DeprecationWarning at the caller's
    line (`stacklevel` frames up from here)."""
    if name not in _RENAMED:
        return name
    _warnings.warn("vellux: the setting %r is now %r (the flare's, as the tool's --%s; render's and pass_'s "
                   "intensity= is the light's)" % (name, _RENAMED[name], _RENAMED[name].replace("_", "-")),
                   DeprecationWarning, stacklevel=stacklevel + 1)
    return _RENAMED[name]


def read_image(path):
    """Read an image file into a new H x W x C array.

    8-bit and 16-bit images come as uint8 and uint16, half-float EXRs as float16, anything else as
    float32; the channels are those of the file's first part with colour.
    """
    return _vellux.read_image(str(path))


def write_image(image, path, compression=None):
    """Write an H x W x 3 or x 4 array (uint8, uint16, float16 or float32) to an image file.

    The extension picks the format. compression: "png:0".."png:9", "exr:piz", "exr:zip", "exr:dwaa"
    and the others `vellux render --compression` takes; None: lossless and fast (png:1, exr:piz).
    The file is written under a temporary name and renamed into place only when complete.
    """
    _vellux.write_image(image, str(path), compression or "")


class Flare:
    """One lens flare: a loaded copy of the Vellux plug-in with its flare table and settings.

    Flare(table=None, plugin=None, lens=None, f_number=None, blades=None, blade_curvature=None,
          aperture_rotation=None, threads=0, **settings)

    table     a flare table's name ("LongZoom", as `vellux tables` lists them) or a .rsc path;
              None for the default table
    plugin    the plug-in file; None to find it beside the engine
    threads   threads painting each frame: 0 every core (the default), 1 the caller's alone; the
              picture is the same on any number
    settings  any of the settings below, by name

    The lens's own flare instead of a table's (as `vellux render --lens`): the diffraction
    starburst of its aperture and its ghosts, traced through its prescription; render, pass_
    and blend it as any flare, and it equals the tool's pixels for the same options. The plug-in's
    settings below do not shape it.
      lens               a lens's name ("double-gauss-50mm", as in the lenses folder or
                         $VELLUX_LENS_PATH) or a prescription's .json path; not with table
      f_number           the aperture, no wider than the lens opens (the lens's stated one)
      blades             the iris's blades: 0 for round, 3 to 32 (0)
      blade_curvature    0 straight blades to 1 round (0)
      aperture_rotation  the iris turned, degrees (0)
    A bad value raises ValueError, a lens that cannot be read RuntimeError, each naming it.

    Settings (attributes, keyword arguments, and the dict `settings`), by the tool's names with
    underscores for dashes (`vellux render --flare-intensity` is flare_intensity), in its units:
      flare_intensity      overall strength of the flare, 0 or more (0.5)
      dissolve             fades the flare out, 0 to 1 (0)
      anamorphic_factor    how far `anamorphic` stretches the flare, more than 0 (1.77)
      ring_size            size of the halo in flare units, more than 0 (0.22)
      ring_color           the halo's colour, (red, green, blue) 0..255 or "#RRGGBB" ((80, 20, 10))
      star_rotation        turns the star, degrees (0)
      star_filter          the star's points: 0 none, 1 to 9, 10 five major and five minor (0)
      streak_density       how many streaks make the star, 0 or more (50)
      streak_intensity     how bright they are, 0 or more (0.03)
      streak_sharpness     how quickly they fade, 0 or more (6)
      glow, glow_in_light_color, halo, reflections, random_streaks, streaks_off_frame
                           switches, on by default
      anamorphic, anamorphic_streak, follow_light_size, wireframe_preview
                           switches, off by default
    The name `intensity` still sets flare_intensity, with a DeprecationWarning. look() gives the
    settings as a look file's text, which `vellux render --settings` reads.

    A Flare renders one frame at a time, on `threads` threads (each with its own copy of the
    plug-in); Flares on different threads render at once, and the GIL is released while the
    plug-in paints.
    """

    def __init__(self, table=None, plugin=None, lens=None, f_number=None, blades=None, blade_curvature=None,
                 aperture_rotation=None, threads=0, **settings):
        object.__setattr__(self, "_flare", _vellux.Flare(table, plugin, lens, f_number, blades, blade_curvature,
                                                         aperture_rotation, threads))
        for name, value in settings.items():
            self._flare.set(_setting_name(name, 2), value)

    def __getattr__(self, name):
        if name.startswith("_"):
            raise AttributeError(name)
        try:
            return self._flare.get(_setting_name(name, 2))
        except ValueError as error:
            raise AttributeError(str(error)) from None

    def __setattr__(self, name, value):
        if isinstance(getattr(type(self), name, None), property):
            object.__setattr__(self, name, value)
        else:
            self._flare.set(_setting_name(name, 2), value)

    def __dir__(self):
        return sorted(set(super().__dir__()) | set(setting_names()))

    @property
    def settings(self):
        """Every setting by name, as a new dict (assigning one sets those it names)."""
        return {name: self._flare.get(name) for name in setting_names()}

    @settings.setter
    def settings(self, values):
        for name, value in dict(values).items():
            self._flare.set(_setting_name(name, 3), value)   # set through __setattr__

    def look(self):
        """The settings as a look file's text (JSON), as `vellux render --settings` reads it and
        an EXR the tool writes holds it in Vellux:Settings: every setting by its name, and the
        table or lens the flare is painted with."""
        return self._flare.look()

    @property
    def table(self):
        """The flare table asked for (empty for the default)."""
        return self._flare.table

    @property
    def lens(self):
        """The lens whose own flare is painted (empty for a table's look)."""
        return self._flare.lens

    def render(self, image, light=(0.0, 0.0), color=(255, 255, 255), intensity=1.0, radius=0.0,
               occlusion=None, colorspace=None, pixel_aspect=1.0, blend="display"):
        """The image with the flare painted in, as a new array of the same dtype and shape.

        image       H x W x 3 or x 4, uint8, uint16, float16 or float32, any strides; alpha kept
        light       the light's position in pixels from the top-left, (x, y); off the image is
                    allowed
        color       the light's colour, (red, green, blue) 0..255
        intensity   the light's intensity, 0 or more
        radius      the light's radius on the image in pixels (sizes the glow with
                    follow_light_size, and the disc the occlusion mask covers)
        occlusion   an H x W (or H x W x C) mask of the image's size, 1 where the light is hidden:
                    the light is dimmed by the hidden part of its disc
        colorspace  the image's colour space ("linear", "sRGB", "Rec709", or a name of $OCIO's
                    configuration); None: linear for float arrays, sRGB for integer ones
        pixel_aspect  the width of the image's pixels over their height (1 for square pixels): the
                    flare stays round when the image is shown stretched
        blend       how the flare goes over the image: "display" (the plug-in's own add on
                    display levels: the same picture on a PNG and its linear EXR), "add" (in
                    scene-linear light, the physical one) or "screen"

        The flare is painted alone and blended in, so the dissolve fades it and never touches the
        image. Integer images in sRGB take the plug-in's own pixels (uint8: its 32-bit path);
        float images the flare's float levels, past 1.0 where it is brighter than the plug-in's
        full level. Every result equals the vellux tool's output pixel for pixel.
        """
        return self._flare.render(image, tuple(light), tuple(color), float(intensity), float(radius),
                                  float(pixel_aspect), occlusion, colorspace, blend)

    def pass_(self, width, height, light=(0.0, 0.0), color=(255, 255, 255), intensity=1.0, radius=0.0,
              colorspace=None, pixel_aspect=1.0, out=None, bottom_up=False):
        """The flare alone, as a height x width x 4 float32 array for compositing with "plus".

        Alpha is the brightest of red, green and blue (at most 1). The colour is in `colorspace`
        (None: linear); the other arguments are render's. With `out` (a writable height x width
        x 4 float32 array in C order) the pass is written into it and `out` returned: rendering
        frame after frame into the same array takes no new memory, which is faster. With
        `bottom_up` the rows come last first, as Blender's images hold them.
        """
        if out is None and not bottom_up:
            return self._flare.pass_(int(width), int(height), tuple(light), tuple(color), float(intensity),
                                     float(radius), float(pixel_aspect), colorspace)
        if out is None:
            out = _numpy.empty((int(height), int(width), 4), _numpy.float32)
        if out.shape[:2] != (int(height), int(width)):
            raise ValueError("out: wants shape (%d, %d, 4), not %r" % (int(height), int(width), out.shape))
        self._flare.pass_into(out, tuple(light), tuple(color), float(intensity), float(radius), float(pixel_aspect),
                              colorspace, bool(bottom_up))
        return out

    def __repr__(self):
        source = "lens=%r" % self.lens if self.lens else "table=%r" % (self.table or None)
        return "vellux.Flare(%s, %s)" % (source, ", ".join("%s=%r" % item for item in self.settings.items()))


from .scene import Scene  # noqa: E402  (it uses the module above)
from .tracking import track  # noqa: E402
