#!/usr/bin/env python3
"""vothumb's thumbnail benchmark: time, memory and quality beside its peers, against fixed targets.

Usage: bench/thumbnail_bench.py [--runs N] [--warmup N] [--only TEXT ...] [--vothumb PATH] [--no-setup]
                                [IMAGE ...]

1. Installs the peers (scripts/setup.sh bench) and builds vothumb and the helpers in bench/tools
   (release, build-bench/).
2. Builds the image set in build/bench/images (cached) and adds any IMAGE given.
3. Runs every tool on each image in turn (round robin), one warm-up round, then N timed rounds; wall time,
   processor time and peak RSS of each process come from wait4 in bench/tools/run_measured (a small
   static launcher: the forking process's own memory counts in the child's peak). A tool that takes two
   processes has their times summed and the larger RSS kept.
4. Scores the last round's thumbnails against a slow linear-light Lanczos-3 reference (PSNR) and measures
   aliasing on the zone plate.
5. Prints one table per image, writes build/bench/results.md, and exits with status 1 when a target is
   missed (listed at the end).
"""
import argparse
import datetime
import json
import math
import os
import statistics
import subprocess
import sys
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build-bench"
WORK = ROOT / "build" / "bench"
TOOLS = ROOT / "bench" / "tools"
RUN_MEASURED = BUILD / "bin" / "run_measured"
PLAIN_DECODE = BUILD / "bin" / "plain_decode"
REFERENCE_THUMB = BUILD / "bin" / "reference_thumb"
CORE_WAKE = BUILD / "bin" / "core_wake"
SYSTEM_PYTHON = "/usr/bin/python3"  # the Debian interpreter, which has python3-pil and python3-numpy

HEIGHTS = (150, 600)  # rendition heights; vothumb names them PREFIX-200.jpg and PREFIX-600.jpg
SUFFIX = {150: "200", 600: "600"}
QUALITY = 85
DECODE_HINT = 2 * max(HEIGHTS)  # peers may decode JPEG down to twice the larger rendition

# Targets.
TIME_VS_FASTEST_PEER = 0.6
TIME_VS_DECODE_FLOOR = 1.2
RSS_LIMIT_MB = 24.0
RSS_LIMIT_UP_TO_MEGAPIXELS = 100.0
STARTUP_LIMIT_MS = 2.0
ALIASING_LIMIT_PERCENT = 1.0  # the reference scores about 0.2%, visible moire about 1.5%


# ---- the images ----

@dataclass
class Picture:
    path: Path
    label: str
    format: str
    width: int
    height: int
    progressive: bool
    interlaced: bool
    zoneplate: bool

    @property
    def name(self):
        return self.path.name

    @property
    def megapixels(self):
        return self.width * self.height / 1e6

    def dct_denominator(self):
        """The JPEG DCT scale vothumb decodes at: 1/2 when it leaves a 2x shrink to 600, 1/4 and 1/8 only
        when they leave a 4x shrink (their wider block averaging needs more shrinking to hide)."""
        n = 1
        while n < 8 and self.height / (2 * n) >= (2 if n == 1 else 4) * 600:
            n *= 2
        return n

    def decode_hint(self):
        """WIDTHxHEIGHT that keeps at least twice the larger rendition (gm -size, jpeg:size, draft)."""
        return f"{math.ceil(self.width * DECODE_HINT / self.height)}x{DECODE_HINT}"

    def has_memory_target(self):
        """Baseline JPEG and non-interlaced PNG up to 100 MP must stay under the RSS limit."""
        streamable = ((self.format == "JPEG" and not self.progressive)
                      or (self.format == "PNG" and not self.interlaced))
        return streamable and self.megapixels <= RSS_LIMIT_UP_TO_MEGAPIXELS


def load_pictures(extra_images):
    """Makes the missing images of the set and returns the set's descriptions, then the extra images'."""
    out = subprocess.run([SYSTEM_PYTHON, TOOLS / "make_images.py", WORK / "images", *extra_images],
                         check=True, stdout=subprocess.PIPE, text=True).stdout
    return [Picture(**{**item, "path": Path(item["path"])}) for item in json.loads(out)]


