"""The flare's settings, stored with each light (bpy.types.Light.vellux_flare) and so saved with
the .blend and keyable like any other property. Each is the vellux module's setting of the same
name (the vellux tool's, underscores for dashes), labelled with that name in words, in its unit."""

import bpy
from bpy.app.handlers import persistent
from bpy.props import (BoolProperty, EnumProperty, FloatProperty, FloatVectorProperty, IntProperty, PointerProperty,
                       StringProperty)

# The module's settings, as the add-on passes them to vellux.Flare each frame.
NUMBERS = ("flare_intensity", "dissolve", "anamorphic_factor", "ring_size", "star_rotation", "star_filter",
           "streak_density", "streak_intensity", "streak_sharpness")
SWITCHES = ("glow", "glow_in_light_color", "halo", "reflections", "anamorphic", "anamorphic_streak",
            "random_streaks", "streaks_off_frame", "follow_light_size")
# The module's settings a light does not carry, and why.
LEFT_OUT = {"wireframe_preview": "it shapes only the settings dialog's preview, which Blender never opens"}
# Settings saved under other names by earlier versions of the add-on, and their names now.
RENAMED = {"intensity": "flare_intensity"}


# The lenses whose own flare a light may paint instead of its table's: the ones the engine ships
# (lenses/). Numbered, so a saved choice survives new ones.
LENSES = (("NONE", "None", "The flare table's look", 0),
          ("double-gauss-50mm", "Double Gauss 50 mm", "A fast standard lens: six elements around the stop", 1),
          ("wide-angle-22mm", "Wide angle 22 mm", "A retrofocus wide angle", 2),
          ("fisheye-10mm", "Fisheye 10 mm", "A fisheye's many strongly curved surfaces", 3),
          ("vintage-58mm", "Vintage 58 mm", "An older, less coated standard lens", 4))


def _changed(self, context):
    """A setting changed: the light's evaluated copy (what the viewport paints from) takes it up at
    the next update, and the viewports draw again."""
    from . import viewport_draw
    self.id_data.update_tag()
    viewport_draw.redraw_views()


def _compositor_follows(self, context):
    from . import compositor
    _changed(self, context)
    if self.enabled and context.scene is not None:
        compositor.ensure(context.scene)


class VelluxFlareSettings(bpy.types.PropertyGroup):
    enabled: BoolProperty(name="Flare", description="Paint this light's lens flare onto rendered frames",
                          default=False, update=_compositor_follows)
    table: StringProperty(name="Flare table", description="A flare table's name (LongZoom) or .rsc file; empty: "
                          "the default table", default="", update=_changed)
    # The light this flare is of: its colour and strength follow the light unless overridden.
    override_color: BoolProperty(name="Own colour", description="Use the colour below, not the light's", default=False,
                                 update=_changed)
    color: FloatVectorProperty(name="Color", subtype="COLOR_GAMMA", size=3, min=0.0, max=1.0, default=(1.0, 1.0, 1.0),
                               update=_changed)
    override_intensity: BoolProperty(name="Own intensity", description="Use the intensity below, not the light's power "
                                     "(1 for 1000 W, or a sun of strength 1)", default=False, update=_changed)
    light_intensity: FloatProperty(name="Light intensity", min=0.0, soft_max=4.0, default=1.0, update=_changed)
    lens: EnumProperty(name="Lens", description="Paint this lens's own flare (its diffraction starburst and its "
                       "ghosts) instead of the flare table's look", items=LENSES, default="NONE", update=_changed)
    f_number: FloatProperty(name="F-number", description="With a lens: its aperture, no wider than the lens opens",
                            min=1.0, soft_max=22.0, default=8.0, update=_changed)
    follow_camera_f_stop: BoolProperty(name="Camera's f-stop", description="With a lens: the f-number is the scene "
                                       "camera's depth-of-field f-stop", default=False, update=_changed)
    occlusion: BoolProperty(name="Occlusion", description="Dim the flare by the part of the light's disc that scene "
                            "geometry hides from the camera", default=True, update=_changed)
    # The flare's own settings.
    flare_intensity: FloatProperty(name="Flare intensity", description="Overall flare intensity", min=0.0,
                                   soft_max=2.0, default=0.5, update=_changed)
    dissolve: FloatProperty(name="Dissolve", description="Fade the flare out, 0 to 1", min=0.0, max=1.0, default=0.0,
                            update=_changed)
    anamorphic_factor: FloatProperty(name="Anamorphic factor", description="How far Anamorphic stretches rings and "
                                     "streaks", min=0.01, soft_max=4.0, default=1.77, update=_changed)
    ring_size: FloatProperty(name="Ring size", description="Halo size in flare units", min=0.001, soft_max=1.0,
                             default=0.22, update=_changed)
    ring_color: FloatVectorProperty(name="Ring color", description="Ring colour", subtype="COLOR_GAMMA", size=3,
                                    min=0.0, max=1.0, default=(80 / 255, 20 / 255, 10 / 255), update=_changed)
    star_rotation: FloatProperty(name="Star rotation", description="Star filter rotation in degrees", soft_min=0.0,
                                 soft_max=360.0, default=0.0, update=_changed)
    star_filter: IntProperty(name="Star filter", description="Star filter, 0 = none; 1 to 9 points, 10 five major "
                             "and five minor", min=0, max=10, default=0, update=_changed)
    streak_density: FloatProperty(name="Streak density", description="Density of the streaks", min=0.0,
                                  soft_max=200.0, default=50.0, update=_changed)
    streak_intensity: FloatProperty(name="Streak intensity", description="Streak intensity", min=0.0, soft_max=0.3,
                                    default=0.03, precision=3, update=_changed)
    streak_sharpness: FloatProperty(name="Streak sharpness", description="Streak sharpness", min=0.0, soft_max=30.0,
                                    default=6.0, update=_changed)
    glow: BoolProperty(name="Glow", description="Glow elements shown", default=True, update=_changed)
    glow_in_light_color: BoolProperty(name="Glow in light color", description="Glow in the light's colour instead "
                                      "of white", default=True, update=_changed)
    halo: BoolProperty(name="Halo", description="Halo shown", default=True, update=_changed)
    reflections: BoolProperty(name="Reflections", description="Reflections shown", default=True, update=_changed)
    anamorphic: BoolProperty(name="Anamorphic", description="Stretch rings and streaks by the anamorphic factor",
                             default=False, update=_changed)
    anamorphic_streak: BoolProperty(name="Anamorphic streak", description="Add the horizontal anamorphic streak",
                                    default=False, update=_changed)
    random_streaks: BoolProperty(name="Random streaks", description="The random spray of streaks", default=True,
                                 update=_changed)
    streaks_off_frame: BoolProperty(name="Streaks off frame", description="Streaks even when the light is off the "
                                    "frame", default=True, update=_changed)
    follow_light_size: BoolProperty(name="Follow light size", description="Size the glow by the light's radius",
                                    default=False, update=_changed)

    def flare_settings(self):
        """The settings as vellux.Flare takes them."""
        settings = {name: getattr(self, name) for name in NUMBERS + SWITCHES}
        settings["star_filter"] = int(self.star_filter)
        settings["ring_color"] = tuple(round(c * 255) for c in self.ring_color)
        return settings

    def lens_look(self, camera):
        """The lens look's arguments for vellux.Flare, empty for the table's look: the lens and its
        f-number, the camera object's f-stop when it is followed."""
        if self.lens == "NONE":
            return {}
        f_number = camera.data.dof.aperture_fstop if self.follow_camera_f_stop else self.f_number
        return {"lens": self.lens, "f_number": float(f_number)}


