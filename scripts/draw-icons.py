#!/usr/bin/env python3
"""Draws the desktop program's pictures into ui/qt/icons/: the five status
images of the job list (24 x 24), the idle and busy tray pictures, and the
application icon in the sizes of the desktop's icon theme. Each picture is
drawn eight times larger and scaled down, for smooth edges.
Usage: /usr/bin/python3 scripts/draw-icons.py"""
import os
from PIL import Image, ImageDraw

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "ui", "qt", "icons")
K = 8  # supersampling

BLUE, DARK, ORANGE = (31, 92, 153, 255), (22, 50, 82, 255), (240, 140, 20, 255)
GREEN, RED, GREY, WHITE = (46, 150, 70, 255), (200, 40, 40, 255), (120, 124, 130, 255), (255, 255, 255, 255)


def canvas(size):
    img = Image.new("RGBA", (size * K, size * K), (0, 0, 0, 0))
    return img, ImageDraw.Draw(img)


def done(img, size):
    return img.resize((size, size), Image.LANCZOS)


def box(s, *c):  # coordinates on a 24-unit grid
    return [v * s / 24.0 for v in c]


def status_image(kind):
    size = 24
    img, d = canvas(size)
    s = size * K
    if kind == "waiting":  # a clock
        d.ellipse(box(s, 2, 2, 22, 22), fill=GREY)
        d.ellipse(box(s, 4, 4, 20, 20), fill=WHITE)
        d.line(box(s, 12, 12, 12, 6), fill=GREY, width=int(2.2 * K))
        d.line(box(s, 12, 12, 16.5, 14), fill=GREY, width=int(2.2 * K))
    elif kind == "converting":  # a film frame moving on
        d.ellipse(box(s, 2, 2, 22, 22), fill=BLUE)
        d.polygon(box(s, 9, 6.5, 18, 12, 9, 17.5), fill=WHITE)
    elif kind == "done":  # a tick
        d.ellipse(box(s, 2, 2, 22, 22), fill=GREEN)
        d.line(box(s, 6.5, 12.5, 10.5, 16.5, 17.5, 8), fill=WHITE, width=int(3 * K), joint="curve")
    elif kind == "abort":  # a stop sign
        d.regular_polygon((s / 2, s / 2, s * 10.5 / 24), 8, rotation=22.5, fill=ORANGE)
        d.rectangle(box(s, 8, 8, 16, 16), fill=WHITE)
    elif kind == "error":  # a cross
        d.ellipse(box(s, 2, 2, 22, 22), fill=RED)
        d.line(box(s, 8, 8, 16, 16), fill=WHITE, width=int(3 * K))
        d.line(box(s, 16, 8, 8, 16), fill=WHITE, width=int(3 * K))
    return done(img, size)


def film(d, s, colour, hole):
    """A rounded square with a strip of film across it."""
    d.rounded_rectangle(box(s, 1, 1, 23, 23), radius=s * 4 / 24, fill=colour)
    d.rectangle(box(s, 3.5, 5, 20.5, 19), fill=WHITE)
    for x in (4.5, 8.5, 12.5, 16.5):
        d.rectangle(box(s, x, 5.8, x + 2.5, 7.6), fill=hole)
        d.rectangle(box(s, x, 16.4, x + 2.5, 18.2), fill=hole)
    d.rectangle(box(s, 5, 9, 19, 15), fill=(190, 210, 230, 255))


def app_icon(size, idle=False):
    """The application and the busy tray picture; idle is grey and still."""
    img, d = canvas(size)
    s = size * K
    film(d, s, GREY if idle else DARK, GREY if idle else DARK)
    if not idle:
        d.polygon(box(s, 9.5, 8.2, 16.5, 12, 9.5, 15.8), fill=ORANGE)
    return done(img, size)


def main():
    os.makedirs(OUT, exist_ok=True)
    strip = Image.new("RGBA", (24 * 5, 24), (0, 0, 0, 0))
    for i, kind in enumerate(("waiting", "converting", "done", "abort", "error")):
        strip.paste(status_image(kind), (24 * i, 0))
    strip.save(os.path.join(OUT, "status.png"))
    for size in (16, 22, 32):
        app_icon(size, idle=True).save(os.path.join(OUT, "tray-idle-%d.png" % size))
        app_icon(size).save(os.path.join(OUT, "tray-busy-%d.png" % size))
    for size in (16, 22, 24, 32, 48, 64, 128, 256):
        app_icon(size).save(os.path.join(OUT, "tarnvel-%d.png" % size))


if __name__ == "__main__":
    main()