# ---- the tools ----

@dataclass
class Contender:
    name: str
    kind: str  # "vothumb", "peer", "floor" (a plain decode) or "check" (a cross-check of the floor)
    commands: list
    outputs: dict = field(default_factory=dict)  # rendition height -> file
    mapping: str = "stretch"  # how the thumbnail sits on the image, for the reference (see reference_thumb)


def thumbnailers(picture, vothumb, out):
    """vothumb and its peers, each writing both renditions of the picture into `out`."""
    image = str(picture.path)
    hint = picture.decode_hint()

    def outputs(prefix):
        return {h: out / f"{prefix}-{SUFFIX[h]}.jpg" for h in HEIGHTS}

    def vips(h):
        return ["vipsthumbnail", image, "--size", f"x{h}", "-o", f"{out}/vips-{SUFFIX[h]}.jpg[Q={QUALITY}]"]

    def magick(program, size_option, prefix):
        return [*program, *size_option, image, "-resize", "x600", "-quality", str(QUALITY),
                "-write", str(out / f"{prefix}-600.jpg"), "-resize", "x150", str(out / f"{prefix}-200.jpg")]

    return [
        Contender("vothumb", "vothumb", [[str(vothumb), image, str(out / "vothumb")]], outputs("vothumb"), "fit"),
        Contender("vipsthumbnail x2", "peer", [vips(h) for h in HEIGHTS], outputs("vips")),
        Contender("gm convert -size", "peer", [magick(["gm", "convert"], ["-size", hint], "gm")], outputs("gm")),
        Contender("convert (ImageMagick)", "peer",
                  [magick(["/usr/bin/convert"], ["-define", f"jpeg:size={hint}"], "im")], outputs("im")),
        Contender("Pillow", "peer", [[SYSTEM_PYTHON, str(TOOLS / "pillow_thumb.py"), image, str(out / "pillow")]],
                  outputs("pillow")),
    ]


def decoders(picture, plain_decode):
    """The plain decodes of the picture (the decode floor is the fastest "floor"), and djpeg as a check."""
    image = str(picture.path)
    if picture.format == "JPEG":
        n = picture.dct_denominator()
        return [Contender(f"floor: libjpeg-turbo 1/{n}", "floor", [[str(plain_decode), "--scale", str(n), image]]),
                Contender(f"djpeg -scale 1/{n}", "check", [["djpeg", "-scale", f"1/{n}", "-outfile", "/dev/null",
                                                             image]])]
    if picture.format == "PNG":
        return [Contender(f"floor: {lib}", "floor", [[str(plain_decode), "--png", lib, image]])
                for lib in ("spng", "libpng")]
    library = {"WEBP": "libwebp", "TIFF": "libtiff"}.get(picture.format, picture.format)
    return [Contender(f"floor: {library}", "floor", [[str(plain_decode), image]])]


# ---- running and measuring ----

@dataclass
class Sample:
    seconds: float
    rss_mb: float
    cpu_seconds: float


class ToolFailed(Exception):
    pass


def last_line(file):
    file.seek(0)
    lines = file.read().decode(errors="replace").strip().splitlines()
    return lines[-1] if lines else ""


def run_process(argv):
    """Runs one process through run_measured; returns its wall time, peak RSS (wait4's ru_maxrss) and
    processor time (user and system, all threads)."""
    with tempfile.TemporaryFile() as errors:
        done = subprocess.run([str(RUN_MEASURED), *map(str, argv)], stdout=subprocess.PIPE, stderr=errors,
                              text=True)
        if done.returncode != 0:
            raise ToolFailed(f"run_measured failed: {last_line(errors)}")
        seconds, rss_kb, status, cpu_seconds = done.stdout.split()
        if status != "0":
            raise ToolFailed(f"exit {status}: {last_line(errors)}")
    return Sample(float(seconds), int(rss_kb) / 1024.0, float(cpu_seconds))


