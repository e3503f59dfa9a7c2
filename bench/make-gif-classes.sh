#!/usr/bin/env bash
# Writes the inputs of the per-class GIF decoding benchmark (bench/gif_class_bench.cpp) with
# ImageMagick, one folder per class, from the wallpaper photos of lomiri-wallpapers-20.04 and
# seeded synthetic images (same tool versions, same bytes). Too large to commit; `make bench`
# runs it once into build/bench/gif-classes.
#
#   dense  photos at 256 colours, dithered: few repeats, long codes, the table clears often
#   mid    64-128 colours without dithering: smooth gradients and areas of one colour
#   flat   large uniform areas (drawings, a user-interface mock, a cropped animation)
#   tiny   a few pixels and 1-2 frames, where the fixed costs per file and frame dominate
#
#   make-gif-classes.sh OUTDIR
set -euo pipefail
out=${1:?usage: make-gif-classes.sh OUTDIR}
photos=/usr/share/backgrounds
rm -rf "$out.tmp"
mkdir -p "$out.tmp"/{dense,mid,flat,tiny}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp" "$out.tmp"' EXIT
cd "$out.tmp"

# ---- dense ----------------------------------------------------------------------------------
convert "$photos/Kleiber_by_Lukas_Baubkus.jpg" -resize 1280x720^ -gravity center -extent 1280x720 \
    -dither FloydSteinberg -colors 256 dense/bird-1280x720.gif
convert "$photos/Infinite-Sea_by_Aury88.jpg" -resize 800x800 \
    -dither FloydSteinberg -colors 256 dense/sea-800x800.gif
# A 640x480 "video": six full frames panning over a photo, each with its own colour table.
convert "$photos/Fossa_by_Jasper_Roks.jpg" -resize 960x540^ -gravity center -extent 960x540 \
    "$tmp/fossa.png"
for i in 0 1 2 3 4 5; do
    convert "$tmp/fossa.png" -crop "640x480+$((i * 40))+$((i * 10))" +repage \
        -dither FloydSteinberg -colors 256 "$tmp/v$i.gif"
done
convert -delay 4 -loop 0 "$tmp"/v[0-5].gif dense/video-640x480.gif

# ---- mid ------------------------------------------------------------------------------------
convert "$photos/Painting-Colors_by__herobrine7gamer.jpg" -resize 1024x576^ -gravity center \
    -extent 1024x576 -dither None -colors 64 mid/painting-64.gif
convert "$photos/Kleiber_by_Lukas_Baubkus.jpg" -resize 640x360 -dither None -colors 128 \
    mid/bird-128.gif
for s in 1 2 3 4; do
    convert -seed $((30 + s)) -size 480x360 plasma:fractal -blur 0x$((2 * s)) -colors 128 \
        "$tmp/p$s.gif"
done
convert -delay 8 -loop 0 "$tmp"/p[1-4].gif mid/plasma-anim-480x360.gif

# ---- flat -----------------------------------------------------------------------------------
convert -size 1280x720 xc:white -fill "#3050a0" -draw "rectangle 0,0 1279,60" \
    -fill "#e0e0e0" -draw "rectangle 0,61 240,719" -fill "#ffffff" -stroke "#808080" \
    -draw "rectangle 300,120 1200,640" -stroke none -fill "#40a040" \
    -draw "rectangle 340,160 700,400" -fill "#c03030" -draw "circle 950,300 1050,300" \
    -fill "#f0c000" -draw "polygon 400,600 600,450 800,600" -colors 16 flat/ui-1280x720.gif
convert -size 960x640 xc:"#204060" -fill "#f0f0f0" -draw "circle 480,320 480,40" \
    -fill "#204060" -draw "rectangle 300,200 660,440" -fill "#e06020" \
    -draw "ellipse 200,500 120,60 0,360" -colors 4 flat/shapes-960x640.gif
# A ball moving over a flat scene, frames cropped to what changes.
for i in 0 1 2 3 4 5 6 7; do
    convert -size 400x300 xc:"#f8f8f0" -fill "#2040c0" -draw "rectangle 0,250 399,299" \
        -fill "#d02020" -draw "circle $((40 + 40 * i)),$((200 - 15 * i)) $((60 + 40 * i)),$((200 - 15 * i))" \
        "$tmp/b$i.png"
done
convert -delay 5 -loop 0 "$tmp"/b[0-7].png -colors 8 -layers Optimize flat/ball-anim-400x300.gif

# ---- tiny -----------------------------------------------------------------------------------
convert -size 13x7 xc:red -size 13x7 xc:blue -delay 10 -loop 0 tiny/two-frames-13x7.gif
convert -size 1x1 xc:white tiny/pixel-1x1.gif
convert -size 1x1 xc:none tiny/spacer-1x1.gif
for k in 1 2 3 4; do
    convert -seed $((40 + k)) -size 16x16 plasma:fractal -colors 256 "tiny/icon-16-$k.gif"
done
convert -seed 45 -size 32x32 plasma:fractal -colors 4 tiny/icon-32-4colors.gif
convert -seed 46 -size 24x24 plasma:fractal -colors 64 "$tmp/t1.gif"
convert -seed 47 -size 24x24 plasma:fractal -colors 64 "$tmp/t2.gif"
convert -delay 20 -loop 0 "$tmp/t1.gif" "$tmp/t2.gif" tiny/anim-24x24.gif
convert -size 10x10 xc:none -fill black -draw "rectangle 2,2 7,7" tiny/transparent-10x10.gif
convert -size 48x8 gradient:red-blue -colors 32 tiny/bar-48x8.gif

cd - >/dev/null
rm -rf "$out"
mv "$out.tmp" "$out"
