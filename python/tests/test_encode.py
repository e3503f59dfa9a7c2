"""qimg.save_gif: frames written, read back by qimg.open and by Pillow."""
import io

import numpy as np
import pytest
from PIL import Image

import qimg


def frames_rgb(count=4):
    y, x = np.mgrid[0:24, 0:40]
    out = []
    for f in range(count):
        rgb = np.stack([x * 6, y * 10, np.full_like(x, 90)], axis=-1).astype(np.uint8)
        rgb[8:16, 4 * f:4 * f + 8] = (250, 20, 20)  # a sprite moving right
        out.append(rgb)
    return out


@pytest.mark.parametrize("optimize", [False, True])
def test_indexed_frames_read_back_as_written(optimize, tmp_path):
    palette = np.array([[0, 0, 0, 0], [255, 0, 0, 255], [0, 0, 255, 255]], np.uint8)
    rng = np.random.default_rng(3)
    frames = [rng.integers(1, 3, (9, 13), dtype=np.uint8) for _ in range(3)]
    frames[2][:4] = 0  # transparent, so a restore is needed before it
    qimg.save_gif(tmp_path / "a.gif", frames, palette=palette, delay_ms=[30, 40, 50], loop=3,
                  optimize=optimize)
    gif = qimg.open(tmp_path / "a.gif")
    assert (len(gif), gif.size, gif.loop_count) == (3, (13, 9), 3)
    for (rgba, delay), frame, want_delay in zip(gif.composed(), frames, [30, 40, 50]):
        assert delay == want_delay
        np.testing.assert_array_equal(rgba, palette[frame])
    assert Image.open(tmp_path / "a.gif").n_frames == 3


@pytest.mark.parametrize("palettes", ["shared", "local", "auto"])
def test_true_colour_frames_come_back_close(palettes):
    frames = frames_rgb()
    data = qimg.save_gif(None, frames, colors=32, palettes=palettes)
    plain = qimg.save_gif(None, frames, colors=32, palettes=palettes, optimize=False)
    gif = qimg.open(data)
    composed = [rgba for rgba, _ in gif.composed()]
    assert len(data) < len(plain)
    for rgba, rgb in zip(composed, frames):
        error = np.abs(rgba[..., :3].astype(int) - rgb).mean()
        assert error < 12 and (rgba[..., 3] == 255).all()  # wrong colours give 50 and more
    assert len(Image.open(io.BytesIO(data)).getpalette()) >= 3 * 16


def test_refusals_and_cancel(tmp_path):
    with pytest.raises(ValueError):
        qimg.save_gif(None, [])
    with pytest.raises(ValueError):
        qimg.save_gif(None, frames_rgb(), palettes="some")
    with pytest.raises(ValueError):
        qimg.save_gif(None, frames_rgb(2), delay_ms=[10])
    with pytest.raises(TypeError):
        qimg.save_gif(None, [np.zeros((4, 4), np.float32)], palette=np.zeros((2, 3), np.uint8))
    with pytest.raises(qimg.Cancelled):
        qimg.save_gif(tmp_path / "c.gif", frames_rgb(), progress=lambda done, total: False)
    with pytest.raises(OSError):
        qimg.save_gif(tmp_path / "missing" / "c.gif", frames_rgb(1))
