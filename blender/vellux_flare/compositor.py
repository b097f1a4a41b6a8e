"""The compositor nodes the add-on keeps: an image of the frame's flares, added to the render
layers' image before everything that used it (Composite, Viewer, File Output), and optionally a
File Output node writing the flares alone.

How the flares go over the render is the scene's blend (scene.vellux.blend):

    ADD      the flare image straight into "Vellux Add": render + flare, both scene-linear.
    DISPLAY  the flare's sRGB levels added to the render's sRGB levels;
    SCREEN   1 - (1 - render)(1 - flare) on sRGB levels. Both through the "Vellux Blend" nodes:

        render -> clamp to [0, 1] -> sRGB ---------------------------> linear --.
                                       \                                        - (subtract) -> Vellux Add
        flare --------------> sRGB ---- Mix ADD or SCREEN -> linear -----------'      (its colour)
        flare's alpha > 0 -------------------------------------------------------------> Vellux Add
                                                                                          (its factor)
    so "Vellux Add" adds to the render what the blend adds to it below white. Where the render
    is brighter than white it keeps its value and gains what the flare adds to white (nothing,
    under SCREEN): a highlight of 40 stays 40 and a little more, as the engine blends float plates.
    A pixel the flare misses (its alpha, the brightest channel, is 0) gains exactly nothing: the
    sRGB tables' interpolation turns a flare of 0 into a level a hair above 0. The conversions are
    the colour configuration's sRGB tables, which reach sRGB levels of 4.875 (linear 40.5): a flare
    and a plate together brighter than that are cut there.
"""

import bpy

IMAGE = "Vellux Flare"          # the image holding this frame's flares (scene-linear, float)
IMAGE_NODE = "Vellux Flare"
ADD_NODE = "Vellux Add"
PASS_NODE = "Vellux Flare Pass"
BLEND_NODE = "Vellux Blend"     # the display-level blend's mix; its other nodes' names start with it
BLEND_PARTS = ("", " Plate", " Plate sRGB", " Flare sRGB", " Plate Linear", " Linear", " Gain", " Reach")
BLENDS = {"ADD": None, "DISPLAY": "ADD", "SCREEN": "SCREEN"}   # the scene's blend: the mix's blend_type
LINEAR, DISPLAY = "Linear", "sRGB"   # the colour configuration's scene-linear and sRGB spaces


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


def _blend_nodes(tree):
    return [node for node in tree.nodes if node.name.startswith(BLEND_NODE)]


def _built_blend(tree):
    """The blend the nodes are made for: ADD without blend nodes, None when some are missing."""
    names = {node.name for node in _blend_nodes(tree)}
    if not names:
        return "ADD"
    if names != {BLEND_NODE + part for part in BLEND_PARTS}:
        return None
    mix = tree.nodes[BLEND_NODE]
    return next((name for name, mode in BLENDS.items() if mode == mix.blend_type), None)


def _new(tree, kind, name, location, **settings):
    node = tree.nodes.new(kind)
    node.name = node.label = name
    node.location = location
    for key, value in settings.items():
        setattr(node, key, value)
    return node


