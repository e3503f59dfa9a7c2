#!/usr/bin/env python3
"""Pillow's median cut on the photographs quantize_bench.cpp uses, for the same table.

Same input preparation (3 x 3 box reduction), same PSNR (RGB channels pooled). Needs python3-pil
and lomiri-wallpapers-20.04. Run with Debian's python3: /usr/bin/python3 bench/pillow_quantize.py
"""
import math
import time

from PIL import Image

PHOTOS = {
    "bird": "/usr/share/backgrounds/Kleiber_by_Lukas_Baubkus.jpg",
    "sea": "/usr/share/backgrounds/Infinite-Sea_by_Aury88.jpg",
}


def psnr(a, b):
    pa, pb = a.tobytes(), b.tobytes()
    total = sum((x - y) * (x - y) for x, y in zip(pa, pb))
    mse = total / len(pa)
    return 10 * math.log10(255 * 255 / mse) if mse else 99.0


def main():
    print(f"{'photo':6} {'colours':>7} {'dither':>9} {'ms':>8} {'Mpixel/s':>9} {'PSNR':>6}")
    for name, path in PHOTOS.items():
        src = Image.open(path).convert("RGB")
        src = src.reduce(3)
        pixels = src.width * src.height
        for colours in (256, 16):
            for dither, label in ((Image.Dither.NONE, "nearest"),
                                  (Image.Dither.FLOYDSTEINBERG, "diffusion")):
                best = None
                for _ in range(3):
                    t0 = time.perf_counter()
                    out = src.quantize(colors=colours, method=Image.Quantize.MEDIANCUT,
                                       dither=dither)
                    dt = time.perf_counter() - t0
                    best = dt if best is None else min(best, dt)
                quality = psnr(src, out.convert("RGB"))
                print(f"{name:6} {colours:7} {label:>9} {best * 1e3:8.1f} "
                      f"{pixels / best / 1e6:9.1f} {quality:6.2f}")


if __name__ == "__main__":
    main()
