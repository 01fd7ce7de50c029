#!/usr/bin/python3
"""Builds the thumbnail benchmark's image set and describes it.

Usage: make_images.py OUTDIR [EXTRA_IMAGE ...]

Real photographs come from Debian's mate-backgrounds; the rest is made here from one of them and cached in
OUTDIR (a file is made only when it is missing). Prints a JSON list with one object per image: path,
label, format, width, height, progressive (JPEG), interlaced (PNG), zoneplate. Extra images given on the
command line are described and appended. Runs with /usr/bin/python3 (python3-numpy, python3-pil).
"""
import json
import os
import struct
import subprocess
import sys
import zlib
from functools import lru_cache
from pathlib import Path

import numpy as np
from PIL import Image

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
sys.path.insert(0, str(Path(__file__).resolve().parent))
import zoneplate  # noqa: E402

Image.MAX_IMAGE_PIXELS = None  # the set has a 100-megapixel image on purpose

BACKGROUNDS = Path("/usr/share/backgrounds/mate")
SOURCE_PHOTO = BACKGROUNDS / "abstract" / "Elephants_5640x3172.jpg"
REAL_PHOTOS = [
    (SOURCE_PHOTO, "photograph 5640x3172, progressive JPEG"),
    (BACKGROUNDS / "nature" / "Wood.jpg", "photograph 2560x1920, baseline JPEG"),
]
SEED = 20261122


@lru_cache(maxsize=1)
def source_photo():
    return Image.open(SOURCE_PHOTO).convert("RGB")


def photo_at(width, height):
    """The source photograph cropped about its centre to the aspect ratio, then resized (Lanczos)."""
    photo = source_photo()
    aspect = width / height
    crop_w = min(photo.width, round(photo.height * aspect))
    crop_h = min(photo.height, round(photo.width / aspect))
    left, top = (photo.width - crop_w) // 2, (photo.height - crop_h) // 2
    return photo.crop((left, top, left + crop_w, top + crop_h)).resize((width, height), Image.LANCZOS)


def add_grain(pixels, luma_sigma=4.0, chroma_sigma=1.5, strip=512):
    """Adds Gaussian film grain (mostly luminance) to an 8-bit RGB array in place, a strip at a time."""
    rng = np.random.default_rng(SEED)
    for top in range(0, pixels.shape[0], strip):
        block = pixels[top:top + strip].astype(np.float32)
        luma = rng.standard_normal(block.shape[:2], dtype=np.float32) * luma_sigma
        block += luma[..., None] + rng.standard_normal(block.shape, dtype=np.float32) * chroma_sigma
        pixels[top:top + strip] = np.clip(np.rint(block), 0, 255).astype(np.uint8)


def grainy_photo(width, height):
    pixels = np.array(photo_at(width, height))
    add_grain(pixels)
    return Image.fromarray(pixels)


def paeth_filtered(raw, bpp):
    """PNG filter type 4 (Paeth) applied to every row of a (rows, bytes) uint8 array."""
    x = raw.astype(np.int16)
    a = np.zeros_like(x)
    a[:, bpp:] = x[:, :-bpp]
    b = np.zeros_like(x)
    b[1:] = x[:-1]
    c = np.zeros_like(x)
    c[1:, bpp:] = x[:-1, :-bpp]
    p = a + b - c
    pa, pb, pc = np.abs(p - a), np.abs(p - b), np.abs(p - c)
    predictor = np.where((pa <= pb) & (pa <= pc), a, np.where(pb <= pc, b, c))
    return ((x - predictor) & 0xFF).astype(np.uint8)


def png_chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)


def write_png16(path, rgb16):
    """Writes a 16-bit RGB PNG (Pillow cannot): non-interlaced, every row Paeth-filtered."""
    height, width, _ = rgb16.shape
    raw = rgb16.astype(">u2").view(np.uint8).reshape(height, width * 6)
    rows = np.empty((height, width * 6 + 1), dtype=np.uint8)
    rows[:, 0] = 4
    rows[:, 1:] = paeth_filtered(raw, 6)
    header = struct.pack(">IIBBBBB", width, height, 16, 2, 0, 0, 0)
    with open(path, "wb") as out:
        out.write(b"\x89PNG\r\n\x1a\n")
        out.write(png_chunk(b"IHDR", header))
        out.write(png_chunk(b"IDAT", zlib.compress(rows.tobytes(), 6)))
        out.write(png_chunk(b"IEND", b""))


