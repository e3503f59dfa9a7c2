#!/usr/bin/env python3
"""The qimg Python package beside Pillow on the same inputs in the same run.

Rows: open a GIF and compose every frame to an RGBA array (Pillow: Image.open, seek,
convert("RGBA")), over the whole test corpus and on its largest animations; quantize a photo
to 16 and 256 colours, nearest and dithered (Pillow: Image.quantize with MEDIANCUT, which
ignores dither=FLOYDSTEINBERG when it makes the palette itself, so dithered rows are repeated
against Pillow making the palette and then dithering to it). Each time
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


def pillow_quantize(photo, colours, dither):
    # With a palette of its own making, Pillow 9.4 ignores `dither` and maps to the nearest.
    how = Image.Dither.FLOYDSTEINBERG if dither else Image.Dither.NONE
    return photo.quantize(colors=colours, method=Image.Quantize.MEDIANCUT, dither=how)


def pillow_dither(photo, colours):
    # What Pillow needs to diffuse the error: the median-cut palette first, then a second pass.
    palette = photo.quantize(colors=colours, method=Image.Quantize.MEDIANCUT)
    return photo.quantize(palette=palette, dither=Image.Dither.FLOYDSTEINBERG)


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
            for dither in (False, True):
                ours = best_time(lambda: qimg.quantize(pixels, colors=colours, palette='adaptive',
                                                        dither=dither), 7)
                theirs = best_time(lambda: pillow_quantize(photo, colours, dither), 7)
                how = "dithered" if dither else "nearest"
                rows.append((f"quantize {name} {size} to {colours}, {how}", ours, theirs))
                if dither:
                    theirs = best_time(lambda: pillow_dither(photo, colours), 7)
                    rows.append((f"quantize {name} {size} to {colours}, dithered; Pillow "
                                 "really dithering", ours, theirs))

    print("| operation | qimg ms | Pillow ms | Pillow / qimg |")
    print("|---|---:|---:|---:|")
    for label, ours, theirs in rows:
        print(f"| {label} | {ours * 1e3:.2f} | {theirs * 1e3:.2f} | {theirs / ours:.1f} |")


if __name__ == "__main__":
    main()
