"""Image construction and a sequence of its methods with arbitrary arguments; every picture
survives to_bytes / from_bytes unchanged."""

import atheris

with atheris.instrument_imports():
    import harness
import torvane as tv

MODES = ["copy", "over", "add", "additive", "bad"]


def color(p: atheris.FuzzedDataProvider) -> tuple:
    return tuple(p.ConsumeIntInRange(-1, 256) for _ in range(4))


def coordinate(p: atheris.FuzzedDataProvider) -> int:
    return p.PickValueInList([p.ConsumeIntInRange(-70, 70), -2**63, 2**63 - 1, 2**64, -2**31])


def size(p: atheris.FuzzedDataProvider) -> int:
    return p.PickValueInList([p.ConsumeIntInRange(0, 70), 2**32 - 1, 2**32, -1])


def text(p: atheris.FuzzedDataProvider) -> str:
    return p.ConsumeUnicodeNoSurrogates(p.ConsumeIntInRange(0, 24))


OPERATIONS = [
    lambda image, p: image.fill(color(p)),
    lambda image, p: image.fill_rect(coordinate(p), coordinate(p), size(p), size(p), color(p), p.PickValueInList(MODES)),
    lambda image, p: image.blit(tv.Image(p.ConsumeIntInRange(0, 40), p.ConsumeIntInRange(0, 40), color(p)),
                                coordinate(p), coordinate(p), coordinate(p), coordinate(p),
                                p.PickValueInList([None, size(p)]), p.PickValueInList([None, size(p)]),
                                mode=p.PickValueInList(MODES)),
    lambda image, p: image.set_pixel(size(p), size(p), color(p)),
    lambda image, p: image.pixel(size(p), size(p)),
    lambda image, p: image.draw_text(coordinate(p), coordinate(p), text(p), color(p),
                                     p.PickValueInList([0, 1, 2, 3, 2**32 - 1]), p.PickValueInList(MODES),
                                     p.ConsumeBool()),
    lambda image, p: tv.Image.text_size(text(p), p.ConsumeIntInRange(0, 5)),
    lambda image, p: tv.Image.fit_text(text(p), size(p), p.ConsumeIntInRange(0, 5)),
    lambda image, p: image.downsample(p.PickValueInList([0, 1, 2, 3, 7, 2**32 - 1])),
    lambda image, p: image.resized(p.ConsumeIntInRange(0, 90), p.ConsumeIntInRange(0, 90)),
    lambda image, p: image.to_png(),
    lambda image, p: tv.Image.from_bytes(size(p), size(p), p.ConsumeBytes(p.ConsumeIntInRange(0, 64))),
]


def test_one_input(data: bytes) -> None:
    p = atheris.FuzzedDataProvider(data)
    image = tv.Image(p.ConsumeIntInRange(0, 64), p.ConsumeIntInRange(0, 64), color(p))
    for _ in range(p.ConsumeIntInRange(0, 8)):
        try:
            p.PickValueInList(OPERATIONS)(image, p)
        except harness.DOCUMENTED:
            pass
    copy = tv.Image.from_bytes(image.width, image.height, image.to_bytes())
    assert copy.to_bytes() == image.to_bytes()


if __name__ == "__main__":
    harness.main(test_one_input)
