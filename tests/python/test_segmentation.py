"""Segmentation measures from Python: counts and overlaps against NumPy, every measure against
the tool's seg-compare, groups and their removal."""
import json
import subprocess

import numpy as np
import pytest

import tarv


def ball(shape, centre, radius):
    z, y, x = np.ogrid[0:shape[0], 0:shape[1], 0:shape[2]]
    return ((x - centre[0]) ** 2 + (y - centre[1]) ** 2 + (z - centre[2]) ** 2 <= radius ** 2).astype(np.uint8)


def test_counts_and_overlaps_against_numpy():
    a = ball((20, 24, 28), (12, 12, 10), 7)
    b = ball((20, 24, 28), (15, 11, 10), 6)
    da = tarv.Dataset.from_array(a, spacing=(0.5, 0.5, 1.0))
    db = tarv.Dataset.from_array(b, spacing=(0.5, 0.5, 1.0))
    assert tarv.segmentation.count(da) == int(a.sum())
    measures = tarv.segmentation.compare(da, db)
    shared = int(np.count_nonzero(a & b))
    assert measures["shared"] == shared
    assert measures["union"] == int(np.count_nonzero(a | b))
    assert measures["only_a"] == int(np.count_nonzero(a & ~b.astype(bool)))
    assert measures["dice"] == pytest.approx(2 * shared / (a.sum() + b.sum()), abs=1e-12)
    assert measures["jaccard"] == pytest.approx(shared / np.count_nonzero(a | b), abs=1e-12)
    assert measures["hausdorff_distance"] > 0
    assert tarv.segmentation.dice(da, db) == measures["dice"]


def test_every_measure_as_the_tool_computes_it(tmp_path, tool):
    a = ball((16, 18, 20), (9, 9, 8), 6)
    b = ball((16, 18, 20), (11, 8, 8), 5)
    for name, array in (("a", a), ("b", b)):
        tarv.write(tarv.Dataset.from_array(array, spacing=(0.7, 0.7, 1.5)), tmp_path / (name + ".tarv"))
    printed = subprocess.run([tool, "--no-progress", "seg-compare", str(tmp_path / "a.tarv"), str(tmp_path / "b.tarv"),
                              "--json"], check=True, capture_output=True, text=True).stdout
    expected = json.loads(printed)
    ours = tarv.segmentation.compare(tarv.open(tmp_path / "a.tarv"), tarv.open(tmp_path / "b.tarv"))
    for key, theirs in (("voxels_a", "voxelsA"), ("voxels_b", "voxelsB"), ("shared", "shared"), ("union", "union"),
                        ("dice", "dice"), ("jaccard", "jaccard"), ("hausdorff_distance", "hausdorffDistance"),
                        ("average_border_distance", "averageBorderDistance")):
        assert ours[key] == pytest.approx(expected[theirs], rel=1e-12), key


def test_measures_without_meaning_are_none_and_mismatches_are_refused():
    empty = tarv.Dataset.from_array(np.zeros((4, 4, 4), dtype=np.uint8))
    measures = tarv.segmentation.compare(empty, empty)
    assert measures["dice"] is None and measures["hausdorff_distance"] is None
    with pytest.raises(ValueError, match="differ in size"):
        tarv.segmentation.compare(empty, tarv.Dataset.from_array(np.zeros((4, 4, 5), dtype=np.uint8)))
    with pytest.raises(ValueError, match="differ in spacing"):
        tarv.segmentation.compare(empty, tarv.Dataset.from_array(np.zeros((4, 4, 4), dtype=np.uint8), spacing=(2, 1, 1)))
    with pytest.raises(IndexError):
        tarv.segmentation.count(empty, t=1)


def test_groups_and_small_group_removal():
    seg = np.zeros((5, 10, 12), dtype=np.uint8)
    seg[1:4, 1:6, 1:6] = 1      # 75 voxels
    seg[2, 8, 9] = 1            # a speck
    seg[3, 7:9, 10:12] = 1      # 4 voxels
    d = tarv.Dataset.from_array(seg)
    group = tarv.segmentation.group(d, (1, 1, 1))
    assert len(group) == 75 and set(group) == {(x, y, z) for z in range(1, 4) for y in range(1, 6) for x in range(1, 6)}
    tarv.segmentation.remove_small_groups(d, maximal_size=4)
    cleaned = np.asarray(d)
    assert cleaned.sum() == 75 and cleaned[2, 8, 9] == 0
    computed = tarv.filters.cast(d, element_type="uint8")
    with pytest.raises(ValueError, match="held in memory"):
        tarv.segmentation.remove_small_groups(computed, maximal_size=4)
