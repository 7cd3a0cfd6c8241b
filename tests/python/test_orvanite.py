# SPDX-License-Identifier: BSD-3-Clause
"""The Python module: arrays of any layout, values by name, exceptions, threads, no leaks."""
import gc
import resource
import threading

import numpy as np
import pytest

import orvanite

GREEN, RED, WHITE = (40, 170, 60), (200, 60, 50), (255, 255, 255)


def plate_of(dtype=np.uint8, height=60, width=100):
    """Green, a red subject from column 60 on, white from column 90 on; RGBA."""
    plate = np.empty((height, width, 4), np.float64)
    plate[..., :3] = GREEN
    plate[:, 60:, :3] = RED
    plate[:, 90:, :3] = WHITE
    plate[..., 3] = 255
    plate /= 255
    if np.dtype(dtype).kind == "f":
        return plate.astype(dtype)
    return np.round(plate * np.iinfo(dtype).max).astype(dtype)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float16, np.float32])
def test_keys_a_plate_by_itself(dtype):
    keyed = orvanite.key(plate_of(dtype))
    top = 1 if np.dtype(dtype).kind == "f" else np.iinfo(dtype).max
    assert keyed.dtype == dtype and keyed.shape == (60, 100, 4)
    assert np.all(keyed[:, :60, 3] == 0)
    # Steps of 1/4096; beside estimates floats are keyed as integers whose white is 8: a step at
    # either end is 8/4096.
    least = {np.uint8: 255, np.uint16: 65535 * 4095 // 4096}.get(dtype, 1 - 2 * 8 / 4096)
    assert keyed[:, 60:, 3].min() >= least
    # What is solid keeps its colour, integers to a code; floats to the same steps.
    solid = plate_of(np.float64)[:, 60:, :3]
    near = 2e-3 + (keyed.itemsize == 1) / 255 if top > 1 else 2 * 8 / 4096
    assert np.abs(keyed[:, 60:, :3] / top - solid).max() < near


def noise(dtype=np.uint8, seed=1):
    random = np.random.default_rng(seed)
    if np.dtype(dtype).kind == "f":
        return random.random((23, 41, 4)).astype(dtype)
    return random.integers(0, np.iinfo(dtype).max + 1, (23, 41, 4), dtype=dtype)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float16, np.float32])
def test_gives_the_same_bits_however_an_array_lies(dtype):
    plate, below = noise(dtype), noise(dtype, 2)
    below[..., 3] = 1 if np.dtype(dtype).kind == "f" else np.iinfo(dtype).max
    keyer = orvanite.Keyer(screen=(0.1, 0.7, 0.2), screen_range=0.05)
    wanted = keyer.key(plate, below, threads=1)
    wide = np.zeros((23, 82, 4), dtype)
    wide[:, ::2] = plate
    ways = {
        "RGB": plate[..., :3].copy(),
        "every second pixel": wide[:, ::2],
        "rows upwards": plate[::-1].copy()[::-1],
        "columns first": np.asfortranarray(plate),
        "planes": np.moveaxis(np.moveaxis(plate, 2, 0).copy(), 0, 2),
        "BGRA, read backwards": plate[..., [2, 1, 0]].copy()[..., ::-1],
    }
    for name, way in ways.items():
        assert np.array_equal(keyer.key(way, below), wanted), name
        out = np.full((46, 41, 4), 7, dtype)
        assert keyer.key(way, below, out=out[::2]).base is not None
        assert np.array_equal(out[::2], wanted), name
        assert np.all(out[1::2] == 7), name + ": written beside the result"
    place = plate.copy()
    keyer.key(place, below, out=place)
    assert np.array_equal(place, wanted), "in place"
    # An RGB background is opaque, and its composite is RGB.
    assert np.array_equal(keyer.key(plate, below[..., :3].copy()), wanted[..., :3])


def test_composites_by_the_matte():
    plate, below = plate_of(np.float32), np.full((60, 100, 3), 0.25, np.float32)
    plate[:, 30:60, :3] = (plate[0, 0, :3] + plate[0, 99, :3]) / 2  # half screen, half white
    given = {"auto": False, "screen": np.array(GREEN) / 255, "fg_bias": 1}
    matte = orvanite.key(plate, output="matte", **given)[..., 3]
    straight = orvanite.key(plate, **given)
    comp = orvanite.key(plate, below, **given)
    assert abs(matte[0, 45] - 0.5) < 1e-3
    assert np.allclose(straight[..., 3], matte)
    over = straight[..., :3] * matte[..., None] + below * (1 - matte[..., None])
    assert np.abs(comp - over).max() < 1e-6


def test_mattes_keep_and_cut():
    plate = plate_of()
    band = np.zeros((60, 100), np.uint8)
    band[10:20] = 255
    grey = np.repeat(band[..., None], 3, 2)
    for matte in (band, grey, np.dstack([grey, np.full_like(band, 255)])):
        kept = orvanite.key(plate, hold_out=matte)[..., 3]
        assert np.all(kept[10:20] == 255) and np.all(kept[30, :60] == 0)
        cut = orvanite.key(plate, garbage=matte)[..., 3]
        assert np.all(cut[10:20] == 0) and np.all(cut[30, 60:] == 255)