def _views_follow(self, context):
    from . import viewport_draw
    viewport_draw.redraw_views()


def _blend_follows(self, context):
    from . import compositor
    compositor.follow_blend(self.id_data)


class VelluxSceneSettings(bpy.types.PropertyGroup):
    # One blend for the scene, not one a light: the lights' flares are summed into one image that
    # the compositor puts over the render once. Numbered, so a saved choice survives new ones.
    blend: EnumProperty(name="Blend", description="How the flares go over the render", items=(
        ("ADD", "Add (linear light)", "Render and flare added in scene-linear light, as light adds", 0),
        ("DISPLAY", "Display (as on a PNG)", "The flare's sRGB levels added to the render's, as the flare "
         "is painted onto an 8-bit picture", 1),
        ("SCREEN", "Screen", "1 - (1 - render)(1 - flare) on sRGB levels: highlights do not burn out", 2)),
        default="ADD", update=_blend_follows)
    write_flare_pass: BoolProperty(name="Write flare pass", description="Also write the flares alone, as EXR "
                                   "frames, for compositing elsewhere", default=False)
    flare_pass_path: StringProperty(name="Flare pass", subtype="DIR_PATH", default="//flare_pass/")
    viewport_flare: BoolProperty(name="Show in viewport", description="Draw the flares over the 3D viewport when "
                                 "it looks through the scene camera", default=True, update=_views_follow)


CLASSES = (VelluxFlareSettings, VelluxSceneSettings)


@persistent
def settings_by_their_names(_=None):
    """Lights saved by an earlier version of the add-on keep their flares: a setting's value and
    keys under its old name move to its name now."""
    for light in bpy.data.lights:
        flare = light.vellux_flare
        for old, new in RENAMED.items():
            if old in flare.keys():
                setattr(flare, new, flare[old])
                del flare[old]
        action = light.animation_data.action if light.animation_data else None
        for curve in action.fcurves if action else ():
            for old, new in RENAMED.items():
                if curve.data_path == "vellux_flare." + old:
                    curve.data_path = "vellux_flare." + new


def register():
    for cls in CLASSES:
        bpy.utils.register_class(cls)
    bpy.types.Light.vellux_flare = PointerProperty(type=VelluxFlareSettings)
    bpy.types.Scene.vellux = PointerProperty(type=VelluxSceneSettings)
    bpy.app.handlers.load_post.append(settings_by_their_names)


def unregister():
    if settings_by_their_names in bpy.app.handlers.load_post:
        bpy.app.handlers.load_post.remove(settings_by_their_names)
    del bpy.types.Scene.vellux
    del bpy.types.Light.vellux_flare
    for cls in reversed(CLASSES):
        bpy.utils.unregister_class(cls)
