"""Faults while the tool writes and reads: a full disk (a file size limit), a kill in the middle of
a write, output folders that cannot be written, inputs cut short anywhere. Never a crash, never a
half-written file in place of the old one, never wrong data with success."""
import os
import resource
import signal
import subprocess
import time

import numpy as np
import pytest

TARV = os.environ.get("TARV_TOOL", "tarv")
WRITABLE = ["v.tarv", "v.tif", "v.raw", "v.vti", "v.nii", "v.nii.gz", "v.mha"]


def tarv(*args, limit=None, **kwargs):
    def limited():
        if limit is not None:
            # A full disk: writes past the limit fail with EFBIG instead of raising SIGXFSZ.
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
    return subprocess.run([TARV, "--no-progress", *map(str, args)], capture_output=True, text=True,
                          preexec_fn=limited, **kwargs)


@pytest.fixture
def volume_file(tmp_path):
    rng = np.random.default_rng(5)
    volume = rng.integers(-1000, 2000, size=(24, 96, 96)).astype(np.int16)  # 442 KB
    volume.tofile(tmp_path / "in.raw")
    return tmp_path / "in.raw", volume


def layout(volume):
    return ["--raw-size", "%d,%d,%d" % volume.shape[::-1], "--raw-type", "int16"]


def leftovers(folder, keep):
    return sorted(p for p in os.listdir(folder) if p not in keep)


@pytest.mark.parametrize("name", WRITABLE)
def test_a_full_disk_leaves_the_old_file_and_no_temporary(tmp_path, volume_file, name):
    source, volume = volume_file
    out = tmp_path / "out"
    out.mkdir()
    (out / name).write_bytes(b"old contents")
    result = tarv("convert", source, out / name, *layout(volume), limit=64 * 1024)
    assert result.returncode == 1, result.stdout
    lines = result.stderr.strip().splitlines()
    assert len(lines) == 1 and str(out / name) in lines[0], result.stderr
    assert "FORWARD_DIRECTION" not in result.stderr
    assert (out / name).read_bytes() == b"old contents"
    assert leftovers(out, {name}) == []


def test_a_killed_write_leaves_the_old_file(tmp_path):
    big = np.random.default_rng(6).integers(0, 60000, size=(160, 256, 256)).astype(np.uint16)
    big.tofile(tmp_path / "big.raw")
    (tmp_path / "out.tif").write_bytes(b"old contents")
    process = subprocess.Popen([TARV, "--no-progress", "convert", str(tmp_path / "big.raw"), str(tmp_path / "out.tif"),
                                "--raw-size", "256,256,160", "--raw-type", "uint16"],
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    time.sleep(0.3)
    process.kill()
    process.wait()
    assert (tmp_path / "out.tif").read_bytes() == b"old contents"


def test_folders_that_cannot_be_written(tmp_path, volume_file):
    source, volume = volume_file
    missing = tarv("convert", source, tmp_path / "no" / "where" / "v.tarv", *layout(volume))
    assert missing.returncode == 1 and "does not exist" in missing.stderr
    locked = tmp_path / "locked"
    locked.mkdir()
    locked.chmod(0o500)
    try:
        refused = tarv("convert", source, locked / "v.tarv", *layout(volume))
        if os.geteuid() != 0:  # root writes anywhere
            assert refused.returncode == 1 and "cannot write" in refused.stderr
            assert os.listdir(locked) == []
    finally:
        locked.chmod(0o700)


@pytest.mark.parametrize("name", ["v.tarv", "v.tif", "v.nii", "v.nii.gz", "v.mha", "v.vti"])
def test_inputs_cut_anywhere_are_refused_or_read_exactly(tmp_path, volume_file, name):
    source, volume = volume_file
    small = volume[:4, :32, :40]
    small.tofile(tmp_path / "small.raw")
    assert tarv("convert", tmp_path / "small.raw", tmp_path / name, *layout(small)).returncode == 0
    whole = (tmp_path / name).read_bytes()
    rng = np.random.default_rng(len(name))
    # Every 4 KiB boundary (TIFF tiles and strips, slices of the others) and random offsets.
    cuts = sorted(set(list(range(0, len(whole), 4096)) + list(rng.integers(0, len(whole), size=4))))
    for cut in cuts:
        cut_file = tmp_path / ("cut-" + name)
        cut_file.write_bytes(whole[:cut])
        result = tarv("convert", cut_file, tmp_path / "back.raw", "--type", "float", timeout=60)
        assert result.returncode in (0, 1), (cut, result.returncode, result.stderr)
        if result.returncode == 0:
            back = np.fromfile(tmp_path / "back.raw", dtype=np.float32)
            assert np.array_equal(back, small.astype(np.float32).ravel()), "wrong data at cut %d" % cut
        else:
            assert len(result.stderr.strip().splitlines()) == 1, result.stderr