def test_finds_screens_and_says_where_there_is_none():
    screen = orvanite.find_screen(plate_of())
    assert screen.primary == "green" and abs(screen.coverage - 0.6) < 0.02
    assert np.allclose(np.array(screen.colour) * 255, GREEN, atol=1)
    grey = np.full((50, 50, 3), 128, np.uint8)
    with pytest.raises(orvanite.Failure, match="plate: "):
        orvanite.find_screen(grey)
    with pytest.raises(RuntimeError):
        orvanite.key(grey)
    # A screen that darkens by a third gets a clean plate, and keys.
    uneven = plate_of(np.uint16, 120, 200).astype(np.float64)
    uneven[:, :, :3] *= np.linspace(1, 0.65, 200)[None, :, None]
    uneven = uneven.astype(np.uint16)
    keyer = orvanite.Keyer(output="matte")
    assert {"screen", "estimate"} <= set(keyer.find(uneven))
    matte = keyer.key(uneven)
    assert matte[:, :60, 3].max() < 0.02 * 65535
    assert keyer.see(uneven) and not keyer.see(np.roll(uneven, 60, axis=1))
    # A preset of it estimates anew, from the frame that is keyed.
    assert np.array_equal(orvanite.Keyer(keyer.preset).key(uneven), matte)
    with pytest.raises(orvanite.WrongUse, match="found"):
        orvanite.Keyer().see(uneven)


def test_status_shows_screen_and_foreground():
    shown = orvanite.status(plate_of())
    assert tuple(shown[0, 0, :3]) == (0, 0, 0)
    assert shown[0, 70, 2] == 255


def test_reads_and_writes_every_parameter():
    keyer = orvanite.Keyer()
    for entry in orvanite.parameters():
        assert entry.help and entry.label and entry.group
        before = keyer[entry.name]
        keyer[entry.name] = before
        assert keyer[entry.name] == before and keyer.given(entry.name), entry.name
        for choice in entry.choices:
            keyer[entry.name] = choice.text
            assert keyer[entry.name] == choice.text
    keyer.set(screen_range=0.125, useReference=False)
    assert keyer["screenRange"] == keyer["screen_range"] == 0.125
    assert keyer["use_reference"] is False
    again = orvanite.Keyer(keyer.preset)
    assert again.preset == keyer.preset
    keyer.reset()
    assert not keyer.given("screen") and keyer.preset == orvanite.Keyer().preset


@pytest.mark.parametrize("call, kind, words", [
    (lambda p: orvanite.key(p, scren=1), ValueError, "did you mean 'screen'"),
    (lambda p: orvanite.key(p, screen=(1, 2)), ValueError, "1 number or 3"),
    (lambda p: orvanite.key(p, output="mat"), ValueError, "output: expected composite"),
    (lambda p: orvanite.key(p, screen=0.5, auto=False), ValueError, "found a grey"),
    (lambda p: orvanite.key(p.astype(np.float64)), TypeError, "plate: expected an array of uint8"),
    (lambda p: orvanite.key(p.astype(">u2")), TypeError, "plate: expected an array of uint8"),
    (lambda p: orvanite.key(p.astype(np.int8)), TypeError, "plate"),
    (lambda p: orvanite.key([[1, 2], [3, 4]]), TypeError, "plate: expected a numpy array, found list"),
    (lambda p: orvanite.key(None), ValueError, "plate"),
    (lambda p: orvanite.key(p[..., :2]), ValueError, r"plate: .* found \(60, 100, 2\)"),
    (lambda p: orvanite.key(p[0]), ValueError, "plate"),
    (lambda p: orvanite.key(p[..., 0]), ValueError, "plate: expected a picture with red"),
    (lambda p: orvanite.key(p[:0]), ValueError, "plate"),
    (lambda p: orvanite.key(p, p[:50]), ValueError, "background: expected the plate's size, 100x60"),
    (lambda p: orvanite.key(p, hold_out=p[:, :9, 0]), ValueError, "hold-out matte"),
    (lambda p: orvanite.key(p, out=np.zeros((60, 99, 4), np.uint8)), ValueError, "result"),
    (lambda p: orvanite.key(p, out=np.broadcast_to(p[:1], p.shape)), ValueError, "out: .* written"),
    (lambda p: orvanite.key(p, threads=-1), ValueError, "threads"),
    (lambda p: orvanite.Keyer("{}"), RuntimeError, "preset"),
    (lambda p: orvanite.Keyer()["nothing"], ValueError, "nothing"),
    (lambda p: orvanite.Keyer().find(p, clean_plate="maybe"), ValueError, "clean_plate"),
])
def test_says_what_is_wrong(call, kind, words):
    with pytest.raises(kind, match=words):
        call(plate_of())


def test_threads_may_share_a_keyer():
    keyer = orvanite.Keyer(screen=(0.1, 0.7, 0.2), output="unpremultiplied")
    plates = [noise(np.uint8, seed) for seed in range(4)]
    wanted = [keyer.key(plate, threads=1) for plate in plates]
    wrong = []

    def work(index):
        for _ in range(50):
            keyer["screen"] = (0.1, 0.7, 0.2)
            if not np.array_equal(keyer.key(plates[index]), wanted[index]):
                wrong.append(index)

    threads = [threading.Thread(target=work, args=(index,)) for index in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not wrong


def test_ten_thousand_calls_leave_nothing_behind():
    plate, below = noise(), noise(seed=2)

    def calls(count):
        for _ in range(count):
            keyer = orvanite.Keyer(screen=(0.1, 0.7, 0.2), screen_range=0.01)
            keyer.key(plate, below, threads=1)
            try:
                keyer.key(plate[..., 0])
            except orvanite.WrongUse:
                pass

    calls(500)
    gc.collect()
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    calls(10000)
    grown = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before
    # A keyer's tables are half a megabyte: one lost in a hundred calls would be 50 MB.
    assert grown < 8 * 1024, f"{grown} KiB more"
