"""Filters and graphs from Python against the C++ side (the tool computing the same graph), text
forms read and written, evaluation with progress, and Ctrl-C stopping it."""
import os
import signal
import subprocess
import threading

import numpy as np
import pytest

import tarv
from conftest import ct_like


def test_every_filter_class_has_a_function_with_its_entries():
    for type_name in tarv.filter_types():
        function = getattr(tarv.filters, type_name[:-len("Dataset")].replace("Dataset", "").lower()
                           if False else __import__("re").sub(r"(?<!^)(?=[A-Z])", "_", type_name[:-7]).lower())
        for name, _ in tarv.filter_entries(type_name):
            assert name in function.__doc__


def test_keyword_filters_compute_what_numpy_computes():
    volume = ct_like((4, 5, 6)).astype(np.float64)
    d = tarv.Dataset.from_array(volume)
    assert np.array_equal(np.asarray(tarv.filters.linear_transformation(d, factor=0.5, summand=3)),
                          (volume * 0.5 + 3).astype(np.float32))
    threshold = tarv.filters.interval_threshold(d, minimal_foreground_threshold_value=0, maximal_foreground_threshold_value=500,
                                                foreground_value=1, background_value=0, set_foreground=True,
                                                set_background=True)
    assert np.array_equal(np.asarray(threshold), ((volume >= 0) & (volume <= 500)).astype(np.float32))
    cast = tarv.filters.cast(d, element_type="int16")
    assert cast.dtype == np.int16 and np.array_equal(np.asarray(cast), volume.astype(np.int16))
    length = tarv.filters.vector_length(d, d)
    assert np.allclose(np.asarray(length), np.sqrt(2) * np.abs(volume), rtol=1e-6)


def test_unknown_entries_and_bad_values_are_named():
    d = tarv.Dataset.from_array(np.zeros((2, 2, 2), dtype=np.float32))
    with pytest.raises(ValueError, match="has no entry 'KernelSize'"):
        tarv.filters.smooth(d, kernel_size=3)
    with pytest.raises(TypeError, match="takes numbers or true/false"):
        tarv.filters.smooth(d, kernel_x_size="big")
    with pytest.raises(ValueError, match="integers run from"):
        tarv.filters.smooth(d, kernel_x_size=10 ** 12)
    with pytest.raises(ValueError, match="does not accept its 2 sources"):
        tarv.filters.smooth(d, d)
    with pytest.raises(ValueError, match="unknown type 'BlurDataset'"):
        tarv.filter("BlurDataset", d)
    with pytest.raises(TypeError):
        tarv.filters.smooth(np.zeros((2, 2, 2)))
    with pytest.raises(ValueError, match="no element type|not an element type"):
        tarv.filters.cast(d, element_type="complex64")


def test_graph_text_gives_the_tools_result(tmp_path, tool, edge_graph):
    volume = ct_like((12, 20, 24))
    tarv.write(tarv.Dataset.from_array(volume), tmp_path / "ct.tarv")
    (tmp_path / "edges.graph").write_text(edge_graph)
    subprocess.run([tool, "--no-progress", "filter", str(tmp_path / "edges.graph"), "-i", "0=" + str(tmp_path / "ct.tarv"),
                    "-o", str(tmp_path / "tool.raw")], check=True, capture_output=True)
    expected = np.fromfile(tmp_path / "tool.raw", dtype=np.uint8).reshape(volume.shape)
    graph = tarv.Graph(edge_graph, {0: tarv.open(tmp_path / "ct.tarv")})
    assert graph.ids == [1, 2, 3, 4, 5, 6, 7] and graph.result_ids == [7]
    edges = np.asarray(graph.result())
    assert edges.dtype == np.uint8 and np.array_equal(edges, expected)
    assert np.count_nonzero(edges) > 0


