#!/usr/bin/env python3
"""Draws the icons of the station's tools into station/ui/resources, in their own size and twice as large.

Run it again after a change here, and commit what it draws. Needs Python's standard library alone.
"""

import math
import pathlib
import struct
import zlib

SAMPLES = 4  # a pixel's side, in samples
OUTLINE = (29, 40, 54)


def rounded_box(x, y, left, top, right, bottom, radius):
    """The distance of a point from a box with round corners, negative inside."""
    dx = max(left + radius - x, x - (right - radius), 0.0)
    dy = max(top + radius - y, y - (bottom - radius), 0.0)
    if dx == 0 and dy == 0:
        return -min(x - left, right - x, y - top, bottom - y)
    return math.hypot(dx, dy) - radius


def half_plane(x, y, ax, ay, bx, by):
    return ((x - ax) * (by - ay) - (y - ay) * (bx - ax)) / math.hypot(bx - ax, by - ay)


def triangle(x, y, a, b, c):
    return max(half_plane(x, y, *a, *b), half_plane(x, y, *b, *c), half_plane(x, y, *c, *a))


def bubble(x, y, box, tail):
    return min(rounded_box(x, y, *box), triangle(x, y, *tail))


def colour_at(x, y):
    """The colour of a point of the 48 by 35 icon; None where nothing is drawn."""
    front = bubble(x, y, (4, 3, 32, 20.5, 4.5), ((9, 26.5), (10, 12), (21.5, 12)))
    if front < 0:
        dots = min(math.hypot(x - cx, y - 11.75) for cx in (11.5, 18, 24.5))
        return OUTLINE if front > -1.4 or dots < 1.9 else (255, 200, 87)
    back = bubble(x, y, (20, 11.5, 44.5, 27, 4), ((41, 32.5), (28, 19), (39, 19)))
    if back < 0:
        return OUTLINE if back > -1.4 else (143, 163, 189)
    return None


def pixel(column, row, scale):
    seen = []
    for sy in range(SAMPLES):
        for sx in range(SAMPLES):
            x = (column + (sx + 0.5) / SAMPLES) / scale
            y = (row + (sy + 0.5) / SAMPLES) / scale
            seen.append(colour_at(x, y))
    drawn = [colour for colour in seen if colour]
    if not drawn:
        return bytes(4)
    mean = [round(sum(channel) / len(drawn)) for channel in zip(*drawn)]
    return bytes([*mean, round(255 * len(drawn) / len(seen))])


def chunk(name, data):
    body = name + data
    return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))


def write_png(path, scale):
    width, height = 48 * scale, 35 * scale
    rows = (b"\0" + b"".join(pixel(c, r, scale) for c in range(width)) for r in range(height))
    head = struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)
    data = zlib.compress(b"".join(rows), 9)
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", data) + chunk(b"IEND", b""))


folder = pathlib.Path(__file__).resolve().parent.parent / "station/ui/resources"
write_png(folder / "tool_messager_on.png", 1)
write_png(folder / "tool_messager_on@2x.png", 2)
