#!/usr/bin/env python3
"""Draws the pictures that the package puts into /home/default.

All of them have the panel's 800 by 480 pixels, so that none is ever scaled:

  tarnwick.png      the logo, shown from the start until the station takes over
  bars.png          eight colour bars, brightest first: colour order and bit order
  grey.png          all 256 levels above 16 steps: gamma, and lost low bits
  checkerboard.png  squares of one pixel in the middle field, of 40 around it:
                    clock phase and crosstalk
  white, black, red, green, blue.png
                    full fields: dead and stuck pixels, evenness of the backlight

Usage: drawimages.py FOLDER
"""
import math
import os
import struct
import sys
import zlib

WIDTH, HEIGHT = 800, 480


def chunk(name, data):
    body = name + data
    return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))


def png(palette, pixel):
    """A picture with up to 256 colours; pixel(x, y) is an index of palette."""
    rows = b"".join(b"\0" + bytes(pixel(x, y) for x in range(WIDTH)) for y in range(HEIGHT))
    header = struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 3, 0, 0, 0)
    colours = b"".join(bytes(colour) for colour in palette)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"PLTE", colours) +
            chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b""))


def field(colour):
    return png([colour], lambda x, y: 0)


def bars():
    palette = [(255, 255, 255), (255, 255, 0), (0, 255, 255), (0, 255, 0),
               (255, 0, 255), (255, 0, 0), (0, 0, 255), (0, 0, 0)]
    return png(palette, lambda x, y: x * len(palette) // WIDTH)


def grey():
    palette = [(level, level, level) for level in range(256)]

    def pixel(x, y):
        if y < HEIGHT // 2:
            return x * 256 // WIDTH
        return (x * 16 // WIDTH) * 17

    return png(palette, pixel)


def checkerboard():
    def pixel(x, y):
        fine = abs(2 * x + 1 - WIDTH) < 400 and abs(2 * y + 1 - HEIGHT) < 240
        return (x + y) & 1 if fine else (x // 40 + y // 40) & 1

    return png([(0, 0, 0), (255, 255, 255)], pixel)


# The logo: a hill over a bay in a ring, and the name in strokes. A stroke is a
# list of points in a cell of 4 by 6 units; (0, 0) is its upper left corner.

def arc(x, y, radius, start, end, steps=16):
    angles = [math.radians(start + (end - start) * i / steps) for i in range(steps + 1)]
    return [(x + radius * math.cos(a), y - radius * math.sin(a)) for a in angles]


LETTERS = {
    "T": (4, [[(0, 0), (4, 0)], [(2, 0), (2, 6)]]),
    "A": (4, [[(0, 6), (2, 0), (4, 6)], [(0.8, 4), (3.2, 4)]]),
    "R": (4, [[(0.4, 6), (0.4, 0), (2.2, 0)] + arc(2.2, 1.6, 1.6, 90, -90) + [(0.4, 3.2)],
              [(2.2, 3.2), (4, 6)]]),
    "N": (4, [[(0.2, 6), (0.2, 0), (3.8, 6), (3.8, 0)]]),
    "W": (5, [[(0, 0), (1.3, 6), (2.5, 1.5), (3.7, 6), (5, 0)]]),
    "I": (1, [[(0.5, 0), (0.5, 6)]]),
    "C": (4.6, [arc(2.9, 3, 3, 52, 308)]),
    "K": (4, [[(0.4, 0), (0.4, 6)], [(3.8, 0), (0.4, 3.6)], [(1.5, 2.6), (4, 6)]]),
}


def segments():
    """All lines of the logo in pixels."""
    unit, gap = 11, 1.7
    name = "TARNWICK"
    width = sum(LETTERS[c][0] for c in name) + gap * (len(name) - 1)
    left, top = (WIDTH - width * unit) / 2, 320
    lines = []
    for c in name:
        cells, strokes = LETTERS[c]
        for stroke in strokes:
            points = [(left + x * unit, top + y * unit) for x, y in stroke]
            lines += zip(points, points[1:])
        left += (cells + gap) * unit
    ring = arc(WIDTH / 2, 190, 90, 0, 360, 72)
    lines += zip(ring, ring[1:])
    hill = [(WIDTH / 2 - 82, 222), (WIDTH / 2 - 20, 138), (WIDTH / 2 + 22, 192),
            (WIDTH / 2 + 42, 166), (WIDTH / 2 + 82, 222)]
    lines += zip(hill, hill[1:])
    lines.append(((WIDTH / 2 - 58, 242), (WIDTH / 2 + 58, 242)))
    return lines


def distance(x, y, line):
    (ax, ay), (bx, by) = line
    dx, dy = bx - ax, by - ay
    length = dx * dx + dy * dy
    t = ((x - ax) * dx + (y - ay) * dy) / length if length else 0
    t = min(1, max(0, t))
    return math.hypot(x - ax - t * dx, y - ay - t * dy)


def logo():
    half = 4.5
    ground, ink = (16, 42, 67), (240, 244, 248)
    levels = 16
    palette = [tuple(g + (i - g) * level // (levels - 1) for g, i in zip(ground, ink))
               for level in range(levels)]
    cover = [[0] * WIDTH for _ in range(HEIGHT)]
    for line in segments():
        xs, ys = [p[0] for p in line], [p[1] for p in line]
        for y in range(int(min(ys) - half) - 1, int(max(ys) + half) + 2):
            for x in range(int(min(xs) - half) - 1, int(max(xs) + half) + 2):
                # One pixel of the edge is a blend.
                part = half + 0.5 - distance(x + 0.5, y + 0.5, line)
                level = round(min(1, max(0, part)) * (levels - 1))
                cover[y][x] = max(cover[y][x], level)
    return png(palette, lambda x, y: cover[y][x])


PICTURES = {
    "tarnwick": logo,
    "bars": bars,
    "grey": grey,
    "checkerboard": checkerboard,
    "white": lambda: field((255, 255, 255)),
    "black": lambda: field((0, 0, 0)),
    "red": lambda: field((255, 0, 0)),
    "green": lambda: field((0, 255, 0)),
    "blue": lambda: field((0, 0, 255)),
}

if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    for name, draw in PICTURES.items():
        with open(os.path.join(sys.argv[1], name + ".png"), "wb") as picture:
            picture.write(draw())