# ---- the generated images; each writes one file ----

def make_baseline_24mp(path):
    grainy_photo(6000, 4000).save(path, "JPEG", quality=92, progressive=False, optimize=False)


def make_progressive_24mp(path, baseline):
    """The same coefficients as the baseline file, rewritten as progressive scans (jpegtran: lossless)."""
    with open(path, "wb") as out:
        subprocess.run(["jpegtran", "-copy", "all", "-progressive", str(baseline)], stdout=out, check=True)


def make_baseline_100mp(path):
    grainy_photo(12240, 8160).save(path, "JPEG", quality=92, progressive=False, optimize=False)


def make_rgba_png(path):
    """An RGBA PNG whose alpha is opaque, so that every tool's handling of alpha gives the same picture."""
    photo = photo_at(5120, 2880).convert("RGBA")
    photo.save(path, "PNG")


def make_png16(path):
    pixels = np.asarray(photo_at(4000, 2250), dtype=np.float32) * 257.0
    rng = np.random.default_rng(SEED)
    pixels += rng.standard_normal(pixels.shape, dtype=np.float32) * 128.0  # real content in the low bits
    write_png16(path, np.clip(np.rint(pixels), 0, 65535).astype(np.uint16))


def make_webp(path):
    photo_at(5120, 2880).save(path, "WEBP", quality=90)


def make_tiff(path):
    photo_at(5120, 2880).save(path, "TIFF", compression="tiff_lzw")


def make_zoneplate(path):
    zoneplate.make(path, 4000)


def generated_images(outdir):
    """(file name, label, maker) of every generated image, in the order they are made and benchmarked."""
    baseline = outdir / "grain-6000x4000.jpg"
    return [
        ("grain-6000x4000.jpg", "24 MP 6000x4000 baseline JPEG q92, film grain", make_baseline_24mp),
        ("grain-6000x4000-progressive.jpg", "24 MP 6000x4000 progressive JPEG q92, film grain",
         lambda path: make_progressive_24mp(path, baseline)),
        ("grain-12240x8160.jpg", "100 MP 12240x8160 baseline JPEG q92, film grain", make_baseline_100mp),
        ("photo-5120x2880-rgba.png", "5120x2880 RGBA PNG (8-bit, opaque alpha)", make_rgba_png),
        ("photo-4000x2250-16bit.png", "4000x2250 16-bit RGB PNG", make_png16),
        ("photo-5120x2880.webp", "5120x2880 lossy WebP q90", make_webp),
        ("photo-5120x2880-lzw.tif", "5120x2880 RGB TIFF, LZW", make_tiff),
        ("zoneplate-4000x4000.png", "zone plate 4000x4000, 8-bit grey PNG", make_zoneplate),
    ]


def make_missing(outdir):
    """Makes every generated image that is missing; a file appears only once complete."""
    outdir.mkdir(parents=True, exist_ok=True)
    for name, label, maker in generated_images(outdir):
        path = outdir / name
        if path.exists():
            continue
        print(f"making {path.name} ({label})", file=sys.stderr)
        partial = path.with_name(".partial-" + name)
        maker(partial)
        os.replace(partial, path)


def describe(path, label):
    with Image.open(path) as image:
        return {
            "path": str(path),
            "label": label,
            "format": image.format,
            "width": image.width,
            "height": image.height,
            "progressive": bool(image.info.get("progressive") or image.info.get("progression")),
            "interlaced": bool(image.info.get("interlace")),
            "zoneplate": Path(path).name.startswith("zoneplate"),
        }


def main(argv):
    if len(argv) < 2:
        sys.exit(__doc__)
    outdir = Path(argv[1])
    make_missing(outdir)
    images = [(path, label) for path, label in REAL_PHOTOS]
    images += [(outdir / name, label) for name, label, _ in generated_images(outdir)]
    images += [(Path(extra), Path(extra).name) for extra in argv[2:]]
    print(json.dumps([describe(path, label) for path, label in images], indent=1))


if __name__ == "__main__":
    main(sys.argv)
