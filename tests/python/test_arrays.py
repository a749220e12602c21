"""Datasets and NumPy arrays: every element type both ways, shapes and axis order, views without
copies that keep their dataset alive, geometry, and refusals."""
import gc
import weakref

import numpy as np
import pytest

import tarv

DTYPES = ["bool", "int8", "uint8", "int16", "uint16", "int32", "uint32", "int64", "uint64", "float32", "float64",
          "longdouble"]


def sample(dtype, shape, seed=1):
    rng = np.random.default_rng(seed)
    if dtype == "bool":
        return rng.integers(0, 2, size=shape).astype(bool)
    if np.issubdtype(np.dtype(dtype), np.integer):
        info = np.iinfo(dtype)
        values = rng.integers(info.min, info.max, size=shape, dtype=dtype, endpoint=True)
        values.flat[0], values.flat[-1] = info.min, info.max
        return values
    return (rng.normal(0.0, 1e3, size=shape)).astype(dtype)


def test_the_twelve_element_types_are_numpys():
    assert tarv.element_types() == ["bool", "int8", "uint8", "int16", "uint16", "int32", "uint32", "int64", "uint64",
                                    "float", "double", "longdouble"]


@pytest.mark.parametrize("dtype", DTYPES)
def test_every_element_type_round_trips(dtype):
    array = sample(dtype, (3, 4, 5))
    d = tarv.Dataset.from_array(array)
    assert d.dtype == np.dtype(dtype)
    assert d.size == (5, 4, 3, 1, 1)
    back = np.asarray(d)
    assert back.dtype == np.dtype(dtype) and back.shape == (3, 4, 5)
    assert np.array_equal(back, array)
    if dtype != "bool":
        assert d.in_memory and np.shares_memory(back, np.asarray(d)), "a view, not a copy"
    else:
        assert not np.shares_memory(back, np.asarray(d)), "bool elements are packed: copies"


@pytest.mark.parametrize("shape, components, size", [
    ((4, 5), False, (5, 4, 1, 1, 1)),
    ((3, 4, 5), False, (5, 4, 3, 1, 1)),
    ((2, 3, 4, 5), False, (5, 4, 3, 2, 1)),
    ((3, 4, 5, 3), True, (5, 4, 3, 1, 3)),
    ((2, 3, 4, 5, 2), True, (5, 4, 3, 2, 2)),
])
def test_axis_order_x_fastest(shape, components, size):
    array = np.arange(np.prod(shape), dtype=np.int32).reshape(shape)
    d = tarv.Dataset.from_array(array, components=components)
    assert d.size == size
    back = np.asarray(d)
    expected_shape = tuple(n for n in shape) if len(shape) > 2 else (1,) + shape
    assert back.shape == (expected_shape if len(shape) > 2 else (1, 4, 5))
    assert np.array_equal(back.reshape(-1), array.reshape(-1)), "the same memory order"
    # x is the last array axis (or the one before the components): the element at x=1 is next in memory.
    x_axis = -2 if components else -1
    assert back.strides[x_axis] == back.itemsize * (size[4] if components else 1)


def test_a_view_keeps_its_dataset_alive():
    d = tarv.Dataset.from_array(np.arange(60, dtype=np.float32).reshape(3, 4, 5))
    watch = weakref.ref(d)
    a = np.asarray(d)
    del d
    gc.collect()
    assert watch() is not None, "the array holds the dataset"
    assert a[2, 3, 4] == 59.0
    a[0, 0, 0] = 7.0  # writes into the dataset's memory
    assert np.asarray(watch())[0, 0, 0] == 7.0
    del a
    gc.collect()
    assert watch() is None, "freed with its last array"


def test_views_of_sources_change_what_filters_compute():
    source = tarv.Dataset.from_array(np.zeros((2, 3, 4), dtype=np.float32))
    doubled = tarv.filters.linear_transformation(source, factor=2.0)
    view = np.asarray(source)
    view[1, 2, 3] = 5.0
    assert np.asarray(doubled)[1, 2, 3] == 10.0


