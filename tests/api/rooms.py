#!/usr/bin/env python3
"""Refuses an include that leads from one room of the house into another it must not know.

Rooms beside each other meet in app/ alone; the tool knows nothing of the bench, and
what plays keypad and station in it nothing of the tool, or both would share a mistake.

Usage: rooms.py SOURCEDIR     checks the rooms
       rooms.py --self-check  checks the check
Exit status 0: nothing refused.
"""
import os
import re
import sys
import tempfile

TOOL = ["app", "protocol", "hardware", "serial", "flash", "calibration", "compat"]

# Which rooms, or files of them, a room may include besides its own.
MAY_INCLUDE = {
    "app": TOOL,
    # It owns the SD card's monitor and power.
    "protocol": ["compat", "hardware/board.h", "hardware/sdmon.h", "hardware/sdpower.h"],
    "hardware": ["compat"],
    "serial": ["compat"],
    "flash": ["compat"],
    "calibration": ["compat"],
    "compat": [],
    "bench/common": [],
    "bench/board": ["bench/common"],
    "bench/keypad": ["bench/common"],
    "bench/station": ["bench/common"],
    "bench/records": ["bench/common"],
    "bench/line": ["bench/board", "bench/common", "bench/keypad", "bench/records",
                   "bench/station"],
    # It knows the line from its JSON lines alone.
    "bench/screen": ["bench/common"],
    # It times the tool's own functions beside their floors.
    "bench/perf": TOOL + ["bench/common", "bench/keypad", "bench/station"],
}

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+/[^"]+)"', re.MULTILINE)
ENDINGS = (".cpp", ".h", ".c")


def is_in(path, room):
    return path == room or path.startswith(room + "/")


def sources(root, room):
    for folder, _, names in os.walk(os.path.join(root, room)):
        for name in sorted(names):
            if name.endswith(ENDINGS):
                yield os.path.join(folder, name)


def complaints(root):
    for room, allowed in MAY_INCLUDE.items():
        for path in sources(root, room):
            with open(path, encoding="utf-8") as file:
                for include in INCLUDE.findall(file.read()):
                    if not any(is_in(include, known) for known in [room] + allowed):
                        yield f"{os.path.relpath(path, root)} includes {include}"


def check(root):
    unknown = [room for room in MAY_INCLUDE if not any(sources(root, room))]
    for room in unknown:
        print(f"{room} holds no code: is it still a room?")
    found = list(complaints(root))
    for complaint in found:
        print(complaint)
    return 1 if unknown or found else 0


def self_check():
    refused = {
        "hardware/a.cpp": "protocol/frame.h",
        "serial/a.h": "app/mftool.h",
        "protocol/a.cpp": "hardware/indicators.h",
        "flash/a.cpp": "bench/keypad/screen.h",
        "bench/station/a.cpp": "protocol/frame.h",
        "bench/keypad/sub/a.cpp": "bench/line/plan.h",
        "compat/a.h": "compatible/b.h",
    }
    accepted = {
        "app/b.cpp": "flash/rootfs.h",
        "protocol/b.cpp": "hardware/sdmon.h",
        "bench/line/b.cpp": "bench/station/station.h",
        "bench/keypad/b.cpp": "bench/keypad/screen.h",
        "hardware/b.cpp": "hardware/board.h",
    }
    with tempfile.TemporaryDirectory() as root:
        for path, include in {**refused, **accepted}.items():
            os.makedirs(os.path.dirname(os.path.join(root, path)), exist_ok=True)
            with open(os.path.join(root, path), "w", encoding="utf-8") as file:
                file.write(f'#include <sys/stat.h>\n#include "a.h"\n# include "{include}"\n')
        found = sorted(complaints(root))
    expected = sorted(f"{path} includes {include}" for path, include in refused.items())
    for line in sorted(set(found) ^ set(expected)):
        print(f"wrong about: {line}")
    return 0 if found == expected else 1


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    sys.exit(self_check() if sys.argv[1] == "--self-check" else check(sys.argv[1]))
