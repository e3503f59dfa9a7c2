#!/usr/bin/env python3
"""Pillow's quantizers for bench/quantize_quality.cpp, which scores every tool the same way.

Usage: /usr/bin/python3 bench/pillow_quantize.py OUT_DIR PHOTO.ppm...
For each photo, 256 and 16 colours, without and with Floyd-Steinberg dithering, and each of
Pillow's median cut and fast octree, writes the result as OUT_DIR/<photo>-<method>-<colours>-<d>.ppm
and prints one line per result: photo, method, colours, dither (0/1), best-of-3 milliseconds of
processor time of the thread, path.
Pillow's quantize() ignores `dither` when it makes the palette itself, so the dithered rows make
the palette first and then map with dithering (both timed). Needs python3-pil (Debian's python3).
"""
import os
import sys
import time

from PIL import Image

METHODS = {"median-cut": Image.Quantize.MEDIANCUT, "fast-octree": Image.Quantize.FASTOCTREE}


def reduce(src, method, colours, dither):
    out = src.quantize(colors=colours, method=method, dither=Image.Dither.NONE)
    if dither:
        out = src.quantize(palette=out, dither=Image.Dither.FLOYDSTEINBERG)
    return out


def main():
    out_dir, photos = sys.argv[1], sys.argv[2:]
    for path in photos:
        name = os.path.splitext(os.path.basename(path))[0]
        src = Image.open(path).convert("RGB")
        for label, method in METHODS.items():
            for colours in (256, 16):
                for dither in (0, 1):
                    best, out = None, None
                    for _ in range(3):
                        t0 = time.thread_time()
                        out = reduce(src, method, colours, dither)
                        dt = time.thread_time() - t0
                        best = dt if best is None else min(best, dt)
                    target = os.path.join(out_dir, f"{name}-{label}-{colours}-{dither}.ppm")
                    out.convert("RGB").save(target)
                    print(name, label, colours, dither, f"{best * 1e3:.3f}", target, flush=True)


if __name__ == "__main__":
    main()
