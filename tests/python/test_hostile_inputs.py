"""Whatever Python objects the package is given, it answers with an exception, never a crash."""
import math

import numpy as np
import pytest

import tarv

def dataset():
    return tarv.Dataset.from_array(np.arange(24, dtype=np.float32).reshape(2, 3, 4))


@pytest.mark.parametrize("call", [
    lambda: tarv.Dataset.from_array(None),
    lambda: tarv.Dataset.from_array("text"),
    lambda: tarv.Dataset.from_array([[[1, 2], [3]]]),
    lambda: tarv.Dataset.from_array(np.zeros((2, 2, 2)), spacing="abc"),
    lambda: tarv.Dataset.from_array(np.zeros((2, 2, 2)), spacing=(1, 1, 1e400)),
    lambda: tarv.Dataset.from_array(np.zeros((2, 2, 2)), direction=[[1, 0, 0], [0, 1], [0, 0, 1]]),
    lambda: tarv.Dataset.from_array(np.zeros((2, 2, 2)), direction="x"),
    lambda: tarv.Dataset.from_array(np.zeros((2, 2)), components=True),
    lambda: tarv.Dataset._from_array(np.zeros((2, 2, 2)), [2, 2, 3, 1, 1], [1, 1, 1, 1], [0, 0, 0, 0], None),
    lambda: tarv.Dataset._from_array(np.zeros((2, 2, 2)), [2, 2, 2, 1], [1, 1, 1, 1], [0, 0, 0, 0], None),
    lambda: tarv.Dataset._from_array(np.zeros((2, 2, 2)), [2, 2, -2, -1, 1], [1, 1, 1, 1], [0, 0, 0, 0], None),
    lambda: tarv.Dataset._from_array(np.zeros((4, 4))[:, ::2], [2, 4, 1, 1, 1], [1, 1, 1, 1], [0, 0, 0, 0], None),
    lambda: dataset()._array_of_box([0, 0, 0, 0, 0], [9, 9, 9, 9, 9]),
    lambda: dataset()._array_of_box([3, 0, 0, 0, 0], [1, 0, 0, 0, 0]),
    lambda: dataset()._array_of_box([0, 0], [1, 1]),
    lambda: dataset()._compute_box([-1, 0, 0, 0, 0], [1, 1, 1, 0, 0]),
    lambda: dataset().to_array(np.s_[0:1, 0:1, 0:1, 0:1]),
    lambda: dataset().to_array(3),
    lambda: setattr(dataset(), "modality_lut", (0.0, 1.0)),
    lambda: setattr(dataset(), "modality_lut", (math.nan, 1.0)),
    lambda: setattr(dataset(), "modality_lut", "slope"),
    lambda: dataset().set_geometry((1, 1, 0), (0, 0, 0)),
    lambda: tarv.filters.smooth(dataset(), kernel_x_size=None),
    lambda: tarv.filters.smooth(dataset(), kernel_x_size=[[1, 2], {}]),
    lambda: tarv.filters.smooth(dataset(), kernel_x_size=10 ** 30),
    lambda: tarv.filters.smooth(dataset(), kernel_x_size="3\nType = CastDataset"),
    lambda: tarv.filters.smooth(dataset(), kernel_x_size=[]),
    lambda: tarv.filters.smooth(dataset(), kernel_x_size=np.int64(2) ** 40),
    lambda: tarv.filters.smooth(dataset(), ID=4),
    lambda: tarv.filters.smooth(),
    lambda: tarv.filters.vector_length(*([dataset()] * 9)),
    lambda: tarv.filters.cast(dataset(), element_type=object),
    lambda: tarv.filters.cast(dataset(), element_type=99),
    lambda: tarv.Graph(b"\x00\xff" * 10, {}),
    lambda: tarv.Graph("ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 0\n", {0: "not a dataset"}),
    lambda: tarv.Graph("ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 0\n", {0: dataset(), 1: None}),
    lambda: tarv.Graph("\0", {}),
    lambda: tarv.Graph("ID = 1\nType = CastDataset\nSourceDatasetIDList = 1\n", {}),
    lambda: tarv.describe_graph(None),
    lambda: tarv.write(dataset(), 42),
    lambda: tarv.write(dataset(), "/tmp/x.raw", time=-3),
    lambda: tarv.write(dataset(), "/tmp/x.raw", rescale=("a", "b")),
    lambda: tarv.write(dataset(), "/tmp/x.raw", rescale=(5, 1), element_type="uint8"),
    lambda: tarv.write(dataset(), "/tmp/x.raw", raw={"header": -5}),
    lambda: tarv.write(dataset(), "/tmp/x.raw", raw={"header": "big"}),
    lambda: tarv.write(dataset(), "/tmp/x.raw", element_type="int4"),
    lambda: tarv.write(dataset(), "/proc/x.raw"),
    lambda: tarv.write(dataset(), "/tmp"),
    lambda: tarv.open("/tmp", format="nifti"),
    lambda: tarv.open("/dev/null"),
    lambda: tarv.open("/dev/null", format="raw", raw={"size": (1 << 20, 1 << 20, 1 << 20), "element_type": "int16"}),
    lambda: tarv.open("/dev/null", format="raw", raw={"size": (2, 2), "element_type": "int16"}),
    lambda: tarv.open("/dev/null", format="raw", raw={"size": (2, 2, 2)}),
    lambda: tarv.open(None),
    lambda: tarv.segmentation.group(dataset(), (0, 0)),
    lambda: tarv.segmentation.group(dataset(), (0, 0, 0), limit=-1),
    lambda: tarv.segmentation.count(dataset(), t=-1),
    lambda: tarv.segmentation.compare(dataset(), None),
    lambda: tarv.dask.map_graph(np.zeros((4, 4, 4)), "nonsense"),
])
def test_refused_with_an_exception(call):
    import tarv.dask  # noqa: F401
    with pytest.raises((ValueError, TypeError, IndexError, KeyError, OSError, MemoryError, RuntimeError)):
        call()