def test_computed_datasets_give_their_evaluated_elements_and_outlive_their_sources():
    array = np.arange(60, dtype=np.int16).reshape(3, 4, 5)
    result = tarv.filters.linear_transformation(tarv.Dataset.from_array(array), factor=3.0, summand=-1.0)
    gc.collect()  # the source is only referenced by the filter
    values = np.asarray(result)
    assert values.dtype == np.float32
    assert np.array_equal(values, (array * 3.0 - 1.0).astype(np.float32))
    del result
    gc.collect()
    assert values[2, 3, 4] == 59 * 3 - 1


def test_boxes_compute_only_what_they_cover():
    array = np.arange(4 * 5 * 6, dtype=np.float64).reshape(4, 5, 6)
    result = tarv.filters.linear_transformation(tarv.Dataset.from_array(array), factor=0.5)
    part = result.to_array(np.s_[1:3, :, 2:5])
    assert part.shape == (2, 5, 3)
    assert np.array_equal(part, (array * 0.5).astype(np.float32)[1:3, :, 2:5])
    with pytest.raises(IndexError):
        result.to_array(np.s_[5:7])
    with pytest.raises(IndexError):
        result.to_array(np.s_[::2])


def test_other_byte_orders_and_strides_are_copied_into_native_order():
    big = np.arange(24, dtype=">u2").reshape(2, 3, 4)
    d = tarv.Dataset.from_array(big[:, ::-1, :])
    assert np.array_equal(np.asarray(d), big[:, ::-1, :].astype(np.uint16))


def test_geometry_and_modality_lut():
    angle = np.deg2rad(30)
    direction = [[np.cos(angle), -np.sin(angle), 0.0], [np.sin(angle), np.cos(angle), 0.0], [0.0, 0.0, 1.0]]
    d = tarv.Dataset.from_array(np.zeros((2, 3, 4), dtype=np.int16), spacing=(0.5, 0.75, 2.5), origin=(-10, 20, 30),
                                direction=direction)
    assert d.spacing == (0.5, 0.75, 2.5)
    assert d.origin == (-10.0, 20.0, 30.0)
    assert np.allclose(d.direction, direction)
    world = d.voxel_to_world(1, 0, 0)
    assert np.allclose(world, np.array([-10, 20, 30]) + 0.5 * np.array(direction)[:, 0])
    assert np.allclose(d.world_to_voxel(*world), (1, 0, 0))
    assert d.modality_lut is None
    d.modality_lut = (1.0, -1024.0)
    assert d.modality_lut == (1.0, -1024.0)


@pytest.mark.parametrize("bad, message", [
    (dict(array=np.zeros((2, 2, 2), dtype=np.complex64)), "no element type"),
    (dict(array=np.zeros((2, 2, 2), dtype=object)), "no element type"),
    (dict(array=np.zeros(5)), "from_array takes"),
    (dict(array=np.zeros((1, 1, 1, 1, 1, 1))), "from_array takes"),
    (dict(array=np.zeros((0, 2, 2))), "at least 1"),
    (dict(array=np.zeros((2, 2, 2)), spacing=(1, 0, 1)), "positive"),
    (dict(array=np.zeros((2, 2, 2)), spacing=(1, 1)), "x, y, z"),
    (dict(array=np.zeros((2, 2, 2)), direction=np.zeros((3, 3))), "singular"),
    (dict(array=np.zeros((2, 2, 2)), direction=np.eye(2)), "3 x 3"),
    (dict(array=np.zeros((2, 2, 2)), origin=(np.nan, 0, 0)), "finite"),
])
def test_refusals_are_value_errors(bad, message):
    with pytest.raises(ValueError, match=message):
        tarv.Dataset.from_array(**bad)


def test_an_empty_dataset_refuses_politely():
    with pytest.raises(TypeError):
        tarv.Dataset()
