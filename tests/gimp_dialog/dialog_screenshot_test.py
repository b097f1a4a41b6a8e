#!/usr/bin/python3
"""The GIMP plug-in's dialog in the real GIMP, under Xvfb.

GIMP starts with a fresh user folder holding the built plug-in, opens the sample frame and runs
plug-in-vellux-flare interactively (the dialog starts from the defaults: no last values in a fresh
folder). The test waits for the dialog, takes a screenshot, clicks in the preview and takes
another: the flare's hot spot (where the preview got brightest) must be where the click was.

    dialog_screenshot_test.py PLUGIN SAMPLE_FRAME OUTPUT_FOLDER

The screenshots are kept in OUTPUT_FOLDER (dialog-before.png, dialog-after.png).
"""
import os
import shutil
import subprocess
import sys
import tempfile
import time

import numpy as np
from PIL import Image

TITLE = "Vellux Lens Flare"
SCREEN = (1600, 1000)


def fresh_user_folder(root, plugin):
    user = os.path.join(root, "user")
    os.makedirs(os.path.join(user, "plug-ins", "vellux-flare"))
    # the folders GIMP writes into on quitting, so that it has nothing to complain about
    for data in ("brushes", "dynamics", "gradients", "palettes", "patterns", "tool-presets"):
        os.makedirs(os.path.join(user, data))
    shutil.copy(plugin, os.path.join(user, "plug-ins", "vellux-flare", "vellux-flare"))
    return user


def script(frame, result):
    """Opens the frame, runs the plug-in with its dialog, and saves what OK painted as result."""
    return ('(let* ((img (car (gimp-file-load RUN-NONINTERACTIVE "{0}" "{0}")))'
            ' (drw (car (gimp-image-get-active-drawable img))))'
            ' (plug-in-vellux-flare RUN-INTERACTIVE img drw 0 0 (list 255 255 255) 1.0'
            ' "" "" "" "" "" FALSE)'
            ' (file-png-save-defaults RUN-NONINTERACTIVE img drw "{1}" "{1}"))').format(frame, result)


def screenshot(path):
    subprocess.run(["import", "-window", "root", path], check=True)
    return np.asarray(Image.open(path).convert("RGB")).astype(np.int32)


def window_shot(window, path):
    subprocess.run(["import", "-window", window, path], check=True)


def window_geometry(window):
    out = subprocess.run(["xdotool", "getwindowgeometry", "--shell", window], check=True,
                         capture_output=True, text=True).stdout
    values = dict(line.split("=", 1) for line in out.split())
    return int(values["X"]), int(values["Y"]), int(values["WIDTH"]), int(values["HEIGHT"])


def settled_screenshot(path, seconds=30):
    """A screenshot once two in a row agree (the preview and thumbnails drawn)."""
    last = screenshot(path)
    end = time.time() + seconds
    while time.time() < end:
        time.sleep(1.5)
        shot = screenshot(path)
        if np.array_equal(shot, last):
            return shot
        last = shot
    return last


def first_flare(path, geometry, frame, seconds=300):
    """Waits until the preview shows the flare. Before its first painting (seconds in the
    sanitizers' build, where a plug-in busy painting does not redraw, so a still screen says
    nothing) it shows the drawable alone. The flare brightens the preview's middle: the default
    flare on the sample frame by 3 levels in the mean, while GIMP's scaling of the frame to the
    preview differs from the image library's by 0.1."""
    inner = (16, 16, 400, 200)   # within the preview, whose corner lies 14 pixels into the dialog
    x, y = geometry[0] + 14 + inner[0], geometry[1] + 14 + inner[1]
    plain = np.asarray(Image.open(frame).convert("RGB").resize((480, 270)), dtype=np.float64)
    plain = plain[inner[1]:inner[1] + inner[3], inner[0]:inner[0] + inner[2]].mean()
    end = time.time() + seconds
    while time.time() < end:
        shown = screenshot(path)[y:y + inner[3], x:x + inner[2]].mean()
        if shown > plain + 1.5:
            return True
        time.sleep(1.5)
    return False


def changed(path, reference, box, seconds=300):
    """Waits until box (x, y, w, h) of the screen differs from the reference screenshot's."""
    x, y, w, h = box
    end = time.time() + seconds
    while time.time() < end:
        if not np.array_equal(screenshot(path)[y:y + h, x:x + w], reference[y:y + h, x:x + w]):
            return True
        time.sleep(1.5)
    return False


def brightened_centre(before, after, box):
    """Where the picture in box (x, y, w, h) of the screen got brightest: the centroid of the
    pixels that gained at least 90% of the most any pixel gained (the flare's new hot spot)."""
    x, y, w, h = box
    gain = after[y:y + h, x:x + w].sum(axis=2) - before[y:y + h, x:x + w].sum(axis=2)
    if gain.max() <= 0:
        return None
    ys, xs = np.nonzero(gain >= 0.9 * gain.max())
    return x + xs.mean(), y + ys.mean()


