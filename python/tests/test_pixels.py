"""qimg.quantize and qimg.draw against plain numpy references; threads; the help text."""
import os
import pydoc
import signal
import threading

import numpy as np
import pytest

import qimg

rng = np.random.default_rng(7)
LEVELS = np.array([0, 51, 102, 153, 204, 255], np.uint8)  # the 216-colour cube's levels


def rgba_of(rgb, alpha=255):
    return np.dstack([rgb, np.full(rgb.shape[:2], alpha, np.uint8)])


@pytest.mark.parametrize("kind", ["quality", "adaptive"])
def test_palettes_from_pixels_keep_few_colours_exactly(kind):
    colours = rng.integers(0, 256, (12, 3), dtype=np.uint8)
    rgb = colours[rng.integers(0, 12, (40, 50))]
    indices, palette = qimg.quantize(rgb, colors=16, palette=kind)
    assert palette.shape == (12, 4) and np.all(palette[:, 3] == 255)
    assert np.array_equal(palette[indices][..., :3], rgb)

    rgba = rgba_of(rgb)
    rgba[:5] = 0  # transparent rows: the last entry is transparent white and takes them
    indices, palette = qimg.quantize(rgba, colors=16, palette=kind)
    assert palette.shape == (13, 4) and palette[-1].tolist() == [255, 255, 255, 0]
    assert np.all(indices[:5] == 12) and np.array_equal(palette[indices][5:], rgba[5:])
    indices, palette = qimg.quantize(rgba, colors=16, opaque=True, palette=kind)
    assert np.all(palette[:, 3] == 255)


def test_fixed_palettes():
    cube = LEVELS[rng.integers(0, 6, (30, 20, 3))]
    indices, palette = qimg.quantize(cube, colors=256, palette="cube")
    r, g, b = np.meshgrid(LEVELS, LEVELS, LEVELS, indexing="ij")  # red slowest
    assert np.array_equal(palette[:, :3], np.stack([r, g, b], -1).reshape(-1, 3))
    assert np.array_equal(palette[indices][..., :3], cube)

    grey = np.repeat(np.arange(256, dtype=np.uint8)[None, :, None], 3, axis=2)
    indices, palette = qimg.quantize(grey, colors=2, palette="grey")
    assert palette.tolist() == [[0, 0, 0, 255], [255, 255, 255, 255]]
    assert np.array_equal(indices[0], np.arange(256) >= 128)


def test_dithering_mixes_the_two_nearest_entries():
    grey = np.full((64, 64, 3), 128, np.uint8)
    plain, _ = qimg.quantize(grey, colors=2, palette="grey")
    dithered, _ = qimg.quantize(grey, colors=2, palette="grey", dither=True)
    weak, _ = qimg.quantize(grey, colors=2, palette="grey", dither=True, color_strength=0.0)
    assert np.all(plain == 1) and np.all(weak == 1)
    assert 0.45 < dithered.mean() < 0.55


@pytest.mark.parametrize(
    "image, kwargs, error",
    [
        (np.zeros((4, 4, 3), np.float32), {}, TypeError),
        ([[1, 2]], {}, TypeError),
        (np.zeros((4, 4, 2), np.uint8), {}, ValueError),
        (np.zeros((0, 4, 3), np.uint8), {}, ValueError),
        (np.zeros((4, 4, 3), np.uint8), {"colors": 0}, ValueError),
        (np.zeros((4, 4, 3), np.uint8), {"colors": 257}, ValueError),
        (np.zeros((4, 4, 3), np.uint8), {"palette": "web"}, ValueError),
        (np.zeros((4, 4, 3), np.uint8), {"min_alpha": 256}, ValueError),
        (np.zeros((4, 4, 3), np.uint8), {"progress": lambda d, t: False}, qimg.Cancelled),
    ],
)
def test_quantize_refuses(image, kwargs, error):
    with pytest.raises(error):
        qimg.quantize(image, **kwargs)


def test_ctrl_c_stops_a_long_call():
    def interrupt(done, total):
        os.kill(os.getpid(), signal.SIGINT)

    photo = rng.integers(0, 256, (300, 300, 3), dtype=np.uint8)
    with pytest.raises(KeyboardInterrupt):
        qimg.quantize(photo, dither=True, progress=interrupt)


