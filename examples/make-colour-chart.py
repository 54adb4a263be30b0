#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
#
# Draws the chart of docs/colour.md as PNG, 150 dpi: a hue circle, blue to red, a sky, and a face
# made of skin tones from light to deep with ramps of them beside it. Needs no more than Python.
import colorsys
import math
import struct
import sys
import zlib

SIDE = 300  # of a field, pixels
GAP = 16


def mix(a, b, part):
    part = min(max(part, 0.0), 1.0)
    return tuple(x + (y - x) * part for x, y in zip(a, b))


def hue_circle(x, y):
    dx, dy = (x - 0.5) * 2, (y - 0.5) * 2
    radius = math.hypot(dx, dy) / 0.96
    if radius > 1:
        return (255, 255, 255)
    hue = math.atan2(-dy, dx) / (2 * math.pi) % 1
    return tuple(255 * v for v in colorsys.hsv_to_rgb(hue, radius, 1))


def blue_to_red(x, y):
    return mix(mix((0, 0, 255), (255, 0, 0), x), (255, 255, 255), y * 0.75)


def sky(x, y):
    colour = mix((40, 92, 168), (206, 226, 240), (y / 0.82) ** 0.8)
    glow = math.exp(-((x - 0.72) ** 2 + (y - 0.62) ** 2) / 0.03)
    colour = mix(colour, (255, 246, 222), 0.8 * glow)
    cloud = sum(
        math.exp(-(((x - cx) / w) ** 2 + ((y - cy) / (w * 0.32)) ** 2))
        for cx, cy, w in ((0.25, 0.3, 0.16), (0.38, 0.34, 0.13), (0.14, 0.35, 0.1), (0.8, 0.2, 0.1))
    )
    colour = mix(colour, (250, 250, 252), 0.75 * min(cloud, 1))
    ridge = 0.84 + 0.03 * math.sin(9 * x) + 0.015 * math.sin(23 * x + 1)
    return mix((52, 84, 44), (26, 46, 30), (y - ridge) * 8) if y > ridge else colour


SKINS = ((250, 224, 205), (236, 194, 165), (216, 164, 128), (178, 120, 84), (132, 84, 58), (84, 52, 40))


def face(x, y):
    if y > 0.82:  # ramps
        place = x * len(SKINS)
        skin = SKINS[min(int(place), len(SKINS) - 1)]
        return mix(skin, (20, 10, 8), (y - 0.82) / 0.18 * 0.8)
    dx, dy = (x - 0.5) / 0.27, (y - 0.43) / 0.36
    hair = ((x - 0.5) / 0.32) ** 2 + ((y - 0.36) / 0.33) ** 2
    radius = dx * dx + dy * dy
    if radius > 1:
        return (62, 40, 30) if hair < 1 and y < 0.55 else mix((196, 204, 206), (168, 178, 182), y)
    depth = math.sqrt(1 - radius)
    light = 0.55 * depth - 0.35 * dx - 0.3 * dy
    colour = mix(SKINS[3], SKINS[1], 0.4 + light)
    colour = mix(colour, SKINS[0], 1.4 * (light - 0.55))
    colour = mix(colour, (92, 52, 38), 0.75 * max(0, -light))
    for side in (-1, 1):
        cheek = ((x - 0.5 - side * 0.13) / 0.07) ** 2 + ((y - 0.52) / 0.06) ** 2
        colour = mix(colour, (214, 120, 104), 0.35 * math.exp(-cheek))
        eye = ((x - 0.5 - side * 0.1) / 0.045) ** 2 + ((y - 0.4) / 0.018) ** 2
        if eye < 1:
            colour = (50, 34, 28) if abs(x - 0.5 - side * 0.1) < 0.017 else (236, 232, 226)
    lips = ((x - 0.5) / 0.085) ** 2 + ((y - 0.64) / 0.022) ** 2
    if lips < 1:
        colour = mix(colour, (168, 72, 74), 0.8)
    return mix(colour, (62, 40, 30), (0.17 - y) * 14)


def chart():
    fields = (hue_circle, blue_to_red, sky, face)
    side = 2 * SIDE + 3 * GAP
    rows = []
    for py in range(side):
        row = bytearray(b"\xff" * 3 * side)
        for px in range(side):
            column, x = divmod(px - GAP, SIDE + GAP)
            line, y = divmod(py - GAP, SIDE + GAP)
            if column in (0, 1) and line in (0, 1) and x < SIDE and y < SIDE:
                colour = fields[2 * line + column]((x + 0.5) / SIDE, (y + 0.5) / SIDE)
                row[3 * px : 3 * px + 3] = bytes(round(min(max(v, 0), 255)) for v in colour)
        rows.append(bytes(row))
    return side, rows


def write_png(path, side, rows):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    last = bytes(3 * side)
    lines = b""
    for row in rows:  # each against the row above
        lines += b"\2" + bytes((a - b) & 255 for a, b in zip(row, last))
        last = row
    with open(path, "wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n")
        file.write(chunk(b"IHDR", struct.pack(">IIBBBBB", side, side, 8, 2, 0, 0, 0)))
        file.write(chunk(b"pHYs", struct.pack(">IIB", 5906, 5906, 1)))
        file.write(chunk(b"IDAT", zlib.compress(lines, 9)))
        file.write(chunk(b"IEND", b""))


if len(sys.argv) != 2:
    sys.exit("usage: make-colour-chart.py CHART.png")
write_png(sys.argv[1], *chart())
