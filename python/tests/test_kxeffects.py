"""The kxeffects module: every registered effect as a function, its values and errors, cross-checked with
OpenCV where it computes the same thing and with the C library through kxfx."""
import inspect
import os
import pathlib
import subprocess
import threading
import time

import cv2
import numpy as np
import pytest

import kxeffects

WHITE = {np.uint8: 255, np.uint16: 65535, np.float32: 1.0}
DTYPES = list(WHITE)
FUNCTIONS = {name: getattr(kxeffects, name) for names in kxeffects.families.values() for name in names}


def random_image(dtype, shape, seed=1):
    generator = np.random.default_rng(seed)
    if dtype is np.float32:
        return generator.random(shape, dtype=np.float32)
    return generator.integers(0, WHITE[dtype] + 1, shape, dtype=dtype)


def smooth_image(dtype, shape):
    """A photograph-like image: random, then blurred, so that effects have structure to work on."""
    noise = cv2.GaussianBlur(random_image(np.float32, shape), (0, 0), 2)
    stretched = (noise - noise.min()) / (noise.max() - noise.min())
    return stretched if dtype is np.float32 else (stretched * WHITE[dtype] + 0.5).astype(dtype)


def inputs_for(function, image):
    """The positional inputs of a function: a list of masks, a mask (a trimap, a brush), or images like the
    first."""
    values = []
    for name, parameter in inspect.signature(function).parameters.items():
        if parameter.kind is not inspect.Parameter.POSITIONAL_OR_KEYWORD:
            break
        if name == "masks":
            values.append([image[..., 0], image[..., 1]])
        elif name == "mask" or f"{name}: H x W array" in function.__doc__:
            values.append(np.ascontiguousarray(image[..., 0]))
        else:
            values.append(image if not values else image[::-1].copy())
    return values


def kxfx_rows():
    """kxfx list as {row: (summary, {setting: neutral text})}."""
    listing = subprocess.run([os.environ["KXFX"], "list"], capture_output=True, text=True, check=True).stdout
    rows = {}
    for line in listing.splitlines():
        if line.startswith("    --"):
            name, rest = line.strip()[2:].split(" (", 1)
            kind, neutral = rest.split("):", 1)[0].split(", neutral ")
            if kind != "output file":
                settings[name] = neutral
        elif line and not line.startswith((" ", "----")):
            row, summary = line.split(maxsplit=1)
            settings = {}
            rows[row] = (summary, settings)
    return rows


def neutral_text(default):
    """A Python default as kxfx writes the neutral value."""
    if default is None:
        return "none"
    if isinstance(default, bool):
        return str(default).lower()
    if isinstance(default, tuple):
        return ",".join(neutral_text(value) for value in default)
    if isinstance(default, float):
        return f"{default:g}"
    return str(default)


needs_kxfx = pytest.mark.skipif("KXFX" not in os.environ, reason="KXFX names the built kxfx")


@needs_kxfx
def test_every_registered_effect_is_a_function_with_its_settings_neutral_defaults_and_help():
    rows = kxfx_rows()
    assert sorted(FUNCTIONS) == sorted(row.replace("-", "_") for row in rows)
    for row, (summary, settings) in rows.items():
        function = FUNCTIONS[row.replace("-", "_")]
        assert summary.lower() in function.__doc__.lower(), row
        parameters = inspect.signature(function).parameters
        for name, neutral in settings.items():
            parameter = parameters[name.replace("-", "_")]
            assert parameter.kind is inspect.Parameter.KEYWORD_ONLY, (row, name)
            assert neutral_text(parameter.default) == neutral, (row, name)


@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("planes", [3, 4])
def test_every_function_runs_at_its_defaults_on_every_sample_type(dtype, planes):
    image = smooth_image(dtype, (32, 40, planes))  # analyses want a thousand pixels
    for name, function in FUNCTIONS.items():
        try:
            result = function(*inputs_for(function, image))
        except kxeffects.Error as error:
            # Depths an effect does not take.
            assert dtype is np.float32 and error.status in (1004, 1020), name
            continue
        results = result if isinstance(result, tuple) else (result,)
        for value in results:
            if isinstance(value, dict):
                assert value, name
            else:
                assert value.dtype == dtype and value.shape[:2] == image.shape[:2], name


