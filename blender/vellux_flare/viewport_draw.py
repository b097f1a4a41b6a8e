"""Drawing the flares over the 3D viewport's camera view.

A draw handler of every 3D viewport (after its picture, in region pixels) draws the region's
preview (viewport.Preview) as a texture stretched over the camera frame, added to what the
viewport shows. The preview is display-referred (view_transform); the viewport adds what is drawn
over its picture in linear light (framebuffer_values), so under "Standard" the flare is added as
the render's "Add (linear light)" blend adds it, and under "Filmic" to the picture's display
levels decoded, which is close. Under the "Display" and "Screen" blends a flare over a bright part
of the picture shows a little dimmer than it renders.

Shown only when the view looks through the scene camera, with "Show in viewport" (scene.vellux)
on. Problems go to the console and the view is drawn without the flare: drawing never fails
because of a flare."""

import bpy
import gpu
import numpy as np
from bpy.app.handlers import persistent
from gpu_extras.batch import batch_for_shader

from . import frame_flares, projection, view_transform, viewport

_previews = {}    # region (its address) -> viewport.Preview
_textures = {}    # region (its address) -> (the Preview.shown it was made from, gpu.types.GPUTexture)
_reported = set()  # messages of drawing problems already on the console
_handle = None


def _image_shader():
    for name in ("IMAGE", "2D_IMAGE"):   # Blender 3.4 and later name it IMAGE
        try:
            return gpu.shader.from_builtin(name)
        except (ValueError, SystemError):
            continue
    raise RuntimeError("Blender has no image shader")


# Display levels 0..1 decoded to linear, in steps of 1/4096: finer than the 8-bit sRGB the viewport
# keeps them in, and three times as fast as the curve worked out per pixel.
_LEVELS = np.linspace(0.0, 1.0, 4097)
_DECODED = np.where(_LEVELS <= 0.04045, _LEVELS / 12.92, ((_LEVELS + 0.055) / 1.055) ** 2.4).astype(np.float32)


def framebuffer_values(shown):
    """The values to draw for display levels `shown` (0..1): the viewport keeps what is drawn over
    its picture sRGB-encoded and blends in linear light, so a drawn value is taken as linear and
    encoded. Drawn decoded, a flare is added to the picture's decoded levels; under "Standard"
    that is the scene-linear sum the render's "Add (linear light)" makes."""
    values = np.empty_like(shown)
    steps = np.multiply(shown[:, :, :3], 4096.0)
    steps += 0.5
    np.take(_DECODED, steps.astype(np.intp), out=values[:, :, :3])
    values[:, :, 3] = shown[:, :, 3]
    return values


def _texture(key, shown):
    """The region's texture of `shown`, made again only when `shown` is a new array."""
    made = _textures.get(key)
    if made is not None and made[0] is shown:
        return made[1]
    height, width = shown.shape[:2]
    buffer = gpu.types.Buffer("FLOAT", width * height * 4, framebuffer_values(shown).ravel())
    texture = gpu.types.GPUTexture((width, height), format="RGBA16F", data=buffer)
    _textures[key] = (shown, texture)
    return texture


def _draw_texture(texture, rect):
    x0, y0, x1, y1 = rect
    shader = _image_shader()
    batch = batch_for_shader(shader, "TRI_FAN", {"pos": ((x0, y0), (x1, y0), (x1, y1), (x0, y1)),
                                                 "texCoord": ((0, 0), (1, 0), (1, 1), (0, 1))})
    gpu.state.blend_set("ADDITIVE")
    try:
        shader.bind()
        shader.uniform_sampler("image", texture)
        batch.draw(shader)
    finally:
        gpu.state.blend_set("NONE")


def _looks_through_scene_camera(context):
    space, region_3d, scene = context.space_data, context.region_data, context.scene
    if region_3d is None or region_3d.view_perspective != "CAMERA" or scene.camera is None:
        return False
    return not space.use_local_camera or space.camera == scene.camera


def draw_flares(context):
    """Draw the region's preview over its camera frame, brought up to date first."""
    scene = context.scene
    if not viewport.flares_on(scene) or not _looks_through_scene_camera(context):
        return
    depsgraph = context.evaluated_depsgraph_get()
    camera = scene.camera.evaluated_get(depsgraph)
    rect = viewport.camera_frame_rect(scene, camera, context.region, context.region_data)
    if rect is None:
        return
    key = context.region.as_pointer()
    preview = _previews.setdefault(key, viewport.Preview())
    size = viewport.preview_size(rect[2] - rect[0], projection.frame_size(scene))
    viewport.update(preview, scene, depsgraph, size, view_transform.viewport_view(scene, context.space_data.shading))
    if preview.images:
        _draw_texture(_texture(key, preview.shown), rect)


def _draw():
    try:
        draw_flares(bpy.context)
    except Exception as error:   # never into Blender's drawing
        message = "viewport: %s" % error
        if message not in _reported:
            _reported.add(message)
            frame_flares.report(message)


def redraw_views():
    """Ask every 3D viewport to draw again."""
    for window in getattr(bpy.context.window_manager, "windows", ()):
        for area in window.screen.areas:
            if area.type == "VIEW_3D":
                area.tag_redraw()


@persistent
def _changed(scene, depsgraph=None):
    if depsgraph is not None and depsgraph.mode == "RENDER":
        return
    viewport.mark_stale()


@persistent
def _loaded(*_):
    forget()


def forget():
    """Drop every region's preview and texture (a new file, or the add-on turned off)."""
    _previews.clear()
    _textures.clear()
    _reported.clear()


def _overlay_switch(self, context):
    if context.scene is not None and hasattr(context.scene, "vellux"):
        self.layout.prop(context.scene.vellux, "viewport_flare", text="Vellux flare")


def register():
    global _handle
    _handle = bpy.types.SpaceView3D.draw_handler_add(_draw, (), "WINDOW", "POST_PIXEL")
    bpy.app.handlers.depsgraph_update_post.append(_changed)
    bpy.app.handlers.frame_change_post.append(_changed)
    bpy.app.handlers.load_post.append(_loaded)
    bpy.types.VIEW3D_PT_overlay.append(_overlay_switch)


def unregister():
    global _handle
    bpy.types.VIEW3D_PT_overlay.remove(_overlay_switch)
    bpy.app.handlers.load_post.remove(_loaded)
    bpy.app.handlers.frame_change_post.remove(_changed)
    bpy.app.handlers.depsgraph_update_post.remove(_changed)
    bpy.types.SpaceView3D.draw_handler_remove(_handle, "WINDOW")
    _handle = None
    forget()
