#!/usr/bin/python3
"""Draws FX_error_image.png, the picture that an effect shows instead of an oversized frame.

Run by hand after a change; the PNG is kept in the repository. Needs python3-cairo.

The program writes two texts on it at run time, both in RGB (0.15, 0.15, 0.15): a label such as
"FX 127", 64 pixels high, from (175, 285), and the message "Image Too Big!", 56 pixels high, from
(96, 17), counted from the lower left corner to the baseline. The size of the picture, the badge
and the band are chosen so that both texts sit in the middle in DejaVu Sans and Liberation Sans.
"""

import math
import pathlib
import struct
import sys
import zlib

import cairo

WIDTH, HEIGHT = 580, 400
MIDDLE = WIDTH / 2

PAPER_TOP, PAPER_BOTTOM = 0xF7F8FA, 0xE4E8EE
BAND, BAND_EDGE = 0xFFD8C2, 0xF28B5B
BADGE, BADGE_EDGE = 0xFFFFFF, 0xCDD4DE
ACCENT = 0xE8622C
SKY_TOP, SKY_BOTTOM = 0x5F8FC4, 0xCFE3F2
SUN = 0xFFE3A3
FAR_HILLS, NEAR_HILLS = 0x4F7396, 0x2F4A68

BAND_HEIGHT = 72
BADGE_BOX = (MIDDLE - 142, 48, 284, 86)
PHOTO_BOX = (MIDDLE - 124, 158, 248, 144)
LIMIT_BOX = (MIDDLE - 62, 192, 124, 76)

FAR_HILL_POINTS = [(0, 0.72), (0.36, 0.36), (0.60, 0.70), (0.80, 0.55), (1, 0.78)]
NEAR_HILL_POINTS = [(0, 0.92), (0.22, 0.74), (0.47, 0.88), (0.72, 0.69), (1, 0.93)]


def rgb(colour):
    return tuple(((colour >> shift) & 255) / 255 for shift in (16, 8, 0))


def rounded_rectangle(context, box, radius):
    x, y, width, height = box
    context.new_sub_path()
    context.arc(x + width - radius, y + radius, radius, -math.pi / 2, 0)
    context.arc(x + width - radius, y + height - radius, radius, 0, math.pi / 2)
    context.arc(x + radius, y + height - radius, radius, math.pi / 2, math.pi)
    context.arc(x + radius, y + radius, radius, math.pi, 1.5 * math.pi)
    context.close_path()


def fill_vertical_gradient(context, top, bottom, top_colour, bottom_colour):
    gradient = cairo.LinearGradient(0, top, 0, bottom)
    gradient.add_color_stop_rgb(0, *rgb(top_colour))
    gradient.add_color_stop_rgb(1, *rgb(bottom_colour))
    context.set_source(gradient)
    context.fill()


def draw_shadow(context, box, radius, spread, strength):
    """A soft shadow below a box: many faint outlines that grow."""
    x, y, width, height = box
    for grow in range(spread, -1, -1):
        context.set_source_rgba(*rgb(0x23344A), strength / (spread + 1))
        rounded_rectangle(
            context,
            (x - grow, y - grow + spread * 0.45, width + 2 * grow, height + 2 * grow),
            radius + grow,
        )
        context.fill()


def draw_paper_and_band(context):
    context.rectangle(0, 0, WIDTH, HEIGHT)
    fill_vertical_gradient(context, 0, HEIGHT, PAPER_TOP, PAPER_BOTTOM)
    context.set_source_rgb(*rgb(BAND))
    context.rectangle(0, HEIGHT - BAND_HEIGHT, WIDTH, BAND_HEIGHT)
    context.fill()
    context.set_source_rgb(*rgb(BAND_EDGE))
    context.rectangle(0, HEIGHT - BAND_HEIGHT, WIDTH, 4)
    context.fill()


def draw_badge(context):
    radius = BADGE_BOX[3] / 2
    draw_shadow(context, BADGE_BOX, radius, 8, 0.10)
    rounded_rectangle(context, BADGE_BOX, radius)
    context.set_source_rgb(*rgb(BADGE))
    context.fill_preserve()
    context.set_source_rgb(*rgb(BADGE_EDGE))
    context.set_line_width(2)
    context.stroke()


def draw_hills(context, colour, points):
    """Hills with smooth flanks through points given as fractions of the photograph."""
    x, y, width, height = PHOTO_BOX
    placed = [(x + across * width, y + down * height) for across, down in points]
    context.move_to(x, y + height)
    context.line_to(*placed[0])
    for (x0, y0), (x1, y1) in zip(placed, placed[1:]):
        half = (x1 - x0) * 0.42
        context.curve_to(x0 + half, y0, x1 - half, y1, x1, y1)
    context.line_to(x + width, y + height)
    context.close_path()
    context.set_source_rgb(*rgb(colour))
    context.fill()