def test_graphs_written_as_text_read_back_as_the_same_computation(edge_graph):
    volume = ct_like((6, 9, 10))
    source = tarv.Dataset.from_array(volume)
    smooth = tarv.filters.smooth(source, kernel_x_size=3, kernel_y_size=3, kernel_z_size=3, margin_value=-1000)
    gradients = [tarv.filters.gradient(smooth, gradient_dimensionality=3, gradient_direction=k, gradient_filter_size=3)
                 for k in range(3)]
    result = tarv.filters.cast(tarv.filters.vector_length(*gradients), element_type="uint16")
    text = tarv.describe_graph(result, [(source, 0)])
    again = tarv.Graph(text, {0: source})
    assert np.array_equal(np.asarray(again.result()), np.asarray(result))
    with pytest.raises(ValueError, match="tarv.Graph|line|names neither"):
        tarv.Graph(text, {})
    with pytest.raises(KeyError):
        again[99]


def test_nodes_outlive_their_graph_object(edge_graph):
    volume = ct_like((5, 6, 7))
    node = tarv.Graph(edge_graph, {0: tarv.Dataset.from_array(volume)})[5]
    import gc
    gc.collect()
    assert node.type_name == "VectorLengthDataset"
    assert np.asarray(node).shape == volume.shape


def test_progress_and_an_exception_of_the_callback():
    volume = ct_like((24, 48, 48))
    smooth = tarv.filters.smooth(tarv.Dataset.from_array(volume), kernel_x_size=5, kernel_y_size=5, kernel_z_size=5)
    fractions = []
    smooth.compute(progress=fractions.append)
    assert fractions and fractions == sorted(fractions)

    def fail(fraction):
        raise RuntimeError("enough")

    fresh = tarv.filters.smooth(tarv.Dataset.from_array(volume), kernel_x_size=5, kernel_y_size=5, kernel_z_size=5)
    with pytest.raises(RuntimeError, match="enough"):
        fresh.compute(progress=fail)


def test_ctrl_c_stops_a_computation_cleanly():
    volume = ct_like((64, 96, 96))
    d = tarv.Dataset.from_array(volume)
    slow = tarv.filters.smooth(d, kernel_x_size=9, kernel_y_size=9, kernel_z_size=9)
    reports = []

    def press_ctrl_c(fraction):
        reports.append(fraction)
        if len(reports) == 2:
            os.kill(os.getpid(), signal.SIGINT)  # as the terminal sends it, during the work

    with pytest.raises(KeyboardInterrupt):
        slow.compute(progress=press_ctrl_c)
    assert len(reports) == 2, "stopped at the report after the signal"
    # The graph stays usable after the stop, and computes the same values as a fresh one.
    fresh = tarv.filters.smooth(tarv.Dataset.from_array(volume), kernel_x_size=9, kernel_y_size=9, kernel_z_size=9)
    assert np.array_equal(np.asarray(slow), np.asarray(fresh))


def test_ctrl_c_without_a_callback():
    volume = ct_like((128, 256, 256))
    d = tarv.Dataset.from_array(volume)
    slow = tarv.filters.smooth(tarv.filters.smooth(d, kernel_x_size=15, kernel_y_size=15, kernel_z_size=15),
                               kernel_x_size=15, kernel_y_size=15, kernel_z_size=15)
    timer = threading.Timer(0.2, lambda: os.kill(os.getpid(), signal.SIGINT))
    timer.start()
    try:
        with pytest.raises(KeyboardInterrupt):
            slow.compute()
            threading.Event().wait(10)  # finished before the signal: it arrives here
    finally:
        timer.cancel()


def test_thread_counts_give_the_same_result(edge_graph):
    volume = ct_like((16, 32, 32))
    results = []
    for threads in (1, 2):
        tarv.set_thread_count(threads)
        assert tarv.thread_count() == threads
        results.append(np.asarray(tarv.Graph(edge_graph, {0: tarv.Dataset.from_array(volume)}).result()))
    tarv.set_thread_count(0)
    assert np.array_equal(results[0], results[1])
