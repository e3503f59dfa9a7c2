"""qimg: GIF frames, colour reduction and drawing, on numpy arrays.

Pixels are uint8 numpy arrays: (height, width, 4) RGBA or (height, width, 3) RGB; palette
indices are (height, width) and palettes (n, 4) RGBA.

    import qimg
    gif = qimg.open("anim.gif")              # path, bytes, memoryview or binary file
    gif.size, gif.loop_count, gif.comments, len(gif)
    frame = gif[0]                           # the frame as stored in the file
    frame.indices, frame.palette, frame.rect, frame.delay_ms, frame.disposal
    for rgba, delay_ms in gif.composed():    # every frame as a viewer shows it
        ...
    indices, palette = qimg.quantize(rgba, colors=16, dither=True)
    qimg.draw(canvas, rgba, (10, 20), mode="over", scale=2)
    qimg.save_gif("out.gif", [rgba0, rgba1], delay_ms=80, colors=64, dither=True)
    data = qimg.save_gif(None, [indices0, indices1], palette=palette)   # bytes

Errors raise exceptions carrying the library's `status` and `status_text`: MemoryError,
OSError (files), ValueError (bad arguments), qimg.FormatError (broken GIF data, a
ValueError). Long calls release the GIL; their progress(done, total) callback may answer
False to stop them (qimg.Cancelled), and Ctrl-C stops them with KeyboardInterrupt.
"""

from ._qimg import (
    Animation,
    Cancelled,
    ComposedFrames,
    FormatError,
    Frame,
    draw,
    open,
    quantize,
    save_gif,
    status_text,
)

__all__ = [
    "Animation",
    "Cancelled",
    "ComposedFrames",
    "FormatError",
    "Frame",
    "draw",
    "open",
    "quantize",
    "save_gif",
    "status_text",
]

for _name in __all__:
    globals()[_name].__module__ = __name__
del _name
