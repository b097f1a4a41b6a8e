"""The "Vellux flare" panel in a light's properties."""

import bpy

from . import properties


class VELLUX_PT_light_flare(bpy.types.Panel):
    bl_label = "Vellux flare"
    bl_space_type = "PROPERTIES"
    bl_region_type = "WINDOW"
    bl_context = "data"

    @classmethod
    def poll(cls, context):
        return context.light is not None

    def draw_header(self, context):
        self.layout.prop(context.light.vellux_flare, "enabled", text="")

    def draw(self, context):
        flare = context.light.vellux_flare
        layout = self.layout
        layout.use_property_split = True
        layout.active = flare.enabled
        layout.prop(flare, "lens")
        if flare.lens == "NONE":
            layout.prop(flare, "table")
        else:
            layout.prop(flare, "follow_camera_f_stop")
            row = layout.row()
            row.active = not flare.follow_camera_f_stop
            row.prop(flare, "f_number")
        column = layout.column(heading="Light")
        column.prop(flare, "override_color")
        row = column.row()
        row.active = flare.override_color
        row.prop(flare, "color")
        column.prop(flare, "override_intensity")
        row = column.row()
        row.active = flare.override_intensity
        row.prop(flare, "light_intensity")
        column.prop(flare, "occlusion")
        column = layout.column(heading="Flare")
        for name in properties.NUMBERS + ("ring_color",):
            column.prop(flare, name)
        column = layout.column(heading="Show")
        for name in properties.SWITCHES:
            column.prop(flare, name)
        scene = context.scene.vellux
        layout.prop(scene, "blend")
        layout.prop(scene, "viewport_flare")
        layout.prop(scene, "write_flare_pass")
        if scene.write_flare_pass:
            layout.prop(scene, "flare_pass_path")


def register():
    bpy.utils.register_class(VELLUX_PT_light_flare)


def unregister():
    bpy.utils.unregister_class(VELLUX_PT_light_flare)
