import ctypes
import io
import os
import struct
import subprocess
import sys
import zlib

import numpy as np
import pytest
from hypothesis import example, given, strategies as st
from PIL import Image as PILImage

import torvane as tv

byte = st.integers(0, 255)
# Alphas 0 and 255 take their own paths in over, so they are drawn often.
colors = st.tuples(byte, byte, byte, st.one_of(st.sampled_from([0, 1, 128, 254, 255]), byte))
modes = st.sampled_from(["copy", "over", "add", "additive"])
# Coordinates reaching past 64 bits when a length is added, next to small ones.
coordinates = st.one_of(st.integers(-12, 12), st.sampled_from([-2**63, -2**32, 2**63 - 1]))
lengths = st.one_of(st.integers(0, 14), st.just(2**32 - 1))


@st.composite
def images(draw, max_side=9, min_side=0):
    width, height = draw(st.integers(min_side, max_side)), draw(st.integers(min_side, max_side))
    return tv.Image.from_bytes(width, height, draw(st.binary(min_size=width * height * 4, max_size=width * height * 4)))


def pixels(image):
    return np.frombuffer(image.to_bytes(), np.uint8).reshape(image.height, image.width, 4).astype(np.uint32)


def div255(t):
    return (t + (t >> 8)) >> 8


def blend(d, s, mode):
    """The blend rule on uint32 arrays of shape (..., 4)."""
    s = np.broadcast_to(np.asarray(s, np.uint32), d.shape)
    a = s[..., 3:]
    if mode == "copy":
        return s
    if mode == "over":
        mixed = np.concatenate([div255(s[..., :3] * a + d[..., :3] * (255 - a) + 127),
                                div255(255 * a + d[..., 3:] * (255 - a) + 127)], -1)
        return np.where(a == 0, d, np.where(a == 255, s, mixed))
    return np.concatenate([np.minimum(255, d[..., :3] + div255(s[..., :3] * a + 127)), np.minimum(255, d[..., 3:] + a)], -1)


def clip(start, length, limit):
    return max(start, 0), min(start + length, limit)


@given(images(), coordinates, coordinates, lengths, lengths, colors, modes)
@example(tv.Image(3, 3, (0, 0, 0, 255)), 0, 0, 3, 3, (128, 128, 128, 128), "over")  # alpha stays 255
@example(tv.Image(1, 1), 0, 0, 1, 1, (128, 0, 0, 1), "over")  # a sum of 128 rounds down to 0
@example(tv.Image(1, 1, (200, 100, 0, 64)), 0, 0, 1, 1, (0, 100, 200, 64), "over")  # d's alpha weighs nothing
def test_fill_rect_blends_the_clipped_slice(image, x, y, width, height, color, mode):
    expected = pixels(image)
    (x0, x1), (y0, y1) = clip(x, width, image.width), clip(y, height, image.height)
    if x0 < x1 and y0 < y1:
        expected[y0:y1, x0:x1] = blend(expected[y0:y1, x0:x1], color, mode)
    image.fill_rect(x, y, width, height, color, mode)
    assert np.array_equal(pixels(image), expected)


@given(images(), images(), coordinates, coordinates, coordinates, coordinates,
       st.none() | lengths, st.none() | lengths, modes)
def test_blit_blends_the_clipped_source(target, src, x, y, src_x, src_y, src_width, src_height, mode):
    expected, source = pixels(target), pixels(src)
    sx0, sx1 = clip(src_x, src.width if src_width is None else src_width, src.width)
    sy0, sy1 = clip(src_y, src.height if src_height is None else src_height, src.height)
    dx, dy = x + sx0 - src_x, y + sy0 - src_y
    (dx0, dx1), (dy0, dy1) = clip(dx, sx1 - sx0, target.width), clip(dy, sy1 - sy0, target.height)
    if sx0 < sx1 and sy0 < sy1 and dx0 < dx1 and dy0 < dy1:
        region = source[sy0 + dy0 - dy:sy0 + dy1 - dy, sx0 + dx0 - dx:sx0 + dx1 - dx]
        expected[dy0:dy1, dx0:dx1] = blend(expected[dy0:dy1, dx0:dx1], region, mode)
    target.blit(src, x, y, src_x, src_y, src_width, src_height, mode=mode)
    assert np.array_equal(pixels(target), expected)


