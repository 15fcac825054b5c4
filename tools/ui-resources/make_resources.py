#!/usr/bin/env python3
"""Draws the PIN dialog's pictures: bitmap 101 and icon 103.

    make_resources.py [OUTPUT_DIR]   (default: src/ui/resources)

Writes keycard.bmp (100 x 58, 24 bits per pixel, the picture beside the PIN
field) and provider.ico (one 256 x 256 image, 32 bits per pixel, stored as
PNG). Only the standard library is used, and the output is the same on
every run, so the committed files can be checked against a fresh run.
"""

import math
import os
import struct
import sys
import zlib

# The dialog face colour of Windows and Wine: the bitmap has no alpha, so its
# background is painted in the colour it sits on.
DIALOG_FACE = (240, 240, 240)
CARD_TOP = (27, 74, 140)
CARD_BOTTOM = (12, 40, 88)
CHIP = (222, 182, 84)
CHIP_LINE = (150, 112, 38)
KEY = (246, 196, 62)
KEY_EDGE = (128, 88, 18)
STRIPE = (255, 255, 255)


def clamp(value, low=0.0, high=1.0):
    return max(low, min(high, value))


def rounded_box(px, py, cx, cy, half_w, half_h, radius):
    """Signed distance from a point to a rounded rectangle."""
    qx = abs(px - cx) - half_w + radius
    qy = abs(py - cy) - half_h + radius
    outside = math.hypot(max(qx, 0.0), max(qy, 0.0))
    return outside + min(max(qx, qy), 0.0) - radius


def circle(px, py, cx, cy, r):
    return math.hypot(px - cx, py - cy) - r


def segment(px, py, ax, ay, bx, by, r):
    """Signed distance to a line segment of half-thickness r."""
    dx, dy = bx - ax, by - ay
    t = clamp(((px - ax) * dx + (py - ay) * dy) / (dx * dx + dy * dy))
    return math.hypot(px - ax - t * dx, py - ay - t * dy) - r


class Canvas:
    """An RGBA image with straight alpha; shapes are blended over it with
    coverage from their signed distance, which gives smooth edges without
    supersampling."""

    def __init__(self, width, height, background):
        self.width = width
        self.height = height
        self.pixels = [list(background) for _ in range(width * height)]

    def fill(self, distance, colour, opacity=1.0):
        """colour: an (r, g, b) tuple, or a function of (x, y) giving one."""
        for y in range(self.height):
            for x in range(self.width):
                coverage = clamp(0.5 - distance(x + 0.5, y + 0.5)) * opacity
                if coverage <= 0.0:
                    continue
                rgb = colour(x, y) if callable(colour) else colour
                self._blend(y * self.width + x, rgb, coverage)

    def _blend(self, index, rgb, alpha):
        dst = self.pixels[index]
        dst_alpha = dst[3] / 255.0
        out_alpha = alpha + dst_alpha * (1.0 - alpha)
        if out_alpha <= 0.0:
            return
        for c in range(3):
            mixed = (rgb[c] * alpha + dst[c] * dst_alpha * (1.0 - alpha)) / out_alpha
            dst[c] = int(round(mixed))
        dst[3] = int(round(out_alpha * 255.0))


def vertical_gradient(top, bottom, y0, y1):
    def colour(_x, y):
        t = clamp((y - y0) / float(y1 - y0))
        return tuple(int(round(a + (b - a) * t)) for a, b in zip(top, bottom))

    return colour


def draw_card(canvas, x0, y0, x1, y1, chip_scale):
    """A smart card: rounded body, contact chip, a light stripe."""
    cx, cy = (x0 + x1) / 2.0, (y0 + y1) / 2.0
    hw, hh = (x1 - x0) / 2.0, (y1 - y0) / 2.0
    radius = min(hw, hh) * 0.18
    canvas.fill(lambda x, y: rounded_box(x, y, cx + 1.5 * chip_scale, cy + 2.0 * chip_scale,
                                         hw, hh, radius), (0, 0, 0), 0.22)
    canvas.fill(lambda x, y: rounded_box(x, y, cx, cy, hw, hh, radius),
                vertical_gradient(CARD_TOP, CARD_BOTTOM, y0, y1))
    chip_x = x0 + (x1 - x0) * 0.22
    chip_y = y0 + (y1 - y0) * 0.42
    chip_w, chip_h = 9.0 * chip_scale, 7.0 * chip_scale
    canvas.fill(lambda x, y: rounded_box(x, y, chip_x, chip_y, chip_w, chip_h,
                                         2.0 * chip_scale), CHIP)
    line = 0.55 * chip_scale
    canvas.fill(lambda x, y: min(
        segment(x, y, chip_x - chip_w, chip_y, chip_x + chip_w, chip_y, line),
        segment(x, y, chip_x, chip_y - chip_h, chip_x, chip_y + chip_h, line)), CHIP_LINE)
    stripe_y = y0 + (y1 - y0) * 0.78
    canvas.fill(lambda x, y: segment(x, y, x0 + (x1 - x0) * 0.12, stripe_y,
                                     x0 + (x1 - x0) * 0.55, stripe_y, 1.1 * chip_scale),
                STRIPE, 0.55)


