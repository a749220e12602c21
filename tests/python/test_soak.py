"""The package under a soak: the edge graph 200 times from NumPy arrays, as arrays, with boxes,
through map_graph and files; the same results and no growth of the interpreter's memory."""
import ctypes
import gc

import dask.array as da
import numpy as np

import tarv
import tarv.dask
from conftest import ct_like


def resident_kilobytes():
    """Resident memory; under AddressSanitizer (whose quarantine holds freed memory back) the memory
    allocated and not freed."""
    try:
        allocated = ctypes.CDLL(None).__sanitizer_get_current_allocated_bytes
    except AttributeError:
        with open("/proc/self/statm") as statm:
            return int(statm.read().split()[1]) * 4
    allocated.restype = ctypes.c_size_t
    return allocated() // 1024


def test_two_hundred_rounds_in_flat_memory(tmp_path, edge_graph):
    volume = ct_like((14, 24, 28))
    reference = np.asarray(tarv.Graph(edge_graph, {0: tarv.Dataset.from_array(volume)}).result()).copy()
    settled = 0
    for round in range(200):
        source = tarv.Dataset.from_array(volume)
        result = tarv.Graph(edge_graph, {0: source}).result()
        kind = round % 4
        if kind == 0:
            values = np.asarray(result)
        elif kind == 1:
            values = np.concatenate([result.to_array(np.s_[:7]), result.to_array(np.s_[7:])])
        elif kind == 2:
            values = tarv.dask.map_graph(da.from_array(volume, chunks=(5, 13, 15)), edge_graph).compute(
                scheduler="threads")
        else:
            tarv.write(result, tmp_path / "edges.tarv")
            values = np.asarray(tarv.open(tmp_path / "edges.tarv")).astype(np.uint8)
        assert np.array_equal(values, reference), round
        del source, result, values
        if round == 20:
            gc.collect()
            settled = resident_kilobytes()
    gc.collect()
    grown = resident_kilobytes() - settled
    print("resident memory after round 20: %d KB; after round 200: %+d KB" % (settled, grown))
    assert grown < 16 * 1024
