#!/usr/bin/env python3
"""GIF file sizes: qimg's frame optimiser against gifsicle -O2 / -O3 and Pillow (optimize=True),
and Pillow's GIF encoding speed on the still that qimg_bench's gifencode/dithered encodes.

Two sets of animations:
  corpus       every animated file of tests/gif/corpus: `qimg resave --optimize`, gifsicle on
               the file, Pillow re-saving it
  true colour  frames cut from photographs (a pan, and a sprite moving over a still photo):
               `qimg encode` (256 colours); gifsicle -O2 / -O3 on qimg's file with its frames
               made whole again (`gifsicle --unoptimize`), so both optimise the same indices;
               Pillow saving the RGB frames (it quantizes each frame on its own)

A third table compares qimg's palette modes (`--palettes shared`, `local`, `auto`, 32 colours) on
the true-colour sets and a slide show of both photographs: file size and the PSNR of the frames
shown against the source frames.

Needs python3-pil, gifsicle and lomiri-wallpapers-20.04 (the Makefile's BENCH_PACKAGES).
Run with Debian's python3: /usr/bin/python3 bench/gif_sizes.py build/bench/tools/qimg
"""
import glob
import io
import math
import os
import subprocess
import sys
import tempfile
import time

from PIL import Image, ImageChops, ImageStat

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
CORPUS = os.path.join(ROOT, "tests", "gif", "corpus")
PHOTOS = ["/usr/share/backgrounds/Kleiber_by_Lukas_Baubkus.jpg",
          "/usr/share/backgrounds/Infinite-Sea_by_Aury88.jpg"]


def size_of(path):
    return os.path.getsize(path)


def gifsicle(level, source, target):
    subprocess.run(["gifsicle", level, source, "-o", target], check=True)
    return size_of(target)


def pillow_save(image_or_frames, target):
    if isinstance(image_or_frames, list):
        first, rest = image_or_frames[0], image_or_frames[1:]
        first.save(target, save_all=True, append_images=rest, optimize=True, duration=100,
                   loop=0)
    else:
        image_or_frames.save(target, save_all=True, optimize=True)
    return size_of(target)


def row(name, sizes):
    o2 = sizes["gifsicle -O2"]
    cells = " ".join(f"{sizes[k]:>12}" for k in COLUMNS)
    print(f"{name:32} {cells} {sizes['qimg'] / o2:>10.3f}")


COLUMNS = ["input", "qimg", "gifsicle -O2", "gifsicle -O3", "Pillow"]


def header(title):
    print(f"\n{title}")
    print(f"{'file':32} " + " ".join(f"{c:>12}" for c in COLUMNS) + f" {'qimg/O2':>10}")


def corpus(qimg, work):
    header("corpus animations (bytes)")
    totals = {k: 0 for k in COLUMNS}
    for path in sorted(glob.glob(os.path.join(CORPUS, "*.gif"))):
        with Image.open(path) as im:
            if getattr(im, "n_frames", 1) < 2:
                continue
        name = os.path.basename(path)
        out = os.path.join(work, "q-" + name)
        subprocess.run([qimg, "resave", path, "-o", out, "--optimize"], check=True,
                       stdout=subprocess.DEVNULL)
        with Image.open(path) as im:
            pil = pillow_save(im, os.path.join(work, "p-" + name))
        sizes = {"input": size_of(path), "qimg": size_of(out),
                 "gifsicle -O2": gifsicle("-O2", path, os.path.join(work, "o2-" + name)),
                 "gifsicle -O3": gifsicle("-O3", path, os.path.join(work, "o3-" + name)),
                 "Pillow": pil}
        for k in COLUMNS:
            totals[k] += sizes[k]
        row(name, sizes)
    row("total", totals)


def true_colour_sets(work):
    """(name, list of PNG paths, list of RGB images)"""
    sets = []
    for photo in PHOTOS:
        src = Image.open(photo).convert("RGB").reduce(4)
        stem = os.path.basename(photo).split("_")[0].lower()
        # A pan: a 320 x 200 window sliding 6 pixels per frame.
        pan = [src.crop((40 + 6 * f, 60, 360 + 6 * f, 260)) for f in range(16)]
        # A sprite: a red square crossing a still 320 x 200 cut of the photo.
        still = src.crop((40, 60, 360, 260))
        sprite = []
        for f in range(16):
            frame = still.copy()
            frame.paste((230, 30, 30), (10 + 18 * f, 80, 50 + 18 * f, 120))
            sprite.append(frame)
        for kind, frames in (("pan", pan), ("sprite", sprite)):
            paths = []
            for i, frame in enumerate(frames):
                p = os.path.join(work, f"{stem}-{kind}-{i:02}.png")
                frame.save(p)
                paths.append(p)
            sets.append((f"{stem}-{kind}", paths, frames))
    return sets


