#!/usr/bin/env python3
"""Draws the calibration target, resources/images/target.png.

48 by 48 pixels, so that its middle is the line between pixels 23 and 24 in both
directions: the point that "left + width / 2" names. Black on an opaque white
tile, so that it reads the same on any background. One bit a pixel and nothing
but the chunks a PNG must have: 232 bytes, the size the picture is meant to keep.

Usage: maketarget.py OUTPUT
"""
import math
import struct
import sys
import zlib

SIZE = 48
MIDDLE = (SIZE - 1) / 2
WHITE, BLACK = 0, 1
PALETTE = bytes([255, 255, 255, 0, 0, 0])

DOT_RADIUS = 4
RING_RADII = (9, 17)
RING_WIDTH = 2.5


def colour(x, y):
    dx, dy = abs(x - MIDDLE), abs(y - MIDDLE)
    radius = math.hypot(dx, dy)
    on_dot = radius < DOT_RADIUS
    on_cross = min(dx, dy) < 1
    on_ring = any(r <= radius < r + RING_WIDTH for r in RING_RADII)
    return BLACK if on_dot or on_cross or on_ring else WHITE


def row(y):
    bits = 0
    for x in range(SIZE):
        bits = bits << 1 | colour(x, y)
    return bits.to_bytes(SIZE // 8, "big")


def chunk(kind, data):
    body = kind + data
    return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))


def png():
    header = struct.pack(">IIBBBBB", SIZE, SIZE, 1, 3, 0, 0, 0)
    unfiltered = b"".join(b"\x00" + row(y) for y in range(SIZE))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"PLTE", PALETTE)
            + chunk(b"IDAT", zlib.compress(unfiltered, 9)) + chunk(b"IEND", b""))


if __name__ == "__main__":
    with open(sys.argv[1], "wb") as output:
        output.write(png())