def test_draw_copy_and_over_at_positions_clips_and_scales():
    target = rng.integers(0, 256, (30, 40, 4), dtype=np.uint8)
    source = rgba_of(rng.integers(0, 256, (10, 12, 3), dtype=np.uint8))
    source[::2, :, 3] = 0  # even rows transparent
    cases = [  # position, clip, mode, scale
        ((5, 3), None, "copy", 1.0),
        ((-4, 25), None, "copy", 1.0),
        ((5, 3), (8, 0, 4, 30), "copy", 1.0),
        ((5, 3), None, "over", 1.0),
        ((1, 2), None, "copy", 2),
        ((-3, -1), (0, 0, 15, 30), "copy", 2),
        ((2, 2), None, "copy", 0.5),
        ((1, 2), (3, 3, 10, 10), "over", (2.0, 3.0)),
    ]
    for position, clip, mode, scale in cases:
        sx, sy = scale if isinstance(scale, tuple) else (scale, scale)
        rows = ((np.arange(int(source.shape[0] * sy)) + 0.5) / sy).astype(int)  # centres
        cols = ((np.arange(int(source.shape[1] * sx)) + 0.5) / sx).astype(int)
        big = source[rows][:, cols]
        expected = target.copy()
        x, y = position
        h, w = big.shape[:2]
        window = np.zeros(target.shape[:2], bool)
        window[max(y, 0) : max(y + h, 0), max(x, 0) : max(x + w, 0)] = True
        if clip:
            inside = np.zeros_like(window)
            inside[clip[1] : clip[1] + clip[3], clip[0] : clip[0] + clip[2]] = True
            window &= inside
        ys, xs = np.nonzero(window)
        pixels = big[ys - y, xs - x]
        if mode == "over":
            keep = pixels[:, 3] == 0
            pixels[keep] = expected[ys, xs][keep]
        expected[ys, xs] = pixels
        drawn = target.copy()
        qimg.draw(drawn, source, position, clip=clip, mode=mode, scale=scale)
        assert np.array_equal(drawn, expected), (position, clip, mode, scale)


def test_draw_rgb_and_strided_arrays():
    rgb = rng.integers(0, 256, (6, 7, 3), dtype=np.uint8)
    target = np.zeros((8, 9, 4), np.uint8)
    qimg.draw(target[::-1], rgb, (1, 1), mode="copy")  # a bottom-up view of the target
    assert np.array_equal(target[::-1][1:7, 1:8], rgba_of(rgb))
    rgb_target = np.zeros((20, 10, 3), np.uint8)[::2]  # rows 20 bytes apart
    qimg.draw(rgb_target, rgba_of(rgb), mode="copy")
    assert np.array_equal(rgb_target[:6, :7], rgb)


def test_draw_far_outside_changes_nothing():
    target = np.zeros((4, 4, 4), np.uint8)
    for position in [(-(2**31), 0), (2**31 - 1, 2**31 - 1), (0, 4)]:
        qimg.draw(target, np.full((3, 3, 4), 255, np.uint8), position, scale=1e30)
    assert not target.any()


def test_draw_opacity_and_blend():
    target = np.zeros((2, 2, 4), np.uint8)
    source = np.full((2, 2, 4), 255, np.uint8)
    qimg.draw(target, source, mode="blend", opacity=0)
    assert np.all(target == 0)
    qimg.draw(target, source, mode="over", opacity=255)
    assert np.all(target == 255)


@pytest.mark.parametrize(
    "target, source, kwargs, error",
    [
        (np.zeros((4, 4, 4), np.uint8)[:, ::2], None, {}, ValueError),  # pixels not packed
        (np.zeros((4, 4, 4), np.uint8), np.zeros((4, 4, 4), np.int16), {}, TypeError),
        (np.zeros((4, 4, 4), np.uint8), None, {"mode": "xor"}, ValueError),
        (np.zeros((4, 4, 4), np.uint8), None, {"opacity": 256}, ValueError),
        (np.zeros((4, 4, 4), np.uint8), None, {"scale": 0.0}, ValueError),
        (np.zeros((4, 4, 4), np.uint8), None, {"scale": float("nan")}, ValueError),
        (np.zeros((4, 4, 4), np.uint8), None, {"progress": lambda d, t: False}, qimg.Cancelled),
    ],
)
def test_draw_refuses(target, source, kwargs, error):
    source = np.zeros((4, 4, 4), np.uint8) if source is None else source
    with pytest.raises(error):
        qimg.draw(target, source, **kwargs)
    frozen = np.zeros((4, 4, 4), np.uint8)
    frozen.setflags(write=False)
    with pytest.raises(ValueError):
        qimg.draw(frozen, np.zeros((4, 4, 4), np.uint8))


def test_threads_with_distinct_objects():
    import pathlib

    gif = pathlib.Path(__file__).resolve().parents[2] / "tests/gif/corpus/pil-anim-optimized.gif"

    def job():
        frames = [rgba for rgba, _ in qimg.open(gif).composed()]
        sheet = np.zeros((frames[0].shape[0], frames[0].shape[1] * len(frames), 4), np.uint8)
        for i, rgba in enumerate(frames):
            qimg.draw(sheet, rgba, (i * rgba.shape[1], 0), mode="copy")
        return qimg.quantize(sheet, colors=32, dither=True)

    expected = job()
    results = [None] * 4

    def run(slot):
        for _ in range(5):
            results[slot] = job()

    threads = [threading.Thread(target=run, args=(i,)) for i in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for indices, palette in results:
        assert np.array_equal(indices, expected[0]) and np.array_equal(palette, expected[1])


def test_help_text():
    text = pydoc.render_doc(qimg, renderer=pydoc.plaintext)
    for name in ("open(", "quantize(", "draw(", "class Animation", "composed(", "FormatError"):
        assert name in text
    assert qimg.status_text(-8) == "malformed GIF data"
