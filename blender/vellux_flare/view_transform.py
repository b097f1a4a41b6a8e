"""Scene-linear flares made display-referred, as Blender's view transform makes the viewport's
picture, so that a flare drawn over the viewport looks as it will in the render.

A view is plain data: View(display, view, look, exposure, gamma), taken from the scene as the
viewport takes it for its shading (viewport_view). to_display converts through Blender's own
colour configuration with OpenColorIO's Python module (Debian: python3-pyopencolorio), which gives
every view Blender offers exactly: "Standard", "Filmic" and its looks, "False Color", exposure
and gamma (the view's curves are not applied). Without that module the sRGB curve of "Standard"
is applied whatever the view: exact for "Standard"; under "Filmic" the flare then shows harder and
brighter than the render will (Filmic's log curve and its desaturation of bright colours are left
out), which is reported once on the console."""

import os
from typing import NamedTuple

import numpy as np


class View(NamedTuple):
    display: str      # the display device, "sRGB"
    view: str         # the view transform, "Standard", "Filmic", ...
    look: str         # "None", or a look of the colour configuration
    exposure: float   # stops, applied in scene-linear light
    gamma: float      # applied to the display's levels


STANDARD = View("sRGB", "Standard", "None", 0.0, 1.0)

_processors = {}    # View -> OpenColorIO CPU processor, made once per view
_reported = set()   # views reported as shown with the sRGB curve


def viewport_view(scene, shading):
    """The view the 3D viewport shows `scene` through under `shading` (View3DShading): the scene's
    whole view settings where the viewport lights the scene as the render does, only its view
    transform and look for the material preview in studio light, and the configuration's default
    ("Standard") in solid and wireframe shading."""
    settings = scene.view_settings
    display = scene.display_settings.display_device
    if shading.type == "RENDERED":
        scene_lit = shading.use_scene_lights_render or shading.use_scene_world_render \
            or scene.render.engine == "BLENDER_WORKBENCH"
    elif shading.type == "MATERIAL":
        scene_lit = shading.use_scene_lights or shading.use_scene_world
    else:
        return STANDARD._replace(display=display)
    if scene_lit:
        return render_view(scene)
    return View(display, settings.view_transform, settings.look, 0.0, 1.0)


def render_view(scene):
    """The view the render's saved frames go through."""
    settings = scene.view_settings
    return View(scene.display_settings.display_device, settings.view_transform, settings.look, settings.exposure,
                settings.gamma)


def _config_path():
    """Blender's colour configuration: $OCIO's when it names a file, else the one Blender ships."""
    chosen = os.environ.get("OCIO")
    if chosen and os.path.isfile(chosen):
        return chosen
    import bpy
    return os.path.join(bpy.utils.system_resource("DATAFILES", path="colormanagement"), "config.ocio")


def _processor(view):
    """The OpenColorIO processor for `view`, built as Blender builds its display processor:
    exposure in scene-linear light, the look, the display's view, then gamma. None without
    OpenColorIO's module."""
    if view in _processors:
        return _processors[view]
    try:
        import PyOpenColorIO as ocio
    except ImportError:
        return None
    config = ocio.Config.CreateFromFile(_config_path())
    group = ocio.GroupTransform()
    source = ocio.ROLE_SCENE_LINEAR
    if view.exposure != 0.0:
        scale = 2.0 ** view.exposure
        group.appendTransform(ocio.MatrixTransform([scale, 0, 0, 0, 0, scale, 0, 0, 0, 0, scale, 0, 0, 0, 0, 1]))
    use_look = view.look not in ("", "None") and config.getLook(view.look) is not None
    if use_look:
        result = config.getLook(view.look).getProcessSpace()
        group.appendTransform(ocio.LookTransform(src=source, dst=result, looks=view.look))
        source = result
    group.appendTransform(ocio.DisplayViewTransform(src=source, display=view.display, view=view.view,
                                                    looksBypass=use_look))
    if view.gamma != 1.0:
        exponent = 1.0 / max(view.gamma, np.finfo(np.float32).eps)
        group.appendTransform(ocio.ExponentTransform([exponent, exponent, exponent, 1.0]))
    _processors[view] = config.getProcessor(group).getDefaultCPUProcessor()
    return _processors[view]


def srgb_levels(linear):
    """The sRGB curve ("Standard"): display levels of linear values, in place; 0..1 in, 0..1 out."""
    np.clip(linear, 0.0, 1.0, out=linear)
    low = linear <= 0.0031308
    curved = 1.055 * np.power(linear, 1.0 / 2.4) - 0.055
    linear *= 12.92
    np.copyto(linear, curved, where=~low)
    return linear


def to_display(rgba, view):
    """`rgba` (H x W x 4 float32, scene-linear) as `view` shows it: display levels 0..1 in a new
    array, alpha kept. Problems of the colour configuration (a view it does not have) raise."""
    shown = np.ascontiguousarray(rgba, np.float32).copy()
    processor = _processor(view)
    if processor is not None:
        processor.applyRGBA(shown)
        np.clip(shown[:, :, :3], 0.0, 1.0, out=shown[:, :, :3])
        return shown
    if view.view != "Standard" and view not in _reported:
        from .frame_flares import report
        report("the viewport shows the flare through the sRGB curve, not %r: OpenColorIO's Python module "
               "(python3-pyopencolorio) is not installed" % view.view)
        _reported.add(view)
    colour = shown[:, :, :3]
    if view.exposure != 0.0:
        colour *= 2.0 ** view.exposure
    srgb_levels(colour)
    if view.gamma != 1.0:
        np.power(colour, 1.0 / max(view.gamma, np.finfo(np.float32).eps), out=colour)
    return shown
