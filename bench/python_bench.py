#!/usr/bin/env python3
"""The qimg Python package beside Pillow on the same inputs in the same run.

Rows: open a GIF and compose every frame to an RGBA array (Pillow: Image.open, seek,
convert("RGBA")), over the whole test corpus and on its largest animations; quantize a photo
to 16 and 256 colours, nearest and dithered (Pillow: Image.quantize with MEDIANCUT). Each time
is the best of several repetitions; the ratio is Pillow's time over qimg's. The photos are
those of quantize_bench.cpp (lomiri-wallpapers-20.04), reduced 3 x 3 the same way.

Run with Debian's python3 and the package on PYTHONPATH: make bench-python
"""
import pathlib
import time

import numpy as np
from PIL import Image

import qimg

ROOT = pathlib.Path(__file__).resolve().parents[1]
CORPUS = sorted((ROOT / "tests" / "gif" / "corpus").glob("*.gif"))
ANIMATIONS = ["im-anim-320.gif", "pil-anim-optimized.gif", "gs-careful-O3.gif"]
PHOTOS = {
    "bird": "/usr/share/backgrounds/Kleiber_by_Lukas_Baubkus.jpg",
    "sea": "/usr/share/backgrounds/Infinite-Sea_by_Aury88.jpg",
}


def best_time(job, repetitions):
    best = float("inf")
    for _ in range(repetitions):
        start = time.perf_counter()
        job()
        best = min(best, time.perf_counter() - start)
    return best


def compose_qimg(paths):
    for path in paths:
        for rgba, _ in qimg.open(path).composed():
            pass


def compose_pillow(paths):
    for path in paths:
        with Image.open(path) as image:
            for i in range(getattr(image, "n_frames", 1)):
                image.seek(i)
                np.asarray(image.convert("RGBA"))


def main():
    rows = []
    compose_sets = [("all %d corpus GIFs" % len(CORPUS), CORPUS)]
    compose_sets += [(name, [ROOT / "tests" / "gif" / "corpus" / name]) for name in ANIMATIONS]
    for label, paths in compose_sets:
        frames = sum(len(qimg.open(p)) for p in paths)
        ours = best_time(lambda: compose_qimg(paths), 20)
        theirs = best_time(lambda: compose_pillow(paths), 20)
        rows.append((f"open + compose to RGBA: {label} ({frames} frames)", ours, theirs))

    for name, path in PHOTOS.items():
        photo = Image.open(path).convert("RGB").reduce(3)
        pixels = np.asarray(photo)
        size = f"{photo.width}x{photo.height}"
        for colours in (16, 256):
            for dither, pil_dither in ((False, Image.Dither.NONE),
                                       (True, Image.Dither.FLOYDSTEINBERG)):
                ours = best_time(lambda: qimg.quantize(pixels, colors=colours, dither=dither), 5)
                theirs = best_time(lambda: photo.quantize(colors=colours,
                                                          method=Image.Quantize.MEDIANCUT,
                                                          dither=pil_dither), 5)
                how = "dithered" if dither else "nearest"
                rows.append((f"quantize {name} {size} to {colours}, {how}", ours, theirs))

    print("| operation | qimg ms | Pillow ms | Pillow / qimg |")
    print("|---|---:|---:|---:|")
    for label, ours, theirs in rows:
        print(f"| {label} | {ours * 1e3:.2f} | {theirs * 1e3:.2f} | {theirs / ours:.1f} |")


if __name__ == "__main__":
    main()
