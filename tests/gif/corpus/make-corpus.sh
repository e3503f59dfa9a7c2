#!/usr/bin/env bash
# Regenerates the GIF test corpus in this folder with real encoders: ImageMagick (convert),
# Pillow (python3-pil), gifsicle and giflib's tools (giftool). The files are committed; run this
# only to rebuild them:
#
#   apt-get install -y imagemagick python3-pil gifsicle giflib-tools
#   tests/gif/corpus/make-corpus.sh
#
# Every input is synthetic and seeded, so a rebuild with the same tool versions gives the same
# bytes. The tests compare qimg's frames with giflib's DGifSlurp on every *.gif here.
#
#   make-corpus.sh --bench-still FILE   writes only the dithered 1920x1080 still the benchmark
#                                       uses (too large to commit) to FILE
set -euo pipefail
if [ "${1:-}" = "--bench-still" ]; then
    convert -seed 42 -size 1920x1080 plasma:fractal -dither FloydSteinberg -colors 256 "$2"
    exit 0
fi
cd "$(dirname "$0")"
rm -f ./*.gif
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
PY=/usr/bin/python3

# ---- ImageMagick -----------------------------------------------------------------------------
# A dithered still, a flat graphic, code sizes 2..8 (2^k colours), GIF87a, interlaced, comment.
convert -seed 4 -size 160x120 plasma:fractal -dither FloydSteinberg -colors 256 im-plasma-256.gif
convert -size 96x64 xc:white -fill red -draw "rectangle 10,10 50,40" -fill blue \
    -draw "circle 70,32 80,40" -colors 4 im-flat-shapes.gif
for bits in 1 2 3 4 5 6 7 8; do
    colors=$((1 << bits))
    convert -seed $bits -size 64x48 plasma:fractal -dither FloydSteinberg -colors $colors \
        "im-colors-$colors.gif"
done
convert -seed 9 -size 101x77 plasma:fractal -colors 64 gif87:im-gif87a.gif
convert -seed 10 -size 75x53 plasma:fractal -colors 32 -interlace GIF im-interlaced.gif
convert -seed 11 -size 40x30 plasma:fractal -colors 16 -comment "made by ImageMagick for qimg" \
    im-comment.gif
convert -size 1x1 xc:black im-one-pixel.gif
# Larger inputs for the benchmarks: a dithered photo-like still and a full-screen animation.
convert -seed 15 -size 640x480 plasma:fractal -dither FloydSteinberg -colors 256 im-photo-640.gif
for s in 1 2 3 4 5 6; do
    convert -seed $((20 + s)) -size 320x240 plasma:fractal -blur 0x$s -colors 128 "$tmp/f$s.gif"
done
convert -delay 8 -loop 0 "$tmp"/f[1-6].gif im-anim-320.gif
convert -seed 12 -size 3000x2 plasma:fractal -colors 128 im-wide.gif
convert -seed 13 -size 2x900 plasma:fractal -colors 128 -interlace GIF im-tall-interlaced.gif
# Animation: offsets (-page), disposal methods, delays, a loop count, transparency.
convert -seed 14 -size 80x60 plasma:fractal -colors 64 "$tmp/bg.gif"
convert -dispose none -delay 10 "$tmp/bg.gif" \
    -dispose previous -delay 20 -page +10+5 -size 30x20 xc:red \
    -dispose background -delay 5 -page +40+30 -size 20x20 xc:blue \
    -dispose none -delay 0 -page +0+0 -size 8x8 xc:green \
    -loop 3 im-anim-dispose.gif
convert -size 48x48 xc:none -fill "#ff000080" -draw "circle 24,24 24,4" -alpha on \
    im-transparent.gif

# ---- Pillow ---------------------------------------------------------------------------------
$PY - "$tmp" <<'PYEOF'
import random, sys
from PIL import Image, ImageDraw

random.seed(5)

def noise(w, h, colors):
    im = Image.new("P", (w, h))
    im.putdata([random.randrange(colors) for _ in range(w * h)])
    pal = []
    for i in range(256):
        pal += [(i * 37) & 255, (i * 91) & 255, (i * 53) & 255]
    im.putpalette(pal)
    return im

def shapes(w, h, seed):
    rnd = random.Random(seed)
    im = Image.new("RGB", (w, h), (rnd.randrange(256), rnd.randrange(256), rnd.randrange(256)))
    d = ImageDraw.Draw(im)
    for _ in range(12):
        x, y = rnd.randrange(w), rnd.randrange(h)
        d.ellipse([x, y, x + rnd.randrange(5, 40), y + rnd.randrange(5, 40)],
                  fill=(rnd.randrange(256), rnd.randrange(256), rnd.randrange(256)))
    return im

# Noise is the worst case for LZW: the table fills and clears over and over.
noise(200, 150, 256).save("pil-noise-256.gif")
noise(120, 90, 4).save("pil-noise-4.gif", interlace=False)
noise(57, 31, 2).save("pil-noise-2-interlaced.gif", interlace=True)
shapes(128, 96, 1).convert("P", palette=Image.ADAPTIVE, colors=32).save(
    "pil-shapes-comment.gif", comment=b"a Pillow comment " * 20)

# An animation whose frames each carry their own (local) colour table, with per-frame
# durations, disposal methods, a transparent index and a loop count.
frames = [shapes(90, 70, s).convert("P", palette=Image.ADAPTIVE, colors=16 << (s % 4))
          for s in range(6)]
frames[0].save("pil-anim-local-tables.gif", save_all=True, append_images=frames[1:],
               duration=[40, 80, 120, 10, 0, 250], loop=0, disposal=[0, 1, 2, 3, 1, 2],
               optimize=False)
frames[0].save("pil-anim-transparent.gif", save_all=True, append_images=frames[1:4],
               duration=60, loop=5, transparency=0, disposal=2, optimize=False)
# The default, optimising writer: cropped frames at offsets.
frames[0].save("pil-anim-optimized.gif", save_all=True, append_images=frames[1:],
               duration=70, loop=2)
PYEOF

# ---- gifsicle -------------------------------------------------------------------------------
gifsicle -O3 im-anim-dispose.gif -o gs-anim-O3.gif
gifsicle -O3 --colors 16 pil-anim-local-tables.gif -o gs-anim-colors16-O3.gif
gifsicle --interlace im-plasma-256.gif -o gs-interlaced.gif
gifsicle --no-loopcount --comment "gifsicle comment" im-anim-dispose.gif -o gs-comment-noloop.gif
gifsicle --loopcount=forever --delay 3 --disposal background pil-anim-transparent.gif \
    -o gs-forever.gif
gifsicle --crop 10,10+60x40 --position 5,7 im-plasma-256.gif -o gs-crop-offset.gif
gifsicle --colors 2 im-plasma-256.gif -o gs-colors-2.gif
gifsicle --use-colormap web -O2 im-plasma-256.gif -o gs-web-O2.gif
gifsicle --careful --no-interlace -O3 pil-anim-optimized.gif -o gs-careful-O3.gif
gifsicle -O3 --lossy=80 im-plasma-256.gif -o gs-lossy.gif 2>/dev/null ||
    gifsicle -O3 im-plasma-256.gif -o gs-lossy.gif

# ---- giflib ---------------------------------------------------------------------------------
giftool -i 1 < im-plasma-256.gif > gl-interlaced.gif
giftool -d 25 < pil-anim-optimized.gif > "$tmp/d.gif"
giftool -x 2 < "$tmp/d.gif" > gl-delay-dispose.gif
giftool -u 1 < im-colors-16.gif > gl-user-input.gif
giftool -b 2 < im-anim-dispose.gif > gl-background.gif

ls -l ./*.gif | awk '{ total += $5 } END { print NR " files, " total " bytes" }'