def run_contender(contender):
    """One tool-run: its processes in order, times summed, the largest RSS kept; outputs must appear."""
    for path in contender.outputs.values():
        path.unlink(missing_ok=True)
    samples = [run_process(argv) for argv in contender.commands]
    missing = [path.name for path in contender.outputs.values() if not path.exists()]
    if missing:
        raise ToolFailed(f"wrote no {', '.join(missing)}")
    return Sample(sum(s.seconds for s in samples), max(s.rss_mb for s in samples),
                  sum(s.cpu_seconds for s in samples))


def round_robin(contenders, runs, warmup):
    """Runs the contenders alternately; keeps the samples of the timed rounds and each failure."""
    samples = {c.name: [] for c in contenders}
    failures = {}
    for round_index in range(warmup + runs):
        for contender in contenders:
            if contender.name in failures:
                continue
            try:
                sample = run_contender(contender)
            except ToolFailed as failure:
                failures[contender.name] = str(failure)
                continue
            if round_index >= warmup:
                samples[contender.name].append(sample)
    return samples, failures


def measure_startup(vothumb):
    """Median start-up of vothumb without arguments (exit 255) and of /bin/true, in ms (hyperfine -N)."""
    with tempfile.NamedTemporaryFile(suffix=".json") as export:
        subprocess.run(["hyperfine", "-N", "-i", "--warmup", "20", "--runs", "200", "--style", "none",
                        "--export-json", export.name, str(vothumb), "/bin/true"],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        results = json.load(open(export.name))["results"]
    return results[0]["median"] * 1000.0, results[1]["median"] * 1000.0


def vothumb_exit_status(vothumb):
    return subprocess.run([str(vothumb)], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode


# ---- quality ----

def reference_scores(picture, thumbs, refdir):
    """PSNR and size of each thumbnail against the reference; thumbs are (contender, height, file)."""
    jobs = [f"{c.mapping}:{path}" for c, _, path in thumbs]
    done = subprocess.run([str(REFERENCE_THUMB), "--save", str(refdir), str(picture.path), *jobs],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if done.returncode != 0:
        message = f"reference_thumb failed: {done.stderr.strip()}"
        return {}, {}, {(c.name, height): message for c, height, _ in thumbs}
    by_path = {}
    for line in done.stdout.splitlines():
        value, detail, path = line.split("\t")
        by_path[path] = (value, detail)
    scores, sizes, errors = {}, {}, {}
    for contender, height, path in thumbs:
        value, detail = by_path.get(str(path), ("error", "no result"))
        if value == "error":
            errors[(contender.name, height)] = detail
        else:
            scores[(contender.name, height)] = float(value)
            sizes[(contender.name, height)] = detail
    return scores, sizes, errors


def aliasing(picture, files):
    """Aliasing (percent) of each file, keyed like `files` (key -> thumbnail file)."""
    out = subprocess.run([SYSTEM_PYTHON, str(TOOLS / "zoneplate.py"), "measure", str(picture.path),
                          *map(str, files.values())], check=True, stdout=subprocess.PIPE, text=True).stdout
    by_path = {}
    for line in out.splitlines():
        percent, path = line.split("\t")
        by_path[path] = float(percent)
    return {key: by_path[str(path)] for key, path in files.items()}


# ---- one image's results ----

REFERENCE_ROW = "reference (Lanczos-3, linear)"
ALIASING_NOTE = (f"alias: RMS deviation of the 8-bit sRGB values from their mean, in % of 255, where the zone "
                 f"plate's frequency exceeds 1.5x the output's Nyquist frequency; target < {ALIASING_LIMIT_PERCENT}%")


@dataclass
class PictureResult:
    picture: Picture
    contenders: list
    samples: dict
    failures: dict
    psnr: dict = field(default_factory=dict)  # (tool, height) -> dB
    sizes: dict = field(default_factory=dict)  # (tool, height) -> "WxH"
    quality_errors: dict = field(default_factory=dict)  # (tool, height) -> message
    aliasing: dict = field(default_factory=dict)  # (tool, height) -> percent

    def median_time(self, name):
        rows = self.samples.get(name)
        return statistics.median(s.seconds for s in rows) if rows else None

    def median_cpu(self, name):
        rows = self.samples.get(name)
        return statistics.median(s.cpu_seconds for s in rows) if rows else None

    def peak_rss(self, name):
        rows = self.samples.get(name)
        return max(s.rss_mb for s in rows) if rows else None

    def fastest(self, kind):
        """(name, median seconds) of the fastest contender of that kind that ran, or (None, None)."""
        timed = [(self.median_time(c.name), c.name) for c in self.contenders
                 if c.kind == kind and self.median_time(c.name) is not None]
        seconds, name = min(timed, default=(None, None))
        return name, seconds

    def best_peer_psnr(self, height):
        values = [self.psnr[(c.name, height)] for c in self.contenders
                  if c.kind == "peer" and (c.name, height) in self.psnr]
        return max(values) if values else None


def benchmark_picture(picture, vothumb, runs, warmup):
    out = WORK / "out" / picture.path.stem
    out.mkdir(parents=True, exist_ok=True)
    contenders = thumbnailers(picture, vothumb, out) + decoders(picture, PLAIN_DECODE)
    print(f"{picture.name}: {warmup} warm-up + {runs} timed rounds of {len(contenders)} tools", file=sys.stderr)
    samples, failures = round_robin(contenders, runs, warmup)
    result = PictureResult(picture, contenders, samples, failures)
    score_quality(result, out)
    return result


def score_quality(result, out):
    thumbs = [(c, h, path) for c in result.contenders for h, path in c.outputs.items()
              if c.name not in result.failures and path.exists()]
    if not thumbs:
        return
    refdir = out / "reference"
    refdir.mkdir(exist_ok=True)
    result.psnr, result.sizes, result.quality_errors = reference_scores(result.picture, thumbs, refdir)
    if result.picture.zoneplate:
        files = {(c.name, h): path for c, h, path in thumbs}
        files.update({(REFERENCE_ROW, h): refdir / f"vothumb-{SUFFIX[h]}.jpg.ref.png" for h in HEIGHTS
                      if (refdir / f"vothumb-{SUFFIX[h]}.jpg.ref.png").exists()})
        result.aliasing = aliasing(result.picture, files)


# ---- tables ----

def number(value, digits):
    return "—" if value is None else f"{value:.{digits}f}"


def ratio(value, base):
    return "—" if value is None or not base else f"{value / base:.2f}x"


def picture_table(result):
    """(headers, rows) of one image's table."""
    headers = ["tool", "time s", "/ fastest peer", "/ decode floor", "CPU s", "peak RSS MB",
               "bytes x150 / x600", "PSNR x150", "PSNR x600"]
    zoneplate = result.picture.zoneplate
    if zoneplate:
        headers += ["alias x150 %", "alias x600 %"]
    _, peer_time = result.fastest("peer")
    _, floor_time = result.fastest("floor")
    rows = []
    for c in result.contenders:
        seconds = result.median_time(c.name)
        if c.name in result.failures:
            row = [c.name, f"failed ({result.failures[c.name]})"] + [""] * (len(headers) - 2)
            rows.append(row)
            continue
        sizes = " / ".join(str(p.stat().st_size) if p.exists() else "—" for p in c.outputs.values()) or ""
        row = [c.name, number(seconds, 3), ratio(seconds, peer_time), ratio(seconds, floor_time),
               number(result.median_cpu(c.name), 3), number(result.peak_rss(c.name), 1), sizes]
        row += [psnr_cell(result, c.name, h) if c.outputs else "" for h in HEIGHTS]
        if zoneplate:
            row += [number(result.aliasing.get((c.name, h)), 2) if c.outputs else "" for h in HEIGHTS]
        rows.append(row)
    if zoneplate:
        rows.append([REFERENCE_ROW] + [""] * 8 + [number(result.aliasing.get((REFERENCE_ROW, h)), 2)
                                                  for h in HEIGHTS])
    return headers, rows


def psnr_cell(result, name, height):
    if (name, height) in result.quality_errors:
        return f"error ({result.quality_errors[(name, height)]})"
    return number(result.psnr.get((name, height)), 2)


def text_table(headers, rows):
    widths = [max(len(str(cell)) for cell in column) for column in zip(headers, *rows)]
    lines = ["  ".join(str(cell).ljust(w) for cell, w in zip(line, widths)).rstrip() for line in [headers, *rows]]
    lines.insert(1, "  ".join("-" * w for w in widths))
    return "\n".join(lines)


def markdown_table(headers, rows):
    lines = ["| " + " | ".join(headers) + " |", "|" + "---|" * len(headers)]
    lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(lines)


def picture_heading(picture):
    if picture.format == "JPEG":
        decode = f"JPEG decoded at 1/{picture.dct_denominator()}"
    else:
        decode = "decoded at full size"
    return f"{picture.label} — `{picture.name}`, {picture.width}x{picture.height}, {decode}"


# ---- targets ----

def missed_targets(results, startup_ms, exit_status):
    """One line per target missed."""
    missed = []
    if exit_status != 255:
        missed.append(f"vothumb without arguments exits {exit_status}, expected 255")
    if startup_ms > STARTUP_LIMIT_MS:
        missed.append(f"start-up {startup_ms:.2f} ms > {STARTUP_LIMIT_MS} ms")
    for result in results:
        missed += missed_on_picture(result)
    return missed


def missed_on_picture(result):
    name = result.picture.name
    if "vothumb" in result.failures:
        return [f"{name}: vothumb failed: {result.failures['vothumb']}"]
    missed = []
    seconds, rss = result.median_time("vothumb"), result.peak_rss("vothumb")
    peer, peer_time = result.fastest("peer")
    floor, floor_time = result.fastest("floor")
    if peer_time and seconds > TIME_VS_FASTEST_PEER * peer_time:
        missed.append(f"{name}: time {seconds:.3f} s = {seconds / peer_time:.2f}x the fastest peer ({peer}, "
                      f"{peer_time:.3f} s); target <= {TIME_VS_FASTEST_PEER}x")
    if floor_time and seconds > TIME_VS_DECODE_FLOOR * floor_time:
        missed.append(f"{name}: time {seconds:.3f} s = {seconds / floor_time:.2f}x the decode floor ({floor}, "
                      f"{floor_time:.3f} s); target <= {TIME_VS_DECODE_FLOOR}x")
    if result.picture.has_memory_target() and rss > RSS_LIMIT_MB:
        missed.append(f"{name}: peak RSS {rss:.1f} MB; target <= {RSS_LIMIT_MB:.0f} MB")
    for height in HEIGHTS:
        missed += missed_quality(result, height)
    return missed


def missed_quality(result, height):
    name, key = result.picture.name, ("vothumb", height)
    if key in result.quality_errors:
        return [f"{name}: x{height}: {result.quality_errors[key]}"]
    missed = []
    size = result.sizes.get(key, "")
    if size and not size.endswith(f"x{height}"):
        missed.append(f"{name}: x{height} rendition is {size}")
    best = result.best_peer_psnr(height)
    own = result.psnr.get(key)
    if own is not None and best is not None and own < best:
        missed.append(f"{name}: x{height} PSNR {own:.2f} dB < best peer {best:.2f} dB")
    alias = result.aliasing.get(key)
    if alias is not None and alias >= ALIASING_LIMIT_PERCENT:
        missed.append(f"{name}: x{height} aliasing {alias:.2f}% >= {ALIASING_LIMIT_PERCENT}%")
    return missed


# ---- the report ----

def package_version(package):
    return subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True).stdout or "?"


def core_wake_ms():
    """How late a new thread first runs after the machine idled (bench/tools/core_wake), in ms."""
    return float(subprocess.run([str(CORE_WAKE)], check=True, stdout=subprocess.PIPE, text=True).stdout)


def environment_lines(vothumb, runs, warmup):
    cpu = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
               "?")
    commit = subprocess.run(["git", "-C", str(ROOT), "describe", "--always", "--dirty"], stdout=subprocess.PIPE,
                            text=True).stdout.strip()
    peers = ", ".join(f"{p} {package_version(p)}" for p in ("libvips42", "graphicsmagick", "imagemagick-6.q16",
                                                             "python3-pil", "libjpeg62-turbo"))
    return [f"{datetime.date.today()}, {os.cpu_count()} cores ({cpu}), vothumb {commit} (`{vothumb}`)",
            f"{warmup} warm-up + {runs} timed rounds, round robin; time = median wall time, "
            "CPU = median processor time, RSS = largest peak",
            f"peers: {peers}",
            f"a thread started after 20 ms of idleness first runs {core_wake_ms():.2f} ms later (median of 15; "
            "a multi-threaded tool pays it, a single-threaded one does not)"]


def report(results, vothumb, startup, runs, warmup, missed):
    """The whole report as (terminal text, markdown)."""
    startup_ms, true_ms = startup
    env = environment_lines(vothumb, runs, warmup)
    startup_line = (f"start-up (vothumb without arguments, hyperfine -N, median): {startup_ms:.2f} ms "
                    f"(/bin/true: {true_ms:.2f} ms)")
    text, markdown = [*env, startup_line], ["# vothumb thumbnail benchmark", "", *(f"- {line}" for line in env),
                                            f"- {startup_line}"]
    for result in results:
        headers, rows = picture_table(result)
        note = [ALIASING_NOTE] if result.picture.zoneplate else []
        text += ["", picture_heading(result.picture), text_table(headers, rows), *note]
        markdown += ["", f"## {picture_heading(result.picture)}", "", markdown_table(headers, rows), "", *note]
    verdict = ["", "All targets met." if not missed else f"Targets missed ({len(missed)}):", *missed]
    text += verdict
    markdown += ["", "## Targets", *(["All met."] if not missed else [f"- {line}" for line in missed])]
    return "\n".join(text), "\n".join(markdown) + "\n"


# ---- setup and main ----

def run_quietly(argv):
    """Runs a set-up step; its output is shown only when it fails, and then the benchmark stops."""
    done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        sys.exit(f"{done.stdout}\nfailed: {' '.join(map(str, argv))}")


def setup_and_build(skip_setup):
    if not skip_setup:
        subprocess.run(["bash", ROOT / "scripts" / "setup.sh", "bench"], check=True)
    run_quietly(["cmake", "-S", ROOT, "-B", BUILD, "-G", "Ninja", "-Wno-dev", "-DCMAKE_BUILD_TYPE=Release",
                 "-DVO_BUILD_BENCH=ON", "-DVO_BUILD_TESTS=OFF"])
    run_quietly(["ninja", "-C", BUILD, "vothumb", "run_measured", "plain_decode", "reference_thumb", "core_wake"])


def parse_args():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--runs", type=int, default=7, help="timed rounds per image (default 7)")
    parser.add_argument("--warmup", type=int, default=1, help="untimed rounds first (default 1)")
    parser.add_argument("--only", action="append", default=[], metavar="TEXT",
                        help="only images whose file name contains TEXT (repeatable)")
    parser.add_argument("--vothumb", type=Path, help="the vothumb to measure (default: build-bench's)")
    parser.add_argument("--no-setup", action="store_true", help="skip scripts/setup.sh bench")
    parser.add_argument("images", nargs="*", type=Path, help="more images to include")
    return parser.parse_args()


def main():
    args = parse_args()
    setup_and_build(args.no_setup)
    vothumb = args.vothumb.resolve() if args.vothumb else BUILD / "bin" / "vothumb"
    pictures = [p for p in load_pictures([str(i.resolve()) for i in args.images])
                if not args.only or any(text in p.name for text in args.only)]
    startup = measure_startup(vothumb)
    exit_status = vothumb_exit_status(vothumb)
    results = [benchmark_picture(p, vothumb, args.runs, args.warmup) for p in pictures]
    missed = missed_targets(results, startup[0], exit_status)
    text, markdown = report(results, vothumb, startup, args.runs, args.warmup, missed)
    print(text)
    (WORK / "results.md").write_text(markdown)
    print(f"\nwritten to {WORK / 'results.md'}")
    sys.exit(1 if missed else 0)


if __name__ == "__main__":
    main()
