"""Image operations: torvane against Pillow (PNG) and NumPy (blends, box average), in one run.

Each case first checks that both sides give the same pixels (or, for PNG, that Pillow decodes
ours to the same pixels), then prints the best time of each and their ratio; for PNG also both
file sizes. Inputs are a flat scene (a few filled rectangles and text) and noise.

    PYTHONPATH=python .venv/bin/python bench/bench_image.py [--repeat 5]
"""

import argparse
import io
import timeit

import numpy as np
from PIL import Image as PILImage

import torvane as tv


def flat_scene(side):
    image = tv.Image(side, side, (30, 30, 40, 255))
    for k in range(8):
        image.fill_rect(side * k // 10, side * k // 12, side // 3, side // 4, (40 * k % 256, 200, 90, 255))
    image.draw_text(side // 20, side // 20, "torvane", color=(255, 255, 255, 255), scale=max(1, side // 64))
    return image


def noise(side):
    return tv.Image.from_bytes(side, side, np.random.default_rng(side).integers(0, 256, side * side * 4, np.uint8).tobytes())


def as_array(image):
    return np.frombuffer(image.to_bytes(), np.uint8).reshape(image.height, image.width, 4)


def best(function, repeat):
    return min(timeit.repeat(function, number=1, repeat=repeat))


def report(name, ours, theirs, extra=""):
    print(f"{name:<34} torvane {ours * 1e3:9.2f} ms   baseline {theirs * 1e3:9.2f} ms   ratio {ours / theirs:5.2f}{extra}")


def bench_png(repeat):
    for label, make in (("flat", flat_scene), ("noise", noise)):
        for side in (512, 2048):
            image = make(side)
            ours = image.to_png()
            assert PILImage.open(io.BytesIO(ours)).tobytes() == image.to_bytes()
            pil = PILImage.frombytes("RGBA", (side, side), image.to_bytes())

            def pil_png():
                buffer = io.BytesIO()
                pil.save(buffer, format="PNG")
                return buffer.getvalue()

            sizes = f"   bytes {len(ours)} vs {len(pil_png())}"
            report(f"to_png {label} {side}", best(image.to_png, repeat), best(pil_png, repeat), sizes)


def div255(t):
    return (t + (t >> 8)) >> 8


def numpy_fill(target, color, mode):
    s = np.array(color, np.uint32)
    a = s[3]
    d = target.astype(np.uint32)
    if mode == "over":
        out = div255(s * a + d * (255 - a) + 127)
        out[..., 3] = div255(255 * a + d[..., 3] * (255 - a) + 127)
    else:
        out = np.minimum(255, d + div255(s * a + 127))
        out[..., 3] = np.minimum(255, d[..., 3] + a)
    target[...] = out


def numpy_blit_over(target, source):
    s, d = source.astype(np.uint32), target.astype(np.uint32)
    a = s[..., 3:]
    out = div255(s * a + d * (255 - a) + 127)
    out[..., 3:] = div255(255 * a + d[..., 3:] * (255 - a) + 127)
    target[...] = np.where(a == 0, d, np.where(a == 255, s, out))


def numpy_downsample(pixels, factor):
    h, w = pixels.shape[0] // factor, pixels.shape[1] // factor
    blocks = pixels[:h * factor, :w * factor].reshape(h, factor, w, factor, 4).sum((1, 3), dtype=np.uint32)
    return ((blocks + factor * factor // 2) // (factor * factor)).astype(np.uint8)


def bench_blends(repeat, side=2048):
    color = (200, 100, 50, 128)
    for mode in ("over", "add"):
        image, reference = noise(side), as_array(noise(side)).copy()
        image.fill_rect(0, 0, side, side, color, mode)
        numpy_fill(reference, color, mode)
        assert np.array_equal(as_array(image), reference)
        report(f"fill_rect {mode} {side}", best(lambda: image.fill_rect(0, 0, side, side, color, mode), repeat),
               best(lambda: numpy_fill(reference, color, mode), repeat))

    target, source = noise(side), flat_scene(side)
    source.fill_rect(0, 0, side // 2, side, (10, 20, 30, 100))
    reference = as_array(target).copy()
    target.blit(source, mode="over")
    numpy_blit_over(reference, as_array(source))
    assert np.array_equal(as_array(target), reference)
    report(f"blit over {side}", best(lambda: target.blit(source, mode="over"), repeat),
           best(lambda: numpy_blit_over(reference, as_array(source)), repeat))

    image = noise(side)
    pixels = as_array(image)
    for factor in (2, 4):
        assert np.array_equal(as_array(image.downsample(factor)), numpy_downsample(pixels, factor))
        report(f"downsample({factor}) {side}", best(lambda: image.downsample(factor), repeat),
               best(lambda: numpy_downsample(pixels, factor), repeat))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--repeat", type=int, default=5)
    repeat = parser.parse_args().repeat
    print(f"pool threads: {tv.thread_count()}")
    bench_png(repeat)
    bench_blends(repeat)


if __name__ == "__main__":
    main()