def draw_photograph(context):
    x, y, width, height = PHOTO_BOX
    draw_shadow(context, PHOTO_BOX, 12, 12, 0.22)
    context.save()
    rounded_rectangle(context, PHOTO_BOX, 12)
    context.clip()
    context.rectangle(*PHOTO_BOX)
    fill_vertical_gradient(context, y, y + height, SKY_TOP, SKY_BOTTOM)
    context.set_source_rgb(*rgb(SUN))
    context.arc(x + width * 0.645, y + height * 0.40, height * 0.105, 0, 2 * math.pi)
    context.fill()
    draw_hills(context, FAR_HILLS, FAR_HILL_POINTS)
    draw_hills(context, NEAR_HILLS, NEAR_HILL_POINTS)

    # What lies beyond the limit is veiled.
    context.rectangle(*PHOTO_BOX)
    rounded_rectangle(context, LIMIT_BOX, 5)
    context.set_fill_rule(cairo.FILL_RULE_EVEN_ODD)
    context.set_source_rgba(1, 1, 1, 0.52)
    context.fill()
    context.restore()
    rounded_rectangle(context, (x + 1.5, y + 1.5, width - 3, height - 3), 10.5)
    context.set_source_rgb(1, 1, 1)
    context.set_line_width(3)
    context.stroke()


def draw_limit(context):
    rounded_rectangle(context, LIMIT_BOX, 5)
    context.set_source_rgb(*rgb(ACCENT))
    context.set_line_width(3.5)
    context.set_dash([9, 6])
    context.stroke()
    context.set_dash([])


def draw_arrow(context, start, end):
    """A line with a filled head at its end."""
    angle = math.atan2(end[1] - start[1], end[0] - start[0])
    length = math.hypot(end[0] - start[0], end[1] - start[1])
    context.save()
    context.translate(*start)
    context.rotate(angle)
    context.move_to(0, -3.5)
    context.line_to(length - 17, -3.5)
    context.line_to(length - 17, -13)
    context.line_to(length, 0)
    context.line_to(length - 17, 13)
    context.line_to(length - 17, 3.5)
    context.line_to(0, 3.5)
    context.close_path()
    context.set_line_join(cairo.LINE_JOIN_ROUND)
    context.set_source_rgb(1, 1, 1)
    context.set_line_width(7)
    context.stroke_preserve()
    context.set_source_rgb(*rgb(ACCENT))
    context.fill_preserve()
    context.set_line_width(2)
    context.stroke_preserve()
    context.new_path()
    context.restore()


def draw_arrows(context):
    """From the limit's corners out over the photograph's corners."""
    x, y, limit_width, limit_height = LIMIT_BOX
    centre_x, centre_y = x + limit_width / 2, y + limit_height / 2
    start_x, start_y = limit_width / 2 + 12, limit_height / 2 + 7
    end_x, end_y = PHOTO_BOX[2] / 2 + 22, PHOTO_BOX[3] / 2 + 11
    for right in (-1, 1):
        for down in (-1, 1):
            draw_arrow(
                context,
                (centre_x + right * start_x, centre_y + down * start_y),
                (centre_x + right * end_x, centre_y + down * end_y),
            )


def write_png(path, surface):
    """Writes an opaque surface as RGBA tagged sRGB; cairo itself would drop the alpha channel."""
    width, height, stride = surface.get_width(), surface.get_height(), surface.get_stride()
    pixels = memoryview(surface.get_data()).cast("B")
    rows = bytearray()
    for y in range(height):
        words = struct.unpack(f"={width}I", pixels[y * stride : y * stride + 4 * width])
        if any(word >> 24 != 255 for word in words):
            sys.exit(f"row {y} of the picture is not opaque")
        rgba = ((word << 8 & 0xFFFFFFFF) | 255 for word in words)
        rows += b"\0" + struct.pack(f">{width}I", *rgba)

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    header = struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)
    path.write_bytes(
        b"\x89PNG\r\n\x1a\n"
        + chunk(b"IHDR", header)
        + chunk(b"sRGB", b"\0")
        + chunk(b"IDAT", zlib.compress(bytes(rows), 9))
        + chunk(b"IEND", b"")
    )


def main():
    surface = cairo.ImageSurface(cairo.FORMAT_ARGB32, WIDTH, HEIGHT)
    context = cairo.Context(surface)
    draw_paper_and_band(context)
    draw_badge(context)
    draw_photograph(context)
    draw_limit(context)
    draw_arrows(context)
    surface.flush()
    write_png(pathlib.Path(__file__).with_name("FX_error_image.png"), surface)


if __name__ == "__main__":
    main()
