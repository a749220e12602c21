"""Filter graphs over dask arrays chunk by chunk, equal to the whole volume voxel for voxel, and
the cohort runner on a local cluster of two worker processes."""
import os

import dask
import dask.array as da
import numpy as np
import pytest

import tarv
import tarv.cohort
import tarv.dask
from conftest import ct_like

SMOOTH_THEN_GRADIENT = """
ID = 1
Type = SmoothDataset
SourceDatasetIDList = 0
KernelXSize = 5
KernelYSize = 3
KernelZSize = 1
MarginValue = 7

ID = 2
Type = GradientDataset
SourceDatasetIDList = 1
GradientDimensionality = 3
GradientDirection = 2
GradientFilterSize = 3
"""


def whole(graph, volume, spacing=(1.0, 1.0, 1.0)):
    return np.asarray(tarv.Graph(graph, {0: tarv.Dataset.from_array(volume, spacing=spacing)}).result())


@pytest.mark.parametrize("chunks", [(5, 7, 9), (13, 11, 6), (3, 40, 17), (40, 40, 40)])
def test_map_graph_equals_the_whole_volume(edge_graph, chunks):
    volume = ct_like((23, 29, 31))
    expected = whole(edge_graph, volume, (0.8, 0.8, 2.0))
    result = tarv.dask.map_graph(da.from_array(volume, chunks=chunks), edge_graph, spacing=(0.8, 0.8, 2.0))
    assert result.dtype == np.uint8
    computed = result.compute(scheduler="threads")
    assert computed.shape == volume.shape
    assert np.array_equal(computed, expected), "differing voxels: %d" % np.count_nonzero(computed != expected)


def test_map_graph_with_uneven_margins_and_a_float_result():
    volume = ct_like((17, 19, 23)).astype(np.float32)
    assert tarv.dask.graph_margins(SMOOTH_THEN_GRADIENT) == ((1, 1), (2, 2), (3, 3))
    expected = whole(SMOOTH_THEN_GRADIENT, volume)
    result = tarv.dask.map_graph(da.from_array(volume, chunks=(4, 6, 5)), SMOOTH_THEN_GRADIENT)
    assert result.dtype == np.float32
    assert np.array_equal(result.compute(scheduler="threads"), expected)
    # NumPy input, the synchronous scheduler: the same.
    assert np.array_equal(tarv.dask.map_graph(volume, SMOOTH_THEN_GRADIENT).compute(scheduler="sync"), expected)


def test_map_graph_refuses_what_no_chunk_can_compute():
    scale = "ID = 1\nType = ScaleDataset\nSourceDatasetIDList = 0\n"
    with pytest.raises(ValueError, match="whole volume"):
        tarv.dask.map_graph(da.zeros((4, 4, 4), chunks=2), scale)
    fixed = scale + "CalculateSourceMinimalMaximalValues = false\nSourceMinimalValue = 0\nSourceMaximalValue = 10\n"
    assert tarv.dask.map_graph(da.ones((4, 4, 4), chunks=2), fixed).compute()[0, 0, 0] == pytest.approx(0.1)
    with pytest.raises(ValueError, match="\\(z, y, x\\)"):
        tarv.dask.map_graph(da.zeros((4, 4), chunks=2), scale)


def test_cohort_on_a_local_cluster_writes_every_result_atomically(tmp_path, edge_graph):
    from dask.distributed import Client, LocalCluster

    inputs = []
    for k in range(3):
        path = tmp_path / ("scan%d.nii.gz" % k)
        tarv.write(tarv.Dataset.from_array(ct_like((10, 14, 16), seed=k), spacing=(0.7, 0.7, 2.0)), path)
        inputs.append(path)
    broken = tmp_path / "broken.nii"
    broken.write_bytes(b"not a volume")
    inputs.append(broken)
    out = tmp_path / "out"
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster, \
            Client(cluster) as client:
        entries = tarv.cohort.run_cohort(inputs, edge_graph, out, client=client, suffix=".tarv")
    assert [e["input"] for e in entries] == [str(p) for p in inputs]
    for k in range(3):
        assert entries[k]["error"] is None
        written = np.asarray(tarv.open(out / ("scan%d.tarv" % k)))
        source = np.asarray(tarv.open(inputs[k]))
        assert np.array_equal(written, whole(edge_graph, source, (0.7, 0.7, 2.0)))
    assert "broken.nii" in entries[3]["error"]
    assert sorted(os.listdir(out)) == ["scan0.tarv", "scan1.tarv", "scan2.tarv"], "nothing half written"