@given(images(max_side=14), st.integers(1, 16))
@example(tv.Image.from_bytes(2, 1, bytes([0, 0, 0, 255, 0, 0, 0, 0])), 2)  # alpha (255 + 2) // 4 is 64, not 63
@example(tv.Image.from_bytes(3, 2, bytes([255] * 24)), 2)  # every channel at its largest sum
def test_downsample_is_a_rounded_block_mean(image, factor):
    h, w = image.height // factor, image.width // factor
    blocks = pixels(image)[:h * factor, :w * factor].reshape(h, factor, w, factor, 4).sum((1, 3))
    assert np.array_equal(pixels(image.downsample(factor)), (blocks + factor * factor // 2) // (factor * factor))


@given(images(), st.integers(0, 20), st.integers(0, 20))
def test_resized_picks_nearest_source_pixels(image, width, height):
    result = image.resized(width, height)
    assert (result.width, result.height) == (width, height)
    if image.width == 0 or image.height == 0:
        assert not result.to_bytes().strip(b"\0")
        return
    xs = np.minimum(np.arange(width) * image.width // width, image.width - 1)
    ys = np.minimum(np.arange(height) * image.height // height, image.height - 1)
    assert np.array_equal(pixels(result), pixels(image)[ys][:, xs])


def test_parallel_results_do_not_depend_on_the_pool_size():
    script = ("import hashlib, torvane as tv; image = tv.Image.from_bytes(509, 301, (bytes(range(251)) * 2442)[:509 * 301 * 4]);"
              "image.draw_text(3, 3, 'pool', scale=7);"
              "print(hashlib.sha256(image.downsample(3).to_bytes() + image.resized(1021, 77).to_bytes()).hexdigest())")
    outputs = {subprocess.run([sys.executable, "-c", script], env={**os.environ, "RAYON_NUM_THREADS": str(n)},
                              capture_output=True, text=True, check=True).stdout for n in (1, 2)}
    assert len(outputs) == 1


def test_surface():
    image = tv.Image(3, 2, (1, 2, 3, 4))
    assert (image.width, image.height, image.stride, len(image)) == (3, 2, 12, 24)
    assert repr(image) == "<Image 3x2 RGBA8>"
    assert image.to_bytes() == bytes([1, 2, 3, 4]) * 6
    assert tv.Image(1, 1).pixel(0, 0) == (0, 0, 0, 0)
    copy = image.copy()
    copy.set_pixel(2, 1, (9, 9, 9, 9))
    assert (copy.pixel(2, 1), image.pixel(2, 1)) == ((9, 9, 9, 9), (1, 2, 3, 4))
    image.fill((5, 6, 7, 8))
    assert image.to_bytes() == bytes([5, 6, 7, 8]) * 6
    assert tv.Image.from_bytes(1, 1, [1, 2, 3, 4]).to_bytes() == tv.Image.from_bytes(1, 1, bytearray(b"\1\2\3\4")).to_bytes()
    empty = tv.Image(0, 7)
    empty.fill((1, 1, 1, 1))
    assert (empty.to_bytes(), empty.downsample(2).width, empty.resized(2, 2).to_bytes()) == (b"", 0, bytes(16))


def test_array_interface_is_a_writable_view_that_keeps_the_image_alive():
    image = tv.Image(3, 2)
    interface = image.__array_interface__
    assert list(interface) == ["shape", "typestr", "version", "data"]
    assert (interface["shape"], interface["typestr"], interface["version"], interface["data"][1]) == ((2, 3, 4), "|u1", 3, 0)
    view = np.asarray(image)
    del image
    view[1, 2] = (10, 20, 30, 40)
    assert view.base.pixel(2, 1) == (10, 20, 30, 40)


@pytest.mark.parametrize("call, error, message, note", [
    (lambda: tv.Image(1, 1, [0, 0, 0, 0]), TypeError, "'list' object is not an instance of 'tuple'", "color"),
    (lambda: tv.Image(1, 1, (0, 0, 0)), ValueError, "expected tuple of length 4, but got tuple of length 3", "color"),
    (lambda: tv.Image(1, 1, (0, 0, 256, 0)), OverflowError, "out of range integral type conversion attempted", "color"),
    (lambda: tv.Image(2**32 - 1, 2**32 - 1), ValueError, "image size 4294967295x4294967295 is too large to address", None),
    (lambda: tv.Image.from_bytes(1, 1, b"abc"), ValueError, "data length must be width * height * 4", None),
    (lambda: tv.Image.from_bytes(1, 1, "abcd"), TypeError, "Can't extract `str` to `Vec`", "data"),
    (lambda: tv.Image.from_bytes(1, 1, [0, 0, 0, 300]), OverflowError, None, "data"),
    (lambda: tv.Image(2, 1).pixel(2, 0), IndexError, "pixel out of range", None),
    (lambda: tv.Image(2, 1).set_pixel(0, 1, (0, 0, 0, 0)), IndexError, "pixel out of range", None),
    (lambda: tv.Image(1, 1).fill_rect(0, 0, 1, 1, (0, 0, 0, 0), 'A"d\\'), ValueError,
     """unknown blend mode "A\\"d\\\\", expected 'copy', 'over' or 'add'""", None),
    (lambda: tv.Image(1, 1).blit(5), TypeError, "'int' object is not an instance of 'Image'", "src"),
    (lambda: tv.Image(1, 1).blit(tv.Image(1, 1), mode="Add"), ValueError, None, None),
    (lambda: tv.Image(1, 1).draw_text(0, 0, "a", center=1), TypeError, "'int' object is not an instance of 'bool'",
     "center"),
    (lambda: tv.Image(1, 1).downsample(0), ValueError, "factor must be positive", None),
    (lambda: tv.Image(1, 1).save(b"x.png"), TypeError, "'bytes' object is not an instance of 'str'", "path"),
    (lambda: tv.Image(1, 1).save("x\0.png"), ValueError, "embedded null byte", None),
    (lambda: tv.Image(1, 1).save("/no/such/dir/x.png"), RuntimeError, os.strerror(2), None),
])
def test_bad_input(call, error, message, note):
    with pytest.raises(error) as raised:
        call()
    if message is not None:
        assert str(raised.value) == message
    if note is not None:
        assert raised.value.__notes__ == [f"while processing '{note}'"]


def test_blit_into_itself_is_refused():
    image = tv.Image(1, 1)
    with pytest.raises(RuntimeError, match="^Already mutably borrowed$"):
        image.blit(image)


def chunks(png):
    assert png[:8] == b"\x89PNG\r\n\x1a\n"
    at, found = 8, []
    while at < len(png):
        (length,), kind = struct.unpack(">I", png[at:at + 4]), png[at + 4:at + 8]
        data, (crc,) = png[at + 8:at + 8 + length], struct.unpack(">I", png[at + 8 + length:at + 12 + length])
        assert crc == zlib.crc32(kind + data)
        found.append((kind, data))
        at += 12 + length
    return found


def native_zlib_version():
    libz = ctypes.CDLL("libz.so.1")
    libz.zlibVersion.restype = ctypes.c_char_p
    return libz.zlibVersion().decode()


@given(images(max_side=40))
@example(tv.Image(0, 3))
@example(tv.Image(5, 0))
def test_png_structure_filter_and_stream(image):
    found = chunks(image.to_png())
    assert [kind for kind, _ in found] == [b"IHDR", b"IDAT", b"IEND"] and found[2][1] == b""
    assert found[0][1] == struct.pack(">IIBBBBB", image.width, image.height, 8, 6, 0, 0, 0)
    rows = np.frombuffer(zlib.decompress(found[1][1]), np.uint8).reshape(image.height, 1 + image.stride)
    assert (rows[:, 0] == 1).all()
    unfiltered = np.cumsum(rows[:, 1:].reshape(image.height, image.width, 4), axis=1, dtype=np.uint8)
    assert np.array_equal(unfiltered, pixels(image))
    if zlib.ZLIB_RUNTIME_VERSION == native_zlib_version():
        assert found[1][1] == zlib.compress(rows.tobytes(), 6)


@given(images(max_side=30, min_side=1))
def test_png_decodes_to_the_pixels(image):
    decoded = PILImage.open(io.BytesIO(image.to_png()))
    assert decoded.mode == "RGBA" and decoded.tobytes() == image.to_bytes()


def test_save_writes_the_png_bytes(tmp_path):
    image = tv.Image(7, 5, (0, 0, 255, 255))
    image.draw_text(1, 0, "F", color=(255, 0, 0, 200))
    path = tmp_path / "f.png"
    image.save(str(path))
    assert path.read_bytes() == image.to_png()
    assert oct(path.stat().st_mode & 0o777) == oct(0o666 & ~current_umask())


def current_umask():
    mask = os.umask(0)
    os.umask(mask)
    return mask


WIDTHS = {**{c: 1 for c in "!'.:i|"}, **{c: 2 for c in "(),;[]`j"}, **{c: 3 for c in ' "Il'},
          **{c: 4 for c in "<>fkt{}"}}


def line_width(line, scale):
    advances = [WIDTHS.get(c, 5) if " " <= c <= "~" else 5 for c in line]
    return (sum(advances) + len(advances) - 1) * scale if advances else 0


texts = st.text(st.one_of(st.sampled_from("\n\t\x00é€ W.iIj"), st.characters(min_codepoint=32, max_codepoint=126)),
                max_size=12)


@given(texts, st.integers(0, 3), st.booleans())
def test_text_is_laid_out_by_the_width_table(text, scale, center):
    lines = text.split("\n")
    width = max(line_width(line, scale) for line in lines)
    assert tv.Image.text_size(text, scale) == (width, (11 * len(lines) - 2) * scale)
    image = tv.Image(160, 160)
    origin_x = 80 if center else 10
    assert image.draw_text(origin_x, 10, text, scale=scale, center=center) == (width if scale else 0)
    ink = np.argwhere(pixels(image)[..., 3] > 0)
    if len(ink):
        (top, left), (bottom, right) = ink.min(0), ink.max(0) + 1
        assert top >= 10 and bottom <= 10 + tv.Image.text_size(text, scale)[1]
        starts = [origin_x - line_width(line, scale) // 2 if center else origin_x for line in lines if line]
        ends = [start + line_width(line, scale) for start, line in zip(starts, [line for line in lines if line])]
        assert left >= min(starts) and right <= max(ends)


def test_text_outside_ascii_and_far_outside_the_image():
    question, accented = tv.Image(8, 12), tv.Image(8, 12)
    question.draw_text(0, 0, "?")
    accented.draw_text(0, 0, "é")
    assert question.to_bytes() == accented.to_bytes() != bytes(len(question))
    far = tv.Image(8, 8)
    assert far.draw_text(2**63 - 1, -2**63, "WW\nWW", scale=2**32 - 1) == 11 * (2**32 - 1)
    far.draw_text(-2**63, 2**63 - 1, "WW", scale=2**32 - 1, center=True)
    assert far.to_bytes() == bytes(len(far))


@given(texts, st.integers(0, 80), st.integers(1, 3))
def test_fit_text_keeps_the_longest_fitting_prefix(text, max_width, scale):
    result = tv.Image.fit_text(text, max_width, scale)
    first = text.split("\n")[0]
    if line_width(first, scale) <= max_width:
        assert result == text
    elif 5 * scale > max_width:
        assert result == ""
    else:
        prefix = result[:-3]
        assert result.endswith("...") and text.startswith(prefix)
        assert line_width(prefix, scale) + 5 * scale <= max_width < line_width(text[:len(prefix) + 1], scale) + 5 * scale
