#!/usr/bin/env python3
"""Time and peak memory of vothumb beside its peers on large images.

Peers: vipsthumbnail run twice (one process per rendition) and GraphicsMagick `gm convert -size`
(both renditions in one process). Each run's wall time and peak RSS come from wait4, as /usr/bin/time -v
reports them; tools alternate within every round; the median of N rounds is shown, with the ratio to
vothumb. Usage: bench/compare_peers.py [--runs N] [IMAGE ...]
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "bench"
PHOTO = Path("/usr/share/backgrounds/mate/abstract/Elephants_5640x3172.jpg")


def run(argv):
    """Runs one process; returns (seconds, peak RSS in MB)."""
    start = time.perf_counter()
    proc = subprocess.Popen(argv, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(proc.pid, 0)
    elapsed = time.perf_counter() - start
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit(f"failed: {' '.join(map(str, argv))}")
    return elapsed, usage.ru_maxrss / 1024.0


def tools(vothumb, image, out):
    return {
        "vothumb": [[vothumb, image, out / "vo"]],
        "vipsthumbnail x2": [["vipsthumbnail", image, "--size", "x150", "-o", f"{out}/vips-200.jpg[Q=85]"],
                             ["vipsthumbnail", image, "--size", "x600", "-o", f"{out}/vips-600.jpg[Q=85]"]],
        "gm convert -size": [["gm", "convert", "-size", "1600x1600", image, "-resize", "x600", "-quality", "85",
                              "-write", f"{out}/gm-600.jpg", "-resize", "x150", f"{out}/gm-200.jpg"]],
    }


def make_images():
    WORK.mkdir(parents=True, exist_ok=True)
    jpeg, png = WORK / "photo-6000x4000.jpg", WORK / "photo-5120x2880-rgba.png"
    if not jpeg.exists():
        subprocess.run(["gm", "convert", PHOTO, "-resize", "6000x4000!", "-interlace", "None", "-quality", "92",
                        jpeg], check=True)
    if not png.exists():
        subprocess.run(["gm", "convert", PHOTO, "-resize", "5120x2880!", "-matte", f"PNG32:{png}"], check=True)
    return [jpeg, png]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("images", nargs="*", type=Path)
    args = parser.parse_args()
    subprocess.run(["bash", ROOT / "scripts" / "setup.sh", "bench"], check=True)
    build = ROOT / "build" / "release"
    subprocess.run(["cmake", "-S", ROOT, "-B", build, "-G", "Ninja", "-Wno-dev", "-DCMAKE_BUILD_TYPE=Release"],
                   check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["ninja", "-C", build, "vothumb"], check=True, stdout=subprocess.DEVNULL)
    vothumb = build / "bin" / "vothumb"
    out = WORK / "out"
    out.mkdir(parents=True, exist_ok=True)

    for image in args.images or make_images():
        results = {}
        for _ in range(args.runs):
            for name, commands in tools(vothumb, image, out).items():
                seconds, rss = 0.0, 0.0
                for argv in commands:
                    s, r = run(argv)
                    seconds, rss = seconds + s, max(rss, r)
                results.setdefault(name, []).append((seconds, rss))
        print(f"\n{image.name}  (median of {args.runs})")
        print(f"{'tool':<18}{'seconds':>9}{'peak MB':>9}{'time / vothumb':>16}")
        base = statistics.median(s for s, _ in results["vothumb"])
        for name, rows in results.items():
            seconds = statistics.median(s for s, _ in rows)
            rss = statistics.median(r for _, r in rows)
            print(f"{name:<18}{seconds:>9.3f}{rss:>9.1f}{seconds / base:>16.2f}")


if __name__ == "__main__":
    main()
