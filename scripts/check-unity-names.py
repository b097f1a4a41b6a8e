#!/usr/bin/python3
"""The host-side libraries compile as unity builds, where the files of a library share one
translation unit: a function defined at namespace scope under the same name in two of its files
either clashes or, overloaded, is silently called by the other file. This lists such names (each
folder is checked as one library) and exits 1 when there are any.

    scripts/check-unity-names.py [ROOT]"""

import collections
import pathlib
import re
import sys

FOLDERS = ("host", "lens", "engine", "tools/vellux")
# A definition starts at the line's first column: a return type, then the function's name and "(".
DEFINITION = re.compile(r"^(?!return|else|case|using|namespace|typedef)[\w:<>,\s*&]*?[\s*&](\w+)\s*\(")
NOT_FUNCTIONS = {"if", "for", "while", "switch", "sizeof", "decltype", "static_assert", "defined", "VELLUX_CHECK_SIGNATURE"}


def defined_names(source):
    for line in source.read_text(encoding="utf-8").splitlines():
        if not line or line[0] in " \t#/{}":
            continue
        match = DEFINITION.match(line)
        if match and match.group(1) not in NOT_FUNCTIONS and not line[: match.start(1)].endswith("::"):
            yield match.group(1)


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent)
    problems = []
    for folder in FOLDERS:
        files = collections.defaultdict(set)
        for source in sorted((root / folder).glob("*.cpp")):
            for name in defined_names(source):
                files[name].add(source.name)
        problems += [f"{folder}: {name} is defined in {', '.join(sorted(where))}" for name, where in sorted(files.items()) if len(where) > 1]
    print("\n".join(problems) if problems else "every function name is defined in one file of its library")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