def draw_key(canvas, bow_x, bow_y, bow_r, tip_x, tip_y, width):
    """A key lying from its bow to its tip, with two bits on the blade."""
    dx, dy = tip_x - bow_x, tip_y - bow_y
    length = math.hypot(dx, dy)
    ux, uy = dx / length, dy / length
    nx, ny = uy, -ux

    def bits(x, y):
        best = float("inf")
        for at, depth in ((0.78, 1.0), (0.92, 0.7)):
            bx = bow_x + ux * length * at
            by = bow_y + uy * length * at
            ex = bx - nx * width * 3.2 * depth
            ey = by - ny * width * 3.2 * depth
            best = min(best, segment(x, y, bx, by, ex, ey, width * 0.9))
        return best

    def body(x, y):
        return min(circle(x, y, bow_x, bow_y, bow_r),
                   segment(x, y, bow_x, bow_y, tip_x, tip_y, width), bits(x, y))

    edge = max(1.0, width * 0.35)
    canvas.fill(lambda x, y: body(x, y) - edge, KEY_EDGE)
    canvas.fill(body, KEY)
    canvas.fill(lambda x, y: circle(x, y, bow_x, bow_y, bow_r * 0.42) - edge, KEY_EDGE)
    punch(canvas, lambda x, y: circle(x, y, bow_x, bow_y, bow_r * 0.42))


def punch(canvas, distance):
    """Makes the inside of a shape fully transparent (the key's bow hole)."""
    for y in range(canvas.height):
        for x in range(canvas.width):
            coverage = clamp(0.5 - distance(x + 0.5, y + 0.5))
            if coverage > 0.0:
                pixel = canvas.pixels[y * canvas.width + x]
                pixel[3] = int(round(pixel[3] * (1.0 - coverage)))


def keycard_bitmap():
    canvas = Canvas(100, 58, DIALOG_FACE + (255,))
    draw_card(canvas, 4, 6, 78, 52, 1.0)
    draw_key(canvas, 70, 20, 9.5, 95, 50, 2.6)
    # The bow's hole shows the dialog face, not transparency: no alpha here.
    for pixel in canvas.pixels:
        alpha = pixel[3] / 255.0
        for c in range(3):
            pixel[c] = int(round(pixel[c] * alpha + DIALOG_FACE[c] * (1.0 - alpha)))
        pixel[3] = 255
    return canvas


def provider_icon():
    canvas = Canvas(256, 256, (0, 0, 0, 0))
    draw_card(canvas, 14, 52, 214, 186, 2.7)
    draw_key(canvas, 176, 128, 40, 236, 236, 10.5)
    return canvas


def bmp_bytes(canvas):
    """A bottom-up 24-bit BMP with a BITMAPINFOHEADER."""
    row_size = (canvas.width * 3 + 3) & ~3
    rows = []
    for y in range(canvas.height - 1, -1, -1):
        row = bytearray()
        for x in range(canvas.width):
            r, g, b, _ = canvas.pixels[y * canvas.width + x]
            row += bytes((b, g, r))
        row += b"\0" * (row_size - len(row))
        rows.append(bytes(row))
    image = b"".join(rows)
    info = struct.pack("<IiiHHIIiiII", 40, canvas.width, canvas.height, 1, 24, 0, len(image),
                       2835, 2835, 0, 0)
    offset = 14 + len(info)
    header = struct.pack("<2sIHHI", b"BM", offset + len(image), 0, 0, offset)
    return header + info + image


def png_bytes(canvas):
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF))

    raw = bytearray()
    for y in range(canvas.height):
        raw.append(0)
        for x in range(canvas.width):
            raw += bytes(canvas.pixels[y * canvas.width + x])
    header = struct.pack(">IIBBBBB", canvas.width, canvas.height, 8, 6, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) +
            chunk(b"IDAT", zlib.compress(bytes(raw), 9)) + chunk(b"IEND", b""))


def ico_bytes(png):
    """An icon file holding one 256 x 256 PNG image (size 0 means 256)."""
    directory = struct.pack("<HHH", 0, 1, 1)
    entry = struct.pack("<BBBBHHII", 0, 0, 0, 0, 1, 32, len(png), 6 + 16)
    return directory + entry + png


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    default = os.path.join(here, "..", "..", "src", "ui", "resources")
    out = sys.argv[1] if len(sys.argv) > 1 else default
    os.makedirs(out, exist_ok=True)
    with open(os.path.join(out, "keycard.bmp"), "wb") as f:
        f.write(bmp_bytes(keycard_bitmap()))
    with open(os.path.join(out, "provider.ico"), "wb") as f:
        f.write(ico_bytes(png_bytes(provider_icon())))


if __name__ == "__main__":
    main()
