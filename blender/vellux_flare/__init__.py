"""Vellux flare: lens flares for the lights of a scene, painted onto every rendered frame.

Each light gets a "Vellux flare" panel (Light properties). While a still or an animation renders,
every enabled light's flare is painted at the light's position seen through the scene camera,
dimmed by what hides the light, and put over the render in the compositor (added in scene-linear
light, or on sRGB levels under the scene's blend), so the saved frames and File Output nodes
carry it. When the 3D viewport looks through the scene camera, the flares are drawn over it too,
painted by the same code at a smaller size ("Show in viewport" turns them off).

The flare comes from the vellux Python module: installed (site-packages, PYTHONPATH), or bundled
with the add-on in its engine/ folder (the zip the build makes).
"""

bl_info = {
    "name": "Vellux flare",
    "author": "Vellux",
    "version": (0, 1, 0),
    "blender": (3, 4, 0),
    "location": "Properties > Light > Vellux flare",
    "description": "Table-driven lens flares for lights, painted onto rendered frames",
    "category": "Render",
}

from . import engine_path  # noqa: E402  (makes the vellux module importable)
from . import frame_flares, panel, properties, viewport_draw  # noqa: E402


def register():
    properties.register()
    panel.register()
    frame_flares.register()
    viewport_draw.register()


def unregister():
    viewport_draw.unregister()
    frame_flares.unregister()
    panel.unregister()
    properties.unregister()