@pytest.mark.parametrize("dtype", DTYPES)
def test_invert_is_white_minus_each_colour_sample_and_keeps_alpha(dtype):
    image = random_image(dtype, (9, 13, 4))
    inverted = kxeffects.invert(image)
    expected = image.copy()
    expected[..., :3] = WHITE[dtype] - image[..., :3]
    np.testing.assert_array_equal(inverted, expected)
    np.testing.assert_array_equal(kxeffects.invert(image[..., 0]), WHITE[dtype] - image[..., 0])


@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("radius", [1, 4])
def test_box_blur_is_opencvs_blur_with_replicated_edges(dtype, radius):
    image = random_image(dtype, (31, 37, 3), seed=radius)
    expected = cv2.blur(image, (2 * radius + 1, 2 * radius + 1), borderType=cv2.BORDER_REPLICATE)
    blurred = kxeffects.box_blur(image, radius=radius)
    tolerance = 1 if dtype is not np.float32 else 1e-5
    assert np.abs(blurred.astype(np.float64) - expected).max() <= tolerance


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
def test_median_is_opencvs_median(dtype):
    image = random_image(dtype, (23, 29), seed=5)
    # OpenCV takes 16-bit samples for kernels of 3 and 5 only.
    np.testing.assert_array_equal(kxeffects.median(image, radius=2), cv2.medianBlur(image, 5))


def test_luma_is_opencvs_gray_within_one_level():
    image = smooth_image(np.uint8, (32, 40, 3))
    gray = kxeffects.black_white(image, mode=0)
    expected = cv2.cvtColor(image, cv2.COLOR_RGB2GRAY)
    assert np.abs(gray[..., 0].astype(int) - expected).max() <= 1
    assert (gray[..., 0] == gray[..., 1]).all() and (gray[..., 1] == gray[..., 2]).all()


def run_kxfx(tmp_path, row, image, *settings):
    """kxfx on a PNG of image: its output, red first like the image."""
    source, output = tmp_path / "in.png", tmp_path / "out.png"
    cv2.imwrite(str(source), image[..., ::-1] if image.ndim == 3 else image)
    subprocess.run([os.environ["KXFX"], row, str(source), str(output), *settings], capture_output=True, check=True)
    result = cv2.imread(str(output), cv2.IMREAD_UNCHANGED)
    return result[..., ::-1] if result.ndim == 3 else result


@needs_kxfx
@pytest.mark.parametrize("row, settings, keywords", [
    ("unsharp-mask", ["--amount", "0.8", "--radius", "2.5"], dict(amount=0.8, radius=2.5)),
    ("select-luminosity", ["--low", "0.25", "--high", "0.75"], dict(low=0.25, high=0.75)),
    ("hue-saturation-brightness", ["--hue", "0.1", "--saturation", "0.3"], dict(hue=0.1, saturation=0.3)),
    ("apply-curves", ["--curves", "0,0;0.5,0.7;1,1"], dict(curves="0,0;0.5,0.7;1,1")),
    ("desaturate", ["--mode", "mul", "--amount", "0.5"], dict(mode="mul", amount=0.5)),
])
def test_results_equal_the_c_library_through_kxfx(tmp_path, row, settings, keywords):
    image = smooth_image(np.uint8, (30, 41, 3))
    expected = run_kxfx(tmp_path, row, image, *settings)
    np.testing.assert_array_equal(getattr(kxeffects, row.replace("-", "_"))(image, **keywords), expected)


@needs_kxfx
def test_analysis_numbers_equal_what_kxfx_prints(tmp_path):
    image = smooth_image(np.uint8, (30, 41, 3))
    path = tmp_path / "in.png"
    cv2.imwrite(str(path), image[..., ::-1])
    printed = subprocess.run([os.environ["KXFX"], "analyze-image", str(path)], capture_output=True, text=True,
                             check=True).stdout
    numbers = kxeffects.analyze_image(image)
    for line in printed.splitlines():
        name, values = line.split(":")
        np.testing.assert_allclose(numbers[name], [float(value) for value in values.split()], rtol=1e-5)


