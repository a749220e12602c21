"""A filter graph over a cohort of files, on a dask.distributed cluster.

``run_cohort(paths, graph, output_folder)`` computes the graph (its text form, input ID 0 being
each file) for every file on the cluster's workers and writes each result atomically (a result
file appears complete or not at all). A failing file does not stop the others: its entry holds
the error.
"""
import os as _os
import time as _time

import tarv as _tarv

__all__ = ["process_file", "run_cohort", "output_path"]


def output_path(path, output_folder, suffix=".nii.gz"):
    """The result file of an input: its name without extensions, with suffix, in output_folder."""
    name = _os.path.basename(_os.path.normpath(str(path)))
    for extension in (".nii.gz", ".nii", ".tarv", ".tiff", ".tif", ".mha", ".mhd", ".nrrd", ".nhdr", ".vti", ".dcm",
                      ".raw", ".png", ".jpg", ".jpeg"):
        if name.lower().endswith(extension):
            name = name[:-len(extension)]
            break
    return _os.path.join(str(output_folder), name + suffix)


def process_file(path, graph, output, result_id=None, threads=1, **write_options):
    """Opens one file, computes the graph on it and writes the result to output; returns a dict:
    input, output, size, element_type, seconds, and error (None when it worked)."""
    start = _time.perf_counter()
    entry = {"input": str(path), "output": str(output), "error": None}
    try:
        _tarv.set_thread_count(threads)
        source = _tarv.open(path)
        nodes = _tarv.Graph(graph, {0: source}, name="graph")
        result = nodes.result() if result_id is None else nodes[result_id]
        written = _tarv.write(result, output, **write_options)
        entry["size"] = written["size"]
        entry["element_type"] = written["element_type"]
    except (ValueError, OSError, MemoryError, KeyError) as error:
        entry["error"] = "%s: %s" % (type(error).__name__, error)
    entry["seconds"] = _time.perf_counter() - start
    return entry


def run_cohort(paths, graph, output_folder, client=None, suffix=".nii.gz", result_id=None, threads=1,
               **write_options):
    """Runs process_file for every path on the client's cluster (``dask.distributed.Client``; a
    LocalCluster of two single-threaded worker processes when None) and returns the entries in
    the order of paths. ``threads`` is the library's thread count inside each task."""
    from dask.distributed import Client, LocalCluster

    paths = [str(p) for p in paths]
    _os.makedirs(str(output_folder), exist_ok=True)
    outputs = [output_path(p, output_folder, suffix) for p in paths]
    if len(set(outputs)) != len(outputs):
        raise ValueError("two inputs would write the same result file; rename them or use separate folders")
    own = None
    if client is None:
        own = LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None)
        client = Client(own)
    try:
        futures = [client.submit(process_file, p, graph, o, result_id, threads, pure=False, **write_options)
                   for p, o in zip(paths, outputs)]
        return client.gather(futures)
    finally:
        if own is not None:
            client.close()
            own.close()
