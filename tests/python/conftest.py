"""Shared fixtures of the Python package's tests: the tool (TARV_TOOL) for results of the C++ side,
the edge graph of the examples, CT-like volumes."""
import os
import pathlib

import numpy as np
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
EDGE_GRAPH = (ROOT / "examples" / "graphs" / "edges.graph").read_text()


@pytest.fixture
def tool():
    path = os.environ.get("TARV_TOOL")
    if not path:
        pytest.skip("TARV_TOOL names no tool")
    return path


@pytest.fixture
def edge_graph():
    return EDGE_GRAPH


def ct_like(shape, seed=3):
    """int16: air -1000, a body near 40 with noise, a dense core."""
    rng = np.random.default_rng(seed)
    nz, ny, nx = shape
    z, y, x = np.ogrid[0:nz, 0:ny, 0:nx]
    r = np.sqrt(((x - nx / 2) / nx) ** 2 + ((y - ny / 2) / ny) ** 2 + ((z - nz / 2) / nz) ** 2)
    v = np.where(r < 0.4, 40.0, -1000.0) + np.where(r < 0.15, 1000.0, 0.0) + rng.normal(0.0, 20.0, shape)
    return v.astype(np.int16)
