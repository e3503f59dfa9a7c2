import os
from typing import BinaryIO, Callable, Iterator, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

Progress = Optional[Callable[[int, int], Optional[bool]]]
Pixels = npt.NDArray[np.uint8]

class FormatError(ValueError):
    status: int
    status_text: str

class Cancelled(Exception):
    status: int
    status_text: str

class Frame:
    @property
    def indices(self) -> Pixels: ...
    @property
    def palette(self) -> Pixels: ...
    @property
    def rect(self) -> Tuple[int, int, int, int]: ...
    @property
    def delay_ms(self) -> int: ...
    @property
    def disposal(self) -> int: ...
    @property
    def transparent(self) -> Optional[int]: ...
    @property
    def interlaced(self) -> bool: ...

class ComposedFrames(Iterator[Tuple[Pixels, int]]):
    def __iter__(self) -> "ComposedFrames": ...
    def __next__(self) -> Tuple[Pixels, int]: ...
    def __len__(self) -> int: ...

class Animation(Sequence[Frame]):
    @property
    def size(self) -> Tuple[int, int]: ...
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def loop_count(self) -> int: ...
    @property
    def comments(self) -> list[bytes]: ...
    def __len__(self) -> int: ...
    def __getitem__(self, index: int) -> Frame: ...  # type: ignore[override]
    def composed(self, progress: Progress = None) -> ComposedFrames: ...

def open(
    source: Union[str, os.PathLike[str], bytes, bytearray, memoryview, BinaryIO],
    progress: Progress = None,
) -> Animation: ...
def quantize(
    image: Pixels,
    *,
    colors: int = 256,
    palette: str = "quality",
    dither: bool = False,
    color_strength: float = 1.0,
    alpha_strength: float = 1.0,
    opaque: Optional[bool] = None,
    min_alpha: int = 1,
    progress: Progress = None,
) -> Tuple[Pixels, Pixels]: ...
def save_gif(
    target: Union[str, "os.PathLike[str]", None],
    frames: Sequence[Pixels],
    *,
    palette: Optional[Pixels] = None,
    delay_ms: Union[int, Sequence[int]] = 100,
    loop: int = 0,
    colors: int = 256,
    dither: bool = False,
    optimize: bool = True,
    palettes: str = "shared",
    progress: Progress = None,
) -> Optional[bytes]: ...
def draw(
    target: Pixels,
    source: Pixels,
    position: Tuple[int, int] = (0, 0),
    *,
    clip: Optional[Tuple[int, int, int, int]] = None,
    mode: str = "over",
    opacity: int = 255,
    scale: Union[float, Tuple[float, float]] = 1.0,
    progress: Progress = None,
) -> None: ...
def status_text(status: int) -> str: ...
