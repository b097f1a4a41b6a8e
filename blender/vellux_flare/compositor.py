"""The compositor nodes the add-on keeps: an image of the frame's flares, added to the render
layers' image before everything that used it (Composite, Viewer, File Output), and optionally a
File Output node writing the flares alone."""

import bpy

IMAGE = "Vellux Flare"          # the image holding this frame's flares (scene-linear, float)
IMAGE_NODE = "Vellux Flare"
ADD_NODE = "Vellux Add"
PASS_NODE = "Vellux Flare Pass"


def flare_image(width, height):
    """The flare image, made or resized to the frame."""
    image = bpy.data.images.get(IMAGE)
    if image is None:
        image = bpy.data.images.new(IMAGE, width, height, alpha=True, float_buffer=True)
        image.colorspace_settings.name = "Linear"
    elif tuple(image.size) != (width, height):
        image.scale(width, height)
    return image


def set_flares(pixels):
    """Put this frame's flares (H x W x 4 float32 in C order, bottom row first) into the flare image."""
    height, width = pixels.shape[:2]
    image = flare_image(width, height)
    image.pixels.foreach_set(pixels.ravel())   # marks the image changed: the compositor reads it anew


def _render_layers(tree):
    for node in tree.nodes:
        if node.type == "R_LAYERS":
            return node
    return tree.nodes.new("CompositorNodeRLayers")


def _add_node(tree, layers):
    add = tree.nodes.get(ADD_NODE)
    if add is not None:
        return add
    add = tree.nodes.new("CompositorNodeMixRGB")
    add.name = add.label = ADD_NODE
    add.blend_type = "ADD"
    add.inputs[0].default_value = 1.0
    add.location = (layers.location.x + 300, layers.location.y - 200)
    for link in list(layers.outputs["Image"].links):   # whatever used the render now gets it with flares
        target = link.to_socket
        tree.links.remove(link)
        tree.links.new(add.outputs[0], target)
    tree.links.new(layers.outputs["Image"], add.inputs[1])
    if not any(node.type == "COMPOSITE" for node in tree.nodes):
        composite = tree.nodes.new("CompositorNodeComposite")
        composite.location = (add.location.x + 250, add.location.y)
        tree.links.new(add.outputs[0], composite.inputs["Image"])
    return add


def _pass_node(tree, scene, source):
    node = tree.nodes.get(PASS_NODE)
    if not scene.vellux.write_flare_pass:
        if node is not None:
            tree.nodes.remove(node)
        return
    if node is None:
        node = tree.nodes.new("CompositorNodeOutputFile")
        node.name = node.label = PASS_NODE
        node.location = (source.location.x + 300, source.location.y - 250)
        node.format.file_format = "OPEN_EXR"
        node.format.color_depth = "16"
        node.file_slots[0].path = "flare_"
        tree.links.new(source.outputs["Image"], node.inputs[0])
    node.base_path = scene.vellux.flare_pass_path


def ensure(scene):
    """Make the nodes (once; later calls keep the user's own changes) and turn the compositor on."""
    from . import projection
    scene.use_nodes = True
    scene.render.use_compositing = True
    tree = scene.node_tree
    layers = _render_layers(tree)
    add = _add_node(tree, layers)
    source = tree.nodes.get(IMAGE_NODE)
    if source is None:
        source = tree.nodes.new("CompositorNodeImage")
        source.name = source.label = IMAGE_NODE
        source.location = (layers.location.x, layers.location.y - 350)
        tree.links.new(source.outputs["Image"], add.inputs[2])
    source.image = flare_image(*projection.frame_size(scene))
    _pass_node(tree, scene, source)
