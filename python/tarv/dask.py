"""Filter graphs over dask arrays, chunk by chunk.

``map_graph(array, graph)`` computes a graph (its text form, as ``tarv filter`` reads it, input
ID 0 being the array) on every chunk of a (z, y, x) dask array, each chunk grown by the margins the
graph reads around an element (``dask.array.map_overlap``), so that the result equals the
whole-volume result voxel for voxel, at the volume's border too.
"""
import dask.array as _da
import numpy as _np

import tarv as _tarv

__all__ = ["map_graph", "graph_margins"]


def _probe(graph, dtype, spacing, result_id):
    probe = _tarv.Dataset.from_array(_np.zeros((1, 1, 1), dtype=dtype), spacing=spacing)
    built = _tarv.Graph(graph, {0: probe}, name="graph")
    result = built.result() if result_id is None else built[result_id]
    return probe, built, result


def _check_local(built):
    for node in built.ids:
        if built.type_of(node) != "ScaleDataset":
            continue
        entries = dict(line.split(" = ", 1) for line in built.description(node).splitlines() if " = " in line)
        if entries.get("CalculateSourceMinimalMaximalValues", "true").strip().lower() == "true":
            raise ValueError("graph: ScaleDataset %d takes its source's range from the whole volume, which no chunk "
                             "sees: give SourceMinimalValue, SourceMaximalValue and "
                             "CalculateSourceMinimalMaximalValues = false" % node)


def graph_margins(graph, dtype="float32", result_id=None):
    """The voxels the result reads around an element along (z, y, x): (before, after) per axis."""
    probe, built, result = _probe(graph, dtype, (1.0, 1.0, 1.0), result_id)
    before, after = _tarv._tarv._margins(result, probe)
    return tuple((before[k], after[k]) for k in (2, 1, 0))


def map_graph(array, graph, spacing=(1.0, 1.0, 1.0), result_id=None):
    """The graph's result over a (z, y, x) array (dask or NumPy), as a dask array of the result's
    element type, chunked as the array is.

    ``spacing`` (x, y, z) is the voxel spacing the filters see (gradients are per world unit).
    ``result_id`` picks the result node; by default the only node no other uses. Graphs whose
    result depends on the whole volume at once (a ScaleDataset that computes its source's range)
    are refused. Each chunk runs on the library's threads (``tarv.set_thread_count``) with the GIL
    released, so dask's threads compute chunks side by side.
    """
    array = _da.asarray(array)
    if array.ndim != 3:
        raise ValueError("map_graph takes (z, y, x) arrays; got %d axes" % array.ndim)
    probe, built, result = _probe(graph, array.dtype, spacing, result_id)
    _check_local(built)
    if result.size[3] != 1 or result.size[4] != 1:
        raise ValueError("map_graph gives results of one time step and component")
    before, after = _tarv._tarv._margins(result, probe)
    depth = {axis: max(before[k], after[k]) for axis, k in ((0, 2), (1, 1), (2, 0))}
    dtype = result.dtype
    chosen = result_id

    def compute_chunk(chunk):
        if chunk.size == 0:
            return _np.zeros(chunk.shape, dtype=dtype)
        source = _tarv.Dataset.from_array(chunk, spacing=spacing)
        nodes = _tarv.Graph(graph, {0: source}, name="graph")
        computed = nodes.result() if chosen is None else nodes[chosen]
        return _np.asarray(computed)

    return _da.map_overlap(compute_chunk, array, depth=depth, boundary="none", trim=True, dtype=dtype,
                           meta=_np.empty((0, 0, 0), dtype=dtype))
