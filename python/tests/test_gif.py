"""qimg.open, frames and composed frames, checked against Pillow on the GIF corpus."""
import gc
import io
import pathlib

import numpy as np
import pytest
from PIL import Image

import qimg

CORPUS = pathlib.Path(__file__).resolve().parents[2] / "tests" / "gif" / "corpus"
FILES = sorted(CORPUS.glob("*.gif"))

# Where Pillow 9.4 composes differently, and why qimg's picture is the one browsers show.
# Pillow paints the screen outside the first frame, and the rectangle of a frame with disposal
# 2 in a file without transparency, in the opaque background colour; qimg leaves it transparent.
BACKGROUND_FILLED = {
    ("gs-crop-offset.gif", 0),  # a 60x40 frame at (5, 7) on a 65x47 screen
    ("gs-anim-O3.gif", 3),  # frame 2 has disposal 2 and no transparent index
    ("gs-comment-noloop.gif", 3),
}
# Here Pillow does not dispose of frame 2 (disposal 2, after a frame with disposal 3) at all:
# frame 2 stays on its screen under frame 3, where qimg has cleared it.
DISPOSAL_SKIPPED = {("im-anim-dispose.gif", 3)}


def test_corpus_is_there():
    assert len(FILES) >= 40


@pytest.mark.parametrize("path", FILES, ids=lambda p: p.name)
def test_frames_match_pillow(path):
    gif = qimg.open(path)
    pil = Image.open(path)
    assert len(gif) == pil.n_frames
    assert gif.size == pil.size
    loop = pil.info.get("loop")
    assert gif.loop_count == (1 if loop is None else 0 if loop == 0 else loop + 1)

    # Frame 0 is the one whose raw indices Pillow shows.
    x, y, w, h = gif[0].rect
    assert np.array_equal(np.asarray(pil)[y : y + h, x : x + w], gif[0].indices)
    palette = np.array(pil.getpalette(), np.uint8).reshape(-1, 3)
    used = np.unique(gif[0].indices)
    assert np.array_equal(gif[0].palette[used, :3], palette[used])

    shown = []
    for i, (rgba, delay) in enumerate(gif.composed()):
        shown.append(rgba)
        pil.seek(i)
        assert delay == pil.info.get("duration", 0)
        expected = np.array(pil.convert("RGBA"))
        expected[expected[..., 3] == 0] = 0  # a transparent pixel has no colour
        differ = np.any(expected != rgba, axis=2)
        if (path.name, i) in BACKGROUND_FILLED | DISPOSAL_SKIPPED:
            assert differ.any() and np.all(rgba[differ] == 0)
            x, y, w, h = gif[i - 1].rect if i else (0, 0, 0, 0)
            if (path.name, i) in DISPOSAL_SKIPPED:
                assert np.argwhere(differ).min(0).tolist() == [y, x]
                assert np.argwhere(differ).max(0).tolist() == [y + h - 1, x + w - 1]
                assert np.array_equal(expected[differ], shown[i - 1][differ])
            else:
                assert np.all(expected[differ][:, :3] == palette[pil.info["background"]])
        else:
            assert not differ.any(), f"frame {i}: {differ.sum()} pixels differ"


def test_strict_rules_on_request():
    # The first frame's graphic control extension comes before the NETSCAPE2.0 block: the
    # browser rules (the default) apply it, as Pillow does; the strict rules do not.
    path = CORPUS / "im-anim-320.gif"
    assert qimg.open(path)[0].delay_ms == Image.open(path).info["duration"] > 0
    assert qimg.open(path, browser_rules=False)[0].delay_ms == 0
    zero_width = CORPUS / "browser" / "gdk-pixbuf-image-zero-width.gif"
    assert qimg.open(zero_width)[0].indices.shape == (0, 0)
    with pytest.raises(qimg.FormatError):  # the strict rules read on into the trailer
        qimg.open(zero_width, browser_rules=False)


def test_sources_and_attributes():
    path = CORPUS / "pil-shapes-comment.gif"
    data = path.read_bytes()
    gifs = [qimg.open(s) for s in (str(path), path, data, bytearray(data), memoryview(data),
                                   io.BytesIO(data), open(path, "rb"))]
    first = gifs[0]
    assert first.comments == [Image.open(path).info["comment"]]
    assert (first.width, first.height) == first.size
    frame = first[-1]
    assert frame.rect[2:] == frame.indices.shape[::-1]
    assert frame.palette.shape[1] == 4 and frame.palette.dtype == np.uint8
    for other in gifs[1:]:
        assert other.comments == first.comments
        assert np.array_equal(other[-1].indices, frame.indices)
    with pytest.raises(IndexError):
        first[len(first)]
    assert len(list(first)) == len(first)


