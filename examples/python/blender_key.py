# SPDX-License-Identifier: BSD-3-Clause
"""A Blender add-on: Image Editor > Image > Key with Orvanite. Keys the picture that is shown, of a
sequence the frame that is shown, into a new picture with its matte in alpha, straight."""
import bpy
import numpy as np
import orvanite

bl_info = {"name": "Orvanite", "blender": (3, 0, 0), "category": "Image",
           "location": "Image Editor > Image", "description": "Keys a blue or green screen"}


class ORVANITE_OT_key(bpy.types.Operator):
    bl_idname, bl_label, bl_options = "image.orvanite_key", "Key with Orvanite", {"REGISTER", "UNDO"}
    screen_range: bpy.props.FloatProperty(name="Screen range", min=0, max=0.5)
    find_screen: bpy.props.BoolProperty(name="Find the screen", default=True)

    @classmethod
    def poll(cls, context):
        return getattr(context.space_data, "image", None) is not None

    def execute(self, context):
        image = context.space_data.image
        width, height = image.size
        pixels = np.empty(width * height * 4, np.float32)
        image.pixels.foreach_get(pixels)
        try:
            keyed = orvanite.key(pixels.reshape(height, width, 4), auto=self.find_screen,
                                 output="unpremultiplied", screen_range=self.screen_range)
        except (orvanite.Failure, orvanite.WrongUse, MemoryError) as problem:
            self.report({"ERROR"}, str(problem))
            return {"CANCELLED"}
        made = bpy.data.images.new(image.name + " keyed", width, height, alpha=True, float_buffer=True)
        made.alpha_mode = "STRAIGHT"
        made.pixels.foreach_set(keyed.ravel())
        context.space_data.image = made
        return {"FINISHED"}


def draw(menu, context):
    menu.layout.operator(ORVANITE_OT_key.bl_idname)


def register():
    bpy.utils.register_class(ORVANITE_OT_key)
    bpy.types.IMAGE_MT_image.append(draw)


def unregister():
    bpy.types.IMAGE_MT_image.remove(draw)
    bpy.utils.unregister_class(ORVANITE_OT_key)
