"""A light as the flare sees it on a rendered frame: where it is in pixels, how big its disc is,
its colour and strength, and how much of it the scene hides from the camera."""

import math

from bpy_extras.object_utils import world_to_camera_view
from mathutils import Vector

# A sun is infinitely far: it is placed this far from the camera along its direction.
SUN_DISTANCE = 1.0e5
# Rays cast over the light's disc for occlusion: enough that a light sliding behind an edge fades
# in steps of about 3%.
OCCLUSION_RAYS = 32
GOLDEN_ANGLE = math.pi * (3.0 - math.sqrt(5.0))


def frame_size(scene):
    """The rendered frame's width and height in pixels."""
    render = scene.render
    scale = render.resolution_percentage / 100.0
    return max(1, round(render.resolution_x * scale)), max(1, round(render.resolution_y * scale))


def pixel_aspect(scene):
    """The width of the frame's pixels over their height."""
    return scene.render.pixel_aspect_x / scene.render.pixel_aspect_y


def centre(light, camera):
    """The light's position in the world; a sun's stands far off in the direction it shines from."""
    if light.data.type == "SUN":
        towards_sun = light.matrix_world.to_quaternion() @ Vector((0.0, 0.0, 1.0))
        return camera.matrix_world.translation + towards_sun * SUN_DISTANCE
    return light.matrix_world.translation.copy()


def disc_radius(light):
    """The radius of the light's disc in the world (its soft-shadow size)."""
    data = light.data
    if data.type == "SUN":
        return SUN_DISTANCE * math.tan(data.angle / 2.0)
    if data.type == "AREA":
        return max(data.size, data.size_y if data.shape in {"RECTANGLE", "ELLIPSE"} else data.size) / 2.0
    return data.shadow_soft_size


def on_frame(scene, camera, light, size=None):
    """(x, y, radius) in pixels from the frame's top-left, or None when the light is behind the
    camera. A light outside the frame still has a place: the flare shows what it shows of it.
    `size`: the (width, height) the frame is painted at, the render's own by default."""
    width, height = size or frame_size(scene)
    point = centre(light, camera)
    seen = world_to_camera_view(scene, camera, point)
    if seen.z <= 0.0:
        return None
    up = camera.matrix_world.to_quaternion() @ Vector((0.0, 1.0, 0.0))
    edge = world_to_camera_view(scene, camera, point + up * disc_radius(light))
    return seen.x * width, (1.0 - seen.y) * height, abs(edge.y - seen.y) * height


def _srgb(linear):
    linear = min(max(linear, 0.0), 1.0)
    return linear * 12.92 if linear <= 0.0031308 else 1.055 * linear ** (1.0 / 2.4) - 0.055


def color(light, settings):
    """The flare's light colour, 0..255: the settings' own, or the light's hue at full brightness."""
    if settings.override_color:
        return tuple(round(c * 255) for c in settings.color)
    rgb = list(light.data.color)
    brightest = max(rgb)
    if brightest <= 0.0:
        return (0, 0, 0)
    return tuple(round(_srgb(c / brightest) * 255) for c in rgb)


def _spot_factor(light, camera):
    """How much of a spot light's cone faces the camera: 1 inside, 0 outside, smooth over the blend."""
    data = light.data
    if data.type != "SPOT":
        return 1.0
    axis = light.matrix_world.to_quaternion() @ Vector((0.0, 0.0, -1.0))
    to_camera = camera.matrix_world.translation - light.matrix_world.translation
    if to_camera.length == 0.0:
        return 1.0
    angle = axis.angle(to_camera)
    outer = data.spot_size / 2.0
    inner = outer * (1.0 - data.spot_blend)
    if angle >= outer:
        return 0.0
    if angle <= inner:
        return 1.0
    t = (outer - angle) / (outer - inner)
    return t * t * (3.0 - 2.0 * t)


def strength(light, camera, settings):
    """The flare's light intensity: the settings' own, or the light's power (1 for 1000 W; a sun's
    strength as it is), a spot's only where its cone faces the camera."""
    if settings.override_intensity:
        base = settings.light_intensity
    elif light.data.type == "SUN":
        base = light.data.energy
    else:
        base = light.data.energy / 1000.0
    return max(0.0, base) * _spot_factor(light, camera)


def disc_points(point, towards, radius, count=OCCLUSION_RAYS):
    """Points spread evenly over the disc of `radius` around `point`, facing along `towards`."""
    if radius <= 0.0:
        return [point]
    normal = towards.normalized()
    across = normal.orthogonal().normalized()
    other = normal.cross(across)
    points = []
    for i in range(count):
        r = radius * math.sqrt((i + 0.5) / count)
        angle = i * GOLDEN_ANGLE
        points.append(point + across * (r * math.cos(angle)) + other * (r * math.sin(angle)))
    return points


def visible_fraction(scene, depsgraph, camera, light):
    """The part of the light's disc that no geometry hides from the camera, 0..1: a ray from the
    camera to each of the disc's points either reaches it or hits something first."""
    eye = camera.matrix_world.translation
    point = centre(light, camera)
    points = disc_points(point, point - eye, disc_radius(light))
    seen = 0
    for target in points:
        ray = target - eye
        distance = ray.length
        if distance == 0.0:
            seen += 1
            continue
        hit = scene.ray_cast(depsgraph, eye, ray / distance, distance=distance * (1.0 - 1.0e-6))[0]
        seen += 0 if hit else 1
    return seen / len(points)
