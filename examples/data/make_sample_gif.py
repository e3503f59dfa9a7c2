#!/usr/bin/env python3
"""Writes qimg-sample.gif, the animation that `make demo` shows.

The file is built byte by byte here (no imaging library involved) so that it exercises on purpose
what a GIF player must get right:

  frame 0  full-screen background, global colour table, disposal 1 (keep)
  frame 1  a ball with a transparent index, local colour table, interlaced, disposal 2 (restore
           to background = transparent)
  frame 2  the ball further right, transparent index, disposal 3 (restore previous)
  frame 3  the ball partly outside the logical screen (clipped), disposal 0
  frame 4  a banner over everything, disposal 1
  loop count 0 (forever) in a looping application extension, and a comment.

Run: python3 make_sample_gif.py [OUTPUT]   (default: qimg-sample.gif beside this script)
"""
import os
import struct
import sys

W, H = 96, 64


def lzw_encode(indices, min_code_size):
    """Standard variable-width LZW as GIF uses it; emits a clear code first and an end code."""
    clear = 1 << min_code_size
    end = clear + 1
    width = min_code_size + 1
    table = {bytes([i]): i for i in range(clear)}
    next_code = end + 1
    out = bytearray()
    acc = 0
    nbits = 0

    def emit(code):
        nonlocal acc, nbits
        acc |= code << nbits
        nbits += width
        while nbits >= 8:
            out.append(acc & 0xFF)
            acc >>= 8
            nbits -= 8

    emit(clear)
    prefix = b""
    for value in indices:
        candidate = prefix + bytes([value])
        if candidate in table:
            prefix = candidate
            continue
        emit(table[prefix])
        if next_code < 4096:
            table[candidate] = next_code
            next_code += 1
            if next_code > (1 << width) and width < 12:
                width += 1
        else:
            emit(clear)
            table = {bytes([i]): i for i in range(clear)}
            next_code = end + 1
            width = min_code_size + 1
        prefix = bytes([value])
    if prefix:
        emit(table[prefix])
    emit(end)
    if nbits:
        out.append(acc & 0xFF)
    return bytes(out)


def sub_blocks(data):
    out = bytearray()
    for i in range(0, len(data), 255):
        chunk = data[i:i + 255]
        out.append(len(chunk))
        out += chunk
    out.append(0)
    return bytes(out)


def colour_table(colours, size):
    table = bytearray()
    for r, g, b in colours:
        table += bytes([r, g, b])
    table += bytes(3 * (size - len(colours)))
    return bytes(table)


def graphic_control(disposal, delay, transparent):
    flags = (disposal << 2) | (1 if transparent is not None else 0)
    return b"\x21\xF9\x04" + struct.pack("<BHB", flags, delay, transparent or 0) + b"\x00"


def interlace_rows(height):
    order = []
    for start, step in ((0, 8), (4, 8), (2, 4), (1, 2)):
        order += list(range(start, height, step))
    return order


def image(x, y, w, h, pixels, local_table=None, local_size_code=0, interlaced=False):
    flags = 0
    if local_table is not None:
        flags |= 0x80 | local_size_code
    if interlaced:
        flags |= 0x40
    rows = interlace_rows(h) if interlaced else range(h)
    ordered = [pixels[r * w + c] for r in rows for c in range(w)]
    block = b"\x2C" + struct.pack("<HHHHB", x, y, w, h, flags)
    if local_table is not None:
        block += local_table
    min_code = 4
    return block + bytes([min_code]) + sub_blocks(lzw_encode(ordered, min_code))


def background():
    px = []
    for y in range(H):
        for x in range(W):
            if y > 48:
                px.append(8 + ((x // 6 + y // 6) % 2))  # green checker ground
            else:
                px.append(1 + y * 6 // 49)  # six bands of sky
    return px


def ball(size, body, shine, transparent):
    px = []
    c = (size - 1) / 2
    for y in range(size):
        for x in range(size):
            d = ((x - c) ** 2 + (y - c) ** 2) ** 0.5
            if d > size / 2 - 0.5:
                px.append(transparent)
            elif (x - c + 4) ** 2 + (y - c + 4) ** 2 < 10:
                px.append(shine)
            else:
                px.append(body)
    return px


def banner():
    w, h = 60, 9
    px = [12] * (w * h)
    for x in range(w):  # a darker frame line
        px[x] = px[(h - 1) * w + x] = 13
    return w, h, px


def main():
    out_path = sys.argv[1] if len(sys.argv) > 1 else os.path.join(
        os.path.dirname(os.path.abspath(__file__)), "qimg-sample.gif")
    global_colours = [
        (0, 0, 0),
        (40, 60, 160), (60, 90, 190), (90, 120, 210), (120, 150, 225), (150, 180, 235),
        (180, 205, 245), (255, 255, 255),
        (40, 140, 60), (60, 170, 80),
        (230, 60, 50), (255, 200, 200),
        (250, 220, 90), (160, 120, 20), (20, 20, 20), (128, 128, 128),
    ]
    local_colours = [(0, 0, 0), (200, 40, 200), (255, 230, 255), (255, 0, 255)]

    gif = bytearray(b"GIF89a")
    gif += struct.pack("<HHBBB", W, H, 0x80 | 0x30 | 3, 0, 0)  # global table, 16 entries
    gif += colour_table(global_colours, 16)
    gif += b"\x21\xFF\x0BNETSCAPE2.0\x03\x01" + struct.pack("<H", 0) + b"\x00"
    gif += b"\x21\xFE" + sub_blocks(b"made by qimg's sample generator")

    gif += graphic_control(1, 60, None)
    gif += image(0, 0, W, H, background())

    gif += graphic_control(2, 40, 3)
    gif += image(8, 14, 24, 24, ball(24, 1, 2, 3),
                 local_table=colour_table(local_colours, 4), local_size_code=1, interlaced=True)

    gif += graphic_control(3, 40, 0)
    gif += image(40, 22, 24, 24, ball(24, 10, 11, 0))

    gif += graphic_control(0, 40, 0)
    gif += image(80, 46, 24, 24, ball(24, 10, 11, 0))

    bw, bh, bpx = banner()
    gif += graphic_control(1, 100, None)
    gif += image(18, 2, bw, bh, bpx)

    gif += b"\x3B"
    with open(out_path, "wb") as f:
        f.write(gif)
    print(f"wrote {out_path} ({len(gif)} bytes)")


if __name__ == "__main__":
    main()