def _build_blend(tree, mode, plate, source, add):
    """The nodes blending the flare image node `source` over `plate` (an output, linear) on sRGB
    levels under `mode`'s Mix, into the increment `add` adds to the plate where the flare is."""
    x, y = source.location.x + 300, source.location.y - 250   # below the flare image and the add
    link = tree.links.new

    def mix(part, blend_type, location, fac=1.0, clamp=False):
        node = _new(tree, "CompositorNodeMixRGB", BLEND_NODE + part, location, blend_type=blend_type, use_clamp=clamp)
        node.inputs[0].default_value = fac
        return node

    def convert(part, source, target, location):
        return _new(tree, "CompositorNodeConvertColorSpace", BLEND_NODE + part, location, from_color_space=source,
                    to_color_space=target)

    # Up to white: the plate's value above it takes no part (MixRGB's clamp is to [0, 1]).
    white = mix(" Plate", "MIX", (x, y), fac=0.0, clamp=True)
    plate_levels = convert(" Plate sRGB", LINEAR, DISPLAY, (x + 200, y))
    flare_levels = convert(" Flare sRGB", LINEAR, DISPLAY, (x + 200, y - 150))
    blended = mix("", mode, (x + 450, y - 75))
    plate_back = convert(" Plate Linear", DISPLAY, LINEAR, (x + 700, y))
    blended_back = convert(" Linear", DISPLAY, LINEAR, (x + 700, y - 150))
    gain = mix(" Gain", "SUBTRACT", (x + 950, y - 75))
    link(plate, white.inputs[1])
    link(white.outputs[0], plate_levels.inputs[0])
    link(source.outputs["Image"], flare_levels.inputs[0])
    link(plate_levels.outputs[0], blended.inputs[1])
    link(flare_levels.outputs[0], blended.inputs[2])
    link(plate_levels.outputs[0], plate_back.inputs[0])
    link(blended.outputs[0], blended_back.inputs[0])
    link(blended_back.outputs[0], gain.inputs[1])
    link(plate_back.outputs[0], gain.inputs[2])
    link(gain.outputs[0], add.inputs[2])
    reach = _new(tree, "CompositorNodeMath", BLEND_NODE + " Reach", (x + 950, y + 100), operation="GREATER_THAN")
    reach.inputs[1].default_value = 0.0
    link(source.outputs["Alpha"], reach.inputs[0])
    link(reach.outputs[0], add.inputs[0])


def scene_blend(scene):
    """The scene's blend; one this add-on does not know (a .blend from a later version) is reported
    and the flares are added in linear light."""
    mode = scene.vellux.blend
    if mode in BLENDS:
        return mode
    from .frame_flares import report
    report("unknown blend %r in scene %s: the flares are added in linear light"
           % (scene.vellux.get("blend"), scene.name))
    return "ADD"


def _blend(tree, scene, source, add, fresh):
    """Makes the nodes match the scene's blend, replacing those of another; `fresh`: the flare image
    node is new and must be linked whatever the blend."""
    mode = scene_blend(scene)
    if _built_blend(tree) == mode and not fresh:
        return
    for node in _blend_nodes(tree):
        tree.nodes.remove(node)
    if BLENDS[mode] is not None:
        plate = add.inputs[1].links[0].from_socket if add.inputs[1].is_linked else _render_layers(tree).outputs["Image"]
        try:
            _build_blend(tree, BLENDS[mode], plate, source, add)
            return
        except (TypeError, ValueError) as error:   # a colour configuration without Linear or sRGB
            from .frame_flares import report
            report("%s: the flares are added in linear light" % error)
            for node in _blend_nodes(tree):
                tree.nodes.remove(node)
    tree.links.new(source.outputs["Image"], add.inputs[2])


def follow_blend(scene):
    """Rebuilds the blend's nodes after the scene's blend changed, if the add-on's nodes are there."""
    if scene.node_tree is not None and scene.node_tree.nodes.get(ADD_NODE) is not None:
        ensure(scene)


def ensure(scene):
    """Make the nodes (once; later calls keep the user's own changes, but for the blend's nodes, made
    anew when the blend changed) and turn the compositor on."""
    from . import projection
    scene.use_nodes = True
    scene.render.use_compositing = True
    tree = scene.node_tree
    layers = _render_layers(tree)
    add = _add_node(tree, layers)
    source = tree.nodes.get(IMAGE_NODE)
    fresh = source is None
    if fresh:
        source = tree.nodes.new("CompositorNodeImage")
        source.name = source.label = IMAGE_NODE
        source.location = (layers.location.x, layers.location.y - 350)
    _blend(tree, scene, source, add, fresh)
    source.image = flare_image(*projection.frame_size(scene))
    _pass_node(tree, scene, source)
