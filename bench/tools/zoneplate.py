#!/usr/bin/python3
"""The zone plate test image and the aliasing measure on its thumbnails.

The zone plate is a square 8-bit greyscale image of 127.5 + 127.5 cos(k r^2), r the distance of a pixel
centre from the image centre. Its local frequency k r / pi rises linearly from 0 at the centre to the
Nyquist frequency (0.5 cycles per pixel) at the corners.

A thumbnail that shrinks by s can only show frequencies up to s times the input's Nyquist frequency. Beyond
that, a properly filtered thumbnail is flat grey; a poorly filtered one shows aliased rings (moire). The
measure takes the thumbnail's pixels whose input frequency is above GUARD times the thumbnail's Nyquist
frequency (the guard band leaves out the transition of a real filter: Lanczos-3 passes 50% at the Nyquist
frequency, under 1.5% from 1.4 times it) and reports the RMS deviation of their 8-bit sRGB values from
their mean, in percent of full scale (255).

The pattern is defined on sRGB code values, so a thumbnail made in linear light also carries the harmonics
that the sRGB-to-linear conversion creates; those already alias in the original's own grid and leave faint
rings where 2f or 3f meets the sampling rate (near the corners and the middles of the edges). The
reference rendition shows them too, at about 0.2%.

Usage: zoneplate.py make PATH SIZE
       zoneplate.py measure ORIGINAL THUMB ...   (prints "PERCENT<TAB>THUMB" per thumbnail)
Runs with /usr/bin/python3 (python3-numpy, python3-pil).
"""
import sys

import numpy as np
from PIL import Image

GUARD = 1.5


def corner_radius(size):
    """Distance from the centre of a size x size image to its corner."""
    return size / np.sqrt(2.0)


def make(path, size):
    """Writes the size x size zone plate as an 8-bit greyscale PNG."""
    k = np.pi / (2.0 * corner_radius(size))  # local frequency k r / pi reaches 0.5 at the corner
    centres = np.arange(size, dtype=np.float64) + 0.5 - size / 2.0
    rows = []
    for y in centres:  # row by row keeps the float working set small
        r2 = centres * centres + y * y
        rows.append(np.rint(127.5 + 127.5 * np.cos(k * r2)).astype(np.uint8))
    Image.fromarray(np.stack(rows), mode="L").save(path)


def input_frequency(in_size, out_width, out_height):
    """The original's local frequency (cycles per input pixel) under each thumbnail pixel centre."""
    xs = (np.arange(out_width) + 0.5) * in_size / out_width - in_size / 2.0
    ys = (np.arange(out_height) + 0.5) * in_size / out_height - in_size / 2.0
    r = np.hypot(xs[None, :], ys[:, None])
    return 0.5 * r / corner_radius(in_size)


def aliasing_percent(in_size, thumb_path):
    """RMS deviation from flat grey, in percent of 255, where the thumbnail cannot show the pattern."""
    thumb = np.asarray(Image.open(thumb_path).convert("RGB"), dtype=np.float64)
    out_height, out_width = thumb.shape[:2]
    nyquist = 0.5 * min(out_width, out_height) / in_size  # in cycles per input pixel
    region = input_frequency(in_size, out_width, out_height) > GUARD * nyquist
    values = thumb[region]
    if values.size == 0:
        return float("nan")
    return 100.0 * np.sqrt(np.mean((values - values.mean()) ** 2)) / 255.0


def main(argv):
    if len(argv) == 4 and argv[1] == "make":
        make(argv[2], int(argv[3]))
    elif len(argv) >= 4 and argv[1] == "measure":
        in_size = Image.open(argv[2]).width
        for thumb in argv[3:]:
            print(f"{aliasing_percent(in_size, thumb):.3f}\t{thumb}")
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv)
