"""Where the vellux module comes from: an installed or PYTHONPATH copy first, else the copy bundled
with the add-on (engine/ inside the zip) or the installed tree the add-on sits in
(PREFIX/share/vellux/blender/vellux_flare beside PREFIX/lib)."""

import importlib.util
import os
import sys

_HERE = os.path.dirname(os.path.abspath(__file__))
_SITE = os.path.join("lib", "python3.11", "site-packages")
CANDIDATES = (os.path.join(_HERE, "engine", _SITE), os.path.normpath(os.path.join(_HERE, "..", "..", "..", "..", _SITE)))

if importlib.util.find_spec("vellux") is None:
    for folder in CANDIDATES:
        if os.path.isdir(os.path.join(folder, "vellux")) and folder not in sys.path:
            sys.path.append(folder)
            break
