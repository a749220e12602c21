"""The examples of examples/python run as a user runs them."""
import os
import subprocess
import sys

import numpy as np

import tarv
from conftest import ROOT, ct_like

# The package the tests import, for the example's interpreter too.
ENVIRONMENT = dict(os.environ, PYTHONPATH=os.path.dirname(os.path.dirname(os.path.abspath(tarv.__file__))))


def test_the_ct_tour_runs_and_saves_its_figure(tmp_path):
    result = subprocess.run([sys.executable, str(ROOT / "examples" / "python" / "ct_tour.py")], cwd=tmp_path,
                            capture_output=True, text=True, timeout=300, env=ENVIRONMENT)
    assert result.returncode == 0, result.stderr
    assert (tmp_path / "ct-tour" / "slice.png").stat().st_size > 1000
    assert "dice" in result.stdout and "Type = SmoothDataset" in result.stdout
    dense = tarv.open(tmp_path / "ct-tour" / "dense.nii.gz")
    assert np.asarray(dense).max() == 1


def test_the_cohort_example_processes_every_scan(tmp_path):
    scans = []
    for k in range(2):
        scans.append(tmp_path / ("s%d.tarv" % k))
        tarv.write(tarv.Dataset.from_array(ct_like((6, 8, 9), seed=k)), scans[-1])
    result = subprocess.run([sys.executable, str(ROOT / "examples" / "python" / "cohort.py"),
                             str(ROOT / "examples" / "graphs" / "edges.graph"), str(tmp_path / "out"), *map(str, scans)],
                            capture_output=True, text=True, timeout=120, env=ENVIRONMENT)
    assert result.returncode == 0, result.stderr
    assert sorted(p.name for p in (tmp_path / "out").iterdir()) == ["s0.nii.gz", "s1.nii.gz"]