def checked_run(frame, result, window, click, shown):
    """OK paints the drawable with the light where the click put it: the painted frame's hot spot,
    at the preview's scale (the sample frame fits 480 pixels at a half), lands on the preview's hot
    spot from a corner at the dialog's top left."""
    subprocess.run(["xdotool", "key", "alt+o"], check=True)
    painted = None
    end = time.time() + 120
    while painted is None and time.time() < end:
        time.sleep(1)
        try:   # read once GIMP has written it whole
            painted = np.asarray(Image.open(result).convert("RGB")).astype(np.int32)
        except OSError:
            pass
    if painted is None:
        print("OK did not lead to the painted image")
        return 1
    plate = np.asarray(Image.open(frame).convert("RGB")).astype(np.int32)
    height, width = plate.shape[:2]
    hot = brightened_centre(plate, painted, (0, 0, width, height))
    origin = (shown[0] - 0.5 * hot[0], shown[1] - 0.5 * hot[1])
    print("painted hot spot %.1f,%.1f; the preview's corner so at %.1f,%.1f (the dialog's at %d,%d)"
          % (hot + origin + window[:2]))
    if not (0 <= origin[0] - window[0] <= 40 and 0 <= origin[1] - window[1] <= 40):
        print("the run's light is not where the preview showed it")
        return 1
    return 0


def inside(plugin, frame, output):
    root = tempfile.mkdtemp(prefix="vellux_gimp_dialog_")
    env = dict(os.environ, GIMP2_DIRECTORY=fresh_user_folder(root, plugin))
    log = open(os.path.join(root, "gimp.log"), "w")
    result = os.path.join(root, "result.png")
    gimp = subprocess.Popen(["gimp", "--no-splash", "-d", "-f", "-b", script(frame, result)], env=env, cwd=root,
                            stdout=log, stderr=subprocess.STDOUT)
    try:
        found = subprocess.run(["timeout", "180", "xdotool", "search", "--sync", "--name", TITLE],
                               capture_output=True, text=True)
        if found.returncode != 0:
            print("the dialog did not open; GIMP said:\n" + open(os.path.join(root, "gimp.log")).read())
            return 1
        window = found.stdout.split()[0]
        subprocess.run(["xdotool", "windowmove", window, "0", "0"], check=True)
        time.sleep(1)
        geometry = window_geometry(window)
        # the preview: the dialog's top left, 480x270 as the dialog asks (its frame and scroll bars around)
        box = (geometry[0] + 4, geometry[1] + 4, 500, 290)
        if not first_flare(os.path.join(output, "dialog-before.png"), geometry, frame):
            print("the preview never showed the flare")
            return 1
        before = settled_screenshot(os.path.join(output, "dialog-before.png"))
        # the click: inside the preview, away from where the light starts (0.3, 0.35 of the frame)
        click = (box[0] + 340, box[1] + 200)
        subprocess.run(["xdotool", "mousemove", str(click[0]), str(click[1]), "click", "1"], check=True)
        changed(os.path.join(output, "dialog-after.png"), before, box)
        after = settled_screenshot(os.path.join(output, "dialog-after.png"))
        now = brightened_centre(before, after, box)
        print("clicked %d,%d; the flare's new hot spot %s" % (click + (now,)))
        if now is None or abs(now[0] - click[0]) > 3 or abs(now[1] - click[1]) > 3:
            print("the flare did not move to the click")
            return 1
        # the other pages, kept to be looked at: the looks with their thumbnails, the settings
        window_shot(window, os.path.join(output, "dialog-light.png"))
        for key, name in (("alt+k", "dialog-look.png"), ("alt+s", "dialog-settings.png")):
            subprocess.run(["xdotool", "key", key], check=True)
            settled_screenshot(os.path.join(output, "screen.png"), seconds=40)
            window_shot(window, os.path.join(output, name))
        os.remove(os.path.join(output, "screen.png"))
        return checked_run(frame, result, geometry, click, now)
    finally:
        gimp.terminate()
        try:
            gimp.wait(20)
        except subprocess.TimeoutExpired:
            gimp.kill()
        shutil.rmtree(root, ignore_errors=True)


def main():
    if len(sys.argv) != 4:
        print(__doc__)
        return 2
    plugin, frame, output = (os.path.abspath(a) for a in sys.argv[1:])
    os.makedirs(output, exist_ok=True)
    if os.environ.get("VELLUX_INSIDE_XVFB") != "1":
        env = dict(os.environ, VELLUX_INSIDE_XVFB="1")
        return subprocess.run(["xvfb-run", "-a", "-s", "-screen 0 %dx%dx24" % SCREEN, sys.executable, __file__,
                               plugin, frame, output], env=env).returncode
    return inside(plugin, frame, output)


if __name__ == "__main__":
    sys.exit(main())