def test_frame_fields_of_an_animation():
    gif = qimg.open(CORPUS / "gs-anim-O3.gif")
    fields = [(f.rect, f.disposal, f.transparent, f.delay_ms, f.interlaced) for f in gif]
    assert fields == [((0, 0, 80, 60), 1, None, 100, False), ((10, 5, 30, 20), 1, 0, 200, False),
                      ((10, 5, 50, 45), 2, 43, 50, False), ((0, 0, 60, 50), 1, 55, 0, False)]
    assert qimg.open(CORPUS / "im-interlaced.gif")[0].interlaced


def test_arrays_outlive_their_sources():
    indices = qimg.open((CORPUS / "im-photo-640.gif").read_bytes())[0].indices
    frame = qimg.open(CORPUS / "gs-anim-O3.gif")[2]
    frames = qimg.open(CORPUS / "gs-anim-O3.gif").composed()
    gc.collect()
    expected = np.asarray(Image.open(CORPUS / "im-photo-640.gif"))
    assert np.array_equal(indices, expected)
    assert not indices.flags.writeable and not indices.flags.owndata
    with pytest.raises(ValueError):
        indices[0, 0] = 1
    assert frame.indices.shape == (45, 50)
    assert len(list(frames)) == 4


SCREEN = b"\x01\x00\x01\x00\x00\x00\x00"  # 1x1, no global colour table
SCREEN_MAP = b"\x01\x00\x01\x00\x80\x00\x00" + bytes(3) + b"\xff\xff\xff"  # with 2 colours
IMAGE = b",\x00\x00\x00\x00\x01\x00\x01\x00\x00"  # 1x1 at (0, 0), no local table


@pytest.mark.parametrize(
    "data, status",
    [
        (b"GIF89a", -3),  # cut short before the screen
        (b"GIF90a" + SCREEN + b";", -8),  # signature
        (b"GIF89a" + bytes(7) + b";", -1),  # no screen and no image
        (b"GIF89a" + SCREEN + IMAGE + b"\x02\x02\x44\x01\x00;", -5),  # no colour map at all
        (b"GIF89a" + SCREEN + b"!\xf9\x05\x00\x00\x00\x00\x00;", -8),  # control block size
        (b"GIF89a" + SCREEN_MAP + IMAGE + b"\x02\x02\xff\xff\x00;", -9),  # bad LZW codes
    ],
)
def test_broken_data_raise(data, status):
    with pytest.raises(qimg.FormatError) as caught:
        qimg.open(data)
    assert caught.value.status == status
    assert caught.value.status_text == qimg.status_text(status)
    assert qimg.status_text(status) in str(caught.value)


def test_a_screen_without_images():
    gif = qimg.open(b"GIF89a" + SCREEN + b";")
    assert (gif.size, len(gif), list(gif.composed())) == ((1, 1), 0, [])


def test_bad_sources_raise(tmp_path):
    with pytest.raises(FileNotFoundError) as caught:
        qimg.open(tmp_path / "missing.gif")
    assert caught.value.status == -3
    with pytest.raises(TypeError):
        qimg.open(42)
    with pytest.raises(qimg.FormatError):
        qimg.open((CORPUS / "im-photo-640.gif").read_bytes()[:500])


def test_progress_reports_and_cancels():
    data = (CORPUS / "im-photo-640.gif").read_bytes()
    seen = []
    qimg.open(data, progress=lambda done, total: seen.append((done, total)))
    assert seen and all(0 < done <= total == len(data) for done, total in seen)
    with pytest.raises(qimg.Cancelled) as caught:
        qimg.open(data, progress=lambda done, total: False)
    assert caught.value.status == 1

    def explode(done, total):
        raise KeyError("from the callback")

    with pytest.raises(KeyError):
        qimg.open(data, progress=explode)
    with pytest.raises(qimg.Cancelled):
        next(qimg.open(CORPUS / "gs-anim-O3.gif").composed(progress=lambda d, t: d < 1))
