#!/usr/bin/env python3
"""Contact sheet of a GIF and a 16-colour PNG of its first frame, with the qimg package.

    gif_sheet.py ANIM.gif SHEET.png FRAME0-16.png

qimg composes the frames, draws them magnified onto a checkerboard and reduces a frame to a
palette; Pillow only writes the PNG files.
"""
import math
import sys

import numpy as np
from PIL import Image

import qimg

SCALE, GAP = 2, 6


def checkerboard(height, width, square=8):
    """Light and darker grey squares, so that transparent parts show as such."""
    y, x = np.indices((height, width)) // square
    grey = np.where((x + y) % 2 == 1, 200, 235).astype(np.uint8)
    return np.dstack([grey, grey, grey, np.full_like(grey, 255)])


def main(gif_path, sheet_path, quantized_path):
    gif = qimg.open(gif_path)
    print(f"{gif_path}: {gif.width} x {gif.height}, {len(gif)} frames, loop count {gif.loop_count}")
    columns = math.ceil(math.sqrt(len(gif)))
    rows = math.ceil(len(gif) / columns)
    cell_w, cell_h = gif.width * SCALE, gif.height * SCALE
    sheet = np.full((rows * (cell_h + GAP) + GAP, columns * (cell_w + GAP) + GAP, 4), 255,
                    np.uint8)
    first = None
    for i, (rgba, delay_ms) in enumerate(gif.composed()):
        frame = gif[i]
        print(f"  frame {i}: rect {frame.rect}, {delay_ms} ms, disposal {frame.disposal}")
        x = GAP + (i % columns) * (cell_w + GAP)
        y = GAP + (i // columns) * (cell_h + GAP)
        qimg.draw(sheet, checkerboard(cell_h, cell_w), (x, y), mode="copy")
        qimg.draw(sheet, rgba, (x, y), mode="over", scale=SCALE)
        first = rgba if first is None else first
    Image.fromarray(sheet).save(sheet_path)

    indices, palette = qimg.quantize(first, colors=16, dither=True)
    out = Image.fromarray(indices, mode="P")
    out.putpalette(palette[:, :3].tobytes())
    out.save(quantized_path, transparency=palette[:, 3].tobytes())
    print(f"-> {sheet_path}, {quantized_path} ({len(palette)} palette entries)")


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    main(*sys.argv[1:])