def true_colour(qimg, work):
    header("animations from true-colour frames (bytes; input = qimg's frames made whole)")
    totals = {k: 0 for k in COLUMNS}
    for name, paths, frames in true_colour_sets(work):
        out = os.path.join(work, name + ".gif")
        subprocess.run([qimg, "encode", *paths, "-o", out], check=True,
                       stdout=subprocess.DEVNULL)
        whole = os.path.join(work, name + "-whole.gif")
        subprocess.run(["gifsicle", "--unoptimize", out, "-o", whole], check=True)
        sizes = {"input": size_of(whole), "qimg": size_of(out),
                 "gifsicle -O2": gifsicle("-O2", whole, os.path.join(work, name + "-o2.gif")),
                 "gifsicle -O3": gifsicle("-O3", whole, os.path.join(work, name + "-o3.gif")),
                 "Pillow": pillow_save(frames, os.path.join(work, name + "-pil.gif"))}
        for k in COLUMNS:
            totals[k] += sizes[k]
        row(name, sizes)
    row("total", totals)


def psnr(gif_path, frames):
    """PSNR (dB) of the frames a viewer shows against the source frames, over all of them."""
    total, count = 0.0, 0
    with Image.open(gif_path) as im:
        for i, source in enumerate(frames):
            im.seek(i)
            rms = ImageStat.Stat(ImageChops.difference(im.convert("RGB"), source)).rms
            total += sum(r * r for r in rms)
            count += len(rms)
    mse = total / count
    return 99.0 if mse == 0 else 10 * math.log10(255 * 255 / mse)


def palette_modes(qimg, work):
    print("\npalette modes on the true-colour sets, 32 colours (bytes, PSNR dB)")
    modes = ["shared", "local", "auto"]
    print(f"{'file':32} " + " ".join(f"{m:>18}" for m in modes))
    # A slide show: the stills of both photographs in turn, colours one palette serves badly.
    stills = [Image.open(p).convert("RGB").reduce(4).crop((40, 60, 360, 260)) for p in PHOTOS]
    show = [stills[i % 2].rotate(0 if i < 2 else 180) for i in range(4)]
    show_paths = []
    for i, frame in enumerate(show):
        show_paths.append(os.path.join(work, f"show-{i}.png"))
        frame.save(show_paths[-1])
    for name, paths, frames in true_colour_sets(work) + [("two-photo-show", show_paths, show)]:
        cells = []
        for mode in modes:
            out = os.path.join(work, f"{name}-{mode}.gif")
            subprocess.run([qimg, "encode", *paths, "-o", out, "--palettes", mode,
                            "--colors", "32"], check=True, stdout=subprocess.DEVNULL)
            cells.append(f"{size_of(out):>10} {psnr(out, frames):>6.2f} ")
        print(f"{name:32} " + " ".join(cells))


def pillow_speed(still):
    if not os.path.exists(still):
        print(f"\n{still} missing: run `make bench` first")
        return
    with Image.open(still) as im:
        im.load()
        pixels = im.width * im.height
        best = None
        for _ in range(5):
            buffer = io.BytesIO()
            t0 = time.perf_counter()
            im.save(buffer, "GIF")
            dt = time.perf_counter() - t0
            best = dt if best is None else min(best, dt)
    print(f"\nPillow GIF save of {os.path.basename(still)}: {best * 1e3:.1f} ms, "
          f"{pixels / best / 1e6:.1f} Mpix/s (compare qimg_gifencode/dithered)")


def main():
    qimg = sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build/bench/tools/qimg")
    still = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(qimg))),
                         "gif-dithered-1920x1080.gif")
    with tempfile.TemporaryDirectory() as work:
        corpus(qimg, work)
        true_colour(qimg, work)
        palette_modes(qimg, work)
    pillow_speed(still)


if __name__ == "__main__":
    main()
