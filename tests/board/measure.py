#!/usr/bin/env python3
"""What the tool takes on a board, measured on the emulated one.

Usage: emulated.sh SYSROOT BUILDDIR measure.py
which starts  measure.py ROOT COMMAND...  as it would start conversation.py.

After the logo, a test image and the main screen it prints the size of the tool,
of every file that it has mapped (Qt, its plug-ins, the touchscreen library, the
font), and of the memory that is resident. The emulator gives the tool the
addresses from GUEST on; what lies below or beyond 4 GiB of them is its own.
"""
import os
import subprocess
import sys

import conversation

GUEST = 1 << 32
GUEST_END = GUEST + (1 << 32)


def mappings(pid):
    """Yields path and kilobytes by name of each of the guest's mappings."""
    path, sizes = None, None
    with open(f"/proc/{pid}/smaps") as smaps:
        for line in smaps:
            words = line.split()
            if not words[0].endswith(":"):
                if sizes:
                    yield path, sizes
                start = int(words[0].split("-")[0], 16)
                path = words[5] if len(words) > 5 else ""
                sizes = {} if GUEST <= start < GUEST_END else None
            elif sizes is not None and words[-1] == "kB":
                sizes[words[0][:-1]] = int(words[1])
    if sizes:
        yield path, sizes


def report(root, pid):
    screen = own = shared = 0
    files = set()
    for path, sizes in mappings(pid):
        if path.endswith("/dev/fb0"):
            screen += sizes["Rss"]
            continue
        own += sizes["Anonymous"]
        shared += sizes["Rss"] - sizes["Anonymous"]
        # As this machine or as the tool in its root folder sees it. What the emulation
        # needs besides lies in that folder itself.
        below = path[len(root):] if path.startswith(root) else path
        if os.path.isfile(root + below) and os.path.dirname(below) != "/":
            files.add(below)

    print("files mapped:")
    for file in sorted(files, key=lambda file: -os.path.getsize(root + file)):
        print(f"  {os.path.getsize(root + file) / 1e6:6.2f} MB  {file}")
    total = sum(os.path.getsize(root + file) for file in files)
    print(f"  {total / 1e6:6.1f} MB in {len(files)} files")
    for name, size in (("of its own", own), ("frame buffer", screen),
                       ("pages of mapped files", shared), ("all", own + screen + shared)):
        print(f"resident, {name}: {size * 1024 / 1e6:.1f} MB")


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    root = os.path.realpath(sys.argv[1])
    conversation.hold(root, sys.argv[2:], lambda station: report(root, station.tool.pid))


if __name__ == "__main__":
    main()
