#!/usr/bin/env python3
"""Writes examples/gear.stl: a spur gear as a closed binary STL with a coloured header and
per-facet colours, for the kelmesh demonstration.

The gear has 24 trapezoidal teeth (module 2 mm, tip radius 26 mm, root radius 21.5 mm), is 8 mm
thick and has a 5 mm bore. Each of the four surfaces (top, bottom, outer wall, bore) is a strip of
quads between two loops sampled at the same angles, so the mesh is closed and every vertex is
shared exactly. Colours follow the coloured-STL convention: the 80-byte header starts with
"COLOR=" R G B A ",MATERIAL=" and three RGBA words and a float, then ";SOLID", a zero byte and
spaces; each facet's attribute word holds 5-bit red (bits 0-4), green (5-9) and blue (10-14), with
bit 15 set for a facet that shows the header colour.

Usage: python3 examples/make_gear.py [OUTPUT]   (default: gear.stl beside this script)
"""
import math
import os
import struct
import sys

TEETH = 24
SAMPLES_PER_TOOTH = 20
TIP, ROOT, BORE, THICKNESS = 26.0, 21.5, 5.0, 8.0

# Fractions of one tooth period: root, rising flank, tip, falling flank, root.
def outer_radius(fraction):
    if fraction < 0.25 or fraction >= 0.75:
        return ROOT
    if fraction < 0.35:
        return ROOT + (TIP - ROOT) * (fraction - 0.25) / 0.10
    if fraction < 0.65:
        return TIP
    return TIP - (TIP - ROOT) * (fraction - 0.65) / 0.10


def colour_word(r, g, b):
    """5 bits per channel, bit 15 clear: the facet has a colour of its own."""
    return (round(r * 31 / 255)) | (round(g * 31 / 255) << 5) | (round(b * 31 / 255) << 10)


HEADER_COLOUR = 0x8000  # bit 15 set: the facet shows the header colour
GOLD = colour_word(212, 175, 55)
RED = colour_word(200, 40, 30)
ORANGE = colour_word(230, 120, 20)
BLUE = colour_word(40, 90, 200)


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "gear.stl")
    n = TEETH * SAMPLES_PER_TOOTH
    outer, inner = [], []
    for i in range(n):
        angle = 2 * math.pi * i / n
        r = outer_radius((i % SAMPLES_PER_TOOTH) / SAMPLES_PER_TOOTH)
        outer.append((r * math.cos(angle), r * math.sin(angle)))
        inner.append((BORE * math.cos(angle), BORE * math.sin(angle)))

    # Round to float32 once, so that shared corners are bit-identical in every facet.
    def f32(v):
        return struct.unpack("<f", struct.pack("<f", v))[0]

    def point(xy, z):
        return (f32(xy[0]), f32(xy[1]), f32(z))

    facets = []

    def quad(a, b, c, d, colour):  # counter-clockwise seen from outside
        facets.append((a, b, c, colour))
        facets.append((a, c, d, colour))

    for i in range(n):
        j = (i + 1) % n
        o0b, o1b = point(outer[i], 0.0), point(outer[j], 0.0)
        o0t, o1t = point(outer[i], THICKNESS), point(outer[j], THICKNESS)
        i0b, i1b = point(inner[i], 0.0), point(inner[j], 0.0)
        i0t, i1t = point(inner[i], THICKNESS), point(inner[j], THICKNESS)
        quad(i0t, o0t, o1t, i1t, GOLD)  # top, normal +z
        quad(i0b, i1b, o1b, o0b, HEADER_COLOUR)  # bottom, normal -z
        ri, rj = math.hypot(*outer[i]), math.hypot(*outer[j])
        if abs(ri - TIP) < 1e-6 and abs(rj - TIP) < 1e-6:
            wall = RED  # tooth tip
        elif abs(ri - ROOT) < 1e-6 and abs(rj - ROOT) < 1e-6:
            wall = HEADER_COLOUR  # between the teeth
        else:
            wall = ORANGE  # flank
        quad(o0b, o1b, o1t, o0t, wall)  # outer wall, normal outwards
        quad(i0b, i0t, i1t, i1b, BLUE)  # bore, normal towards the axis

    header = b"COLOR=" + bytes([160, 160, 170, 255]) + b",MATERIAL="
    header += bytes([150, 150, 160, 255]) + bytes([255, 255, 255, 255]) + bytes([40, 40, 45, 255])
    header += struct.pack("<f", 32.0) + b";SOLID" + b"\0"
    header += b" " * (80 - len(header))
    assert len(header) == 80

    with open(out, "wb") as f:
        f.write(header)
        f.write(struct.pack("<I", len(facets)))
        for a, b, c, colour in facets:
            ux, uy, uz = (b[k] - a[k] for k in range(3))
            vx, vy, vz = (c[k] - a[k] for k in range(3))
            nx, ny, nz = uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx
            length = math.sqrt(nx * nx + ny * ny + nz * nz) or 1.0
            f.write(struct.pack("<12fH", nx / length, ny / length, nz / length, *a, *b, *c, colour))
    print("wrote %s: %d facets" % (out, len(facets)))


if __name__ == "__main__":
    main()