def test_rect_out_and_the_forms_of_settings():
    image = smooth_image(np.uint16, (20, 30, 3))
    blurred = kxeffects.gaussian_blur(image, radius=3, rect=(5, 4, 10, 8))
    outside = np.ones(image.shape[:2], bool)
    outside[4:12, 5:15] = False
    np.testing.assert_array_equal(blurred[outside], image[outside])
    assert (blurred[~outside] != image[~outside]).any()
    out = np.zeros_like(image)
    assert kxeffects.gaussian_blur(image, radius=3, rect=(5, 4, 10, 8), out=out) is out
    np.testing.assert_array_equal(out, blurred)
    identity = np.linspace(0, 1, 256, dtype=np.float32)
    np.testing.assert_array_equal(kxeffects.apply_curves(image, curves=identity), image)
    np.testing.assert_array_equal(kxeffects.apply_curves(image, curves=np.tile(identity, 3)), image)
    masks = kxeffects.multiply_masks([image[..., 0], image[..., 1]])
    assert masks.shape == (20, 30)
    assert kxeffects.find_mask_bounds(np.pad(np.ones((3, 4), np.uint8), ((5, 2), (6, 1))))["bounds"] == (6, 5, 4, 3)


def test_wrong_inputs_raise_errors_that_name_them():
    image = random_image(np.uint8, (10, 12, 3))
    cases = [
        (TypeError, "samples must be", lambda: kxeffects.invert(image.astype(np.int32))),
        (ValueError, "H x W x 3", lambda: kxeffects.invert(image[..., :2])),
        (TypeError, "unexpected keyword argument 'radious'", lambda: kxeffects.box_blur(image, radious=2)),
        (TypeError, "radius: give int", lambda: kxeffects.box_blur(image, radius=2.5)),
        (ValueError, "radius: 2000 is outside", lambda: kxeffects.box_blur(image, radius=2000)),
        (ValueError, "mode: ", lambda: kxeffects.desaturate(image, mode="toolong")),
        (TypeError, "missing required argument 'lower'", lambda: kxeffects.blend_images(image)),
        (TypeError, "lower: give samples", lambda: kxeffects.blend_images(image, image.astype(np.uint16))),
        (ValueError, "out: the result has shape", lambda: kxeffects.invert(image, out=np.zeros((10, 12), np.uint8))),
        (ValueError, "rect: ", lambda: kxeffects.invert(image, rect=(0, 0, -1, 3))),
    ]
    for error, words, call in cases:
        with pytest.raises(error, match=words):
            call()


def test_a_failed_status_raises_kxeffects_error_naming_it():
    with pytest.raises(kxeffects.Error, match=r"median\(\) failed with status 1020 \(unsupported") as raised:
        kxeffects.median(random_image(np.float32, (8, 8, 3)), radius=1)
    assert raised.value.status == 1020
    assert isinstance(raised.value, RuntimeError)


def test_threads_run_effects_side_by_side_with_the_gil_released():
    images = [smooth_image(np.float32, (64, 80, 3)) for _ in range(4)]
    expected = [kxeffects.gaussian_blur(image, radius=6) for image in images]
    results = [None] * len(images)

    def blur(index):
        results[index] = kxeffects.gaussian_blur(images[index], radius=6)

    threads = [threading.Thread(target=blur, args=(index,)) for index in range(len(images))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for result, wanted in zip(results, expected):
        np.testing.assert_array_equal(result, wanted)

    # While one long call runs, this thread keeps running Python: it would stall for the whole call if the
    # call held the GIL.
    large = smooth_image(np.float32, (400, 500, 3))
    started = time.perf_counter()
    kxeffects.surface_blur(large, radius=30, threshold=0.2)
    duration = time.perf_counter() - started
    worker = threading.Thread(target=kxeffects.surface_blur, args=(large,), kwargs=dict(radius=30, threshold=0.2))
    gaps, last = [], time.perf_counter()
    worker.start()
    while worker.is_alive():
        time.sleep(0.001)
        now = time.perf_counter()
        gaps.append(now - last)
        last = now
    worker.join()
    assert max(gaps) < duration / 2, (max(gaps), duration)
