"""The Python package's rows: the edge graph on a 256³ array from Python against the numpy/scipy
script, map_graph on 512 x 512 x 256 with two dask workers against one, and conversions between
datasets and NumPy arrays of 512³ float against a memcpy of the same bytes; prints {row: value} as
JSON. Wall time, median of the repetitions.

    PYTHONPATH=<build>/python python_rows.py EDGE_GRAPH_FILE
"""

import json
import os
import statistics
import sys
import time

os.environ.setdefault("OMP_NUM_THREADS", "1")
os.environ.setdefault("OPENBLAS_NUM_THREADS", "1")

import dask  # noqa: E402
import dask.array as da  # noqa: E402
import numpy as np  # noqa: E402

import tarv  # noqa: E402
import tarv.dask  # noqa: E402

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from tool_rows import ct_volume, edges  # noqa: E402


def wall(f, repetitions):
    times = []
    for _ in range(repetitions):
        start = time.perf_counter()
        f()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def main(graph_path):
    with open(graph_path) as f:
        graph = f.read()
    results = {}

    volume = ct_volume((256, 256, 256), 3)

    def edge_graph():
        return np.asarray(tarv.Graph(graph, {0: tarv.Dataset.from_array(volume)}).result())

    for threads in (1, 2):
        tarv.set_thread_count(threads)
        results[f"python_edges_t{threads}"] = wall(edge_graph, 3)
    results["python_edges_scipy"] = wall(lambda: edges(volume), 2)
    results["python_edges_differing"] = int(np.count_nonzero(edge_graph() != edges(volume)))

    # Chunks side by side on dask's threads, each chunk on one of the library's threads.
    tarv.set_thread_count(1)
    big = da.from_array(ct_volume((256, 512, 512), 5), chunks=(64, 256, 256))
    mapped = tarv.dask.map_graph(big, graph)
    for workers in (1, 2):
        with dask.config.set(scheduler="threads", num_workers=workers):
            results[f"map_graph_w{workers}"] = wall(lambda: mapped.compute(), 3)
    tarv.set_thread_count(0)

    floats = np.random.default_rng(1).random((512, 512, 512), dtype=np.float32)
    target = np.empty_like(floats)
    results["memcpy_512"] = wall(lambda: np.copyto(target, floats), 5)
    results["numpy_copy_512"] = wall(lambda: floats.copy(), 5)
    results["from_array_512"] = wall(lambda: tarv.Dataset.from_array(floats), 5)
    dataset = tarv.Dataset.from_array(floats)
    results["asarray_512"] = wall(lambda: np.asarray(dataset), 5)
    results["asarray_shares_memory"] = bool(np.shares_memory(np.asarray(dataset), np.asarray(dataset)))
    json.dump(results, sys.stdout, indent=1)
    print()


if __name__ == "__main__":
    main(sys.argv[1])
