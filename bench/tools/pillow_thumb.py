#!/usr/bin/python3
"""Pillow as a thumbnail peer: IMAGE PREFIX writes PREFIX-200.jpg (150 high) and PREFIX-600.jpg (600 high).

One process, both renditions: the image is opened once (a JPEG through draft(), which lets libjpeg decode
at the smallest DCT scale still at least twice the larger rendition), composited over black if it has
alpha, and each rendition is resized from it with Lanczos and saved at quality 85.
Runs with /usr/bin/python3 (python3-pil).
"""
import math
import sys

from PIL import Image

Image.MAX_IMAGE_PIXELS = None
RENDITIONS = ((600, "600"), (150, "200"))


def opaque(image):
    """The image as RGB or L; alpha is composited over black."""
    if image.mode in ("RGB", "L"):
        return image
    if image.mode in ("RGBA", "LA", "PA") or "transparency" in image.info:
        rgba = image.convert("RGBA")
        flat = Image.new("RGB", rgba.size, (0, 0, 0))
        flat.paste(rgba, mask=rgba.getchannel("A"))
        return flat
    return image.convert("RGB")


def main(path, prefix):
    image = Image.open(path)
    width, height = image.size
    if image.format == "JPEG":
        largest = max(h for h, _ in RENDITIONS)
        image.draft("RGB", (math.ceil(width * 2 * largest / height), 2 * largest))
    image = opaque(image)
    for out_height, suffix in RENDITIONS:
        out_width = max(1, round(width * out_height / height))
        image.resize((out_width, out_height), Image.LANCZOS).save(f"{prefix}-{suffix}.jpg", quality=85)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(sys.argv[1], sys.argv[2])
